#!/usr/bin/env python3
"""Lets the n-th write of a recording fail, and all that follow, and judges what comes back.

    disk_fault_test.py --zeva build/linux/bin/zeva --faults build/linux/lib/libdisk_faults.so [--every]

The movie's disk, the index's, both, or that of a further output is full (half of the write still fits) or
gone. Nothing that was written may be lost: of the packets that fitted, 99 % must come back but for the latest
few, which have no record yet. Other outputs go on, and the user is told. Also: a movie that is renamed or
deleted while it is recorded.
"""
import argparse
import itertools
import os
import re
import shutil
import subprocess
import sys
import tempfile
from concurrent import futures

from crash_test import Broken, run, wait_until

KINDS = {"full": "No space left on device", "gone": "Input/output error"}
COMMANDS = ["record", "mux"]
SPREAD = {"full": [1, 3, 11], "gone": [2, 7, 15]}
EVERY = range(1, 201)
# The latest packets' record comes with the next ones. On one disk with the movie, a line of the index may be
# lost, too: it is written after the bytes that it tells of.
LATEST, LINE = 2, 64


class Setup:
    """One command's recording, and how it is when nothing fails."""

    def __init__(self, options, command, work, seconds):
        self.options, self.command = options, command
        self.work = os.path.join(work, command)
        self.movie, self.index, self.further = (
            self.at(name) for name in ("movie.mp4", "movie.mp4.index", "further.mkv"))
        self.faulty = {"movie": [self.movie], "index": [self.index], "both": [self.movie, self.index],
                       "further": [self.further]}
        self.arguments = [options.zeva, command, "--fast", "--input", os.path.join(work, "source.mp4"), "-o",
                          self.movie, "--index", self.index, "--also", self.further, "--duration", str(seconds)]
        self.record(["nothing"], "gone", 1)
        self.whole = {path: positions(path) for path in (self.movie, self.further)}
        self.pictures = pictures(self.movie)

    def at(self, name):
        return os.path.join(self.work, name)

    def record(self, files, kind, number):
        """What ended, and whether the write came at all."""
        shutil.rmtree(self.work, ignore_errors=True)
        os.makedirs(self.work)
        environment = {**os.environ, "LD_PRELOAD": self.options.faults, "ZEVA_FAULT_FILES": ":".join(files),
                       "ZEVA_FAULT_AT": str(number), "ZEVA_FAULT_KIND": kind, "ZEVA_FAULT_MARK": self.at("mark")}
        ended = subprocess.run(self.arguments, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                               stderr=subprocess.PIPE, encoding="utf-8", timeout=120, env=environment, check=False)
        return ended, os.path.exists(self.at("mark"))

    def check(self, what, kind, number):
        """Packets that fitted and that came back; nothing when there were fewer writes."""
        ended, came = self.record(self.faulty[what], kind, number)
        if not came:
            return None
        broken = self.further if what == "further" else self.movie
        complaint = KINDS[kind]
        if what == "index":
            if ended.returncode != 0 or f"cannot be written: {self.index}: {complaint}" not in ended.stderr:
                raise Broken(f"status {ended.returncode}: {ended.stderr}")
            self.check_whole(self.movie)
            self.check_whole(self.further)
            return 0, 0
        if ended.returncode != 1 or not re.search(f"{re.escape(broken)} failed: .*{complaint}", ended.stderr):
            raise Broken(f"status {ended.returncode}: {ended.stderr}")
        if self.command == "record":
            self.check_whole(self.movie if what == "further" else self.further)
        else:  # of packets one failed output ends all
            self.check_plays(self.movie if what == "further" else self.further)
        size = os.path.getsize(broken)
        fitted = sum(end <= size for end in self.whole[broken])
        back = len(positions(broken)) if what == "further" else self.repaired()
        if back < 0.99 * fitted - LATEST - (LINE if what == "both" else 0):
            raise Broken(f"{back} of {fitted} packets came back")
        return fitted, back

    def repaired(self):
        """Packets that come back. An index whose head could not be written is not left behind."""
        if not os.path.exists(self.index):
            return 0
        whole = self.at("whole.mp4")
        done = run(self.options.zeva, "repair", self.movie, self.index, "-o", whole)
        if done.returncode == 1 and "nothing can be recovered" in done.stderr:
            return 0
        if done.returncode not in (0, 3):
            raise Broken(f"repair: status {done.returncode}, {done.stderr}")
        self.check_plays(whole)
        return len(positions(whole))

    def check_whole(self, path):
        self.check_plays(path)
        if pictures(path) != self.pictures:
            raise Broken(f"{path} has {pictures(path)} of {self.pictures} pictures")

    def check_plays(self, path):
        if not os.path.exists(path):
            return  # the recording ended before it had a packet
        faults = run("ffmpeg", "-v", "error", "-xerror", "-i", path, "-f", "null", "-")
        if faults.returncode != 0 or faults.stderr:
            raise Broken(f"{path} does not play: {faults.stderr}")


