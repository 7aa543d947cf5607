"""Measures whole processes on the virtual bus; every function returns {side: [figure of each run]}.

It is run inside the sandbox, which bench.py does:  processes.py BUILD_DIR SECTION RUNS
"""

import contextlib
import json
import os
import pathlib
import re
import subprocess
import sys
import time

REPOSITORY = pathlib.Path(__file__).resolve().parent.parent
DEPLOY = REPOSITORY / "deploy"
CONNECTED = b"ConnectedState"
FRAME = b"Frame rendered"
SCREENS = {"offscreen": "offscreen", "framebuffer": "vnc:size=1024x600"}
READY_TIMEOUT = 30

build = None


def program(name):
    folder = {"dockhand": "src/app", "shipwright": "tools/shipwright"}.get(name, "benchmarks")
    return str(build / folder / name)


def shipped_rules():
    return re.search(
        r'^QT_LOGGING_RULES="(.*)"', (DEPLOY / "dockhand.default.in").read_text(), re.M
    )[1]


def hide_paths():
    """Keeps from all processes, in the sandbox, what the service keeps from the receiver."""
    for path in re.findall(
        r"^InaccessiblePaths=-(.*)$", (DEPLOY / "dockhand.service").read_text(), re.M
    ):
        if os.path.isdir(path):
            subprocess.run(["mount", "-t", "tmpfs", "tmpfs", path], check=True)


def environment(screen="offscreen", rules=None):
    kept = {name: os.environ[name] for name in ("VIRTUALBUS_SOCKET", "HOME", "PATH")}
    return kept | {
        "QT_QPA_PLATFORM": SCREENS[screen],
        "QT_QUICK_BACKEND": "software",
        "XDG_RUNTIME_DIR": os.getcwd(),
        "LC_ALL": "C.UTF-8",
        "FONTCONFIG_FILE": str(DEPLOY / "fonts.conf"),
        "QT_LOGGING_RULES": rules or shipped_rules(),
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

    def cpu_seconds(self):
        """CPU time of all threads; finer than the clock ticks of getrusage()."""
        tasks = pathlib.Path(f"/proc/{self.pid}/task").iterdir()
        return sum(int((task / "schedstat").read_text().split()[0]) for task in tasks) / 1e9

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


def in_turns(runs, sides):
    """Runs all sides one after the other, again and again; the first turn warms up."""
    results = {name: [] for name in sides}
    for turn in range(runs + 1):
        for name, measure in sides.items():
            figure = measure()
            if turn > 0:
                results[name].append(figure)
    return results


def until(name, text, **how):
    def measure():
        with running(name, **how) as process:
            return process.seconds_until(text)

    return measure


def connected(runs):
    rules = "default.info=true"
    return in_turns(
        runs,
        {
            "receiver": until("dockhand", CONNECTED, rules=rules),
            "bare": until("bare_gui", CONNECTED, rules=rules),
            "engine": until("bare_engine", CONNECTED, rules=rules),
        },
    )


def first_frame(runs, screen):
    how = {"screen": screen, "rules": "*.debug=false;qt.scenegraph.time.renderloop=true"}
    return in_turns(
        runs,
        {
            "receiver": until("dockhand", FRAME, **how),
            "bare": until("bare_window", FRAME, **how),
            "text": until("bare_text", FRAME, **how),
        },
    )


def idle_memory(runs):
    def resident(name):
        def measure():
            with running(name) as process:
                time.sleep(2.5)  # the clock has shown the time by then
                return process.resident()

        return measure

    return in_turns(
        runs,
        {
            "receiver": resident("dockhand"),
            "bare": resident("bare_window"),
            "text": resident("bare_text"),
        },
    )


def package_memory(runs, size):
    """Resident memory after a package, and before it."""
    package = pathlib.Path("package.bin")
    make_file(package, size)
    results = {"idle": [], "after": []}
    for _ in range(runs):
        with running("dockhand") as process:
            wait_for_answer()
            time.sleep(2)
            results["idle"].append(process.resident())
            send("package", package)
            time.sleep(0.5)
            results["after"].append(process.resident())
    return results


def crc_memory(runs):
    big = pathlib.Path("crc.bin")
    make_file(big, 256 << 20)

    def peak(*arguments):
        return lambda: int(subprocess.check_output([program("crc_memory"), *arguments]))

    return in_turns(runs, {"receiver": peak(big), "bare": peak()})


def download(runs):
    """Frames a second of a configuration of 1 MB, from the first message to the last answer."""
    size = 1_000_000
    configuration = pathlib.Path("systemConfig.json")
    make_file(configuration, size)

    def measure():
        with running("dockhand"):
            wait_for_answer()
            sent = send("configuration", configuration)
            frames = size // 8 + 2 * sent["records"]
            return frames / (sent["milliseconds"] / 1000)

    return in_turns(runs, {"receiver": measure})


def display_cpu(runs):
    """CPU seconds of a download at the pace of a wire, with the display and without."""
    file = pathlib.Path("paced.bin")
    make_file(file, 200_000)

    def cost(name, screen="offscreen"):
        def measure():
            with running(name, screen=screen) as process:
                wait_for_answer()
                time.sleep(1)
                before = process.cpu_seconds()
                begin = time.perf_counter()
                send("package", file)
                # The last picture is drawn after the last answer.
                time.sleep(0.1)
                seconds = time.perf_counter() - begin
                return (process.cpu_seconds() - before) / seconds

        return measure

    return in_turns(
        runs,
        {
            "handling": cost("bare_receiver"),
            "offscreen": cost("dockhand"),
            "framebuffer": cost("dockhand", "framebuffer"),
        },
    )


def make_file(path, size):
    with path.open("wb") as file:
        for _ in range(0, size, 1 << 20):
            file.write(os.urandom(min(size, 1 << 20)))
        file.truncate(size)


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


SECTIONS = {
    "connected": connected,
    "first frame, offscreen": lambda runs: first_frame(runs, "offscreen"),
    "first frame, framebuffer": lambda runs: first_frame(runs, "framebuffer"),
    "idle memory": idle_memory,
    "crc memory": crc_memory,
    "package memory": lambda runs: package_memory(runs, 256 << 20),
    "download": download,
    "display": display_cpu,
}

if __name__ == "__main__":
    build = pathlib.Path(sys.argv[1])
    hide_paths()
    json.dump(SECTIONS[sys.argv[2]](int(sys.argv[3])), sys.stdout)
