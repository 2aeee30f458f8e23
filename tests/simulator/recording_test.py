"""Runs orvd-sim monitor, replay and scenario. usage: recording_test.py [EMULATOR...] ORVD_SIM SERVICE"""
import json
import os
import re
import socket
import sys
import tempfile
from contextlib import suppress
from pathlib import Path
from signal import SIG_DFL, SIGHUP, SIGINT, signal
from subprocess import DEVNULL, PIPE, STDOUT, Popen, run

from desk import check_rows, wait

SIM, SERVICE = sys.argv[1:-1], [*sys.argv[1:-2], sys.argv[-1]]
EMULATED = len(SIM) > 1
HEAD = '{"orvd_recording":1}\n'
CONNECTED = '{"us":0,"conn":1,"event":"connected"}\n'
RESET, END = "reset", b""
signal(SIGHUP, SIG_DFL)  # a monitor under nohup does not end


STARTED = []


def start(command, **options):
    STARTED.append(Popen(command, **{"stdout": PIPE, "stderr": STDOUT, "text": True, **options}))
    return STARTED[-1]


def seqpacket():
    made = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
    made.settimeout(20)
    return made


def listen(path):
    made = seqpacket()
    made.bind(path + ".made")
    made.listen(8)
    inode = os.stat(path + ".made").st_ino
    os.rename(path + ".made", path)
    return made, inode


def receive(end):
    try:
        return end.recv(1 << 20)
    except ConnectionResetError:
        return RESET


class Monitored:
    """A Manager and a monitor in its place, in a folder of their own."""

    def __init__(self, *options):
        self.folder = tempfile.TemporaryDirectory()
        self.path = self.folder.name + "/socket"
        self.record = Path(self.folder.name, "record")
        self.manager, self.inode = listen(self.path)
        self.monitor = start([*SIM, "monitor", "--path", self.path, "--record", self.record, *options])
        self.wait_for_place()

    def wait_for_place(self):
        wait(lambda: os.path.exists(self.path) and os.stat(self.path).st_ino != self.inode)

    def connect(self):
        service = seqpacket()
        service.connect(self.path)
        manager = self.manager.accept()[0]
        manager.settimeout(20)
        return service, manager

    def end(self):
        self.monitor.send_signal(SIGINT)
        printed = self.monitor.communicate()[0]
        assert self.monitor.returncode == 0, printed
        return printed, [json.loads(line) for line in self.record.read_text("utf-8").splitlines()]


def packets_pass():
    monitored = Monitored()
    for sender, receiver in (monitored.connect(), reversed(monitored.connect())):
        for size in (0, 1, 4096, 4097, 200000):
            sender.send(b"\xff" * size)
            assert receive(receiver) == b"\xff" * size
        for number in range(300):
            sender.send(b"%d" % number)
        assert [receive(receiver) for _ in range(300)] == [b"%d" % number for number in range(300)]
    printed, lines = monitored.end()
    assert "610 packets, " in printed and ", 2 connections, " in printed, printed[-200:]
    assert [line["hex"] for line in lines if line.get("conn") == 1 and "hex" in line] == [
        "ff" * size for size in (0, 1, 4096, 4097, 200000)]


def a_full_side_stops_the_other():
    monitored = Monitored()
    service, manager = monitored.connect()
    service.settimeout(0.5)
    sent = 0
    try:
        while sent < 5000:
            service.send(b"%d" % sent + bytes(1000))
            sent += 1
    except TimeoutError:
        pass
    assert sent < 5000
    assert [int(receive(manager).rstrip(b"\0")) for _ in range(sent)] == list(range(sent))
    monitored.end()


# How one side ends, what the other one receives, and the event. `service` and `manager` are the sides.
ENDS = [
    ("service", "close", [END], "service_closed"), ("manager", "close", [END], "manager_closed"),
    ("service", "half", [END], "service_shut"), ("manager", "half", [END], "manager_shut"),
    ("service", "unread", [RESET, END], "service_reset"), ("manager", "unread", [RESET, END], "manager_reset")]


