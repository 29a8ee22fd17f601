#!/usr/bin/env python3
"""Times the repair against `cp` of the same broken file and `ffmpeg -c copy` of the finished movie.

    bench/repair.py --movie camera.mp4 --folder /dev/shm/zeva-bench [--gigabytes 1] [--runs 5]

Of the repair there are two: the library's call, which is what copies; and `zeva repair`, which then
reads the result back to count and check what came. The movie is 8 Mbit/s of pictures with sound,
made long by repeating the camera's. Each round runs all; figures are medians, and the ratios are
those of the rounds.
"""
import argparse
import os
import shutil
import statistics
import struct
import subprocess
import sys
import time

MEGABIT_S = 8
CALL = """import ctypes, sys
call = ctypes.CDLL(sys.argv[1]).ZEVA_StartRepair_sync
call.restype = ctypes.c_bool
sys.exit(not call(*[name.encode() for name in sys.argv[2:]], None, None))"""


def measure(command):
    """Wall seconds, and the most memory the command held, in MiB."""
    start = time.monotonic()
    process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                               stderr=subprocess.DEVNULL)
    _, status, usage = os.wait4(process.pid, 0)
    if os.waitstatus_to_exitcode(status) not in (0, 3):  # 3: the last packet has no record
        raise SystemExit(f"{command} failed: {status}")
    return time.monotonic() - start, usage.ru_maxrss / 1024


def tables_offset(path):
    """Where the box with the movie's tables begins (ISO/IEC 14496-12)."""
    with open(path, "rb") as file:
        position = 0
        while True:
            file.seek(position)
            size, kind = struct.unpack(">I4s", file.read(8))
            if kind == b"moov":
                return position
            position += size if size != 1 else struct.unpack(">Q", file.read(8))[0]


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    parser.add_argument("--movie", required=True)
    parser.add_argument("--folder", required=True)
    parser.add_argument("--gigabytes", type=float, default=1)
    parser.add_argument("--runs", type=int, default=5)
    parser.add_argument("--build", default="build/bench")
    options = parser.parse_args()
    os.makedirs(options.folder, exist_ok=True)
    at = lambda name: os.path.join(options.folder, name)
    zeva = os.path.join(options.build, "bin", "zeva")
    ffmpeg = ["ffmpeg", "-v", "error", "-nostdin", "-y"]
    try:
        subprocess.run([*ffmpeg, "-i", options.movie, "-c:v", "libx264", "-preset", "veryfast", "-bf",
                        "0", "-b:v", f"{MEGABIT_S}M", "-minrate", f"{MEGABIT_S}M", "-bufsize", "1M",
                        "-nal-hrd", "cbr", "-c:a", "aac", at("piece.mp4")], check=True)
        seconds = options.gigabytes * 8000 / MEGABIT_S
        subprocess.run([*ffmpeg, "-stream_loop", "-1", "-i", at("piece.mp4"), "-t", str(seconds), "-c",
                        "copy", at("long.mkv")], check=True)
        subprocess.run([zeva, "mux", "--fast", "-y", "--input", at("long.mkv"), "-o", at("a.mp4"),
                        "--keep-index"], check=True, stdout=subprocess.DEVNULL)
        os.remove(at("long.mkv"))
        end = tables_offset(at("a.mp4"))
        # One file is both: the finished movie has its tables behind the broken one's end.
        library = os.path.join(options.build, "lib", "libZEVALib.so")
        sides = {
            "library's repair": [sys.executable, "-c", CALL, library, at("a.mp4"),
                                 at("a.mp4.index"), at("out.mp4")],
            "zeva repair": [zeva, "repair", at("a.mp4"), at("a.mp4.index"), "-o", at("out.mp4")],
            "cp": ["cp", at("a.mp4"), at("out.mp4")],
            "ffmpeg -c copy": [*ffmpeg, "-i", at("a.mp4"), "-map", "0", "-c", "copy", at("out.mp4")],
        }
        seen = {name: [] for name in sides}
        for _ in range(options.runs):
            for name, command in sides.items():
                seen[name].append(measure(command))
                os.remove(at("out.mp4"))
        print(f"{end / 1e9:.2f} GB, {seconds:.0f} s of movie, {options.runs} rounds")
        print("| | wall s | most memory MiB | the library's repair takes |\n|---|---|---|---|")
        for name, figures in seen.items():
            ratio = statistics.median(r[0] / f[0] for r, f in zip(seen["library's repair"], figures))
            print(f"| {name} | {statistics.median(f[0] for f in figures):.2f} "
                  f"| {max(f[1] for f in figures):.0f} | {ratio:.2f} x |")
    finally:
        shutil.rmtree(options.folder)


if __name__ == "__main__":
    main()
