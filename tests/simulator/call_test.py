"""Runs call, list and notify with the sensor hub. usage: call_test.py [EMULATOR...] ORVD_SIM SERVICE"""
import json
import os
import re
import sys
import tempfile
from pathlib import Path
from signal import SIGINT, SIGTERM
from subprocess import DEVNULL, PIPE, Popen

from desk import check_rows, in_folder, kill, wait

*EMULATOR, SIM, SERVICE = sys.argv[1:]
ok = r"return 0, status 0, [\d.]+ ms\n"
failed = r"return -1, status -1, [\d.]+ ms\n"
TEMPERATURE = re.escape('{"celsius":21.5,"sensor":"skin"}\n') + ok
FILES = {"lines": 'str:a "b"\n\nu16:400\ni32[]:1,2\n', "bad": "u8:1\n\nu8:x\n", "twice": "@1=u8:1\n@1=u8:2\n",
         "list": '[{"id":1,"type":"vector","vec_type":"double","value":[2,4]}]', "broken": "[1\n", "empty": ""}
# Words, standard input (None: a folder), exit code, a pattern of the whole output, a part of the errors. Each row has a
# service of its own.
ROWS = [
    ("list", "", 0, r"service process \d+, 1 opcodes\nopcode      state       subsystems  token\n"
     r"0x0000a001  ready       1,2         sensor-hub-token\n", ""),
    ("list --json --settle 0", "", 0, r'{"opcodes":\[{"definition":{"Orvex":.*"ready":true,.*"pid":\d+}\n', ""),
    ("call 0xa001 read_temperature", "", 0, TEMPERATURE, ""),
    ("call 40961 read_temperature bool:true cb --subsystem 2", "", 0, TEMPERATURE, ""),
    ("call 0xa001 set_limits u8:255 i16:-400 u32:0xea60 str:skin", "", 0,
     '{"sensor":255,"limit":-400,"period_ms":60000,"label":"skin"}\n' + ok, ""),
    ('call 0xa001 configure struct:["str:x","u16:400","i32[]:-1,0,1"]', "", 0,
     '{"name":"x","rate":400,"axes":3}\n' + ok, ""),
    ("call 0xa001 average f64[]:1.5,2,4 --json", "", 0,
     r'{"function":"average","return":0,"status":0,"func":{"average":2.5,"count":3},"latency_us":\d+}\n', ""),
    ("call 0xa001 average --args list", "", 0, '{"average":3,"count":2}\n' + ok, ""),
    ("call 0xa001 read_temperature --args lines", "", 0, TEMPERATURE, ""),
    ("call 0xa001 read_temperature --repeat 3", "", 0, f"({TEMPERATURE}){{3}}"
     r"3 calls, 3 with success, 0 with a failure, 0 without an answer; latency median [\d.]+ ms, largest [\d.]+ ms\n",
     ""),
    ("call 0xa001 nope", "", 1, "{}\n" + failed, ""),
    ("call 0xa001 nope --json", "", 1, '{"function":"nope","return":-1,"status":-1,"func":{},"latency_us":\\d+}\n', ""),
    ("call 0xa001 check_access --info client.name=a=b --info screen=on", "", 0,
     '{"granted":1,"client":"a=b","watched":1}\n' + ok, ""),
    ("call 0xa001 check_access --info client.name=a --deny sensor.read", "", 1, "{}\n" + failed, ""),
    ("call 0xa001 average f64[]:x --unchecked --patience 3 --json", "", 1, '{"function":"average","error":"no answer.*"}\n',
     "average: no answer to task 1 within 3000 ms: the function still runs, or the library refuses the task"),
    ("call 0xa001 f --subsystem 7", "", 1, "", "the service refuses to start 0x0000a001::7 in a session"),
    ("call 0xa002 f --patience 3", "", 1, "",
     "opcode 0x0000a002 is not ready within 3000 ms: the service has registered 0x0000a001\n"),
    ("call 0xa001 --session", 'read_temperature # c\n\n#\naverage f64[]:"1,2"\nset_limits u8:1 i16:1 \'u32:1\' '
     'str:"a \\"b\\\\"\' c\'\\ d', 0, TEMPERATURE + '{"average":1.5,"count":2}\n' + ok +
     re.escape(r'{"sensor":1,"limit":1,"period_ms":1,"label":"a \"b\\ c d"}' + "\n") + ok + "3 calls, 3 with success, .*\n",
     ""),
    ("call 0xa001 --session --repeat 2", "nope", 1, f"({{}}\n{failed}){{2}}2 calls, 0 with success, 2 with a fail.*\n", ""),
    ("call 0xa001 --session", "f u8:x\nf 'x\nread_temperature", 2, TEMPERATURE,
     "standard input:1: argument 1 'u8:x': expected uint8, a whole number from 0 to 255, got 'x'\n"
     "orvd-sim: standard input:2: the quote ' does not end\n"),
    ("call 0xa001 --session", None, 2, "", "orvd-sim: standard input: Is a directory\n"),
    ("notify setting language en --opcode 0xa001", "", 0, "setting language en: handled, session 1\n", ""),
    ("notify permission sensor.read withdrawn", "", 0, "permission sensor.read withdrawn: handled, session 1\n", ""),
    ("notify state a b --opcode 0xa002 --patience 3", "", 1, "", "opcode 0x0000a002 is not ready"),
    *((words, "", 2, "", why) for words, why in (
        ("call", "an operand is missing\nusage: orvd-sim call"), ("call 0xa001", "FUNCTION is missing"),
        ("call x f", "expected an opcode from 0 to 0xffffffff, got 'x'"), ("call 0x100000000 f", "expected an opcode"),
        ("call 1 f u8:256", "argument 1 'u8:256': expected uint8, a whole number from 0 to 255, got '256'"),
        ("call 1 f u8:1 struct:[]", "argument 2 'struct:[]': has the key 1 like argument 1"),
        ("call 1 f --session", "--session takes FUNCTION from the standard input"),
        ("call 1 f u8:1 --args lines", "--args goes with FUNCTION and no other arguments"),
        ("call 1 f --args none", "none: cannot be read"), ("call 1 f --args .", ".: cannot be read"),
        ("call 1 f --args bad", "bad:3: 'u8:x': expected uint8"),
        ("call 1 f --args twice", "twice: argument 2 '@1=u8:2': has the key 1"),
        ("call 1 f --args broken", "broken: expected a JSON list of arguments"),
        ("call 1 f --info x", "--info: expected NAME=VALUE, got 'x'"), ("call 1 f --subsystem x", "--subsystem: expected"),
        ("call 1 f --repeat 0", "--repeat: expected a number from 1"), ("call 1 f --patience 0", "--patience: expected"),
        ("call 1 f --path /proc/x", "/proc/x"), ("list x", "'x' is one word too many"), ("list --settle x", "--settle: "),
        ("notify state x", "an operand is missing"), ("notify stat x y", "expected state, setting or permission, got"),
        ("notify permission x y", "expected granted or withdrawn, got 'y'"))),
    ("call --help", "", 0, r"usage: orvd-sim call .*struct:\[.*--unchecked .*Examples:\n.*", ""),
    ("list --help", "", 0, "usage: orvd-sim list .*", ""), ("notify --help", "", 0, "usage: orvd-sim notify .*", "")]