def ends_pass(side, way, received, event):
    monitored = Monitored()
    service, manager = monitored.connect()
    ending, other = (service, manager) if side == "service" else (manager, service)
    other.send(b"first")
    if way != "unread":
        assert receive(ending) == b"first"
    else:
        wait(lambda: ending.recv(9, socket.MSG_PEEK) == b"first")
    if way == "half":
        ending.shutdown(socket.SHUT_WR)
        assert receive(other) == END
        other.send(b"still read")
        assert receive(ending) == b"still read"
    else:
        ending.close()
        assert [receive(other) for _ in received] == received
    assert event in [line.get("event") for line in monitored.end()[1]]


def a_service_is_refused_without_a_manager():
    monitored = Monitored()
    service, manager = monitored.connect()
    monitored.manager.close()
    manager.close()
    assert receive(service) == END
    wait(lambda: seqpacket().connect_ex(monitored.path) != 0)
    monitored.manager, monitored.inode = listen(monitored.path)
    monitored.wait_for_place()
    service, manager = monitored.connect()
    service.send(b"again")
    assert receive(manager) == b"again"
    assert "to_manager text bytes=5" in monitored.end()[0]
    assert os.stat(monitored.path).st_ino == monitored.inode  # put back
    assert not os.path.exists(monitored.path + ".upstream")


def upstream_is_another_path():
    with tempfile.TemporaryDirectory() as folder:
        manager, _ = listen(folder + "/manager")
        monitor = start([*SIM, "monitor", "--path", folder + "/socket", "--upstream", folder + "/manager"])
        service = seqpacket()
        wait(lambda: service.connect_ex(folder + "/socket") == 0)
        service.send(b"x")
        assert receive(manager.accept()[0]) == b"x"
        monitor.send_signal(SIGHUP)
        assert "1 packets, 1 bytes, 1 connections, " in monitor.communicate()[0]
        assert not os.path.exists(folder + "/socket")


TASK = b'{"req_type":"exec_task","opcode":"0xa1","subsys_id":2,"session_id":9,"transac_id":3,"func":{"name":"f"}}'
DONE = b'{"opcode":"0x000000a1","name":"f","subsys_id":"2","req_type":"exec_task","transac_id":3,"session_id":9}'
CHANGE = b'{"req_type":"permission_change","sesson_id":"9"}'
LINES = [  # filter, printed lines without time
    ([], ["1 event      connected", "1 to_service exec_task 0xa1::2 session=9 task=3 function=f bytes=104",
          "1 to_manager exec_task 0xa1::2 session=9 task=3 function=f bytes=103 latency=",
          "1 to_service permission_change session=9 bytes=48"]),
    (["--direction", "to_service"], ["1 event      connected", "1 to_service exec_task", "1 to_service permission_ch"]),
    (["--kind", "EXIT"], []), (["--session", "8"], []), (["--opcode", "0xa1", "--session", "9", "--direction",
                                                          "to_manager"], ["1 to_manager exec_task 0xa1::2"])]


def lines_are_printed(options, expected):
    monitored = Monitored(*options)
    service, manager = monitored.connect()
    manager.send(TASK)
    assert receive(service) == TASK
    service.send(DONE)
    assert receive(manager) == DONE
    manager.send(CHANGE)
    assert receive(service) == CHANGE
    printed = [line.split(maxsplit=1)[1] for line in monitored.end()[0].splitlines()[:-1]]
    assert len(printed) == len(expected) and all(map(str.startswith, printed, expected)), printed


def packet(text, to="manager"):
    return json.dumps({"us": 1, "conn": 1, "dir": "to_" + to, "text": text}) + "\n"


def result(number, value):
    return '{"req_type":"exec_task","session_id":1,"transac_id":%d,"func":{"v":%d}}' % (number, value)


def query(number):
    return '{"req_type":"PERMISSION","service_id":%d,"QueryId":%d}' % (number, number)


