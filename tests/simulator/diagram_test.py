"""Draws recordings with orvd-sim, and looks at the pages. usage: diagram_test.py [--browser] [EMULATOR...] ORVD_SIM

With --browser it opens the pages in Chromium. It returns 77 where Chromium is not installed."""
import json
import re
import shutil
import statistics
import subprocess
import sys
import tempfile
from html.parser import HTMLParser
from pathlib import Path

from chromium import Page

BROWSER = sys.argv[1] == "--browser"
PROGRAM = sys.argv[2 if BROWSER else 1:]
HOSTILE = '</script><script>window.broken = 1</script><!-- <img src=x onerror="broken=1"> \\u003c & \u2028 \u00e4'


def packet(us, direction, text, conn=1):
    content = {"hex": text.hex()} if isinstance(text, bytes) else {"text": text}
    return {"us": us, "conn": conn, "dir": direction, **content}


def event(us, name, conn=1):
    return {"us": us, "conn": conn, "event": name}


def task(us, number, name="f", session=9, conn=1, opcode="0x10"):
    return packet(us, "to_service", json.dumps({
        "req_type": "exec_task", "opcode": opcode, "subsys_id": 1, "session_id": session, "transac_id": number,
        "func": {"name": name, "num_of_args": 0, "args": []}}), conn)


def answer(us, number, session=9, result=0, status=0, conn=1):
    text = ('{"opcode":"","name":"","subsys_id":"1","req_type":"exec_task","return":%d,"func":{},"transac_id":%d,'
            '"status": %d,"session_id":%d}' % (result, number, status, session))
    return packet(us, "to_manager", text, conn)


def recording(lines):
    return "\n".join(map(json.dumps, [{"orvd_recording": 1}, *lines])) + "\n"


def draw(text, *options):
    """Exit code, standard output, standard error."""
    with tempfile.TemporaryDirectory() as folder:
        Path(folder, "file").write_text(text, encoding="utf-8")
        done = subprocess.run([*PROGRAM, "diagram", *options, "file"], cwd=folder, capture_output=True, check=False)
    return done.returncode, done.stdout.decode(), done.stderr.decode()


class Reader(HTMLParser):
    """The tags of a page, and the contents of its elements that have an id."""

    def __init__(self, page):
        super().__init__(convert_charrefs=False)
        self.tags, self.texts, self.id = [], {}, None
        self.feed(page)
        self.data = json.loads(self.texts["data"])
        self.packets = [re.sub(r"\\x(..)", lambda code: chr(int(code[1], 16)), line)
                        for line in self.texts["texts"].split("\n")[1:-1]]

    def handle_starttag(self, tag, attrs):
        self.tags.append((tag, attrs))
        self.id = dict(attrs).get("id")

    def handle_data(self, data):
        self.texts[self.id] = self.texts.get(self.id, "") + data


ONE = [task(5, 1)]
# Options, recording, exit code, part of the output.
RUNS = [
    (["--limit", "0"], recording(ONE), 2, "--limit: expected a number from 1 to 1000000, got '0'"),
    (["--to", "nan"], recording(ONE), 2, "--to: expected seconds since the recording began, got 'nan'"),
    (["--from", "2", "--to", "1"], recording(ONE), 2, "--from is later than --to"),
    (["--output", "no/file"], recording(ONE), 2, "orvd-sim: no/file: cannot be written"),
    (["none"], recording(ONE), 2, "'file' is one word too many\nusage: orvd-sim diagram [OPTION...] FILE"),
    ([], "", 2, "file:1: no recording"),
    ([], recording([*ONE, {"us": 6}, *ONE]), 2, "file:3: "),
    ([], recording(ONE) + '{"us":9,', 0, '"note":"The recording is cut off at its end."'),
    (["--to", "0.00001"], recording([*ONE, answer(11, 1)]), 0, '"note":"1 packets outside of the time window'),
    (["--limit", "1"], recording([*ONE, *ONE]), 0, '"note":"1 packets outside of the time window or above the limit'),
]
# Lines, lines of the Mermaid text behind its head.
MERMAID = [
    (ONE, [], ["Manager->>Service: exec_task 0x10::1 f session 9 task 1"]),
    ([task(1, 1, "end;#<%%{a}\n")], [], ["Manager->>Service: exec_task 0x10::1 end#59;#35;#60;#37;#37;#123;a#125;? "
                                         "session 9 task 1"]),
    ([*ONE, answer(7, 1, status=-1)], ["--from", "0.000006"],
     ["Service-->>Manager: exec_task 0x10 session 9 task 1 failed",
      "Note over Manager,Service: left out: 1 packets before, 0 after"]),
    ([task(1, 1), event(2, "manager_closed"), task(3, 2), event(4, "connected", 2)], ["--limit", "1"],
     ["Manager->>Service: exec_task 0x10::1 f session 9 task 1",
      "Note over Manager,Service: connection 1: manager closed",
      "Note over Manager,Service: left out: 0 packets before, 1 after"]),
    ([packet(1, "to_manager", "x" * 90)], [], ["Service->>Manager: text " + "x" * 75 + "..."]),
    ([packet(1, "to_manager", b"\xff")], [], ["Service->>Manager: bytes"]),
    ([packet(1, "to_manager", '{"req_type":"PERMISSION","Session_Id":9,"QueryId":4}'),
      packet(2, "to_service", '{"req_type":"PERMISSION","QueryId":4,"PermRes":[]}')], [],
     ["Service->>Manager: PERMISSION session 9 query 4", "Manager->>Service: PERMISSION session 9 query 4"]),
]
# Lines, latencies (-1: none), outcomes (0 answered, 1 failed, 2 not answered).
TASKS = [
    ([task(1, 1), task(2, 2), answer(5, 2), answer(9, 1)], [8, 3], [0, 0]),
    ([task(1, 1), task(2, 1, session=8), answer(5, 1, session=8)], [-1, 3], [2, 0]),
    ([task(1, 1), task(2, 2), answer(4, 1, result=-5), answer(5, 2, status=-1)], [3, 3], [1, 1]),
    ([task(1, 1), answer(2, 1, result=7)], [1], [0]),
    ([task(1, 1), event(2, "manager_closed"), event(3, "connected", 2), answer(9, 1, conn=2)], [8], [0]),
    ([task(1, 1), task(5, 1), answer(9, 1)], [-1, 4], [2, 0]),
    ([task(1, 1), answer(3, 1), answer(4, 1)], [2], [0]),
    ([task(1, -1), task(2, -1), packet(5, "to_manager", '{"req_type":"", "Result":"pong"}')], [4, -1], [0, 2]),
    ([packet(1, "to_service", '{"req_type":"exec_task","func":[1]}'), packet(2, "to_service", '{"a":' * 2000)],
     [-1], [2]),
]


