#!/usr/bin/env bash
# The table of system properties in docs/ANDROID.md against the sources: names, types and defaults.
# usage: properties_test.sh SOURCE_FOLDER
set -euo pipefail
cd "$1"

# "name type default" of every read.
in_sources=$(find src -name '*.cpp' -exec cat {} + | tr '\n' ' ' |
  grep -oP '(property_get_\w+|Get\w*Property)\(\s*"[^"]*",\s*[^)]*\)' |
  sed -E 's/^property_get_int32/number/; s/^GetProperty/text/; s/^GetBoolProperty/switch/
          s/^(\w+)\(\s*"([^"]*)",\s*(.*)\)$/\2 \1 \3/' | sort -u)
in_document=$(sed -nE 's/^\| `([^`]+)` \| (number|text|switch) \| `([^`]*)` \|.*$/\1 \2 \3/p' docs/ANDROID.md | sort)
[ -n "$in_sources" ] && diff --label sources --label docs/ANDROID.md -U 0 <(echo "$in_sources") <(echo "$in_document")
