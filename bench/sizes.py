"""The size of the library for each processor, with different compiler options."""

import pathlib
import subprocess
import sys
import tempfile

import measure

#: The processor's name, its toolchain file, and the prefix of its tools.
PROCESSORS = [
    ("x86-64", None, ""),
    ("armhf", "armhf.cmake", "arm-linux-gnueabihf-"),
    ("arm64", "arm64.cmake", "aarch64-linux-gnu-"),
]
OPTIONS = ["-O3", "-O2", "-Os", "-O2 -fno-plt", "-O2 -flto"]


def build(top, directory, toolchain, options):
    command = ["cmake", "-S", top, "-B", directory, "-G", "Ninja", "-DKORVANE_PLATFORM=external",
               "-DBUILD_TESTING=OFF", "-DCMAKE_BUILD_TYPE=Release",
               f"-DCMAKE_CXX_FLAGS_RELEASE=-DNDEBUG {options}"]
    if toolchain:
        command.append(f"-DCMAKE_TOOLCHAIN_FILE={top}/cmake/toolchains/{toolchain}")
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL)
    subprocess.run(["cmake", "--build", directory], check=True, stdout=sys.stderr)
    return directory / "src" / "libkorvane-svcmgr.so"


def loaded_bytes(library, tools):
    """The bytes of a library that are loaded into memory, without the file's alignment."""
    lines = measure.output_of([f"{tools}size", str(library)]).splitlines()
    return int(lines[1].split()[3])


def table(top):
    rows = [["Options"]]
    for name, _, _ in PROCESSORS:
        rows[0] += [f"{name}: file", "loaded", "relocations"]
    with tempfile.TemporaryDirectory(prefix="bench-") as folder:
        for options in OPTIONS:
            row = [options]
            for name, toolchain, tools in PROCESSORS:
                measure.progress(f"building for {name} with {options}")
                directory = pathlib.Path(folder) / f"{name}{options.replace(' ', '')}"
                library = build(top, directory, toolchain, options)
                subprocess.run([f"{tools}strip", "--strip-unneeded", library], check=True)
                row += [f"{library.stat().st_size:,}", f"{loaded_bytes(library, tools):,}",
                        str(measure.count_relocations(library))]
            rows.append(row)
    return rows
