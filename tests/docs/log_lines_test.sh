#!/usr/bin/env bash
# docs/LOGS.md against the sources: every row is a line that is written from that level, and every line of level 1
# or 2, every decoder's wording, has its row.
# usage: log_lines_test.sh SOURCE_FOLDER
set -euo pipefail
cd "$1"

declare -A level_of=([kAlways]=0 [kFailure]=1 [kWarning]=2 [kDetail]=3 [kProgress]=4)

# "level text" of every line in the sources.
source_lines() {
  local flat gate text
  flat=$(find src -name '*.cpp' -o -name '*.h' | sort | xargs cat | tr '\n' ' ')
  while IFS=$'\t' read -r gate text; do
    echo "${level_of[$gate]} $text"
  done < <(grep -oP 'LOG_AT\(\s*k\w+,\s*"(\\.|[^"\\])*"' <<<"$flat" | sed -E 's/LOG_AT\(\s*(k\w+),\s*"(.*)"$/\1\t\2/')
  grep -oP 'PathWording k\w+\{\s*"[^"]*",\s*"[^"]*"' <<<"$flat" | grep -oP '"[^"]*"' | sed -E 's/^"(.*)"$/0 \1/'
}

documented_lines() {
  sed -nE 's/^\| `(.*)` \| ([0-4]) \|.*$/\2 \1/p' docs/LOGS.md
}

in_sources=$(source_lines | sort -u)
in_document=$(documented_lines | sort -u)
[ "$(wc -l <<<"$in_sources")" -gt 60 ] || { echo "too few lines found in the sources"; exit 1; }

result=0
while read -r line; do
  echo "docs/LOGS.md has, and the sources have not: $line"
  result=1
done < <(comm -13 <(echo "$in_sources") <(echo "$in_document"))
while read -r line; do
  echo "docs/LOGS.md lacks: $line"
  result=1
done < <(comm -23 <(grep -E '^[12] |^0 .*(parsing|Out of range)' <<<"$in_sources") <(echo "$in_document"))
exit $result
