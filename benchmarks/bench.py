#!/usr/bin/env python3
"""Runs the benchmarks and prints a table with the mark beside each figure.

    bench.py BUILD_DIR [--quick] [--document FILE] [ROW...]

scripts/bench runs it in the sandbox, on the virtual bus. Each figure compares two medians measured
in turns in one run, so that it says the same on a faster machine and on a busy one. ROW picks rows
of the table by the beginning of their names; --quick measures less often. --document writes the
table into FILE.
"""

import argparse
import contextlib
import json
import os
import pathlib
import platform
import re
import statistics
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
DEPLOY = ROOT / "deploy"
RECORD_BYTES = 512
# Extended frames of 8 bytes that a bus at 1 Mbit/s carries at most, at 131 bits each.
WIRE_FRAMES_PER_SECOND = round(1_000_000 / 131)
# The cheapest open CAN download stack, a CANopen SDO block download with CRC and write.
SDO_BLOCK_NANOSECONDS_PER_BYTE = 4.7

CONNECTED = b"ConnectedState"
FRAME = b"Frame rendered"
READY_TIMEOUT = 30

build = None


# ---- Functions: CPU nanoseconds of each side of one comparison of bench_functions


def functions(row, runs):
    samples = {}
    # In some processes memory lies better for one side: several are asked.
    for _ in range(runs):
        command = [
            program("bench_functions"),
            f"--benchmark_filter=^{row}$",
            "--benchmark_format=json",
            "--benchmark_repetitions=5",
            "--benchmark_min_time=0.05",
        ]
        output = subprocess.run(
            command, check=True, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL
        ).stdout
        for run in json.loads(output)["benchmarks"]:
            if "error_message" in run:
                raise RuntimeError(run["error_message"])
            if run["run_type"] == "iteration":
                for side in {"receiver", "bare", "discarded"} & run.keys():
                    samples.setdefault(side, []).append(run[side])
    return samples


# ---- Processes


def program(name):
    folder = {"dockhand": "src/app", "shipwright": "tools/shipwright"}.get(name, "benchmarks")
    return str(build / folder / name)


def shipped(file, pattern):
    """What the text of a shipped file says, in each place."""
    return re.findall(pattern, (DEPLOY / file).read_text(), re.M)


def hide_paths():
    """Keeps from all processes, in the sandbox, what the service keeps from the receiver."""
    for path in shipped("dockhand.service.in", "^InaccessiblePaths=-(.*)$"):
        if os.path.isdir(path):
            subprocess.run(["mount", "-t", "tmpfs", "tmpfs", path], check=True)


def environment(screen="offscreen", rules=None):
    kept = {name: os.environ[name] for name in ("VIRTUALBUS_SOCKET", "HOME", "PATH")}
    return kept | {
        "QT_QPA_PLATFORM": screen,
        "QT_QUICK_BACKEND": "software",
        "XDG_RUNTIME_DIR": os.getcwd(),
        "LC_ALL": "C.UTF-8",
        "FONTCONFIG_FILE": str(DEPLOY / "fonts.conf"),
        "QT_LOGGING_RULES": rules or shipped("dockhand.default.in", '^QT_LOGGING_RULES="(.*)"')[0],
    }


class Process:
    """A process whose standard error is read until it holds an awaited text."""

    def __init__(self, name, env):
        self.output, writing = os.pipe2(os.O_CLOEXEC)
        actions = [(os.POSIX_SPAWN_DUP2, writing, 2)]
        self.started = time.perf_counter()
        self.pid = os.posix_spawn(program(name), [name], env, file_actions=actions)
        os.close(writing)

    def seconds_until(self, text):
        seen = b""
        while text not in seen:
            part = os.read(self.output, 65536)
            if not part or time.perf_counter() > self.started + READY_TIMEOUT:
                raise RuntimeError(f"no {text} in {seen}")
            seen += part
        return time.perf_counter() - self.started

    def resident(self):
        status = pathlib.Path(f"/proc/{self.pid}/status").read_text()
        return int(re.search(r"^VmRSS:\s+(\d+) kB", status, re.M)[1])


@contextlib.contextmanager
def running(name, **how):
    process = Process(name, environment(**how))
    try:
        yield process
    finally:
        os.kill(process.pid, 9)
        os.waitpid(process.pid, 0)
        os.close(process.output)