def check(found, expected, what):
    if found != expected:
        sys.exit(f"{what}: expected {expected}, came {found}")


def check_program():
    for options, text, code, output in RUNS:
        result = draw(text, *options)
        if result[0] != code or output not in result[1] + result[2]:
            sys.exit(f"{options} {text}: expected {code} and {output}, came {result}")
    for lines, options, expected in MERMAID:
        head = ["sequenceDiagram", "participant Manager", "participant Service"]
        printed = draw(recording(lines), "--mermaid", *options)[1]
        check([line.strip() for line in printed.splitlines()], head + expected, "mermaid")
    for lines, latencies, outcomes in TASKS:
        tasks = Reader(draw(recording(lines))[1]).data["tasks"]
        check((tasks["latency"], tasks["outcome"]), (latencies, outcomes), lines)


def check_page():
    texts = [HOSTILE, "<!--<script>", "a\rb\nc\0d\\x41\x1f", "]]>", "EXIT"]
    lines = [packet(1, "to_manager", text) for text in texts]
    lines += [packet(2, "to_manager", b"<\xff\xc0</script>"), packet(2, "to_manager", b""), task(3, 1, HOSTILE)]
    empty, hostile = (Reader(draw(recording(some))[1]) for some in ([], lines))
    check(hostile.tags, empty.tags, "elements of a page with hostile texts")
    check(hostile.packets[:len(texts) + 2], [*texts, "3cffc03c2f7363726970743e", ""], "texts of the packets")
    check(hostile.data["functions"], [[16, 1, HOSTILE]], "functions")
    addresses = [value for _, attrs in empty.tags for name, value in attrs if name in ("src", "href")]
    check(addresses, ["data:,"], "addresses")
    check(re.findall("https?://|import|fetch|XMLHttp", "".join(empty.texts.values())), [], "network")


def check_output():
    with tempfile.TemporaryDirectory() as folder:
        page = Path(folder, "page")
        for text, code in ((recording(ONE), 0), ("{}\n", 2)):
            check(draw(text, "--output", page)[:2], (code, ""), text)
            Reader(page.read_text(encoding="utf-8"))  # also after the bad recording


