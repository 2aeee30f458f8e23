"""Runs orvd-sim with scenarios, services and arguments. usage: play_test.py [EMULATOR...] ORVD_SIM"""
import socket
import sys
import tempfile
import time
from contextlib import suppress
from pathlib import Path
from signal import SIGINT
from subprocess import PIPE, STDOUT, Popen

from desk import check_rows

READ = "read"  # the service receives a message; CAME in its later messages is replaced by that, by "end" or "reset"
AGAIN = "again"  # the service closes and connects again
INTERRUPT = "interrupt"  # orvd-sim gets SIGINT
M = '{"req_type":"M","big":18446744073709551615,"text":"1","list":[1,{"a":2}],"none":null}'
A, B = '{"req_type":"A"}', '{"req_type":"B"}'
ANSWER = '{"req_type":"exec_task","transac_id":1,"status":0}'
DEEP = 1500 * '{"a":' + "1" + 1500 * "}"
LONG = "[0" + 1000 * ",0" + "]"
TASK = 'expect M\ntask {"transac_id":1}\n'
RESULT = TASK + 'result {"transac_id":1,"status":0}\n'
# Scenario, acts of the service before it closes (None: the first text is arguments), exit code, part of the output,
# further arguments. The rows that wait for something that does not come are the first ones, because they take longest.
NOTHING = [
    ("expect N", [M], 1, "FAILED line 1: expected N, came nothing", "--patience 2"),
    ("exactly N", [], 1, "FAILED line 1: expected N, came nothing", "--patience 1"),
    (TASK + 'result {"transac_id":1}', [M, READ, "N"], 1, "line 3: expected the answer of task 1, came nothing",
     "--patience 2"),
    ("refuse\nconnection", [M], 1, "FAILED line 2: the service did not connect", "--patience 1"),
    ("connection\nconnection", [READ], 1, "FAILED line 2: the service did not connect", "--patience 2"),
    ("expect M\nend-of-file", [M, READ], 1, "FAILED line 2: the service did not close", "--patience 2"),
    ("expect M\nhang-up reset", [M, READ], 1, "FAILED line 2: no message came that could stay", "--patience 2")]
DIFFERENCES = [
    ('expect M {"big":18446744073709551615,"list":[1.0,{}],"none":null}', [M], 0, "service connected\x1b[0m"),
    *(("expect M " + wrong, [M], 1, f"\x1b[31;1mFAILED line 1: {path} differs\n  expected  {left}\n"
       f"  received  {right}\n  the expected members  {wrong}\n  the received message  {M}\x1b")
      for wrong, path, left, right in (
        ('{"big":18446744073709551614}', "big", "18446744073709551614", "18446744073709551615"),
        ('{"text":1}', "text", "1", '"1"'), ('{"list":[1]}', "list", "[1]", '[1,{"a":2}]'),
        ('{"list":[1.5,{}]}', "list[0]", "1.5", "1"), ('{"list":[1,{"a":3}]}', "list[1].a", "3", "2"),
        ('{"list":{}}', "list", "{}", '[1,{"a":2}]'), ('{"no":null}', "no", "null", "nothing"))),
    ("exactly " + M, [M], 0, "0 failures"),
    *((f"exactly {left}", [right], 1, f"\nFAILED line 1: the texts differ at character {number}\n"
       f"  expected  {shown_left}\n  received  {shown_right}\n{' ' * (12 + caret)}^\n", "--color never")
      for left, right, number, shown_left, shown_right, caret in (
        ("N", "n", 1, "N", "n", 0), ("äöß", "äöü", 3, "äöß", "äöü", 2), ("a", "ab", 2, "a", "ab", 1),
        ("\x01\x7fa", "\x01\x7f\0", 3, "\\x01\\x7fa", "\\x01\\x7f\\x00", 8),
        ("x" * 200, "x" * 99 + "y" + "x" * 200, 100,
         "…" + "x" * 100 + "…", "…" + "x" * 60 + "y" + "x" * 39 + "…", 61))),
    (TASK + 'result {"transac_id":1,"status":1}', [M, READ, ANSWER], 1, "line 3: status differs\n  expected  1\n")]
OVERTAKEN = [
    *((RESULT + text, [M, READ, "N", ANSWER], 0, "0 failures") for text in ("expect N", "exactly N")),
    ("expect B\nexpect A", [A, B], 0, "0 failures"),
    ("answer A {}\nexpect B\nexpect A\nquiet 300", [A, READ, B, A], 0, "0 failures"),
    ("expect B\nhang-up close\nconnection\nexpect A\nquiet 300", [A, B, READ, AGAIN, A, READ], 0, "0 failures"),
    (TASK + "rejected 1\nexpect exec_task\nend-of-file", [M, READ, ANSWER], 1,
     "line 4: expected no further answer of task 1, came"),
    ('expect M\nexpect M\nreply M {"a":0}\nexactly {"QueryId":2,"a":0,"opcode":"16","req_type":"M"}',
     ['{"req_type":"M","Opcode":16,"QueryId":2}', '{"req_type":"M","QueryId":3}', READ, "CAME"], 0, "0 failures"),
    ("reply M {}", [], 1, "FAILED line 1: no expect has found a M that is without a reply"),
    ("expect M\nsend {}\nexpect N", [M, READ, INTERRUPT, READ], 1,
     "FAILED line 3: interrupted\x1b[0m\n0 tasks sent, ")]