def in_turns(runs, programs, measure):
    """Runs all sides one after the other, again and again; the first turn warms up."""
    samples = {side: [] for side in programs}
    for turn in range(runs + 1):
        for side, name in programs.items():
            figure = measure(name)
            if turn > 0:
                samples[side].append(figure)
    return samples


WINDOWS = {"receiver": "dockhand", "bare": "bare_window", "text": "bare_text"}


def start(runs, programs, text, **how):
    def measure(name):
        with running(name, **how) as process:
            return process.seconds_until(text)

    return in_turns(runs, programs, measure)


def connected(runs):
    programs = {"receiver": "dockhand", "bare": "bare_gui", "engine": "bare_engine"}
    return start(runs, programs, CONNECTED, rules="default.info=true")


def first_frame(runs, screen):
    rules = "*.debug=false;qt.scenegraph.time.renderloop=true"
    return start(runs, WINDOWS, FRAME, screen=screen, rules=rules)


def idle_memory(runs):
    def measure(name):
        with running(name) as process:
            time.sleep(2.5)  # the clock has shown the time by then
            return process.resident()

    return in_turns(runs, WINDOWS, measure)


def package_memory(runs):
    samples = {"idle": [], "after": []}
    package = random_file(256 << 20)
    for _ in range(runs):
        with running("dockhand") as process:
            wait_for_answer()
            time.sleep(2)
            samples["idle"].append(process.resident())
            send("package", package)
            time.sleep(0.5)
            samples["after"].append(process.resident())
    return samples


