#!/usr/bin/env python3
"""Cuts the power under a recording, and judges what comes back.

    power_cut_test.py --zeva build/linux/bin/zeva --movie camera.mp4 [--packets 500]

The recording lies on a disk that is a file. What this file holds at an instant is what a disk would
hold if the power failed then; what only the system's memory has is lost. Fails when less than a
quarter of the recorded packets come back, which is slow for a disk but would be none of them if
nobody asked it, or when one of them is not exact. Ends with 77 without the right to mount a disk.
"""
import argparse
import os
import shutil
import signal
import subprocess
import sys
import tempfile

from crash_test import SKIPPED, judge, read_index, restart_with_own_mounts, run, wait_until

DISK_BYTES = 256 << 20


def mount(image, folder):
    """Also after a cut, when the file system has to be put in order first."""
    return run("mount", "-o", "loop", image, folder).returncode == 0


def record_and_cut(options, disk, folder):
    """Records until there are enough packets; returns how many, and leaves the disk's copy."""
    movie_file = os.path.join(folder, "movie.mp4")
    index = movie_file + ".index"
    process = subprocess.Popen(
        [options.zeva, "record", "--loop", "--input", options.movie, "-o", movie_file],
        stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    try:
        wait_until(lambda: os.path.exists(index) and len(read_index(index)[1]) >= options.packets,
                   process)
        process.send_signal(signal.SIGSTOP)
        shutil.copyfile(disk, disk + ".cut")
        return len(read_index(index)[1])
    finally:
        process.kill()
        process.wait()
        run("umount", folder)


def one_cut(options, work):
    disk, folder = os.path.join(work, "disk"), os.path.join(work, "mounted")
    os.makedirs(folder, exist_ok=True)
    with open(disk, "wb") as image:
        image.truncate(DISK_BYTES)
    if run("mkfs.ext4", "-q", "-F", disk).returncode != 0 or not mount(disk, folder):
        print("no right to mount a disk")
        sys.exit(SKIPPED)
    recorded = record_and_cut(options, disk, folder)
    if not mount(disk + ".cut", folder):
        sys.exit("the disk cannot be mounted after the cut")
    for name in os.listdir(folder):
        if name.startswith("movie"):
            shutil.copy(os.path.join(folder, name), work)
    run("umount", folder)
    if not os.path.exists(os.path.join(work, "movie.mp4.index")):
        sys.exit("nothing of the recording is there after the cut")
    packets, seconds = judge([options.zeva], os.path.join(work, "movie.mp4"), torn=True)
    print(f"{packets} of {recorded} packets came back, {seconds:.2f} s")
    return packets * 4 >= recorded


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    parser.add_argument("--zeva", required=True)
    parser.add_argument("--movie", required=True, help="the camera's movie, recorded in a loop")
    parser.add_argument("--packets", type=int, default=500, help="recorded before the cut")
    parser.add_argument("--alone", action="store_true", help=argparse.SUPPRESS)
    options = parser.parse_args()
    if not options.alone:
        restart_with_own_mounts()
    with tempfile.TemporaryDirectory(prefix="zeva-power-") as work:
        sys.exit(0 if one_cut(options, work) else 1)


if __name__ == "__main__":
    main()