def positions(path):
    """Where each packet ends that can be read. A file cut off in mid-header has none."""
    found = run("ffprobe", "-v", "quiet", "-show_entries", "packet=pos,size", "-of", "csv=p=0", path).stdout
    return [int(size) + int(pos) for size, pos in (line.split(",")[:2] for line in found.split())]


def pictures(path):
    return int(run("ffprobe", "-v", "error", "-select_streams", "v", "-count_packets", "-show_entries",
                   "stream=nb_read_packets", "-of", "csv=p=0", path).stdout.strip(",\n") or 0)


def make_source(path, seconds, rate, sample_rate):
    made = run("ffmpeg", "-v", "error", "-f", "lavfi", "-i", f"testsrc2=size=64x48:rate={rate}", "-f", "lavfi", "-i",
               f"sine=sample_rate={sample_rate}", "-t", str(seconds), "-ac", "2", "-c:v", "libx264", "-preset",
               "ultrafast", "-g", str(rate), "-bf", "0", "-pix_fmt", "yuv420p", "-c:a", "aac", path)
    if made.returncode != 0:
        raise Broken(made.stderr)


def check_faults(setup, numbers):
    faults = []
    for what in setup.faulty:
        for kind in KINDS:
            results, told = [], f"{setup.command}, {what} {kind}"
            for number in numbers[kind]:
                try:
                    result = setup.check(what, kind, number)
                except (Broken, subprocess.TimeoutExpired, ValueError, KeyError) as error:
                    faults.append(f"{told}, write {number}: {error}")
                    continue
                if result is None:
                    break
                results.append(result)
            fitted, back = (sum(counts) for counts in zip(*results)) if results else (0, 0)
            print(f"| {told} | {len(results)} | {fitted} | {back} |", flush=True)
    return faults


def check_moved(options, work, command):
    """Where a file that is open may get another name or none, it is still written: renamed, it is whole."""
    folder = os.path.join(work, "moved")
    for how in "rename", "delete":
        shutil.rmtree(folder, ignore_errors=True)
        os.makedirs(folder)
        movie, moved, copy = (os.path.join(folder, name) for name in ("movie.mp4", "moved.mp4", "copy.mkv"))
        process = subprocess.Popen(
            [options.zeva, command, "--input", os.path.join(work, "source.mp4"), "--duration", "3", "-o", movie,
             "--also", copy],
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, encoding="utf-8")
        wait_until(lambda: os.path.exists(movie) and os.path.getsize(movie) > 10000, process)
        os.rename(movie, moved)
        if how == "delete":
            os.remove(moved)
        _, told = process.communicate(timeout=60)
        if process.returncode != 1 or f"{movie} was not finished" not in told:
            raise Broken(f"{command}, {how}: status {process.returncode}: {told}")
        for path in [copy] + ([moved] if how == "rename" else []):
            plays = run("ffmpeg", "-v", "error", "-xerror", "-i", path, "-f", "null", "-")
            if plays.returncode != 0 or plays.stderr or pictures(path) != 75:
                raise Broken(f"{command}, {how}: {path} has {pictures(path)} of 75 pictures {plays.stderr}{told}")
    print(f"{command}: the other output is whole when the movie is renamed or deleted, and the renamed movie")


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    parser.add_argument("--zeva", required=True)
    parser.add_argument("--faults", required=True, help="the library that makes writes fail")
    parser.add_argument("--every", action="store_true", help=f"all writes up to the {EVERY[-1]}th, not a spread")
    options = parser.parse_args()
    numbers, seconds = (dict.fromkeys(KINDS, EVERY), 50) if options.every else (SPREAD, 15)
    with tempfile.TemporaryDirectory(prefix="zeva-faults-") as work:
        # An index is written some 60 packets at a time: for so many writes they must cost little.
        rates = (250, 8000) if options.every else (25, 48000)
        make_source(os.path.join(work, "source.mp4"), seconds, *rates)
        print("| recording | writes that failed | packets that fitted | came back |\n|---|---|---|---|")
        with futures.ThreadPoolExecutor() as side_by_side:
            found = side_by_side.map(
                lambda command: check_faults(Setup(options, command, work, seconds), numbers), COMMANDS)
            faults = list(itertools.chain.from_iterable(found))
        for command in COMMANDS:
            check_moved(options, work, command)
    if faults:
        sys.exit("\n".join(faults))


if __name__ == "__main__":
    main()
