"""Sets the command and the library beside their peers and writes what was seen; see compare.sh.

A whole run replaces the figures in bench/RESULTS.md and the plots beside it. A quick or partial run
writes the same into build/bench/results, since its figures are not for publishing.
"""
import argparse
import importlib
import os
import platform
import re
import shutil
import subprocess
import sys
import tempfile
import time

from . import bench as b

COMPARISONS = ["record", "packets", "lost", "repair", "memory", "calls", "pieces", "shares", "hostile"]


def first_line(*command):
    return b.call(*command).splitlines()[0]


def machine(root):
    """The state of things that every figure depends on."""
    with open("/proc/cpuinfo", encoding="ascii") as file:
        model = re.search(r"model name\s*: (.*)", file.read()).group(1)
    commit = b.call("git", "-C", root, "describe", "--always", "--dirty").strip()
    return (f"{os.cpu_count()} processors, {model}; Linux {platform.release()}; load {os.getloadavg()[0]:.2f} at the "
            f"start. {time.strftime('%Y-%m-%d')}, commit {commit}. "
            f"Peers: {first_line('ffmpeg', '-version').split(' Copyright')[0]}; "
            f"{b.call('gst-launch-1.0', '--version').splitlines()[1]}.\n")


def put(text, name, figures):
    """Puts figures between the two marks of their name; everything else stays as somebody wrote it."""
    marks = re.compile(rf"(<!-- figures: {name} -->\n).*?(<!-- end -->)", re.DOTALL)
    if not marks.search(text):
        raise b.Failed(f"RESULTS.md has no place for the figures '{name}'")
    return marks.sub(lambda found: found.group(1) + "\n" + figures + "\n" + found.group(2), text)


def measure(options, build, plots):
    """The figures by the name of their place, and the comparisons that failed."""
    figures, failed = {}, []
    for name in options.only:
        start = time.monotonic()
        with tempfile.TemporaryDirectory(prefix="zeva-bench-", dir=options.folder) as folder:
            try:
                comparison = importlib.import_module("." + name, __package__)
                bench = b.Bench(build, folder, plots, options.quick, options.gigabytes)
                figures.update(comparison.compare(bench))
                outcome = "done"
            except (b.Failed, OSError, subprocess.SubprocessError) as error:
                failed.append(name)
                outcome = f"failed: {error}"
        print(f"{name} ... {outcome} ({time.monotonic() - start:.0f} s)", flush=True)
    return figures, failed


def main():
    parser = argparse.ArgumentParser(prog="compare.sh", description=__doc__.split("\n", maxsplit=1)[0])
    parser.add_argument("--quick", action="store_true", help="small inputs and two rounds: does it all run?")
    parser.add_argument("--only", nargs="+", choices=COMPARISONS, default=COMPARISONS, metavar="NAME",
                        help="only these of " + ", ".join(COMPARISONS))
    parser.add_argument("--folder", default="/dev/shm", help="where movies are read and written; in memory, as a rule")
    parser.add_argument("--gigabytes", type=float, default=1, help="of the movie that is repaired")
    options = parser.parse_args()
    root = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
    build, results = os.path.join(root, "build/bench"), os.path.join(root, "build/bench/results")
    shutil.rmtree(results, ignore_errors=True)
    os.makedirs(os.path.join(results, "plots"))
    state = machine(root)
    figures, failed = measure(options, build, os.path.join(results, "plots"))
    with open(os.path.join(root, "bench/RESULTS.md"), encoding="utf-8") as file:
        text = file.read()
    for name, lines in {"machine": state, **figures}.items():
        text = put(text, name, lines)
    with open(os.path.join(results, "RESULTS.md"), "w", encoding="utf-8") as file:
        file.write(text)
    usual = not options.quick and all(getattr(options, name) == parser.get_default(name)
                                      for name in ("only", "folder", "gigabytes"))
    whole = usual and not failed
    if whole:
        shutil.copytree(results, os.path.join(root, "bench"), dirs_exist_ok=True)
    print("the figures are in", "bench/RESULTS.md" if whole else "build/bench/results/RESULTS.md")
    sys.exit(1 if failed else 0)


if __name__ == "__main__":
    main()
