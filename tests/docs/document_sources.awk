# The C++ and the scenarios of a document, as files: STEM_01.cpp, STEM_02.cpp, ... is the program as it stands at the end
# of each section that has C++ in it; STEM_1.scenario, STEM_2.scenario, ... are the scenarios.
# usage: awk -v stem=PATH -f document_sources.awk DOCUMENT
#
# The convention, for ```cpp blocks:
# - "// [name]" begins a part, which goes to the next such line or the end of the block;
# - a part whose name has come before takes that one's place;
# - a part with a new name goes above the next part of the section that is known; in the first section, to the end;
# - #include lines are gathered at the top.
# ```scenario blocks follow one another in one scenario; "die" is a scenario's last step.

function fail(line, why) {
  printf "%s:%d: %s\n", FILENAME, line, why > "/dev/stderr"
  failed = 1
  exit 1
}

function add_include(line) {
  if (!(line in included)) {
    included[line] = 1
    if (line ~ /</) system_includes = system_includes line "\n"
    else own_includes = own_includes line "\n"
  }
}

function begin_part(name) {
  part = name
  if (name in text_of) fail(FNR, "[" name "] stands twice in this section")
  text_of[name] = ""
  section[++section_size] = name
  section_line[section_size] = FNR
}

function insert(name, at,   i) {
  for (i = ++program_size; i > at; i--) program[i] = program[i - 1]
  program[at] = name
}

function position(name,   i) {
  for (i = 1; i <= program_size && program[i] != name; i++);
  return i
}

# From the last part up, so that each new one finds its successor in the program.
function place_parts(   i, at) {
  at = program_size + 1
  for (i = section_size; i >= 1; i--) {
    if (section[i] in body) at = position(section[i])
    else if (at > program_size && stage > 0) fail(section_line[i], "no known part comes after [" section[i] "]")
    else insert(section[i], at)
    body[section[i]] = text_of[section[i]]
  }
}

function trimmed(text) {
  sub(/^\n+/, "", text)
  sub(/\n+$/, "", text)
  return text
}

function write_program(   i, file) {
  file = sprintf("%s_%02d.cpp", stem, ++stage)
  printf "%s%s%s", system_includes, (own_includes == "" ? "" : "\n"), own_includes > file
  for (i = 1; i <= program_size; i++) print "\n" trimmed(body[program[i]]) > file
  close(file)
}

function end_section() {
  if (section_size == 0) return
  place_parts()
  write_program()
  section_size = 0
  split("", text_of)
}

BEGIN { scenarios = 1 }

/^```/ {
  if (kind != "") kind = ""
  else kind = ($0 == "```cpp" || $0 == "```scenario") ? substr($0, 4) : "other"
  part = ""
  next
}

kind == "" && /^## / { end_section() }

kind == "cpp" {
  if ($0 ~ /^#include /) add_include($0)
  else if ($0 ~ /^\/\/ \[[a-z_]+\]$/) begin_part(substr($0, 5, length($0) - 5))
  else if ($0 != "" || part != "") {
    if (part == "" && !("" in text_of)) begin_part("")
    text_of[part] = text_of[part] $0 "\n"
  }
}

kind == "scenario" {
  print > (stem "_" scenarios ".scenario")
  if ($0 == "die") scenarios++
}

END {
  if (failed) exit 1
  if (kind != "") fail(FNR, "a block has no end")
  end_section()
  if (stage == 0) fail(FNR, "no C++ in it")
}
