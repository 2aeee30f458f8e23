"""The folders of src/ are floors: a file includes only its own folder and lower floors. usage: includes_test.py PROJECT"""
import re
import sys
from pathlib import Path

FLOORS = {"base": 1, "utility": 2, "args": 3, "link": 3, "registration": 4, "queries": 4, "sessions": 5, "client": 6}

project = Path(sys.argv[1])
wrong = []
for path in [*project.glob("src/*/*.*"), *project.glob("include/**/*.h")]:
    folder = path.parent.name
    for included in re.findall(r'^#include "(\w+)/', path.read_text(encoding="utf-8"), re.M):
        if included in FLOORS and included != folder and FLOORS[included] >= FLOORS.get(folder, 0):
            wrong.append(f"{path.relative_to(project)} must not include {included}/")
sys.exit("\n".join(wrong) or 0)
