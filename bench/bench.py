"""Measures what the library costs. scripts/bench runs it."""

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
TARGETS = ["bench/all", "svcmgr-emulator", "korvane_svcmgr"]


def parse_arguments():
    parser = argparse.ArgumentParser(
        prog="scripts/bench",
        description="Measures what the library costs, next to the least that the same work can"
        " cost and to what others take for it, and prints one table.",
        epilog="Exit status: 0 measured, 1 failed, 2 bad usage.",
    )
    parser.add_argument("--quick", action="store_true",
                        help="run everything once, with little work: figures without worth")
    parser.add_argument("--rounds", type=int, metavar="N", help="measure N times (default: 9)")
    parser.add_argument("--tree", type=pathlib.Path, metavar="DIR",
                        help="search this folder for markers, not 65,000 made-up files")
    parser.add_argument("--json", type=pathlib.Path, metavar="FILE",
                        help="where the figures go (default: build/bench/figures.json)")
    parser.add_argument("--plot", type=pathlib.Path, metavar="FILE",
                        help="draw how the figures grow, as SVG")
    parser.add_argument("--docs", action="store_true",
                        help="put table and plot into docs/performance.md")
    parser.add_argument("--compare", nargs=2, metavar=("A", "B"),
                        help="two commits, each measured in turn, or JSON files of earlier runs")
    parser.add_argument("--sizes", action="store_true",
                        help="tell only how large the library is, by processor and option")
    arguments = parser.parse_args()
    if arguments.rounds is not None and arguments.rounds < 1:
        parser.error("--rounds must be at least 1")
    if arguments.tree is not None and not arguments.tree.is_dir():
        parser.error(f"{arguments.tree} is no folder")
    return arguments


def run(command, **options):
    subprocess.run([str(word) for word in command], check=True, **options)


def build(source, directory):
    """Builds the measuring programs and what they measure."""
    measure.progress(f"building in {directory}")
    run(["cmake", "-S", source, "-B", directory, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release",
         "-DCMAKE_CXX_FLAGS_RELEASE=-O2 -DNDEBUG", "-DKORVANE_BENCH=ON", "-DBUILD_TESTING=OFF"],
        stdout=subprocess.DEVNULL)
    built = subprocess.run(["cmake", "--build", directory, "--target", *TARGETS, "--", "--quiet"],
                           stdout=subprocess.PIPE, text=True, check=False)
    if built.returncode != 0:
        sys.exit(f"{built.stdout}bench: cannot build {source}")


@contextlib.contextmanager
def worktree(commit, folder):
    """The sources of a commit, with the measuring programs of this one."""
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
        sys.exit(f"bench: {DOCUMENT} has no place for the table")
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
    """Files are read, commits measured side by side."""
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
    # Ends as an exception does: worktrees, folders and emulators go with it.
    signal.signal(signal.SIGTERM, lambda number, _: sys.exit(128 + number))
    plan = measure.Plan(arguments.quick, arguments.rounds)
    try:
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
