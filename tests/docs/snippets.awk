# Takes the C and C++ blocks out of Markdown files: ```c NAME and ```cpp NAME go to NAME.c and NAME.cpp
# in the folder `out`, blocks of one name one after the other. Prints the files that it wrote.
function fail(what) {
  print FILENAME ":" FNR ": " what > "/dev/stderr"
  failed = 1
  exit 1
}

/^```(c|cpp)( |$)/ && !file {
  if (NF != 2) fail("a C or C++ block needs a name: ```c NAME")
  file = out "/" $2 "." substr($1, 4)
  if (!(file in written)) {
    written[file] = 1
    printf "" > file
    print file
  }
  print "#line " FNR + 1 " \"" FILENAME "\"" > file
  next
}
/^```$/ { file = "" }
file { print > file }
END { if (file && !failed) fail("the last block has no end") }
