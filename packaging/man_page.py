#!/usr/bin/env python3
"""Makes the manual page from the help texts of orvd-sim. usage: man_page.py PAGE [--update] ORVD_SIM...

Compares PAGE with what it makes, and names the first difference. With --update it writes PAGE instead. ORVD_SIM can
be several words, for an emulator.
"""
import re
import subprocess
import sys
from itertools import zip_longest
from pathlib import Path

page, *program = sys.argv[1:]
update = program[0] == "--update"
program = program[update:]


def printed(*words):
    return subprocess.run([*program, *words], stdout=subprocess.PIPE, text=True, check=True).stdout


def roff(text):
    text = text.replace("\\", "\\e").replace("-", "\\-")
    return re.sub(r"^(?=[.'])", r"\\&", text, flags=re.M)


def block(text):
    return f".nf\n{roff(text)}\n.fi\n" if text else ""


def command_section(name, summary):
    usage, about, options, examples = re.fullmatch(
        r"usage: (.*?)\n\n(.*)\n\nOptions:\n(.*)\nExamples:\n(.*)", printed(name, "--help"), re.S).groups()
    text = f".SS {roff(name)}\n{roff(summary[0].upper() + summary[1:])}.\n.PP\n.B {roff(usage)}\n.PP\n{block(about.strip())}"
    for words, effect in re.findall(r"^  (--\S+(?: [^ ]+)?) {2,}(.*(?:\n {10,}.*)*)", options, re.M):
        text += f".TP\n.B {roff(words)}\n{roff(' '.join(effect.split()))}\n"
    return text + ".PP\nExamples:\n.PP\n" + block(examples.strip("\n"))


overview = printed("--help")
commands = re.findall(r"^  (\S+) +(.*)$", overview.split("Commands:\n")[1].split("\n\n")[0], re.M)
version = printed("--version").split()[-1]
made = f""".\\" Made by packaging/man_page.py from the help texts of orvd\\-sim.
.TH ORVD\\-SIM 1 "" "orvd\\-sim {version}" "User Commands"
.SH NAME
orvd\\-sim \\- the ORVEX Manager's side of a service, for work without a device
.SH SYNOPSIS
{block(overview.split(chr(10) * 2)[0].removeprefix("usage: "))}.SH COMMANDS
{"".join(command_section(*command) for command in commands)}.SH EXIT STATUS
0 as expected; 1 not as expected; 2 wrong use, or a file or path that cannot be used.
.SH FILES
.TP
.I /dev/socket/orvd
The socket of the Manager.
"""
if update:
    Path(page).write_text(made, encoding="utf-8")
    sys.exit()
for number, (old, new) in enumerate(zip_longest(Path(page).read_text(encoding="utf-8").split("\n"), made.split("\n")), 1):
    if old != new:
        sys.exit(f"{page}:{number}: the help texts differ from the page; repeat with --update\n  page: {old}\n  help: {new}")
