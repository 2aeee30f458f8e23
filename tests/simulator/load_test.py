"""Runs orvd-sim load against the checking service. usage: load_test.py ORVD_SIM SERVICE BWRAP [EMULATOR...]

Each row runs in a private /dev of its own, as a process of this program: load_test.py --row N ORVD_SIM SERVICE ...
"""
import json
import os
import signal
import sys
import tempfile
import time
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path
from subprocess import DEVNULL, PIPE, STDOUT, Popen, run

TASKS = "# calls\nsize u8:5 str[]:a,b\n\nnothing\n"
GOOD = ("missing", "duplicate", "wrong", "failed", "sessions_silent", "pairs_refused")


def quiet(result, *but):
    """Nothing is wrong but what is named, and each task is accounted for."""
    sums = result["sent"] == result["answered"] + result["missing"] + result["lost"]
    return sums and not any(result[name] for name in GOOD if name not in but)


def plain(r):
    cpu, service = r["cpu_seconds"], r["service"]
    return (quiet(r) and r["answered"] == 6000 and r["notifications"] == 300 and r["queries"] > 100
            and r["pairs_started"] == 12 and r["latency_ms"]["p50"] <= r["latency_ms"]["max"] and r["lost"] == 0
            and 0 < cpu["load"] < cpu["service"] and service["after"]["threads"] == service["before"]["threads"])


def churned(r):
    return quiet(r) and r["ended_by"] and r["rejected"] > 0 and r["left_by_service"] == 0


def restarted(r):
    return quiet(r) and r["service"]["processes"] == 2 and r["left_by_service"] == 1


# What is done to load or service after the first line of progress, options of the service, words of load, exit code,
# condition for the summary, part of the output without one.
ROWS = [
    (None, "", "--count 6000 --sessions 3 --check --notify --strict", 0, plain),
    (None, "", "--count 2000 --opcode 0xa002 --sessions 1", 0, lambda r: quiet(r) and r["pairs_started"] == 2),
    (None, "--plant lost 100", "--count 1000 --answer-limit 1", 1,
     lambda r: quiet(r, "missing") and r["missing"] >= 10 and len(r["problems"]) >= 2),
    (None, "--plant double 100", "--count 2000", 1, lambda r: quiet(r, "duplicate") and r["duplicate"] == 20),
    (None, "--plant leak 2", "--seconds 7 --growth 5", 1,
     lambda r: quiet(r) and "memory" in str(r["problems"])),
    (None, "", "--count 600 TASKS", 0, lambda r: quiet(r, "failed") and r["failed"] == 300),
    (None, "", "--count 600 --check --function size", 1, lambda r: quiet(r, "wrong") and r["wrong"] == 600),
    (None, "", "--count 600 --check --function nope", 1,
     lambda r: r["problems"] == ["all tasks failed", "answers that are failures: 600"]),
    (None, "--plant leak 500", "--seconds 7 --churn 1 --check --notify", 0, churned),
    (None, "", "--seconds 4 --churn 1 --check --notify --way reset", 0,
     lambda r: churned(r) and list(r["ended_by"]) == ["reset"]),
    ("stop load", "", "--seconds 1000", 0, lambda r: quiet(r) and 0 < r["seconds"] < 1000),
    ("kill service", "", "--count 30000 --check", 0, restarted),
    # The answers of the first load's tasks come to the second one.
    ("replace load", "", "--seconds 3 --outstanding 1000", 0, quiet),
    ("kill for good", "", "--seconds 1000 --wait 1", 1, lambda r: "no service connected within 1 s" in r["problems"]),
    (None, "", "--wait 1 --opcode 7", 1, lambda r: "the service made no session ready within 1 s" in r["problems"]),
    *((None, None, words, 2, text) for words, text in (
        (".", "orvd-sim: .: cannot be read"), ("EMPTY", "EMPTY: no task in it"),
        ("WRONG", "WRONG:2: argument 2 'u8:256': "), ("--function f TASKS", "--function and TASKS exclude each other"),
        ("--way close", "--way needs --churn"), ("--churn 1 --way x", "--way: expected one of close, half-close"),
        ("--outstanding 0", "--outstanding: expected a number from 1"), ("a b", "'b' is one word too many"),
        ("--path /proc/x", "/proc/x"))),
    (None, None, "--wait 1 --path S", 1, "\nservice: none has connected\n"),
    (None, None, "--help", 0, "\n  rejected   sent to a session that had ended"),
]


class Row:
    """One row, in its private /dev."""

    def __init__(self, row, load, service):
        self.act, self.options, self.words, self.code, self.condition = row
        # On the machine itself, less than 2 MB is no growth. An emulator grows by itself.
        self.load, self.service = [*load, "--growth", "1000" if len(service) > 1 else "0"], service

    def start_service(self):
        return Popen([*self.service, *self.options.split()], stdout=DEVNULL, stderr=DEVNULL)

    def start_load(self, errors):
        return Popen([*self.load, "--json", *self.words.split()], stdout=PIPE, stderr=errors, text=True)

    def interfere(self, load, service, progress):
        while "answered" not in progress.read_text(encoding="utf-8") and load.poll() is None:
            time.sleep(0.02)
        if self.act.endswith("load"):
            load.send_signal(signal.SIGTERM if self.act == "stop load" else signal.SIGKILL)
        else:
            service.kill()
            service.wait()
        return self.start_service() if self.act == "kill service" else service

    def run(self, folder):
        for name, text in (("TASKS", TASKS), ("EMPTY", "# nothing\n"), ("WRONG", "size\nsize i8:1 u8:256\n")):
            Path(folder, name).write_text(text, encoding="utf-8")
        os.chdir(folder)
        if self.options is None:
            load = run([*self.load, *self.words.split()], stdout=PIPE, stderr=STDOUT, text=True, check=False)
            return self.judge(load.returncode, self.condition in load.stdout, load.stdout)
        progress = Path(folder, "progress")
        service = self.start_service()
        with open(progress, "w", encoding="utf-8") as errors:
            load = self.start_load(errors)
            if self.act:
                service = self.interfere(load, service, progress)
            if self.act == "replace load":
                load.communicate()
                load = self.start_load(errors)
            printed = load.communicate()[0]
        service.kill()
        service.wait()
        is_right = printed.startswith("{") and self.condition(json.loads(printed))
        return self.judge(load.returncode, is_right, printed + progress.read_text(encoding="utf-8"))

    def judge(self, code, is_right, printed):
        return "" if code == self.code and is_right else f"{self.options} {self.words}: exit code {code}, {printed}"


def run_row(number, orvd_sim, service, *emulator):
    with tempfile.TemporaryDirectory() as folder:
        return Row(ROWS[number], [*emulator, orvd_sim, "load"], [*emulator, service]).run(folder)


def run_in_private_dev(number):
    orvd_sim, service, bwrap, *emulator = sys.argv[1:]
    private = [bwrap, "--die-with-parent", "--bind", "/", "/", "--dev", "/dev", "--dir", "/dev/socket", "--"]
    return run([*private, sys.executable, __file__, "--row", str(number), orvd_sim, service, *emulator],
               stdout=PIPE, stderr=STDOUT, text=True, check=False).stdout


if sys.argv[1] == "--row":
    sys.exit(run_row(int(sys.argv[2]), *sys.argv[3:]) or 0)
with ThreadPoolExecutor(6) as pool:
    sys.exit("\n".join(filter(None, pool.map(run_in_private_dev, range(len(ROWS))))) or 0)