def download(runs):
    """Frames a second of a configuration of 1 MB, from the first message to the last answer."""
    size = 1_000_000
    configuration = random_file(size)

    def measure(name):
        with running(name):
            wait_for_answer()
            sent = send("configuration", configuration)
            return (size // 8 + 2 * sent["records"]) / (sent["milliseconds"] / 1000)

    return in_turns(runs, {"receiver": "dockhand"}, measure)


def random_file(size):
    path = pathlib.Path("sent.bin")
    with path.open("wb") as file:
        for _ in range(0, size, 1 << 20):
            file.write(os.urandom(min(size, 1 << 20)))
    return path


def wait_for_answer():
    """Until the receiver, just started, reads its frames."""
    asking = [program("shipwright"), "--timeout", "200", "info"]
    for _ in range(5 * READY_TIMEOUT):
        if subprocess.run(asking, capture_output=True, env=environment()).returncode == 0:
            return
    raise RuntimeError("the receiver does not answer")


def send(kind, path):
    """Lets shipwright send a file; returns its closing event."""
    run = subprocess.run(
        [program("shipwright"), "--json", "--timeout", "20000", "send", kind, path],
        capture_output=True,
        text=True,
        env=environment(),
    )
    sent = json.loads(run.stdout.splitlines()[-1])
    if sent["event"] != "sent" or sent["repeated"]:
        raise RuntimeError(f"not sent at the first attempt: {sent} {run.stderr}")
    return sent


# ---- The table


# What is measured, and how often.
MEASUREMENTS = {
    "frame": (15, lambda runs: functions("frame", runs)),
    "record": (15, lambda runs: functions("record", runs)),
    "crc": (15, lambda runs: functions("crc", runs)),
    "connected": (100, connected),
    "offscreen": (100, lambda runs: first_frame(runs, "offscreen")),
    "framebuffer": (100, lambda runs: first_frame(runs, "vnc:size=1024x600")),
    "idle memory": (5, idle_memory),
    "package memory": (1, package_memory),
    "download": (10, download),
}


def times(side, unit, scale, digits=0):
    """The receiver's share of another side, and both."""

    def figure(m):
        ours, others = (f"{m[name] * scale:.{digits}f}" for name in ("receiver", side))
        return m["receiver"] / m[side], "times", f"{ours} against {others} {unit}"

    return figure


def own_share(m):
    share, bare = ((m[side] - m["discarded"]) / RECORD_BYTES for side in ("receiver", "bare"))
    return (
        share / SDO_BLOCK_NANOSECONDS_PER_BYTE,
        "times",
        f"{share:.2f} against {SDO_BLOCK_NANOSECONDS_PER_BYTE} ns a byte; bare loop {bare:.2f} ns",
    )


def growth(m):
    idle, after = (m[side] / 1024 for side in ("idle", "after"))
    return after - idle, "MiB more", f"{after:.1f} against {idle:.1f} MiB"


def wire_speed(m):
    rate = m["receiver"]
    made_of = f"{rate:,.0f} against {WIRE_FRAMES_PER_SECOND:,} frames/s"
    return rate / WIRE_FRAMES_PER_SECOND, "times", made_of


DATA = ("ns a frame", 1 / 64)
RECORD = ("ns a frame", 1 / 66)
MS = ("ms", 1e3, 1)
MIB = ("MiB", 1 / 1024, 1)
# Name, what it is compared with, mark (a negative one is a least), measurement, figure.
ROWS = [
    ("data frame", "built and discarded", 1.35, "frame", times("discarded", *DATA)),
    ("record", "bare loop, CRC, write", 1.2, "record", times("bare", *RECORD)),
    ("own share of a record", "CANopen SDO block", 1.0, "record", own_share),
    ("CRC of 256 MiB", "plain read loop", 1.1, "crc", times("bare", "ms", 1e-6)),
    ("start to connected device", "bare Qt Gui", 1.2, "connected", times("bare", *MS)),
    ("start to connected device", "bare Gui with engine", None, "connected", times("engine", *MS)),
    ("start to frame, offscreen", "bare window", 1.15, "offscreen", times("bare", *MS)),
    ("start to frame, offscreen", "bare window with text", None, "offscreen", times("text", *MS)),
    ("start to frame, framebuffer", "bare window", 1.15, "framebuffer", times("bare", *MS)),
    (
        "start to frame, framebuffer",
        "bare window with text",
        None,
        "framebuffer",
        times("text", *MS),
    ),
    ("idle memory", "bare window", 1.05, "idle memory", times("bare", *MIB)),
    ("idle memory", "bare window with text", None, "idle memory", times("text", *MIB)),
    ("memory after 256 MiB", "idle", 1.0, "package memory", growth),
    ("download of 1 MB", "1 Mbit/s wire", -20, "download", wire_speed),
]


def judged(figure, mark):
    """The mark in words, and whether the figure keeps to it."""
    if mark is None:
        return "reported", ""
    if mark < 0:
        return f"at least {-mark}", "met" if figure >= -mark else "missed"
    return f"at most {mark}", "met" if figure <= mark else "missed"


def computer():
    processor = re.search("^model name.*: (.*)", pathlib.Path("/proc/cpuinfo").read_text(), re.M)
    release = platform.freedesktop_os_release()["PRETTY_NAME"]
    return f"{os.cpu_count()} cores of {processor[1]}, {release}"


def main():
    global build
    parser = argparse.ArgumentParser(
        description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter
    )
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("--quick", action="store_true")
    parser.add_argument("--document", type=pathlib.Path)
    parser.add_argument("rows", nargs="*")
    arguments = parser.parse_intermixed_args()
    for row in arguments.rows:
        if not any(name.startswith(row) for name, *_ in ROWS):
            parser.error(f'no row\'s name begins with "{row}"')
    if arguments.document and arguments.rows:
        parser.error("--document takes the whole table")
    build = arguments.build
    hide_paths()

    medians, failed = {}, False
    table = [("what", "against", "figure", "mark", "", f"made of, on {computer()}")]
    widths = (29, 24, 16, 15, 8, 0)

    def show(cells):
        print("".join(f"{cell:{width}}" for cell, width in zip(cells, widths)), flush=True)

    show(table[0])
    for name, against, mark, measurement, figure_of in ROWS:
        if arguments.rows and not any(name.startswith(row) for row in arguments.rows):
            continue
        try:
            if measurement not in medians:
                runs, measure = MEASUREMENTS[measurement]
                samples = measure(max(1, runs // 10) if arguments.quick else runs)
                medians[measurement] = {s: statistics.median(samples[s]) for s in samples}
        except (RuntimeError, subprocess.CalledProcessError) as error:
            print(f"{name}: not measured: {error}", flush=True)
            failed = True
            continue
        figure, unit, made_of = figure_of(medians[measurement])
        row = (name, against, f"{figure:.2f} {unit}", *judged(figure, mark), made_of)
        show(row)
        table.append(row)
    if arguments.document and not failed:
        rows = "\n".join("\t".join(row) for row in table).replace("missed", "**missed**")
        command = [ROOT / "scripts" / "document", arguments.document, "figures"]
        subprocess.run(command, check=True, input=rows, text=True)
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
