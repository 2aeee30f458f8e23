# The public headers as Doxygen reads them. Their contracts are plain "//" comments, for whoever opens the header; here
# each becomes Doxygen's "///", and what the headers say by layout becomes a command:
# - the comment at the top is the file's; all but the first line of IOrvdClient.h's is the site's first page;
# - "// --- Title" begins a group of entities;
# - a line that ends a sentence ends the paragraph, and "Returns" at the start of a line begins the results;
# - lines indented deeper are the rows of a table.

# Nothing in a comment is markup. What stands in backquotes or quotation marks Doxygen leaves as it is.
function escaped(text,   all, plain) {
  while (match(text, /`[^`]*`|"[^"]*"|$/)) {
    plain = substr(text, 1, RSTART - 1)
    gsub(/[\\<>@#%&*]/, "\\\\&", plain)
    all = all plain substr(text, RSTART, RLENGTH)
    if (RLENGTH <= 0) return all
    text = substr(text, RSTART + RLENGTH)
  }
}

# Two columns, with two blanks or more between them; the first may be empty.
function row(text) {
  sub(/^  /, "", text)
  sub(/  +/, " | ", text)
  return text
}

function comment(text) {
  text = escaped(text)
  if (text ~ /^ /) {
    if (!in_table) print "/// | | |\n/// | --- | --- |"
    in_table = 1
    print "/// | " row(text) " |"
    return
  }
  in_table = 0
  sub(/^Returns /, "@return ", text)
  if (!top_done && new_paragraph) sub(/^[A-Z][a-z]+\./, "**&**", text)
  print "/// " text
  new_paragraph = text == "" || text ~ /\.$/
  if (text ~ /\.$/) print "///"
}

function end_group() {
  if (in_group) print "///@}"
  in_group = 0
}

function file_comment(   i) {
  print "/// @file"
  new_paragraph = 0
  comment(top[1])
  if (FILENAME ~ /\/IOrvdClient\.h$/) print "\n/// @mainpage"
  for (i = 2; i <= top_size; i++) comment(top[i])
  top_done = 1
}

!top_done && /^\/\// { top[++top_size] = substr($0, 4); next }
!top_done { file_comment() }

/^ *\/\/ --- / {
  end_group()
  sub(/^ *\/\/ --- /, "")
  print "/// @name " escaped($0)
  title = in_group = 1
  next
}

/^ *\/\// {
  sub(/^ *\/\/ ?/, "")
  comment($0)
  next
}

{ in_table = 0 }

title { print "///@{"; title = 0 }

/[^ ] +\/\/ / && !/^}/ {
  at = match($0, / +\/\/ /)
  print substr($0, 1, at - 1) "  ///< " escaped(substr($0, at + RLENGTH))
  next
}

{ print }

END { end_group() }
