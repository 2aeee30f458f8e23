// docs/PROTOCOL.md against the library and its sources.

#include <json/json.h>

#include <filesystem>
#include <map>
#include <regex>
#include <set>

#include "docs/conversation.h"
#include "docs/member_path.h"
#include "json_text.h"

namespace {

using std::string;

TEST(ProtocolDocument, ExamplesAreTheConversation) {
  Conversation conversation;
  for (const Example& example : Examples()) {
    conversation.Play(example);
    ASSERT_FALSE(HasFailure());
  }
  EXPECT_TRUE(conversation.IsOver());
}

bool IsOfType(const Json::Value& value, const string& type) {
  return type == "text"     ? value.isString()
         : type == "number" ? value.isInt()
         : type == "list"   ? value.isArray()
                            : type == "object" && value.isObject();
}

// Also of what is inside of a member, where the table goes on there.
void ExpectListed(const Json::Value& value, const string& path, const std::set<string>& listed) {
  EXPECT_EQ(listed.count(path), 1U) << path << " is not in the table";
  const auto inside = listed.upper_bound(path);
  if (inside == listed.end() || inside->rfind(path, 0) != 0) {
    return;
  }
  for (auto member = value.begin(); member != value.end(); ++member) {
    const string name = (path.empty() ? "" : ".") + member.name();
    ExpectListed(*member, path + (value.isArray() ? "[]" : name), listed);
  }
}

void ExpectMembersAsListed(const Example& example) {
  Json::Value message = orvd::ParseObject(example.text);
  std::set<string> listed{"", "req_type"};
  for (const Row& row : example.members) {
    listed.insert(Quoted(row.cells[0]).at(0));
    const Json::Value* member = FindMemberAt(message, Quoted(row.cells[0])[0]);
    EXPECT_TRUE(member != nullptr && IsOfType(*member, row.cells[1])) << row.line;
  }
  SCOPED_TRACE("docs/PROTOCOL.md:" + std::to_string(example.line));
  ExpectListed(message, "", listed);
}

TEST(ProtocolDocument, TablesHaveEveryMemberWithItsType) {
  for (const Example& example : Examples()) {
    if (!example.members.empty()) {
      ExpectMembersAsListed(example);
    }
  }
}

std::vector<string> Captures(const string& text, const char* pattern) {
  const std::regex regex(pattern);
  return {std::sregex_token_iterator(text.begin(), text.end(), regex, 1),
          std::sregex_token_iterator()};
}

std::map<string, string> LibrarySources() {
  std::map<string, string> sources;
  const std::filesystem::path root(ORVEX_SOURCE_DIR);
  for (const auto& entry : std::filesystem::recursive_directory_iterator(root / "src")) {
    if (entry.is_regular_file()) {
      const string path = entry.path().lexically_relative(root);
      sources[path] = ReadSource(path);
    }
  }
  return sources;
}

TEST(ProtocolDocument, EveryMessageHasAnExample) {
  std::set<string> tried, sent;
  for (const Example& example : Examples()) {
    if (example.IsTried() || !example.from_manager) {
      (example.from_manager ? tried : sent).insert(orvd::KindOf(example.text));
    }
  }
  std::set<string> dispatched{"volume_change"};  // for what has no row there
  for (const auto& [path, text] : LibrarySources()) {
    if (path == "src/link/dispatch.cpp") {
      const auto kinds = Captures(text, R"re(\{"(\w+)", \w+[<}])re");
      dispatched.insert(kinds.begin(), kinds.end());
    }
    for (const string& kind : Captures(text, R"re("req_type":"(\w+)")re")) {
      EXPECT_EQ(sent.count(kind), 1U) << kind;
    }
  }
  EXPECT_EQ(tried, dispatched);
}

TEST(ProtocolDocument, EveryDeliberateOddityHasItsRow) {
  std::multiset<string> listed, commented;
  for (const Row& row : TableRows("| what | because | where |")) {
    listed.insert(Quoted(row.cells.back()).at(0));
  }
  for (const auto& [path, text] : LibrarySources()) {
    for (size_t count = Captures(text, "// (Deliberate:)").size(); count > 0; --count) {
      commented.insert(path);
    }
  }
  EXPECT_EQ(listed, commented);
}

// Whether these values are taken as arguments of the type, one each, and all as a vector; and the
// codes under which they are queued.
string Decode(const string& type, const std::vector<string>& values) {
  const string named = R"("type":")" + type + R"(",)";
  string args, list;
  int id = 0;
  for (const string& value : values) {
    args += R"({"id":)" + std::to_string(++id) + "," + named + R"("value":)" + value + "},";
    list += (list.empty() ? "" : ",") + value;
  }
  args += R"({"type":"vector","vec_)" + named.substr(1) + R"("value":[)" + list + "]}";
  Json::Value request;
  std::istringstream(R"({"func":{"num_of_args":)" + std::to_string(id + 1) + R"(,"args":[)" + args +
                     "]}}") >>
      request;
  orvex_func_call_info_t info{};
  const bool taken = AddParamsToQueues(request, &info) == 0;
  string codes = taken ? "" : "refused";
  for (int key = 0; taken && key <= id; ++key) {
    codes += std::to_string(info.typed_queue->at(key).first) + " ";
  }
  ClearParamsFromQueues(info);
  return codes;
}

TEST(ProtocolDocument, TypesTakeAndRefuseWhatTheTableSays) {
  int types = 0;
  for (const Row& row : TableRows("| type | code |")) {
    if (row.cells.at(5) == "—") {
      continue;
    }
    const string type = Quoted(row.cells[0]).at(0);
    const std::vector<string> takes = Quoted(row.cells[3]);
    string codes = row.cells[5] + " ";
    for (size_t i = 0; i < takes.size(); ++i) {
      codes += row.cells[1] + " ";
    }
    EXPECT_EQ(Decode(type, takes), codes) << row.line;
    for (const string& value : Quoted(row.cells[4])) {
      EXPECT_EQ(Decode(type, {value}), "refused") << type << " " << value;
    }
    ++types;
  }
  EXPECT_EQ(types, 13);
}

}  // namespace
