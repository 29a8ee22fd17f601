"""What every comparison uses: the programs, a folder in memory, runs in turn, and tables."""
import dataclasses
import os
import re
import resource
import statistics
import subprocess
import threading
import time

LONGEST_RUN_S = 300


class Failed(Exception):
    """A program failed or took too long, or its result is not what the comparison needs."""


@dataclasses.dataclass
class Side:
    """One way to do the job, and the movies that it leaves."""
    name: str
    command: list
    stdin: str = os.devnull
    outputs: tuple = ()
    good_statuses: tuple = (0,)


@dataclasses.dataclass
class Run:
    wall_s: float
    cpu_s: float
    memory_mib: float


class Bench:
    """Where everything lies, and how long to measure."""

    def __init__(self, build, folder, plots, quick, gigabytes):
        self.build, self.folder, self.plots, self.quick, self.gigabytes = build, folder, plots, quick, gigabytes
        self.rounds = 2 if quick else 5
        self.zeva = self.program("zeva")

    def at(self, name):
        return os.path.join(self.folder, name)

    def plot(self, name):
        return os.path.join(self.plots, name + ".svg")

    def program(self, name):
        return os.path.join(self.build, "bin", name)

    def choose(self, full, quick):
        return quick if self.quick else full


def run(side):
    """Times one run by the system's own accounts: the process and all its children."""
    start = time.monotonic()
    with open(side.stdin, "rb") as stdin, subprocess.Popen(
            side.command, stdin=stdin, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE) as process:
        timer = threading.Timer(LONGEST_RUN_S, process.kill)
        timer.start()
        complaint = process.stderr.read()
        _, status, usage = os.wait4(process.pid, 0)
        wall = time.monotonic() - start
        timer.cancel()
        process.returncode = os.waitstatus_to_exitcode(status)
    if process.returncode not in side.good_statuses:
        raise Failed(f"{side.name}: status {process.returncode} after {wall:.1f} s: "
                     f"{complaint.decode(errors='replace')[-500:]}")
    return Run(wall, usage.ru_utime + usage.ru_stime, usage.ru_maxrss / 1024)


def run_in_turn(sides, rounds, between=lambda: None):
    """Every side once a round, so that a machine that drifts drifts for all. The first round, which
    is not counted, warms the caches."""
    runs = [[] for _ in sides]
    for number in range(rounds + 1):
        for mine, side in zip(runs, sides):
            result = run(side)
            between()
            if number > 0:
                mine.append(result)
    return runs


def call(*command, limit_s=LONGEST_RUN_S):
    """The standard output of a program that must not fail."""
    try:
        done = subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, text=True,
                              errors="replace", timeout=limit_s, check=False)
    except subprocess.TimeoutExpired as error:
        raise Failed(f"{command[0]} took more than {limit_s} s") from error
    if done.returncode != 0:
        raise Failed(f"{' '.join(command)[:300]}: {done.stderr[-500:]}")
    return done.stdout


def median_ratio(above, below, figure):
    """The median of the rounds' own ratios."""
    return statistics.median(getattr(a, figure) / getattr(b, figure) for a, b in zip(above, below))


def median(runs, figure):
    return statistics.median(getattr(r, figure) for r in runs)


def memory(runs):
    """The most MiB. The system counts this process's own, too, until the child has loaded its program."""
    most, own = max(r.memory_mib for r in runs), resource.getrusage(resource.RUSAGE_SELF).ru_maxrss / 1024
    return f"{most:.0f}" if most > own + 1 else f"< {own + 1:.0f}"


def table(head, rows):
    lines = [head, ["---"] * len(head), *rows]
    return "\n".join("| " + " | ".join(str(cell) for cell in line) + " |" for line in lines) + "\n"


def shown(value, limit):
    """With three digits, or as many as it takes to see on which side of the limit it is."""
    for digits in range(3, 17):
        text = f"{value:.{digits}g}"
        if (float(text) < limit, float(text) > limit) == (value < limit, value > limit):
            break
    return text


def aim(text, value, limit, at_least=False):
    """One line that says whether an aim was reached."""
    reached = value >= limit if at_least else value <= limit
    sign = ">=" if at_least else "<="
    return f"- {text}: {shown(value, limit)}, aim {sign} {limit:g}: **{'reached' if reached else 'missed'}**\n"


def pictures_of(path, count="frames"):
    """Pictures that can be decoded, or with "packets" those that are there; none where the movie cannot
    be opened."""
    try:
        count = call("ffprobe", "-v", "quiet", "-select_streams", "v:0", f"-count_{count}",
                     "-show_entries", f"stream=nb_read_{count}", "-of", "csv=p=0", path)
    except Failed:
        return 0
    found = re.search(r"\d+", count)  # MPEG-TS tells it twice
    return int(found.group()) if found else 0


def check_pictures(paths, expected, count="frames"):
    """Nobody may win by leaving out pictures, or a whole output."""
    for path in paths:
        found = pictures_of(path, count)
        if found != expected:
            raise Failed(f"{os.path.basename(path)} has {found} of {expected} pictures")
