#!/usr/bin/env python3
"""Runs the benchmarks, prints a table with the mark beside each figure and writes JSON.

    bench.py BUILD_DIR OUTPUT_DIR [--quick] [--document FILE] [ROW...]

Each figure is a ratio of two medians measured in turns in one run, so that it says the same on
a faster machine and on a busy one. ROW picks rows of the table by the beginning of their names;
--quick measures less often. --document writes the table into FILE, between its two markers.
"""

import argparse
import datetime
import json
import os
import pathlib
import platform
import statistics
import subprocess
import sys

HERE = pathlib.Path(__file__).resolve().parent
SANDBOX = HERE.parent / "tests" / "support" / "sandbox"

RECORD_BYTES = 512
RECORD_FRAMES = 66
# Extended frames of 8 bytes that a bus at 1 Mbit/s carries at most, at 131 bits each.
WIRE_FRAMES_PER_SECOND = round(1_000_000 / 131)
# The cheapest open CAN download stack, a CANopen SDO block download with CRC and write.
SDO_BLOCK_NANOSECONDS_PER_BYTE = 4.7


def medians(samples):
    return {side: statistics.median(figures) for side, figures in samples.items()}


class Bench:
    sandbox = SANDBOX

    def __init__(self, build, quick):
        self.build = build
        self.quick = quick
        self.samples = {}

    def functions(self, row):
        """CPU nanoseconds of each side of one comparison of bench_functions."""
        if row not in self.samples:
            runs = []
            # In some processes memory lies better for one side: several are asked.
            for _ in range(1 if self.quick else 15):
                output = subprocess.run(
                    [
                        SANDBOX,
                        "--",
                        self.build / "benchmarks" / "bench_functions",
                        f"--benchmark_filter=^{row}$",
                        "--benchmark_format=json",
                        "--benchmark_repetitions=5",
                        "--benchmark_min_time=0.05",
                    ],
                    check=True,
                    stdout=subprocess.PIPE,
                    stderr=subprocess.DEVNULL,
                ).stdout
                runs += [
                    run
                    for run in json.loads(output)["benchmarks"]
                    if run["run_type"] == "iteration"
                ]
            if any("error_message" in run for run in runs):
                raise RuntimeError(
                    next(run["error_message"] for run in runs if "error_message" in run)
                )
            sides = [
                side for side in ("receiver", "bare", "discarded", "messages") if side in runs[0]
            ]
            self.samples[row] = {side: [run[side] for run in runs] for side in sides}
        return medians(self.samples[row])

    def processes(self, section, runs, *, wire=False):
        """What processes.py measures in one of its sections."""
        if section not in self.samples:
            pace = ["--bitrate", "1000000"] if wire else []
            output = subprocess.run(
                [
                    SANDBOX,
                    "--virtual-bus",
                    self.build,
                    *pace,
                    "--",
                    sys.executable,
                    HERE / "processes.py",
                    self.build,
                    section,
                    str(max(1, runs // 5) if self.quick else runs),
                ],
                check=True,
                stdout=subprocess.PIPE,
            ).stdout
            self.samples[section] = json.loads(output)
        return medians(self.samples[section])

    # ---- The rows: figure and what it is made of

    def data_frame(self):
        m = self.functions("frame")
        return m["receiver"] / m["discarded"], "{:.0f} ns against {:.0f} ns a frame".format(
            m["receiver"] / 64, m["discarded"] / 64
        )

    def record(self):
        m = self.functions("record")
        return m["receiver"] / m["bare"], "{:.0f} ns against {:.0f} ns a frame".format(
            m["receiver"] / RECORD_FRAMES, m["bare"] / RECORD_FRAMES
        )

    def own_share(self):
        m = self.functions("record")
        share = (m["receiver"] - m["discarded"]) / RECORD_BYTES
        bare = (m["bare"] - m["discarded"]) / RECORD_BYTES
        return share / SDO_BLOCK_NANOSECONDS_PER_BYTE, (
            f"{share:.2f} ns a byte against {SDO_BLOCK_NANOSECONDS_PER_BYTE} ns; "
            f"bare loop {bare:.2f} ns"
        )

    def every_level(self):
        m = self.functions("logged")
        return m["receiver"] / m["messages"], "{:.0f} ns against {:.0f} ns a frame".format(
            m["receiver"] / 64, m["messages"] / 64
        )

    def crc(self):
        m = self.functions("crc")
        return m["receiver"] / m["bare"], "{:.0f} ms against {:.0f} ms".format(
            m["receiver"] / 1e6, m["bare"] / 1e6
        )

    def crc_memory(self):
        m = self.processes("crc memory", 5)
        return (m["receiver"] - m["bare"]) / 1024, "{:.0f} KiB against {:.0f} KiB".format(
            m["receiver"], m["bare"]
        )

    def start(self, section, against="bare"):
        m = self.processes(section, 100)
        return m["receiver"] / m[against], "{:.1f} ms against {:.1f} ms".format(
            m["receiver"] * 1000, m[against] * 1000
        )

    def idle_memory(self, against="bare"):
        m = self.processes("idle memory", 5)
        return m["receiver"] / m[against], "{:.1f} MiB against {:.1f} MiB".format(
            m["receiver"] / 1024, m[against] / 1024
        )

    def package_memory(self):
        m = self.processes("package memory", 1)
        return (m["after"] - m["idle"]) / 1024, "{:.1f} MiB, {:.1f} MiB idle".format(
            m["after"] / 1024, m["idle"] / 1024
        )

    def download(self):
        m = self.processes("download", 10)
        return m["receiver"] / WIRE_FRAMES_PER_SECOND, "{:,.0f} frames/s against {:,}".format(
            m["receiver"], WIRE_FRAMES_PER_SECOND
        )

    def display(self, screen):
        m = self.processes("display", 5, wire=True)
        shown = m[screen] - m["handling"]
        return shown / m["handling"], "{:.1%} of a core against {:.1%}".format(shown, m["handling"])


def rows(bench):
    """Name, what it is measured against, unit, mark (and whether it is a least), measurement."""
    return [
        ("data frame", "built and discarded", "times", 1.35, bench.data_frame),
        ("record", "bare loop, CRC, write", "times", 1.2, bench.record),
        ("own share of a record", "CANopen SDO block", "times", 1.0, bench.own_share),
        ("data frame, every level", "its five messages", "times", 1.15, bench.every_level),
        ("CRC of 256 MiB", "plain read loop", "times", 1.1, bench.crc),
        ("CRC of 256 MiB, memory", "nothing done", "MiB more", 1.0, bench.crc_memory),
        (
            "start to connected device",
            "bare Qt Gui",
            "times",
            1.2,
            lambda: bench.start("connected"),
        ),
        (
            "start to connected device",
            "bare Gui with engine",
            "times",
            None,
            lambda: bench.start("connected", "engine"),
        ),
        (
            "start to frame, offscreen",
            "bare window",
            "times",
            1.15,
            lambda: bench.start("first frame, offscreen"),
        ),
        (
            "start to frame, framebuffer",
            "bare window",
            "times",
            1.15,
            lambda: bench.start("first frame, framebuffer"),
        ),
        (
            "start to frame, offscreen",
            "bare window with text",
            "times",
            None,
            lambda: bench.start("first frame, offscreen", "text"),
        ),
        (
            "start to frame, framebuffer",
            "bare window with text",
            "times",
            None,
            lambda: bench.start("first frame, framebuffer", "text"),
        ),
        ("idle memory", "bare window", "times", 1.05, bench.idle_memory),
        ("idle memory", "bare window with text", "times", None, lambda: bench.idle_memory("text")),
        ("memory after 256 MiB", "idle", "MiB more", 1.0, bench.package_memory),
        ("download of 1 MB", "1 Mbit/s wire", "times", -20, bench.download),
        ("display's CPU, offscreen", "handling", "times", None, lambda: bench.display("offscreen")),
        (
            "display's CPU, framebuffer",
            "handling",
            "times",
            None,
            lambda: bench.display("framebuffer"),
        ),
    ]


def mark_text(mark):
    if mark is None:
        return "reported"
    return f">= {-mark}" if mark < 0 else f"<= {mark}"


def verdict(figure, mark):
    if mark is None:
        return ""
    return "met" if (figure >= -mark if mark < 0 else figure <= mark) else "MISSED"


def document(path, results):
    """Replaces what stands between the markers of the document by this run's table."""
    release = platform.freedesktop_os_release()["PRETTY_NAME"]
    with open("/proc/cpuinfo", encoding="utf-8") as lines:
        processor = next(
            line.split(": ")[1].strip() for line in lines if line.startswith("model name")
        )
    table = [
        f"{processor}, {os.cpu_count()} cores, {release}, {datetime.date.today()}:",
        "",
        "| what | against | figure | mark | | made of |",
        "|---|---|---|---|---|---|",
    ]
    for row in results:
        verdict_text = "**missed**" if row["verdict"] == "MISSED" else row["verdict"]
        table.append(
            f"| {row['what']} | {row['against']} | {row['figure']:.2f} {row['unit']} | "
            f"{row['mark']} | {verdict_text} | {row['made of']} |"
        )
    text = path.read_text(encoding="utf-8")
    begin, end = "<!-- figures -->\n", "<!-- end of figures -->\n"
    before, rest = text.split(begin)
    after = rest.split(end)[1]
    path.write_text(
        before + begin + "\n" + "\n".join(table) + "\n\n" + end + after, encoding="utf-8"
    )


def main():
    parser = argparse.ArgumentParser(
        description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter
    )
    parser.add_argument("build", type=lambda path: pathlib.Path(path).resolve())
    parser.add_argument("output", type=pathlib.Path)
    parser.add_argument("--quick", action="store_true")
    parser.add_argument("--document", type=pathlib.Path)
    parser.add_argument("rows", nargs="*")
    arguments = parser.parse_intermixed_args()
    bench = Bench(arguments.build, arguments.quick)
    for row in arguments.rows:
        if not any(name.startswith(row) for name, *_ in rows(bench)):
            parser.error(f'no row\'s name begins with "{row}"')
    if arguments.document and (arguments.quick or arguments.rows):
        parser.error("--document takes the whole table, measured in full")
    arguments.output.mkdir(parents=True, exist_ok=True)

    results = []
    failed = False
    print(f"{'what':29}{'against':24}{'figure':>8} {'unit':10}{'mark':10}{'':8}made of")
    for name, against, unit, mark, measure in rows(bench):
        if arguments.rows and not any(name.startswith(row) for row in arguments.rows):
            continue
        try:
            figure, made_of = measure()
        except (RuntimeError, subprocess.CalledProcessError) as error:
            print(f"{name:29}{against:24}not measured: {error}", flush=True)
            failed = True
            continue
        print(
            f"{name:29}{against:24}{figure:8.2f} {unit:10}{mark_text(mark):10}"
            f"{verdict(figure, mark):8}{made_of}",
            flush=True,
        )
        results.append(
            {
                "what": name,
                "against": against,
                "figure": figure,
                "unit": unit,
                "mark": mark_text(mark),
                "verdict": verdict(figure, mark),
                "made of": made_of,
            }
        )
    report = {
        "machine": platform.machine(),
        "kernel": platform.release(),
        "time": datetime.datetime.now(datetime.timezone.utc).isoformat(timespec="seconds"),
        "rows": results,
        "samples": bench.samples,
    }
    (arguments.output / "bench.json").write_text(json.dumps(report, indent=1) + "\n")
    if arguments.document and not failed:
        document(arguments.document, results)
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
