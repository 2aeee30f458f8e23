"""Runs orvd-sim load against the checking service. usage: load_test.py ORVD_SIM SERVICE"""
import json
import signal
import sys
import tempfile
from pathlib import Path
from subprocess import DEVNULL, PIPE, Popen

from desk import check_rows, in_folder, kill, wait

ORVD_SIM, SERVICE = sys.argv[1:]
FILES = {"TASKS": "# calls\nsize u8:5 str[]:a,b\n\nnothing\n", "EMPTY": "# nothing\n",
         "WRONG": "size\nsize i8:1 u8:256\n"}
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


# What is done after the first line of progress, options of the service (None: there is none), words of load, exit code,
# condition for the summary (without a service: part of the output).
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
    # The answers of the first load's tasks come to the second one. On a busy machine some queries of so many tasks take
    # longer than three seconds, and their tasks fail.
    ("replace load", "", "--seconds 3 --outstanding 1000", 0, lambda r: quiet(r, "failed")),
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


def start_load(folder, words):
    with open(folder + "/errors", "a", encoding="utf-8") as errors:
        # A growth of less than 2 MB never counts.
        words = ["--growth", "0", "--path", folder + "/orvd", *words.split()]
        return Popen([ORVD_SIM, "load", *words], cwd=folder, stdout=PIPE, stderr=errors, text=True)


def start_service(folder, options):
    return Popen(in_folder(folder, SERVICE, *options.split()), stdout=DEVNULL, stderr=DEVNULL)


def serve(load, folder, act, options, words):
    """Runs a service for load, and acts. Returns the load whose summary counts, and the service."""
    service = start_service(folder, options)
    if act:
        wait(lambda: "answered" in Path(folder, "errors").read_text("utf-8") or load.poll() is not None)
    if act == "stop load":
        load.send_signal(signal.SIGTERM)
    elif act == "replace load":
        load.kill()
        load.wait()
        load = start_load(folder, words)
    elif act:
        kill(service)
    return load, start_service(folder, options) if act == "kill service" else service


def check(act, options, words, code, condition):
    with tempfile.TemporaryDirectory() as folder:
        for name, text in FILES.items():
            Path(folder, name).write_text(text, encoding="utf-8")
        words += "" if options is None else " --json"
        load, service = start_load(folder, words), None
        if options is not None:
            load, service = serve(load, folder, act, options, words)
        printed = load.communicate()[0]
        errors = Path(folder, "errors").read_text("utf-8")
        if service:
            kill(service)
            good = printed.startswith("{") and condition(json.loads(printed))
        else:
            good = condition in printed + errors
    return "" if good and load.returncode == code else f"{options} {words}: {load.returncode}, {printed}{errors}"


check_rows(check, ROWS, 6)
