"""Runs two commands in turn, so that a machine that drifts drifts for both."""
import resource
import statistics
import subprocess
import sys
import time


def measure(command):
    """Wall and processor seconds of one run."""
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    start = time.monotonic()
    done = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                          stderr=subprocess.PIPE, check=False)
    wall = time.monotonic() - start
    if done.returncode != 0:
        sys.exit(f"{command[0]} failed: {done.stderr.decode(errors='replace')[-500:]}")
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    cpu = after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime
    return wall, cpu


def head():
    print("| case | A frames/s | B frames/s | A CPU s | B CPU s | A/B speed | A/B CPU |")
    print("|---|---|---|---|---|---|---|", flush=True)


def pair(name, a, b, runs, frames):
    """A and B alternately; one table row of medians, and of the ratios of each pair."""
    measure(a), measure(b)  # warm
    walls, cpus, ratios_wall, ratios_cpu = ([], []), ([], []), [], []
    for _ in range(runs):
        results = [measure(a), measure(b)]
        for i, (wall, cpu) in enumerate(results):
            walls[i].append(wall)
            cpus[i].append(cpu)
        ratios_wall.append(results[0][0] / results[1][0])
        ratios_cpu.append(results[0][1] / results[1][1])
    med = statistics.median
    print(f"| {name} | {frames / med(walls[0]):.1f} | {frames / med(walls[1]):.1f} "
          f"| {med(cpus[0]):.2f} | {med(cpus[1]):.2f} | {1 / med(ratios_wall):.3f} "
          f"| {med(ratios_cpu):.3f} |", flush=True)