# With one service: when the screen is on, it needs a second permission.
IN_ORDER = [
    ("notify state screen on", "", 0, "state screen on: handled, session 1\n", ""),
    ("call 0xa001 check_access --info client.name=a --deny user.activity", "", 1, "{}\n" + failed, ""),
    ("notify state screen off --session 5 --package p", "", 0, "state screen off: handled, session 5\n", ""),
    ("call 0xa001 check_access --info client.name=a --deny user.activity", "", 0, '{"granted".*\n' + ok, "")]
ALONE = [(f"{words} --patience 1", "", 1, output, f"{why}no service is connected") for words, output, why in (
    ("list", "", ""), ("notify state x y", "", ""), ("list --json", '{"error":"no service is connected.*"}\n', ""),
    ("call 0xa001 f --json", '{"error":"opcode 0x0000a001 is.*"}\n', "0x0000a001 is not ready within 1000 ms: "))]


def start(folder, *words, stdin=PIPE):
    command = [*EMULATOR, SIM, words[0], "--path", folder + "/orvd", *words[1:]]
    return Popen(command, cwd=folder, stdin=stdin, stdout=PIPE, stderr=PIPE, text=True)


def hub(folder):
    return Popen(in_folder(folder, *EMULATOR, SERVICE), stdout=DEVNULL, stderr=DEVNULL)


