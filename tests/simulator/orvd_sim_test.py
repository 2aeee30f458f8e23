"""Runs orvd-sim with scenarios, services and arguments. usage: orvd_sim_test.py [EMULATOR...] ORVD_SIM"""
import socket
import sys
import tempfile
import time
from concurrent.futures import ThreadPoolExecutor
from contextlib import suppress
from pathlib import Path
from subprocess import PIPE, STDOUT, Popen

READ = "read"  # the service receives a message; CAME in its later messages is replaced by that message
M = '{"req_type":"M","big":18446744073709551615,"text":"1","list":[1,{"a":2}],"none":null}'
ANSWER = '{"req_type":"exec_task","transac_id":1,"status":0}'
TASK = 'expect M\ntask {"transac_id":1}\n'
RESULT = TASK + 'result {"transac_id":1,"status":0}\n'
# Scenario, acts of the service before it closes (None: the first text is arguments), exit code, part of the output.
ROWS = [
    ('expect M {"big":18446744073709551615,"list":[1.0,{}],"none":null}', [M], 0, "service connected\x1b[0m"),
    *(("expect M " + wrong, [M], 1, f"FAILED line 1: expected {wrong}, came {M}") for wrong in (
        '{"big":18446744073709551614}', '{"text":1}', '{"list":[1]}', '{"list":[1.5,{}]}', '{"list":[1,{"a":3}]}',
        '{"no":null}')),
    ("expect N", [M], 1, "FAILED line 1: expected N, came nothing"),
    ("exactly " + M, [M], 0, "0 failures"),
    ("exactly " + M, [M + " "], 1, f"FAILED line 1: expected {M}, came {M} \x1b"),
    ("exactly N", ["n"], 1, "FAILED line 1: expected N, came n\x1b"),
    ("exactly N", [], 1, "FAILED line 1: expected N, came nothing"),
    ('answer M {"a":0}\nexpect M\nexactly {"QueryId":2,"a":0,"opcode":"16","req_type":"M"}',
     ['{"req_type":"M","Opcode":16,"QueryId":2}', READ, "CAME"], 0, "0 failures"),
    ('answer M {}\nanswer M\nexpect M\nsend {"b":1,"a":2}\nexactly {"a":2,"b":1}', [M, READ, "CAME"], 0, "0 failures"),
    (RESULT + "end-of-file", [M, READ, ANSWER], 0, "1 tasks sent, 1 answered as expected, 0 rejected as expected"),
    (RESULT + "die", [M, READ, ANSWER, READ], -9, "1 tasks sent, 1 answered as expected"),
    (TASK + 'result {"transac_id":1,"status":1}', [M, READ, ANSWER], 1, 'expected {"status":1,"transac_id":1}, came'),
    (TASK + 'result {"transac_id":1}', [M, READ, "N"], 1, "line 3: expected the answer of task 1, came nothing"),
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
    ("say here\n\n# comment\nsay there\nxpect M", [], 2, "scenario:5: unknown step 'xpect'"),
    *((text, [], 2, "scenario:1: " + why) for text, why in (
        ("send {} x", "not JSON: "), ("send []", "a JSON object is meant"), (" die", "continues nothing"),
        ("exactly", "exactly needs the text of a message"), ("expect", "expect needs a word behind it"),
        ('task {"transac_id":"1"}', "task needs a number as transac_id"), ("die now", "'now' is too much"),
        ("rejected x", "rejected needs the number of a task"), ("signal USR1", "signal needs TERM, INT, HUP or KILL"),
        ("rejected 1", "rejected needs an end-of-file or die later on"))),
    ("# nothing", [], 2, "scenario: no steps in it"),
    ("no/file", None, 2, "orvd-sim: no/file: cannot be read"), ("play --help", None, 0, "\n  exactly TEXT  "),
    *((words, None, 2, "usage: orvd-sim ") for words in ("", "-y", "x y", "x --pace", "x --pace -1", "x --color x"))]


def serve(path, acts, manager):
    came = ""
    with socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET) as connection, suppress(OSError):  # it may have ended
        while connection.connect_ex(path) != 0 and manager.poll() is None:
            time.sleep(0.01)
        for act in acts:
            if act == READ:
                came = connection.recv(4096).decode()
            else:
                connection.send(act.replace("CAME", came).encode())


def play(row):
    text, acts, code, output = row
    with tempfile.TemporaryDirectory() as folder:
        scenario, path = Path(folder, "scenario"), folder + "/socket"
        scenario.write_text(text, encoding="utf-8")
        arguments = text.split() if acts is None else [scenario, "--color", "always", "--pace", "1", "--path", path]
        manager = Popen([*sys.argv[1:], *arguments], stdout=PIPE, stderr=STDOUT, text=True)
        if acts:
            serve(path, acts, manager)
        printed = manager.communicate()[0]
    return "" if manager.returncode == code and output in printed else f"{row}: {manager.returncode}, {printed}"


with ThreadPoolExecutor(8) as pool:
    sys.exit("\n".join(filter(None, pool.map(play, ROWS))) or 0)
