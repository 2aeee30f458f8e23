"""Extracts programs and scenarios from a document. usage: document_sources.py DOCUMENT STEM; prints the programs.

STEM_01.cpp, STEM_02.cpp, ...: the program after each C++ block. "// [name]" begins a part of the program. A part
replaces the earlier part with the same name. A new part comes before the part that follows it in its block, or before
the last part of the program. A block without parts is a program of its own.
STEM_1.scenario, STEM_2.scenario, ...: the scenario blocks and the example messages; a new file begins after each "die".
SIGHUP starts the next call of the service. Comments contain the calls, their results and the events of the callback.
"""
import re
import sys
from pathlib import Path

DOCUMENT, STEM = Path(sys.argv[1]).read_text(encoding="utf-8"), sys.argv[2]
STEPS = {"scenario": "", "json manager": "send ", "json service": "exactly ", "text service": "exactly "}
includes, order, body, programs, scenario = set(), [], {}, [], ""


def write(name, text):
    path = Path(name)
    if not path.exists() or path.read_text(encoding="utf-8") != text:  # keeps the time of an unchanged file
        path.write_text(text, encoding="utf-8")
    return name


for lead, kind, text in re.findall(r"(.*)\n\n```(.+)\n((?:.*\n)*?)```$", DOCUMENT, re.M):
    if kind == "cpp" and not re.search(r"^// \[", text, re.M):
        programs.append(write(f"{STEM}_{len(programs) + 1:02}.cpp", text))
    elif kind == "cpp":
        includes |= set(re.findall("^#include .*\n", text, re.M))
        named = re.split(r"^// \[(\w+)\]\n", text, flags=re.M)[1:]
        at = max(len(order) - 1, 0)
        for name, part in reversed([*zip(named[::2], named[1::2])]):
            if name not in body:
                order.insert(at, name)
            at, body[name] = order.index(name), part.strip("\n")
        program = "\n\n".join(["".join(sorted(includes)), *(body[name] for name in order), ""])
        programs.append(write(f"{STEM}_{len(programs) + 1:02}.cpp", program))
    elif kind in STEPS:
        scenario += "signal HUP\n" * (" sends" in lead and scenario != "")
        scenario += "".join(f"# {heard}\n" for heard in re.findall("`(.+?)`", lead.partition("the call")[2]))
        scenario += STEPS[kind] + text + "end-of-file\n" * ("the end of the connection" in lead)
for number, part in enumerate(re.split("(?<=^die\n)", scenario, flags=re.M), 1):
    write(f"{STEM}_{number}.scenario", part)
print(";".join(programs), end="")