FAULTS = [
    ("expect M\nraw 6162 ff00\nexpect N", [M, READ, "CAME", "N"], 0, "service ->          ab\\xff\\x00\x1b"),
    ('expect M\nraw "a "b"\nexactly a "b', [M, READ, "CAME"], 0, "0 failures"),
    ('expect M\nraw ""\nexactly end', [M, READ, "CAME"], 0, "        <- Manager  (an empty packet)\x1b"),
    ("raw 00", [], 1, "FAILED line 1: nobody took the packet"),
    ("answer M {}\nexpect N", ['{"req_type":"M","Opcode":{},"opcodes":[1],"func":{"args":[1]}}', DEEP, "N"], 0,
     "0 failures"),
    ('answer A {}\nrepeat A 2\nexpect A\nexactly got {"req_type":"A"}\nexactly got {"req_type":"A"}',
     [A, READ, "got CAME", READ, "got CAME"], 0, "0 failures"),
    ('answer A {}\ndelay A 1000\nanswer B {}\nexpect B\nexactly got {"req_type":"B"}\nexactly got {"req_type":"A"}',
     [A, B, READ, "got CAME", READ, "got CAME"], 0, "0 failures"),
    ('answer A {}\ndelay A 300\nexpect A\nhang-up close\nconnection\nquiet 600\nsend {"a":1}\nexactly {"a":1}',
     [A, READ, AGAIN, READ, "CAME"], 0, "0 failures"),
    ("expect M\nsend {}\nquiet 60000", [M, READ, "N"], 1, "FAILED line 3: expected nothing, came N\x1b"),
    ("expect B\nquiet 60000", [A, B, "N"], 1, "FAILED line 2: expected nothing, came N\x1b"),
    ('answer A {}\nexpect M\nsilence\nsend {}\nquiet 300\nspeak\nexpect A\nexactly {"req_type":"A"}',
     [M, READ, A, READ, "CAME"], 0, "0 failures"),
    (f'answer A {{"a":{LONG}}}\n' + 10 * ('expect A\nsend {}\n'
                                         f'exactly got {{"a":{LONG},"req_type":"A"}}\nexactly got {{}}\n'),
     10 * [A, READ, "got CAME", READ, "got CAME"], 0, "0 failures", "--pace 0"),
    ("refuse\nquiet 100\naccept\nexpect M", [M], 0, "0 failures"),
    ("expect M\nrefuse\nhang-up close\nquiet 300\naccept\nconnection\nexactly end", [M, READ, AGAIN, "CAME"], 0,
     "0 failures"),
    ("expect M\nhang-up close\nconnection\nexactly end\nend-of-file", [M, READ, AGAIN, "CAME"], 0, "Manager hung up"),
    ("expect M\nhang-up close\nquiet 300", [M, READ, "N"], 0, "0 failures"),
    ("expect M\nhang-up half\nexactly end\nend-of-file\nconnection\nexpect N", [M, READ, "CAME", AGAIN, "N"], 0,
     "0 failures"),
    ("expect M\nsilence\nsend {}\nhang-up reset\nconnection\nexactly reset", [M, READ, "N", READ, AGAIN, "CAME"], 0,
     "0 failures"),
    *((verb, [], 1, "FAILED line 1: nobody is connected") for verb in ("hang-up close", "hang-up reset", "silence"))]
