// What the Manager peer keeps of a conversation, and when its socket appears.

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <fstream>
#include <stdexcept>
#include <system_error>
#include <thread>

#include "orvex_simulator/manager_peer.h"

namespace {

using orvd::ManagerPeer;
using orvd::Milliseconds;

constexpr const char* kPath = "/dev/socket/peer";

class Client {
 public:
  // Tries to connect as long as the socket's file does not exist.
  Client() {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::string(kPath).copy(address.sun_path, sizeof(address.sun_path));
    do {
      result_ = connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
    } while (result_ != 0 && errno == ENOENT);
  }
  ~Client() { close(fd_); }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  bool connected() const { return result_ == 0; }
  void Send(const std::string& text) const {
    ASSERT_EQ(send(fd_, text.data(), text.size(), 0), static_cast<ssize_t>(text.size()));
  }

 private:
  const int fd_ = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
  int result_ = -1;
};

std::vector<std::string> Texts(const ManagerPeer& peer) {
  std::vector<std::string> texts;
  for (const auto& entry : peer.transcript()) {
    texts.push_back(entry.text);
  }
  return texts;
}

TEST(ManagerPeer, KeepsTheLatestEntriesWithinItsLimits) {
  ManagerPeer peer(kPath);
  const Client client;
  for (const char* text : {"1", "2", "3", "4", "5"}) {
    client.Send(text);
  }
  while (peer.Next().value_or("5") != "5") {
  }
  peer.KeepTranscript(3);
  EXPECT_THAT(Texts(peer), testing::ElementsAre("3", "4", "5"));
  peer.KeepTranscript(3, 4);
  client.Send("678");
  peer.Next();
  EXPECT_THAT(Texts(peer), testing::ElementsAre("5", "678"));
}

// Each message has run its rule when it was received, also when it is not kept.
struct RuledPeer : ManagerPeer {
  RuledPeer() : ManagerPeer(kPath) {
    SetRule("M", [this](const std::string&) { return ++ruled, std::nullopt; });
  }
  void Receive(std::size_t count) {
    {
      const Client client;
      for (std::size_t i = 0; i < count; ++i) {
        client.Send("M");
      }
    }
    ASSERT_TRUE(WaitEnded(1));
    EXPECT_EQ(ruled, count);
  }
  std::atomic<std::size_t> ruled{0};
};

TEST(ManagerPeer, ReportsMessagesThatItCouldNotKeep) {
  RuledPeer peer;
  peer.Receive(orvd::kUnreadMessages + 2);
  for (std::size_t i = 0; i < orvd::kUnreadMessages; ++i) {
    ASSERT_EQ(peer.Next(), "M");
  }
  EXPECT_THROW(peer.Next(), std::overflow_error);
  peer.SkipAll();
  Client().Send("N");
  EXPECT_EQ(peer.Next(), "N");
}

TEST(ManagerPeer, DiscardsMessagesButRunsTheirRules) {
  RuledPeer peer;
  peer.DiscardMessages();
  peer.Receive(1);
  EXPECT_EQ(peer.Next(Milliseconds(0)), std::nullopt);
}

TEST(ManagerPeer, ReadsWhatWasSentBeforeAReset) {
  ManagerPeer peer(kPath);
  {
    const Client client;
    ASSERT_TRUE(peer.WaitConnected());
    peer.StopReading();
    client.Send("1");
    client.Send("2");
    ASSERT_TRUE(peer.Send("unread"));
  }
  peer.ResumeReading();
  EXPECT_EQ(peer.Next(), "1");
  EXPECT_EQ(peer.Next(), "2");
  EXPECT_TRUE(peer.WaitEnded(1));
}

TEST(ManagerPeer, LeavesFilesOfOthersAlone) {
  const std::string unfinished = std::string(kPath) + ".new";
  std::ofstream(unfinished).flush();
  EXPECT_THROW(ManagerPeer{kPath}, std::system_error);
  EXPECT_EQ(unlink(unfinished.c_str()), 0);
  EXPECT_THROW(ManagerPeer{"/dev/missing/peer"}, std::system_error);
  ManagerPeer first(kPath);
  EXPECT_THROW(ManagerPeer{kPath}, std::system_error);
  ASSERT_EQ(unlink(kPath), 0);
  const ManagerPeer second(kPath);
  first.StopListening();
  EXPECT_EQ(access(kPath, F_OK), 0);
}

// A client that waits for the socket's file must not be refused.
TEST(ManagerPeer, ListensBeforeItsSocketAppears) {
  for (int i = 0; i < 300; ++i) {
    std::atomic<bool> waiting{false};
    bool connected = false;
    std::thread client([&] {
      waiting = true;
      connected = Client().connected();
    });
    while (!waiting) {
    }
    {
      ManagerPeer peer(kPath);
      client.join();
    }
    ASSERT_TRUE(connected) << "attempt " << i;
  }
}

}  // namespace