GO, AGAIN = packet("go", "service"), packet("again", "service")
CLOSED = '{"us":1,"conn":1,"event":"service_closed"}\n'
HUNG_UP, SHUT, CUT = (CLOSED.replace("service_closed", "manager_" + end) for end in ("closed", "shut", "reset"))
TASKED = packet(TASK.decode(), "service")
# Recording behind CONNECTED, what the service sends after "go", options, exit code, part of the output.
REPLAYS = [
    (GO + packet("a") + CLOSED, ["a"], [], 0, "1 packets sent, 1 packets compared, 0 differences"),
    (GO + packet("a") + packet("b") + CLOSED, ["b", "a"], [], 0, "2 packets compared, 0 differences"),
    (GO + packet("a") + CLOSED, ["b"], [], 1, "DIFFERENCE record:4: another packet\n  expected: a\n  received: b\n"),
    (GO + packet("a") + CLOSED, [], [], 1, "the service has closed the connection\n  expected: a\n"),
    (GO + CLOSED, ["a"], [], 1, "not in the recording\n  received: a\n"),
    (GO + SHUT + packet("a") + CLOSED, [], [], 0, "0 packets compared, 0 differences"),
    (GO + packet("a") + CLOSED, ["SIGINT"], [], 1, "0 differences, stopped before the end"),
    (GO + packet(result(1, 5)) + packet(result(2, 6)) + CLOSED, [result(2, 6), result(1, 5)], [], 0, "0 differences"),
    (GO + packet(result(1, 5)) + packet("b") + CLOSED, [result(1, 6), "c"], [], 1,
     "to_service text bytes=2\nDIFFERENCE record:4: func.v: expected 5, received 6\n"),
    (GO + packet(result(1, 5)) + packet("b") + CLOSED, [result(1, 6), "c"], ["--keep-going"], 1, "2 differences\n"),
    (GO + packet(result(1, 5)) + CLOSED, [result(1, 6)], ["--ignore", "v"], 0, "0 differences"),
    (GO + packet(query(4)) + packet(query(4), "service") + CLOSED, [query(9), "CAME"], [], 0, "0 differences")]


def replays(lines, sent, options, code, output):
    with tempfile.TemporaryDirectory() as folder:
        Path(folder, "record").write_text(HEAD + CONNECTED + lines, "utf-8")
        command = start([*SIM, "replay", "record", "--path", "socket", "--patience", "5", *options], cwd=folder)
        service = seqpacket()
        wait(lambda: service.connect_ex(folder + "/socket") == 0)
        assert receive(service) == b"go"
        for text in sent:
            if text == "CAME":  # the answer has this service's own query id
                assert receive(service).decode() == query(4).replace('"QueryId":4', '"QueryId":9')
            elif text == "SIGINT":
                command.send_signal(SIGINT)
                command.wait(20)
            else:
                with suppress(OSError):  # the replay may have ended
                    service.send(text.encode())
        service.close()
        printed = command.communicate()[0]
    assert command.returncode == code and output in printed, (command.returncode, printed)


# Arguments, the recording, exit code, part of the output. The recording is the file "r".
USES = [
    *(("scenario r", HEAD + CONNECTED + GO[:cut], 0, "r:3: the line is cut off and ignored" if cut else "connection\n")
      for cut in range(0, len(GO) - 1, 7)),
    *(("scenario r", HEAD[:cut], 2, 'r:1: no recording, expected {"orvd_recording":1}') for cut in (0, 5, 20)),
    *(("scenario r", HEAD + line + "\n" + CONNECTED, 2, "r:2: " + why) for line, why in (
        ("x", "not a JSON object"), ('{"us":-1,"conn":1}', 'expected "us"'), ('{"us":1,"conn":0}', 'expected "conn"'),
        ('{"us":1,"conn":1,"event":"x"}', 'unknown "event"'), ('{"us":1,"conn":1,"dir":"x"}', 'expected "dir"'),
        ('{"us":1,"conn":1,"dir":"to_manager","hex":"0"}', 'expected "text", or "hex"'))),
    ("scenario r", HEAD + '{"us":2,"conn":1,"event":"connected"}\n' + CONNECTED, 2, 'r:3: expected "us"'),
    ("scenario r", HEAD + CONNECTED * 2, 2, "r:3: a second connection"),
    *(("scenario r", HEAD + CONNECTED + lines, 0, steps) for lines, steps in (
        (TASKED, '\n#The recording ends#\nresult {"transac_id":3}\n'), (TASKED + HUNG_UP, "\nrejected 3\nquiet 500\nhang-up half\nend-of"),
        (TASKED + packet(DONE.decode()) + CUT, "silence\nsend #\nhang-up reset\n"), (GO + CUT, "\nhang-up close\n"),
        (packet(query(4)) + packet(query(4), "service"), 'expect PERMISSION #\nreply PERMISSION {"req_type":'))),
    *((command + " r --output r", HEAD, 2, "r: is read and cannot be") for command in ("scenario", "diagram")),
    ("replay r --path s", HEAD, 2, "r: no packets in it"), ("monitor --path x --upstream x", "", 2, "the same socket"),
    ("scenario r --output no/file", HEAD, 2, "no/file: cannot be written"), ("scenario none", "", 2, "none: cannot"),
    ("replay r --patience 0", HEAD, 2, "--patience: expected a number from 1 "), ("replay", "", 2, "usage: orvd-sim re"),
    ("replay r --path r", HEAD, 2, "r is not a socket: File exists"), ("replay none", "", 2, "none: cannot be read"),
    ("monitor x", "", 2, "one word too many"),
    ("monitor --record no/file", "", 2, "no/file: cannot be written"), ("monitor --session x", "", 2, "expected a num"),
    ("monitor --direction x", "", 2, "expected one of to_manager, to_service"),
    ("monitor --help", "", 0, "SO_PEERCRED"), ("replay --help", "", 0, "  --keep-going "), ("scenario --help", "", 0, "  --output "),
    ("diagram --help", "", 0, "--mermaid --from 12.5")]