ROWS = [
    *NOTHING, *DIFFERENCES, *OVERTAKEN, *FAULTS,
    ('answer M {"a":0}\nexpect M\nexactly {"QueryId":2,"a":0,"opcode":"16","req_type":"M"}',
     ['{"req_type":"M","Opcode":16,"QueryId":2}', READ, "CAME"], 0, "0 failures"),
    ('answer M {}\nanswer M\nexpect M\nsend {"b":1,"a":2}\nexactly {"a":2,"b":1}', [M, READ, "CAME"], 0, "0 failures"),
    (RESULT + "end-of-file", [M, READ, ANSWER], 0, "1 tasks sent, 1 answered as expected, 0 rejected as expected"),
    (RESULT + "die", [M, READ, ANSWER, READ], -9, "1 tasks sent, 1 answered as expected"),
    (RESULT + "expect N", [M, READ, ANSWER, ANSWER, "N"], 1, "line 4: expected no further answer of task 1, came"),
    (TASK + "expect N", [M, READ, ANSWER, "N"], 1, "FAILED expected no answer that the scenario does not name, came"),
    (TASK, [M, READ], 1, "FAILED task 1 has neither a result nor a rejection"),
    (TASK + "rejected 1\nend-of-file", [M, READ], 0, "1 tasks sent, 0 answered as expected, 1 rejected as expected"),
    (TASK + "rejected 1\nend-of-file", [M, READ, ANSWER], 1, "FAILED expected no further answer of task 1, came"),
    (TASK + 'task {"transac_id":1}', [M, READ], 1, "FAILED line 3: task 1 is still open"),
    ("rejected 1\ndie", [], 1, "FAILED line 1: task 1 was not sent, or is answered"),
    ("signal TERM", [], 1, "FAILED line 1: nobody is connected"),
    ("send {}", [], 1, "FAILED line 1: nobody took the message"),
    ("say here\n\n# comment\n and there", [], 0, "--- here and there\x1b"),
    ("say here\n\n# comment\nsay there\nx\x1bpect M", [], 2, "scenario:5: unknown step 'x\\x1bpect'"),
    *((text, [], 2, "scenario:1: " + why) for text, why in (
        ("send {} x", "not JSON: "), ("send []", "a JSON object is meant"), (" die", "continues nothing"),
        ("exactly", "exactly needs the text of a message"), ("expect", "expect needs a word behind it"),
        ('task {"transac_id":"1"}', "task needs a number as transac_id"), ("die now", "'now' is too much"),
        ("rejected x", "rejected needs the number of a task"), ("signal USR1", "signal needs TERM, INT, HUP or KILL"),
        ("rejected 1", "rejected needs an end-of-file or die later on"),
        ("rejected 1\nhang-up close", "rejected needs an end-of-file or die later on"),
        *((text, "raw needs pairs of hexadecimal digits, or text in quotation marks") for text in (
            "raw", "raw 0", "raw 0g", "raw -1", "raw 0x00", 'raw "', 'raw "a" 00')),
        *((text, "quiet needs milliseconds from 1 to 600000") for text in ("quiet 0", "quiet 600001", "quiet 1s")),
        *((text, "delay needs a kind and milliseconds") for text in ("delay A", "delay A -1", "delay A 600001")),
        *((text, "repeat needs a kind and a number from 1 to 1000")
          for text in ("repeat A", "repeat A 0", "repeat A 2 B", "repeat A 1001")),
        ("hang-up now", "hang-up needs close, half or reset"), ("hang-up", "hang-up needs a word behind it"),
        *((verb + " now", "'now' is too much") for verb in ("connection", "silence", "speak", "refuse", "accept")))),
    ("# nothing", [], 2, "scenario: no steps in it"),
    *((word, None, 2, f"orvd-sim: '{word}' is neither a command nor a readable scenario")
      for word in ("monitr", "no/file")),
    ("play no/file", None, 2, "orvd-sim: no/file: cannot be read"), ("play /", None, 2, "orvd-sim: /: cannot be read"),
    ("play /dev/null --path /dev/null", None, 2, "orvd-sim: /dev/null: no steps in it"),
    *(("say a\ndie", [], 2, why, options) for options, why in (
        ("--path scenario", "scenario is not a socket: File exists"), ("--path no/s", "orvd-sim: no: No such file"),
        ("--path scenario --summary no/x", "no/x: cannot be written"), ("--summary scenario", "scenario: is read and cannot be"))),
    ("play --help", None, 0, "\n  exactly TEXT  "),
    *((words, None, 2, "usage: orvd-sim ") for words in (
        "", "-y", "play", "play x y", "play x --pace", "play x --pace -1", "play x --color x", "play x --patience 0"))]


class Service:
    def __init__(self, path, manager):
        self.path, self.manager, self.connection, self.came = path, manager, None, b""

    def connect(self):
        self.connection = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        while self.connection.connect_ex(self.path) != 0 and self.manager.poll() is None:
            time.sleep(0.01)

    def read(self):
        try:
            self.came = self.connection.recv(4096) or b"end"
        except ConnectionResetError:
            self.came = b"reset"

    def serve(self, acts):
        self.connect()
        with suppress(OSError):  # the Manager may have ended
            for act in acts:
                if act == READ:
                    self.read()
                elif act == INTERRUPT:
                    self.manager.send_signal(SIGINT)
                elif act == AGAIN:
                    self.connection.close()
                    self.connect()
                else:
                    self.connection.send(act.encode().replace(b"CAME", self.came))
        self.connection.close()


def play(text, acts, code, output, further=""):
    with tempfile.TemporaryDirectory() as folder:
        scenario, path = Path(folder, "scenario"), folder + "/socket"
        scenario.write_text(text, encoding="utf-8")
        options = ["--color", "always", "--pace", "1", "--path", path, *further.split()]
        arguments = text.split() if acts is None else [scenario, *options]
        manager = Popen([*sys.argv[1:], *arguments], stdout=PIPE, stderr=STDOUT, cwd=folder)
        if acts:
            Service(path, manager).serve(acts)
        printed = manager.communicate()[0].decode()
    good = manager.returncode == code and output in printed
    return "" if good else f"{text[:1000]} {acts}: {manager.returncode}, {printed}"


check_rows(play, ROWS, 16)
