"""Takes programs and scenarios out of a document. usage: document_sources.py DOCUMENT STEM; prints the programs.

STEM_01.cpp, STEM_02.cpp, ...: the program at the end of each section that has C++. "// [name]" begins a part. It takes
the place of the part of that name, or the place above the part that follows it in the section, or else the last place.
STEM_1.scenario, STEM_2.scenario, ...: the scenario blocks and the example messages, up to each "die". SIGHUP asks the
service for its next call; comments have the calls, what they return and what the callback hears.
"""
import re
import sys
from pathlib import Path

DOCUMENT, STEM = Path(sys.argv[1]).read_text(encoding="utf-8"), sys.argv[2]
STEPS = {"scenario": "", "json manager": "send ", "json service": "exactly ", "text service": "exactly "}
includes, order, body, programs, scenario = set(), [], {}, [], ""


def write(name, text):
    path = Path(name)
    if not path.exists() or path.read_text(encoding="utf-8") != text:  # nothing is built anew without need
        path.write_text(text, encoding="utf-8")
    return name


for lead, kind, text in re.findall(r"(.*)\n\n```(.+)\n((?:.*\n)*?)```$", DOCUMENT, re.M):
    if kind == "cpp":
        includes |= set(re.findall("^#include .*\n", text, re.M))
        first, *named = re.split(r"^// \[(\w+)\]\n", re.sub("^#include .*\n", "", text, flags=re.M), flags=re.M)
        at = len(order)
        for name, part in reversed([("", first), *zip(named[::2], named[1::2])]):
            if name not in body:
                order.insert(at, name)
            at, body[name] = order.index(name), part.strip()
        program = "\n\n".join(["".join(sorted(includes)), *(body[name] for name in order if body[name]), ""])
        programs.append(write(f"{STEM}_{len(programs) + 1:02}.cpp", program))
    elif kind in STEPS:
        scenario += "signal HUP\n" * (" sends" in lead and scenario != "")
        scenario += "".join(f"# {heard}\n" for heard in re.findall("`(.+?)`", lead.partition("the call")[2]))
        scenario += STEPS[kind] + text + "end-of-file\n" * ("the end of the connection" in lead)
for number, part in enumerate(re.split("(?<=^die\n)", scenario, flags=re.M), 1):
    write(f"{STEM}_{number}.scenario", part)
print(";".join(programs), end="")
