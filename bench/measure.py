"""Runs the measuring programs and collects their figures."""

import contextlib
import json
import os
import pathlib
import random
import signal
import struct
import subprocess
import sys
import tempfile

FILES_PER_FOLDER = 100
MODEL_TEXTS = {
    "agent": "com.korvane.device.vision",
    "title": "Object detection",
    "description": "Finds people, animals and things in a picture.",
    "installed": "1.12.0",
    "versions": ["1.12.0"],
    "applications": [],
}

SECTION_NAMES = b"\0.qel\0.shstrtab\0"


class Plan:
    """The amount of work of each measurement, and the number of rounds."""

    def __init__(self, quick, rounds):
        self.rounds = rounds or (1 if quick else 9)
        self.calls = 50 if quick else 5000
        self.files = 300 if quick else 65000
        self.models = [1, 100] if quick else [1, 100, 1000, 10000, 50000]
        self.growth = 100 if quick else 100000
        self.seconds = 0.001 if quick else 0.2


class Build:
    """A named build folder, and the figures that were measured with it."""

    def __init__(self, name, directory):
        self.name = name
        self.directory = pathlib.Path(directory)
        self.figures = {}

    def program(self, name):
        return str(self.directory / "bench" / name)

    @property
    def emulator(self):
        return str(self.directory / "emulator" / "svcmgr-emulator")

    @property
    def library(self):
        return str(self.directory / "src" / "libkorvane-svcmgr.so")

    def add(self, figure, unit, value):
        self.figures.setdefault(figure, {"unit": unit, "values": []})["values"].append(value)


def progress(text):
    print(f"bench: {text}", file=sys.stderr, flush=True)


def output_of(command):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True).stdout


def figures_of(command):
    """Runs a program and parses the lines "NAME VALUE" that it prints."""
    lines = (line.split() for line in output_of(command).splitlines())
    return {name: float(value) for name, value in lines}


# The library alone.