def traffic(count):
    """A recording of `count` tasks, 40 at a time, on two connections, and the expected table of the functions."""
    lines, table = [event(0, "connected"), packet(50, "to_service", '{"req_type":"state_change","session_id":9}')], {}
    for i in range(count):
        us, session, name = 100 + 250 * i, 9 + i % 3, ("echo", "fail", HOSTILE)[i % 7 % 3]
        conn = 1 if i < count // 2 else 2
        latency = 9000 + i * 7919 % 1000
        lines.append(task(us, i, name, session, conn, "0x20" if name == "fail" else "0x10"))
        row = table.setdefault(name, {"calls": 0, "failures": 0, "open": 0, "latencies": []})
        row["calls"] += 1
        if i % 50 == 49:
            row["open"] += 1
            continue
        row["failures"] += name == "fail"
        row["latencies"].append(latency)
        lines.append(answer(us + latency, i, session, status=-(name == "fail"), conn=conn))
    middle = 100 + 250 * (count // 2)
    lines += [event(middle - 200, "manager_closed"), event(middle - 100, "connected", 2)]
    return sorted(lines, key=lambda line: line["us"]), table


def cells(row):
    latencies = sorted(row["latencies"])
    ends = statistics.median_low(latencies), latencies[-(-99 * len(latencies) // 100) - 1]
    return [str(row["calls"]), str(row["failures"]), str(row["open"]), *(f"{end / 1000:.3f} ms" for end in ends)]


TABLE = "[...document.querySelectorAll('#functions tr')].map(row => [...row.cells].map(cell => cell.textContent))"
FRAME = "new Promise(done => requestAnimationFrame(() => setTimeout(done)))"
STATUS = FRAME + ".then(() => $('status').textContent)"


def choose(page, field, value):
    page.run(f"$('{field}').value = {json.dumps(value)}; $('{field}').dispatchEvent(new Event('input'))")


def press(page, key):
    page.run("canvas.focus()")
    page.ask("Input.dispatchKeyEvent", type="keyDown", key=key)
    return page.run(STATUS)


def click(page, x, y):
    corner = page.run("canvas.scrollIntoView(); [canvas.getBoundingClientRect().x, canvas.getBoundingClientRect().y]")
    for kind in ("mousePressed", "mouseReleased"):
        page.ask("Input.dispatchMouseEvent", type=kind, x=corner[0] + x, y=corner[1] + y, button="left", clickCount=1)
    return page.run("$('packet-text').textContent")


def check_view(page, table):
    shown = {row[0].split(" ", 1)[1]: row[1:] for row in page.run(TABLE)}
    check(shown, {name: cells(row) for name, row in table.items()}, "table")
    packets = 1 + sum(2 * row["calls"] - row["open"] for row in table.values())
    check(page.run(STATUS).split(": ")[1], f"{packets} packets", "status")
    choose(page, "session", "10")
    calls = range(sum(row["calls"] for row in table.values()))
    check(sum(int(row[1]) for row in page.run(TABLE)), len(calls[1::3]), "filter by session")
    choose(page, "session", "")
    choose(page, "opcode", "32")
    check([row[0] for row in page.run(TABLE)], ["0x20::1 fail"], "filter by opcode")
    choose(page, "opcode", "")
    choose(page, "kind", page.run("String(data.kinds.indexOf('state_change'))"))
    check(page.run(STATUS).split(". ")[-1], f"1 of {packets} packets pass the filter", "filter by kind")
    choose(page, "kind", "")
    choose(page, "session", "77")
    check(page.run(TABLE), [], "filter of an unknown session")
    page.run("$('reset').click()")
    check(len(page.run(TABLE)), 3, "table without filter")


def check_packet(page):
    press(page, "Home")
    check(page.run("$('packet-title').textContent"), "state_change", "first packet")
    press(page, "n")
    check(json.loads(page.run("$('packet-text').textContent"))["transac_id"], 0, "next packet")
    page.run("setView(taskStart[3] - 1000, 20000)")
    page.run(FRAME)
    bar = page.run("[(x(taskStart[3]) + x(taskEnd[3])) / 2, TASKS + (row[3] + 0.5) * rowHeight]")
    check(json.loads(click(page, *bar))["transac_id"], 3, "packet of the bar")
    mark = page.run("[x(taskStart[5]), MANAGER + LANE - 2]")
    check(json.loads(click(page, *mark))["transac_id"], 5, "packet of the mark")
    check(page.run("$('packet-text').textContent").count("\n") > 9, True, "lines of the packet")
    page.run("$('other-end').click()")
    check(json.loads(page.run("$('packet-text').textContent"))["return"], 0, "its answer")
    pretty = page.run("pretty('{\"a\":18446744073709551615,\"a\":[]}')")
    check(pretty, '{\n  "a": 18446744073709551615,\n  "a": []\n}', "numbers and repeated members")


def check_time_axis(page):
    whole = press(page, "0")
    zoomed = press(page, "+")
    check(zoomed == whole, False, "zoom")
    check(press(page, "ArrowRight") == zoomed, False, "move")
    check(press(page, "0"), whole, "whole recording")
    page.run("canvas.dispatchEvent(new WheelEvent('wheel', {deltaY: -1, cancelable: true}))")
    check(page.run(STATUS) == whole, False, "wheel")


def check_browser(chromium):
    with tempfile.TemporaryDirectory() as folder:
        file = Path(folder, "page.html")
        for width, dark, count in ((360, True, 300), (1440, False, 51000)):
            lines, table = traffic(count)
            file.write_text(draw(recording(lines))[1], encoding="utf-8")
            with Page(chromium, file, width, dark) as page:
                check_view(page, table)
                check_packet(page)
                check_time_axis(page)
                check(page.run("document.documentElement.scrollWidth <= innerWidth"), True, f"fits {width}")
                check(page.run("window.broken"), None, "hostile text")
                check(page.errors(), [], "errors")


if not BROWSER:
    check_program()
    check_page()
    check_output()
elif found := shutil.which("chromium") or shutil.which("chromium-browser") or shutil.which("google-chrome"):
    check_browser(found)
else:
    sys.exit(77)
