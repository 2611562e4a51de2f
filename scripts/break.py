"""Applies one small fault ("breakage") after another to the sources and reports which of them no
test notices. The lists are in tests/breakages:

    @ src/UpdateObserver.cpp

    # a requested update counts as under way
    - return update_state > UPDATE_REQUESTED;
    + return update_state >= UPDATE_REQUESTED;

"@" names the file, "#" describes the fault as a user would see it. The text after "-" occurs once
in the file and is replaced by the text after "+", or removed.

The tree is copied to build/break and built there with AddressSanitizer and
UndefinedBehaviorSanitizer. Breakages of the library run the unit tests, those of the workstation
platform and the emulator the integration tests.
"""

import argparse
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
LISTS = ROOT / "tests" / "breakages"
WORK = ROOT / "build" / "break"
TREE = WORK / "tree"
BUILD = WORK / "build"


def gtest(program):
    return [str(BUILD / "tests" / program), "--gtest_brief=1", "--gtest_fail_fast"]


def ctest(pattern):
    return ["ctest", "--test-dir", str(BUILD), "-j", str(os.cpu_count()), "--stop-on-failure",
            "-R", pattern]


# By folder of the breakage: the targets to build, and the test commands with their time limits in
# seconds. Short commands come first.
INTEGRATION = [(ctest("^(transcript_|EmulatorTest|ApplicationTest)"), 90),
               (ctest("^FaultsTest"), 400)]
UNIT_TESTS = ["svcmgr_unit_tests", "svcmgr_memory_tests"]
TESTS = {
    "src": (UNIT_TESTS, [(gtest(f"unit/{name}"), 30) for name in UNIT_TESTS]),
    "include": (UNIT_TESTS, [(gtest(f"unit/{name}"), 30) for name in UNIT_TESTS]),
    "host": (["all"], [(gtest("integration/host_integration_tests"), 60), *INTEGRATION]),
    "emulator": (["all"], INTEGRATION),
}
BUILD_LIMIT = 1200

KILLED, ALIVE, NO_BUILD = "killed", "ALIVE", "does not build"


class Breakage:
    def __init__(self, file, why, origin):
        self.file, self.why, self.origin = file, why, origin
        self.old, self.new = [], []

    def folder(self):
        return self.file.split("/", 1)[0]

    def title(self):
        return f"{self.file}: {self.why}"

    def problem(self):
        """Why it cannot be applied; empty if it can."""
        path = ROOT / self.file
        found = path.read_text().count("\n".join(self.old)) if self.old and path.is_file() else 0
        return "" if found == 1 else f"{self.origin}: found {found} times in {self.title()}"

    def apply_to(self, text):
        return text.replace("\n".join(self.old), "\n".join(self.new))


def read_breakages(path):
    breakages, file = [], None
    for number, line in enumerate(path.read_text().splitlines(), 1):
        kind, text = line[:1], line[2:]
        if kind == "@":
            file = text
        elif kind == "#":
            breakages.append(Breakage(file, text, f"{path.name}:{number}"))
        elif kind == "-":
            breakages[-1].old.append(text)
        elif kind == "+":
            breakages[-1].new.append(text)
        elif line:
            sys.exit(f"{path.name}:{number}: unknown kind of line: {line}")
    return breakages


def write_if_changed(path, content):
    """Keeps the time of unchanged files, so that they are not built again."""
    if path.exists() and path.read_bytes() == content:
        return
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_bytes(content)


def copy_tree():
    listed = subprocess.run(["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard"],
                            cwd=ROOT, check=True, capture_output=True).stdout.decode().split("\0")
    wanted = {name for name in listed if name and (ROOT / name).is_file()}
    for name in wanted:
        write_if_changed(TREE / name, (ROOT / name).read_bytes())
        shutil.copymode(ROOT / name, TREE / name)
    for path in TREE.rglob("*"):
        if path.is_file() and str(path.relative_to(TREE)) not in wanted:
            path.unlink()