def problem(folder, row):
    words, text, code, output, errors = row
    program = start(folder, *words.split(), stdin=os.open(folder, os.O_RDONLY) if text is None else PIPE)
    printed, complained = program.communicate(text)
    good = program.returncode == code and re.fullmatch(output, printed, re.DOTALL) \
        and errors in complained and bool(errors) == bool(complained)
    return "" if good else f"{row}\n  {program.returncode} {printed!r} {complained!r}"


def commands(folder, *rows):
    for name, content in FILES.items():
        Path(folder, name).write_text(content, encoding="utf-8")
    service = hub(folder)
    problems = [problem(folder, row) for row in rows]
    kill(service)
    return "\n".join(filter(None, problems))


def session_after_loss(folder):
    """The next line of a session gets a new session when the service was replaced."""
    service, manager = hub(folder), start(folder, "call", "0xa001", "--session", "--json")
    answers = []
    for function in ("average f64[]:1", "average f64[]:2"):
        manager.stdin.write(function + "\n")
        manager.stdin.flush()
        answers.append(json.loads(manager.stdout.readline()).get("func"))
        kill(service)
        service = hub(folder)
    manager.stdin.close()
    code = manager.wait()
    kill(service)
    return "" if answers == [{"average": 1.0, "count": 1}, {"average": 2.0, "count": 1}] else f"{code} {answers}"


def given_up(folder):
    """Repeated calls end when the service does not come back."""
    service = hub(folder)
    manager = start(folder, *"call 0xa001 read_temperature --repeat 1000000 --patience 1".split())
    manager.stdout.readline()
    kill(service)
    complained = manager.communicate()[1]
    return "" if manager.returncode == 1 and complained.count("not ready within") == 1 else f"given up: {complained}"


def stopped(folder, number):
    """A signal ends a wait for a service. It is blocked when the socket appears."""
    manager = start(folder, "list", "--patience", "60")
    wait(lambda: os.path.exists(folder + "/orvd"))
    manager.send_signal(number)
    printed, complained = manager.communicate()
    return "" if (manager.returncode, printed, complained) == (1, "", "orvd-sim: interrupted\n") else \
        f"signal {number}: {manager.returncode} {printed} {complained}"


def stopped_session(folder):
    """A signal ends a session that waits for its next line."""
    service, manager = hub(folder), start(folder, "call", "0xa001", "--session")
    manager.stdin.write("read_temperature\n")
    manager.stdin.flush()
    manager.stdout.readline()
    manager.send_signal(SIGTERM)
    code = manager.wait()
    kill(service)
    return f"stopped session: {code}" if code else ""


def check(test, *arguments):
    with tempfile.TemporaryDirectory() as folder:
        return test(folder, *arguments)


check_rows(check, [(commands, *IN_ORDER), (given_up,), *((problem, row) for row in ALONE), (session_after_loss,),
                   (stopped_session,), (stopped, SIGINT), (stopped, SIGTERM), *((commands, row) for row in ROWS)], 8)
