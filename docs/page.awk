# Prepares a Markdown page of the repository for Doxygen: headings get anchors, links to headings of
# other pages and names of the API become references, and Mermaid diagrams become \msc and \dot.
function anchor_of(heading) {
  heading = tolower(heading)
  gsub(/\+/, "p", heading)  # "C" and "C++" have anchors of their own
  gsub(/[^a-z0-9 _-]/, "", heading)
  gsub(/ /, "-", heading)
  return page "-" heading
}

# Links to headings: "#x" of this page, "FOLDER/PAGE.md#x" of another.
function with_links(line,    result, link, name, anchor) {
  result = ""
  while (match(line, /\]\([A-Za-z0-9_.\/]*#[A-Za-z0-9_-]+\)/)) {
    link = substr(line, RSTART + 2, RLENGTH - 3)
    name = link
    sub(/#.*/, "", name)
    sub(/.*\//, "", name)
    sub(/\.md$/, "", name)
    anchor = link
    sub(/.*#/, "", anchor)
    result = result substr(line, 1, RSTART - 1) "](#" (name ? name : page) "-" anchor ")"
    line = substr(line, RSTART + RLENGTH)
  }
  return result line
}

# `korvane_svcmgr_connect` and other names of the API become links to the reference.
function with_references(line,    result, name) {
  result = ""
  while (match(line, /`(korvane_(svcmgr|host)_[a-z_]+|SVCMGR_(ERROR|CONNECTION|UPDATE_STATUS|AI_STATE)_[A-Z0-9_]+)(\(\))?`/)) {
    name = substr(line, RSTART + 1, RLENGTH - 2)
    sub(/\(\)$/, "", name)
    result = result substr(line, 1, RSTART - 1) "<code>@ref " name "</code>"
    line = substr(line, RSTART + RLENGTH)
  }
  return result line
}

# One line of a Mermaid sequence diagram as a line of a message sequence chart.
function sequence_line(line,    from, to, text, arrow) {
  sub(/^ +/, "", line)
  text = line
  sub(/^[^:]*: */, "", text)
  if (line ~ /^(loop|alt|opt) /) return "  --- [label=\"" line "\"];"
  if (line ~ /^Note over /) {
    sub(/^Note over /, "", line)
    sub(/:.*/, "", line)
    from = to = line
    sub(/,.*/, "", from)
    sub(/.*,/, "", to)
    return "  " from " note " to " [label=\"" text "\"];"
  }
  if (!match(line, /-?-(>>|\))/)) return ""
  from = substr(line, 1, RSTART - 1)
  arrow = substr(line, RSTART, RLENGTH) ~ /^--/ ? ">>" : "=>"
  to = substr(line, RSTART + RLENGTH)
  sub(/:.*/, "", to)
  return "  " from " " arrow " " to " [label=\"" text "\"];"
}

# One line of a Mermaid state diagram as a line of a graph.
function state_line(line,    from, to, text) {
  sub(/^ +/, "", line)
  if (match(line, /^state "[^"]*" as /)) {
    text = line
    sub(/^state "/, "", text)
    sub(/".*/, "", text)
    return "  " substr(line, RLENGTH + 1) " [label=\"" text "\" style=dashed];"
  }
  gsub(/\[\*\]/, "start", line)
  if (!match(line, / --> /)) return ""
  from = substr(line, 1, RSTART - 1)
  to = substr(line, RSTART + RLENGTH)
  text = ""
  if (match(to, / : /)) {
    text = substr(to, RSTART + 3)
    to = substr(to, 1, RSTART - 1)
    gsub(/, /, ",\\n", text)
  }
  return "  " from " -> " to " [label=\"" text "\"];"
}

function end_diagram() {
  if (diagram == "sequence") {
    print "\\msc\n  hscale=\"2\";"
    print "  " participants ";"
    print lines "\\endmsc"
  } else {
    print "\\dot\ndigraph states {\n  node [shape=box style=rounded fontname=sans fontsize=11];"
    print "  edge [fontname=sans fontsize=10];\n  start [shape=point];"
    print lines "}\n\\enddot"
  }
}

FNR == 1 {
  page = FILENAME
  sub(/.*\//, "", page)
  sub(/\.[a-z]+$/, "", page)
}
/^```mermaid/ {
  in_diagram = 1
  diagram = lines = participants = ""
  next
}
in_diagram && /^```/ {
  in_diagram = 0
  end_diagram()
  next
}
in_diagram && !diagram {
  diagram = /^sequenceDiagram/ ? "sequence" : "state"
  next
}
in_diagram && diagram == "sequence" && /^ *participant / {
  name = $2
  sub(/^ *participant [A-Za-z]+ as /, "")
  participants = participants (participants ? ", " : "") name " [label=\"" $0 "\"]"
  next
}
in_diagram {
  line = diagram == "sequence" ? sequence_line($0) : state_line($0)
  if (line) lines = lines line "\n"
  next
}
# Doxygen supports only the language after the backquotes; removes the name of the program.
/^```/ {
  in_code = !in_code
  sub(/^```c .*/, "```c")
  sub(/^```cpp .*/, "```cpp")
  sub(/^```sh.*/, "```")
  print
  next
}
!in_code && /^# / {
  # An explicit name: the one that Doxygen derives contains the path of the checkout.
  print $0 " {#" (page == "README" ? "mainpage" : tolower(page)) "}"
  next
}
!in_code && /^##+ / {
  heading = $0
  sub(/^#+ /, "", heading)
  print $0 " {#" anchor_of(heading) "}"
  next
}
!in_code { $0 = with_references(with_links($0)) }
{ print }