def run(command, limit):
    """Returns whether the command succeeded in time, and its output. At the limit it is killed."""
    with subprocess.Popen(command, text=True, errors="replace", start_new_session=True,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT) as process:
        try:
            output, _ = process.communicate(timeout=limit)
            in_time = True
        except subprocess.TimeoutExpired:
            os.killpg(process.pid, signal.SIGKILL)
            output, _ = process.communicate()
            output, in_time = output + "\n(time limit)", False
    return in_time and process.returncode == 0, output


def build_command(folder):
    targets, _ = TESTS[folder]
    return ["cmake", "--build", BUILD, "--target", *targets]


def run_tests(folder):
    _, tests = TESTS[folder]
    for command, limit in tests:
        passed, output = run(command, limit)
        if not passed:
            return passed, output
    return True, ""


def noticed_by(output):
    names = re.findall(r"^(?:\[  FAILED  \]|\t *\d+ -) ([\w.]+)", output, re.MULTILINE)
    if not names:
        names = ["a time limit" if "(time limit)" in output else "a crash"]
    return ", ".join(dict.fromkeys(names))


def try_breakage(breakage):
    path = TREE / breakage.file
    original = path.read_text()
    path.write_text(breakage.apply_to(original))
    try:
        built, _ = run(build_command(breakage.folder()), BUILD_LIMIT)
        if not built:
            return NO_BUILD, ""
        passed, output = run_tests(breakage.folder())
        return (ALIVE, "") if passed else (KILLED, noticed_by(output))
    finally:
        path.write_text(original)


def prepare(breakages):
    """Copies and builds the tree, and checks that its tests pass."""
    subprocess.run([ROOT / "scripts" / "setup"], check=True)
    copy_tree()
    configured, output = run(["cmake", "-S", TREE, "-B", BUILD, "-G", "Ninja", "-DBUILD_TESTING=ON",
                              "-DCMAKE_BUILD_TYPE=Debug", "-DKORVANE_SANITIZE=address,undefined"],
                             BUILD_LIMIT)
    if not configured:
        sys.exit(output)
    for folder in sorted({b.folder() for b in breakages}):
        subprocess.run(build_command(folder), check=True)
        print(f"running the tests of {folder}", flush=True)
        passed, output = run_tests(folder)
        if not passed:
            sys.exit(f"{output}\nthe tests fail without any breakage")


def pattern(text):
    try:
        return re.compile(text)
    except re.error as error:
        raise argparse.ArgumentTypeError(f"{text}: {error}") from error


def existing_file(name):
    path = pathlib.Path(name)
    if not path.is_file():
        raise argparse.ArgumentTypeError(f"{name} is not a file")
    return path


def main():
    parser = argparse.ArgumentParser(prog="scripts/break", add_help=False, allow_abbrev=False)
    parser.add_argument("--list", action="store_true")
    parser.add_argument("--only", metavar="PATTERN", default=re.compile(""), type=pattern)
    parser.add_argument("file", nargs="*", type=existing_file)
    options = parser.parse_args()

    breakages = [b for path in options.file or sorted(LISTS.glob("*.txt"))
                 for b in read_breakages(path) if options.only.search(b.title())]
    lost = [problem for problem in map(Breakage.problem, breakages) if problem]
    if lost:
        sys.exit("\n".join(["breakages whose text is not in the file exactly once:", *lost]))
    if options.list or not breakages:
        print("\n".join(b.title() for b in breakages))
        sys.exit(0 if breakages else "no breakage matches")

    prepare(breakages)
    counts = {KILLED: 0, ALIVE: 0, NO_BUILD: 0}
    for number, breakage in enumerate(breakages, 1):
        begin = time.monotonic()
        print(f"[{number}/{len(breakages)}] {breakage.title()}:", end="", flush=True)
        result, tests = try_breakage(breakage)
        counts[result] += 1
        by = f" by {tests}" if tests else ""
        print(f" {result}{by} ({time.monotonic() - begin:.0f} s)", flush=True)
    print(", ".join(f"{count} {result}" for result, count in counts.items()))
    sys.exit(0 if counts[KILLED] == len(breakages) else 1)


main()
