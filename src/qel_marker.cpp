// The library's own marker: API level 13, QEL version 3.0.154. It is a section of the file only
// and is not loaded into memory, so it is written in assembler, not as a variable.
__asm__(
    ".pushsection .qel,\"\",%progbits\n"
    ".ascii \"QEL\\0\\0\\0\"\n"
    ".2byte 1\n"
    ".2byte 13\n"
    ".2byte 3\n"
    ".2byte 0\n"
    ".2byte 154\n"
    ".popsection\n");