def is_used(arguments, recording, code, output):
    with tempfile.TemporaryDirectory() as folder:
        Path(folder, "r").write_text(recording, "utf-8")
        done = run([*SIM, *arguments.split()], cwd=folder, stdout=PIPE, stderr=STDOUT, text=True, check=False)
    pattern = "[^\n]*".join(map(re.escape, output.split("#")))
    assert done.returncode == code and len(re.findall(pattern, done.stdout)) == 1, (done.returncode, done.stdout)


CONVERSATION = Path("../../simulator/scenarios/permission_query.scenario").read_text(
    "utf-8") + "hang-up close\nconnection\nexpect REDY\n"
PATH = "/dev/socket/orvd"


def serve(arguments, folder):
    """Runs a command at the library's path, and the service as soon as the command listens."""
    command = start([*SIM, *arguments], cwd=folder)
    wait(lambda: os.path.exists(PATH) or command.poll() is not None)
    service = start(SERVICE, stdout=DEVNULL, stderr=DEVNULL)
    printed = command.communicate(timeout=60)[0]
    service.kill()
    assert command.returncode == 0, printed
    return printed


def a_real_service_is_recorded_replayed_and_played():
    with tempfile.TemporaryDirectory() as folder:
        Path(folder, "talk").write_text(CONVERSATION, "utf-8")
        monitor = start([*SIM, "monitor", "--record", "record", "--path", PATH, "--upstream", folder + "/manager"],
                        cwd=folder)
        manager = start([*SIM, "play", "talk", "--path", folder + "/manager"], cwd=folder)
        wait(lambda: os.path.exists(PATH))
        service = start(SERVICE, stdout=DEVNULL, stderr=DEVNULL)
        printed = manager.communicate(timeout=60)[0]
        assert manager.returncode == 0, printed
        monitor.send_signal(SIGINT)
        monitor.communicate()
        service.kill()  # after the record has ended: in a replay the service stays
        assert "compared, 0 differences" in serve(["replay", "record"], folder)
        made = run([*SIM, "scenario", "record"], cwd=folder, stdout=PIPE, text=True, check=True).stdout
        Path(folder, "made").write_text(made, "utf-8")
        assert "2 answered as expected, 0 rejected as expected, 0 failures" in serve(["play", "made"], folder)


TESTS = [(packets_pass,), (a_full_side_stops_the_other,), (a_service_is_refused_without_a_manager,),
         (upstream_is_another_path,), (a_real_service_is_recorded_replayed_and_played,),
         *((ends_pass, *row) for row in ENDS if not EMULATED or row[1] != "unread"),  # needs SO_PEEK_OFF
         *((lines_are_printed, *row) for row in LINES), *((replays, *row) for row in REPLAYS),
         *((is_used, *row) for row in USES)]

try:
    check_rows(lambda test, *row: test(*row), TESTS, 8)
finally:
    for process in STARTED:
        process.kill()
