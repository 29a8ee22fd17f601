#!/usr/bin/env python3
"""Lets disks run full under recordings, and judges what comes back.

    full_disk_test.py --zeva build/linux/bin/zeva --movie camera.mp4

The disk of the movie: the movie must be finished, hold nearly all that fits, and play without a fault;
a copy elsewhere goes on. The same where some of the disk is to be kept free. The disk of the index, a few
pages: it is filled, emptied again, and the recorder killed. Every packet that has a record must come back
exactly, and the hole must be named. Ends with 77 without the right to mount a disk.
"""
import argparse
import json
import os
import shutil
import subprocess
import sys
import tempfile
import time

from crash_test import (SKIPPED, Broken, judge, read_index, restart_with_own_mounts, run,
                        wait_until)

MOVIE_DISK_BYTES = 2 << 20
INDEX_DISK_BYTES = 64 << 10
KEPT_FREE_BYTES = 512 << 10
FINISHED_EARLY = 110
FAILING_S = 2


def fill(path):
    with open(path, "wb", buffering=0) as file:
        try:
            while True:
                file.write(b"x" * 4096)
        except OSError:
            pass


def record(options, movie_file, index, filler):
    process = subprocess.Popen(
        [options.zeva, "record", "--loop", "--input", options.movie, "-o", movie_file, "--index",
         index, "--keep-free", "0"],
        stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    try:
        wait_until(lambda: os.path.exists(index) and len(read_index(index)[1]) >= 50, process)
        fill(filler)
        since = [0, 0.0]

        def is_stuck():
            if os.path.getsize(index) != since[0]:
                since[:] = os.path.getsize(index), time.monotonic()
            return time.monotonic() - since[1] > FAILING_S
        wait_until(is_stuck, process)
        os.remove(filler)
        wait_until(lambda: os.path.getsize(index) > since[0] + 2000, process)
    finally:
        process.kill()
        process.wait()


def seconds_of(path):
    faults = run("ffmpeg", "-v", "error", "-xerror", "-i", path, "-f", "null", "-")
    if faults.returncode != 0 or faults.stderr:
        raise Broken(f"{path} does not play: {faults.stderr}")
    return float(run("ffprobe", "-v", "error", "-show_entries", "format=duration", "-of",
                     "csv=p=0", path).stdout)


def check_movie(options, work, disk):
    for command in "record", "mux":
        full, copy = os.path.join(disk, "full.mp4"), os.path.join(work, command + ".mkv")
        ended = run(options.zeva, command, "--fast", "--input", options.movie, "-o", full, "--also",
                    copy, "--keep-free", "0")
        told = f"'{full}'" in ended.stderr and "it is finished with what fitted" in ended.stderr
        if ended.returncode != 1 or not told:
            raise Broken(f"{command} does not tell of the full disk: {ended.stderr}")
        size, seconds, whole = os.path.getsize(full), seconds_of(full), seconds_of(copy)
        if size < 0.85 * MOVIE_DISK_BYTES or not 1 < seconds <= whole:
            raise Broken(f"{command}: {size} bytes, {seconds} s of {whole} s")
        if command == "record" and whole < 8:  # of packets one failure ends all outputs
            raise Broken(f"the copy ended after {whole} s")
        print(f"{command}: {size} of {MOVIE_DISK_BYTES} bytes used, {seconds} s")
        for name in os.listdir(disk):
            os.remove(os.path.join(disk, name))


def check_guard(options, work, disk):
    """A file that ends early on purpose is whole, and no failure; even the packets' other outputs go on."""
    for command in "record", "mux":
        full, copy = os.path.join(disk, "guarded.mp4"), os.path.join(work, "beside_" + command + ".mkv")
        ended = run(options.zeva, command, "--fast", "--input", options.movie, "-o", full, "--also", copy,
                    "--keep-free", str(KEPT_FREE_BYTES / (1 << 20)))
        if f"(code {FINISHED_EARLY})" not in ended.stderr or full not in ended.stderr:
            raise Broken(f"{command} does not tell that the movie ends early: {ended.stderr}")
        free, seconds, whole = shutil.disk_usage(disk).free, seconds_of(full), seconds_of(copy)
        # The table of the movie comes on top of what is looked at.
        if not 0.5 * KEPT_FREE_BYTES < free < 1.5 * KEPT_FREE_BYTES or not 1 < seconds < whole:
            raise Broken(f"{command}: {free} bytes are free, {seconds} s of {whole} s")
        if whole < 8:
            raise Broken(f"{command}: the copy ended after {whole} s")
        print(f"{command}: {free} of {KEPT_FREE_BYTES} bytes were kept free, {seconds} s")
        os.remove(full)
        check_spill(options, command, full, work, whole)


def check_spill(options, command, full, work, whole):
    """What does not fit goes into the second place, but for the moment between."""
    ended = run(options.zeva, command, "--fast", "--input", options.movie, "-o", full, "--spill", work,
                "--keep-free", str(KEPT_FREE_BYTES / (1 << 20)))
    second = os.path.join(work, "guarded.mp4")
    if ended.returncode != 0 or f"the recording goes on in {second}" not in ended.stderr:
        raise Broken(f"{command} does not go on elsewhere: {ended.returncode}, {ended.stderr}")
    first_s, second_s = seconds_of(full), seconds_of(second)
    if not whole - 2.5 < first_s + second_s < whole + 0.5:
        raise Broken(f"{command}: {first_s} s and {second_s} s of {whole} s")
    print(f"{command}: {first_s} s, and {second_s} s in the second place, of {whole} s")
    os.remove(full)
    os.remove(second)


def check_index(options, work, disk):
    movie_file, index = os.path.join(work, "movie.mp4"), os.path.join(disk, "movie.index")
    record(options, movie_file, index, os.path.join(disk, "filler"))
    shutil.copy(index, movie_file + ".index")
    packets, seconds = judge([options.zeva], movie_file)
    told = run(options.zeva, "inspect", movie_file + ".index", movie_file)
    facts = json.loads(
        run(options.zeva, "inspect", movie_file + ".index", movie_file, "--json").stdout)
    if told.returncode != 3 or "have no record: line " not in told.stdout:
        raise Broken("the hole is not named")
    if "(100.0 %)" in told.stdout:
        raise Broken("a movie with a hole is told to be all there")
    if len(facts["holes"]) != 1 or facts["hole_seconds_estimate"] < FAILING_S / 4:
        raise Broken(f"one hole was made, not {facts['holes']}")
    if facts["movie"]["held_packets"] != packets:
        raise Broken(f"{packets} packets came back, inspect told of {facts['movie']}")
    print(f"{packets} packets came back, {seconds:.2f} s with the hole")


def on_small_disk(size, check, options, work):
    disk = os.path.join(work, "disk")
    os.makedirs(disk, exist_ok=True)
    if run("mount", "-t", "tmpfs", "-o", f"size={size}", "tmpfs", disk).returncode != 0:
        sys.exit(SKIPPED)
    try:
        check(options, work, disk)
    finally:
        run("umount", disk)


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    parser.add_argument("--zeva", required=True)
    parser.add_argument("--movie", required=True, help="the camera's movie, recorded in a loop")
    parser.add_argument("--alone", action="store_true", help=argparse.SUPPRESS)
    options = parser.parse_args()
    if not options.alone:
        restart_with_own_mounts()
    with tempfile.TemporaryDirectory(prefix="zeva-full-") as work:
        for size, check in ((MOVIE_DISK_BYTES, check_movie), (MOVIE_DISK_BYTES, check_guard),
                            (INDEX_DISK_BYTES, check_index)):
            on_small_disk(size, check, options, work)


if __name__ == "__main__":
    main()
