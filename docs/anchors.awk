# Gives every heading of a Markdown file the anchor that links to it use.
/^```/ { in_code = !in_code }
!in_code && /^##+ / {
  anchor = tolower($0)
  sub(/^#+ /, "", anchor)
  gsub(/[^a-z0-9 -]/, "", anchor)
  gsub(/ /, "-", anchor)
  $0 = $0 " {#" anchor "}"
}
{ print }
