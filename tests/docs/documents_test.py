"""Compares examples and tables of the documents with the sources. usage: documents_test.py PROJECT"""
import json
import re
import sys
from collections import Counter
from functools import partial
from pathlib import Path

LEVELS = ("kEveryLevel", "kFailure", "kWarning", "kDetail", "kProgress")
PROPERTIES = {"property_get_int32": "number", "GetProperty": "text", "GetBoolProperty": "switch"}
find = partial(re.findall, flags=re.M)
texts = {str(path.relative_to(sys.argv[1])): path.read_text(encoding="utf-8") for pattern in (
    "src/*/*.*", "include/orvex_args.h", "docs/*.md") for path in Path(sys.argv[1]).glob(pattern)}
sources = "\n".join(text for path, text in texts.items() if path.startswith("src/"))
protocol, logs, android = (texts[f"docs/{name}.md"] for name in ("PROTOCOL", "LOGS", "ANDROID"))
differences = []


def compare(what, wanted, documented):
    differences.extend([f"{what}: {one} is not documented" for one in wanted - documented] +
                       [f"{what}: {one} is documented only" for one in documented - wanted])


# Every message has an example. The table after an example lists the members of the message. It may also list members of
# inner objects, but only those in the example.
examples = find(r"^\*\*(.*)\*\*.*\n\n```\w+ (\w+)\n(.*)\n```\n(?:\n\| member \|.*\n((?:\|.*\n)+))?", protocol)
compare("PROTOCOL.md, fences", {protocol.count("```")}, {2 * len(examples)})
shown = set()
for sender, side, text, table in examples:
    compare(f"PROTOCOL.md, sender of {text}", {side}, {sender.lower()})
    if table:
        inside = {*find(r"^\| `\S*\.(\w+)[\[\]]*` \|", table)}
        compare(f"PROTOCOL.md, {text}", {*json.loads(text), "req_type"}, {*find(r"^\| `(\w+)` \|", table), "req_type"})
        compare(f"PROTOCOL.md, inside of {text}", inside.intersection(find(r'"(\w+)":', text)), inside)
    if table or side == "service":
        shown.update((side, kind) for kind in find(r'"req_type":"(\w+)"', text))
handled = find(r'\{"(\w+)", \w+[<}]', texts["src/client/dispatch.cpp"]) + ["volume_change"]  # can replace any
sent = find(r'"req_type":"(\w+)"', sources) + ["start_session", "end_session", "INFO_QUERY", "INFO_MNTR"]
compare("PROTOCOL.md", {("manager", kind) for kind in handled} | {("service", kind) for kind in sent}, shown)

codes = dict(find(r"(ORVEX_\w+) = (\d+),", texts["include/orvex_args.h"]))
compare("PROTOCOL.md, types", {(name, codes[code]) for name, code in find(r'\{"(\w+)", (ORVEX_\w+)\}', sources)},
        {*find(r"^\| `(\w+)`[^|]* \| (\d+) \|", protocol)})
compare("PROTOCOL.md, deliberate", Counter({path: text.count("// Deliberate:") for path, text in texts.items()}),
        Counter(find(r"\| `(src/\S+)` \|$", protocol)))

# Every log line in LOGS.md exists in the sources. Every log line of level 1 or 2 and of the decoders is in LOGS.md.
lines = {f"{LEVELS.index(level)} {text}" for level, text in find(r'LOG_AT\(\s*(k\w+),\s*"((?:\\.|[^"\\])*)"', sources)}
for decoder in find(r'DecoderTexts k\w+\{\s*"([^"]*)",\s*"([^"]*)"', sources):
    lines.update(f"0 {text}" for text in decoder)
explained = {f"{level} {text}" for text, level in find(r"^\| `(.*)` \| ([0-4]) \|", logs)}
due = {line for line in lines if re.match("[12]|0 .*(parsing|Out of range)", line)}
compare("LOGS.md", due | (explained & lines), explained)

read = find(r'(property_get_\w+|Get\w*Property)\(\s*"([^"]*)",\s*([^)]*)\)', sources)
compare("ANDROID.md", {(name, PROPERTIES[reader], default) for reader, name, default in read},
        {*find(r"^\| `([^`]+)` \| (number|text|switch) \| `([^`]*)` \|", android)})
sys.exit("\n".join(differences) or 0)
