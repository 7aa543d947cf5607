"""How cost grows: data and pictures from bench_growth."""

import collections
import json
import subprocess

# For each plot: file name, what x and y are, the share of the CPU time in nanoseconds that is y
# (a function of x), and gnuplot's settings.
PLOTS = {
    "records": ("records in the file", "CPU time a record [µs]",
                lambda x: 1e3 * x, "set logscale x 2"),
    "size": ("file size [B]", "CPU time of the check, a byte [ns]",
             lambda x: x, "set logscale x 2; set format x '%.0b %B'"),
    "level": ("lowest level that is logged", "CPU time a data frame [µs]",
              lambda _: 64e3, "set xtics ('warning' 0, 'info' 1, 'debug' 2); set xrange [-0.5:2.5]"),
    "foreign": ("foreign frames before each record", "CPU time a record [µs]",
                lambda _: 1e3, ""),
}
CURVES = {
    "package": "a package, from first message to last answer",
    "check": "CRC of the file",
    "nodes": "multipacket frames between other nodes",
    "protocol": "frames of an unknown protocol, a warning each",
}


def measure(bench):
    """{plot: {curve: {x: CPU nanoseconds}}}, medians."""
    output = subprocess.run(
        [bench.sandbox, "--", bench.build / "benchmarks" / "bench_growth",
         "--benchmark_format=json", f"--benchmark_repetitions={3 if bench.quick else 15}",
         "--benchmark_min_time=0.02", "--benchmark_enable_random_interleaving=true"],
        check=True, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL).stdout
    result = collections.defaultdict(lambda: collections.defaultdict(dict))
    for run in json.loads(output)["benchmarks"]:
        if run["run_type"] == "aggregate" and run["aggregate_name"] == "median":
            plot, curve, x = run["run_name"].split("/")
            result[plot][curve if plot != "level" else "level"][int(x)] = run["cpu_time"]
    return result


def draw(bench, folder):
    for plot, curves in measure(bench).items():
        x_label, y_label, scale, settings = PLOTS[plot]
        rows = [[str(x)] + [f"{curve[x] / scale(x):.4g}" for curve in curves.values()]
                for x in sorted(next(iter(curves.values())))]
        data = folder / f"{plot}.dat"
        data.write_text("".join(
            "\t".join(row) + "\n"
            for row in [["# " + x_label, *(f"{y_label}: {name}" for name in curves)], *rows]))
        style = "with boxes" if plot == "level" else "with linespoints pointtype 7"
        lines = ", ".join(
            f"'{data}' using 1:{column} {style} linewidth 2 "
            + (f"title '{CURVES[name]}'" if name in CURVES else "notitle")
            for column, name in enumerate(curves, 2))
        subprocess.run(["gnuplot"], check=True, text=True, input=f"""
            set terminal png size 800,450 font 'DejaVu Sans,11'
            set output '{folder / (plot + ".png")}'
            set xlabel '{x_label}'
            set ylabel '{y_label}'
            set yrange [0:*]
            set grid
            set boxwidth 0.5
            set style fill solid 0.6
            set key outside top center
            {settings}
            plot {lines}
            """)
