"""Measures the costs of the library. scripts/bench runs this program and describes its options."""

import argparse
import contextlib
import json
import os
import pathlib
import platform
import re
import shutil
import signal
import subprocess
import sys
import tempfile

import measure
import report
import sizes

TOP = pathlib.Path(__file__).resolve().parent.parent
DOCUMENT = TOP / "docs" / "performance.md"
PLOT = TOP / "docs" / "performance.svg"
TABLE = re.compile(r"(<!-- figures -->\n).*?(<!-- end of figures -->)", re.DOTALL)
PACKAGES = ["git", "libbenchmark-dev", "libsystemd-dev", "pkgconf", "pax-utils", "gnuplot-nox"]
PACKAGES_FOR_SIZES = ["g++-arm-linux-gnueabihf", "g++-aarch64-linux-gnu"]
TARGETS = ["bench/all", "svcmgr-emulator", "korvane_svcmgr"]


def parse_arguments():
    parser = argparse.ArgumentParser(prog="scripts/bench", add_help=False, allow_abbrev=False)
    parser.add_argument("--quick", action="store_true")
    parser.add_argument("--rounds", type=int, metavar="N")
    parser.add_argument("--tree", type=pathlib.Path, metavar="DIR")
    parser.add_argument("--json", type=pathlib.Path, metavar="FILE")
    parser.add_argument("--plot", type=pathlib.Path, metavar="FILE")
    parser.add_argument("--docs", action="store_true")
    parser.add_argument("--compare", nargs=2, metavar=("A", "B"))
    parser.add_argument("--sizes", action="store_true")
    arguments = parser.parse_args()
    if arguments.rounds is not None and arguments.rounds < 1:
        parser.error("--rounds must be at least 1")
    if arguments.tree is not None and not arguments.tree.is_dir():
        parser.error(f"{arguments.tree} is not a folder")
    return arguments


def run(command, **options):
    subprocess.run([str(word) for word in command], check=True, **options)


def build(source, directory):
    """Builds the measuring programs, the library and the emulator."""
    measure.progress(f"building in {directory}")
    run(["cmake", "-S", source, "-B", directory, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release",
         "-DCMAKE_CXX_FLAGS_RELEASE=-O2 -DNDEBUG", "-DKORVANE_BENCH=ON", "-DBUILD_TESTING=OFF"],
        stdout=subprocess.DEVNULL)
    run(["cmake", "--build", directory, "--target", *TARGETS], stdout=sys.stderr)


@contextlib.contextmanager
def worktree(commit, folder):
    """A worktree of a commit, with the measuring programs of this checkout."""
    source = folder / f"source-{commit.replace('/', '-')}"
    run(["git", "-C", TOP, "worktree", "add", "--quiet", "--detach", source, commit])
    try:
        shutil.rmtree(source / "bench", ignore_errors=True)
        shutil.copytree(TOP / "bench", source / "bench")
        if "KORVANE_BENCH" not in (source / "CMakeLists.txt").read_text(encoding="utf-8"):
            sys.exit(f"bench: {commit} is older than the measuring programs")
        yield source
    finally:
        run(["git", "-C", TOP, "worktree", "remove", "--force", source])


def heading(name):
    with open("/proc/cpuinfo", encoding="utf-8") as stream:
        models = [line.split(":")[1].strip() for line in stream if line.startswith("model name")]
    processor = f"{len(models)} × {models[0]}" if models else platform.machine()
    return {"of": name, "processor": processor, "system": platform.release()}


def this_commit():
    described = subprocess.run(["git", "-C", TOP, "describe", "--always", "--dirty"],
                               stdout=subprocess.PIPE, text=True, check=False)
    return described.stdout.strip() or "unknown"


def update_document(figures, machine):
    text = DOCUMENT.read_text(encoding="utf-8")
    table = report.as_markdown(report.table(figures))
    line = f"Measured on {machine['processor']}, Linux {machine['system']}."
    text, count = TABLE.subn(lambda match: f"{match[1]}{table}\n\n{line}\n{match[2]}", text)
    if count != 1:
        sys.exit(f"bench: {DOCUMENT} lacks the comments around the table")
    DOCUMENT.write_text(text, encoding="utf-8")
    report.plot(figures, PLOT)


def measure_this(arguments, plan):
    directory = TOP / "build" / "bench"
    build(TOP, directory)
    subject = measure.Build(this_commit(), directory)
    measure.measure([subject], plan, arguments.tree)
    machine = heading(subject.name)
    report.write_json(arguments.json or directory / "figures.json", machine, subject.figures)
    if arguments.plot:
        report.plot(subject.figures, arguments.plot)
    if arguments.docs:
        update_document(subject.figures, machine)
    print(report.as_text(report.table(subject.figures, judged=not arguments.quick)))


def compare(arguments, plan):
    """Compares two commits, measured side by side, or the files of earlier runs."""
    with contextlib.ExitStack() as stack:
        folder = pathlib.Path(stack.enter_context(tempfile.TemporaryDirectory(prefix="bench-")))
        subjects = []
        for number, name in enumerate(arguments.compare):
            subject = measure.Build(name, folder / f"build-{number}")
            subjects.append(subject)
            if pathlib.Path(name).is_file():
                subject.figures = report.read_json(name)
            else:
                build(stack.enter_context(worktree(name, folder)), subject.directory)
        to_measure = [subject for subject in subjects if not subject.figures]
        if to_measure:
            measure.measure(to_measure, plan, arguments.tree)
        before, after = (subject.figures for subject in subjects)
        if arguments.json:
            arguments.json.write_text(json.dumps({"before": before, "after": after}, indent=1))
        print(report.as_text(report.comparison(before, after)))


def main():
    arguments = parse_arguments()
    os.environ["LC_ALL"] = "C.UTF-8"
    # Exits by an exception, so that worktrees, temporary folders and emulators are cleaned up.
    signal.signal(signal.SIGTERM, lambda number, _: sys.exit(128 + number))
    plan = measure.Plan(arguments.quick, arguments.rounds)
    try:
        packages = PACKAGES_FOR_SIZES if arguments.sizes else PACKAGES
        run([TOP / "scripts" / "setup", *packages], stdout=sys.stderr)
        if arguments.sizes:
            print(report.as_text(sizes.table(TOP)))
        elif arguments.compare:
            compare(arguments, plan)
        else:
            measure_this(arguments, plan)
    except subprocess.CalledProcessError as error:
        sys.exit(f"bench: {error}")
    except (OSError, RuntimeError, ValueError) as error:
        sys.exit(f"bench: {error}")


if __name__ == "__main__":
    main()