def measure_library(build, plan):
    sizes = "|".join(str(10**i) for i in range(len(str(plan.growth))))
    command = [
        build.program("bench_library"),
        "--benchmark_format=json",
        f"--benchmark_min_time={plan.seconds}",
        f"--benchmark_filter=^[a-z_]+(/({sizes})(/manual_time)?)?$",
    ]
    quiet = subprocess.run(command, check=True, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    for run in json.loads(quiet.stdout)["benchmarks"]:
        name = "library." + run["name"].removesuffix("/manual_time").replace("/", ".")
        timed = run["real_time"] if "models" in run else run["cpu_time"]
        build.add(name, "ns", timed / run.get("models", 1))
        for counter in ("allocations", "bytes"):
            if counter in run and "destroy" not in name:
                build.add(f"{name}.{counter}", counter, run[counter])


# Calls between two processes.


@contextlib.contextmanager
def emulator(build, folder, models=None):
    """Runs the emulator on a new device, with a number of models if given. Yields its process ID."""
    device = pathlib.Path(tempfile.mkdtemp(dir=folder)) / "device"
    environment = {"KORVANE_DEVICE": str(device), "KORVANE_APP_ID": "com.example.viewer"}
    environment["KORVANE_LOG"] = "none"
    os.environ.update(environment)
    subprocess.run([build.emulator, "--init"], check=True, stdout=subprocess.DEVNULL)
    if models is not None:
        state_file = device / "service" / "state.json"
        state = json.loads(state_file.read_text())
        state["models"] = [{"id": f"vision.model-{i:06}", **MODEL_TEXTS} for i in range(models)]
        state_file.write_text(json.dumps(state))
    with subprocess.Popen([build.emulator], stdout=subprocess.PIPE, text=True) as process:
        try:
            if "ready" not in process.stdout.readline():
                raise RuntimeError("the emulator did not start")
            yield process.pid
        finally:
            process.send_signal(signal.SIGTERM)


def add_times(build, name, figures, unit, divisor=1):
    for figure in ("processor", "clock"):
        build.add(f"{name}.{figure}", unit, figures[figure] / divisor)


@contextlib.contextmanager
def on_one_processor():
    """Processes started in this context share one processor: no call has to wake an idle one."""
    allowed = os.sched_getaffinity(0)
    os.sched_setaffinity(0, {min(allowed)})
    try:
        yield
    finally:
        os.sched_setaffinity(0, allowed)


def measure_calls(build, plan, folder, name):
    program, calls = build.program("bench_calls"), str(plan.calls)
    for peer in ("socket", "bus"):
        add_times(build, f"{name}.{peer}", figures_of([program, peer, calls]), "µs")
    with emulator(build, folder) as pid:
        add_times(build, f"{name}.service", figures_of([program, "service", calls, str(pid)]), "µs")


def measure_models(build, plan, folder):
    for models in plan.models:
        repeats = max(1, 1000 // models)
        with emulator(build, folder, models) as pid:
            figures = figures_of([build.program("bench_calls"), "models", str(repeats), str(pid)])
        if figures["models"] != models:
            raise RuntimeError(f"received {figures['models']:.0f} models instead of {models}")
        add_times(build, f"models.{models}", figures, "ms", 1000)
        build.add(f"models.{models}.destroy", "ms", figures["destroy_processor"] / 1000)


# The marker search.


def section(name, kind, offset, size):
    """An entry of a 64-bit section table; name is an offset in SECTION_NAMES."""
    return struct.pack("<IIQQQQIIQQ", name, kind, 0, 0, offset, size, 0, 0, 1, 0)


def elf_file(sections, marker=b""):
    """A 64-bit ELF file with this number of sections, three of them as large as a marker."""
    contents = (marker.ljust(16, b"x") + SECTION_NAMES).ljust(2000, b"x")
    table = [section(0, 0, 0, 0)]
    table += [section(0, 1, 64, 100 + number) for number in range(sections - 4)]
    table += [section(0, 1, 80, 16), section(1 if marker else 0, 1, 64, 16)]
    table += [section(6, 3, 80, len(SECTION_NAMES))]
    header = b"\x7fELF\x02\x01\x01".ljust(16, b"\0")
    header += struct.pack("<HHIQQQIHHHHHH", 3, 62, 1, 0, 0, 64 + len(contents), 0, 64, 56, 0, 64,
                          len(table), len(table) - 1)
    return header + contents + b"".join(table)


def make_tree(root, files):
    """Creates an application's folder: every tenth file is an ELF file, one of them has a marker."""
    dice = random.Random(1)
    plain = dice.randbytes(8000)
    marker = b"QEL\0\0\0" + struct.pack("<5H", 1, 13, 3, 0, 154)
    for number in range(files):
        folder = root / str(number // FILES_PER_FOLDER)
        if number % FILES_PER_FOLDER == 0:
            folder.mkdir()
        if number % 10 == 0:
            contents = elf_file(dice.randrange(26, 36), marker if number == 0 else b"")
        else:
            contents = plain[: dice.randrange(64, 8000)]
        (folder / str(number)).write_bytes(contents)
    (root / "res").mkdir()


def timed(command):
    """Runs a program and returns its processor time in seconds."""
    process = subprocess.Popen(command, stdout=subprocess.DEVNULL)
    _, status, usage = os.wait4(process.pid, 0)
    process.returncode = os.waitstatus_to_exitcode(status)
    if process.returncode != 0:
        raise subprocess.CalledProcessError(process.returncode, command)
    return usage.ru_utime + usage.ru_stime


def measure_search(build, tree):
    subjects = {
        "walk": [build.program("bench_walk"), str(tree)],
        "library": [build.program("bench_search"), str(tree)],
        "scanelf": ["scanelf", "-qRk", ".qel", str(tree)],
    }
    for name, command in subjects.items():
        build.add(f"search.{name}", "ms", 1000 * timed(command))


# The file.


def measure_file(build, folder):
    stripped = pathlib.Path(folder) / "stripped.so"
    subprocess.run(["strip", "--strip-unneeded", "-o", stripped, build.library], check=True)
    build.add("file.size", "bytes", stripped.stat().st_size)
    build.add("file.relocations", "", count_relocations(stripped))


def count_relocations(library):
    lines = output_of(["readelf", "-rW", str(library)]).splitlines()
    return sum(" R_" in line for line in lines)


def measure_load(build):
    nanoseconds = float(output_of([build.program("bench_load"), build.library]))
    build.add("file.load", "µs", nanoseconds / 1000)


def measure(builds, plan, tree=None):
    """Measures all builds side by side: each round measures every build once."""
    with tempfile.TemporaryDirectory(prefix="bench-") as folder:
        if tree is None:
            progress(f"making a tree of {plan.files} files")
            tree = pathlib.Path(folder) / "tree"
            tree.mkdir()
            make_tree(tree, plan.files)
        for build in builds:
            measure_file(build, folder)
            timed([build.program("bench_walk"), str(tree)])
        for number in range(plan.rounds):
            for build in builds:
                progress(f"round {number + 1} of {plan.rounds}, {build.name}")
                measure_library(build, plan)
                with on_one_processor():
                    measure_calls(build, plan, folder, "call")
                measure_calls(build, plan, folder, "spread_call")
                measure_search(build, tree)
                measure_load(build)
                if number % 2 == 0:
                    measure_models(build, plan, folder)
