#!/usr/bin/env python3
"""Sets `zeva mux --fast` beside the system's `ffmpeg -c copy` on the same movie in memory.

Runs A and B in turn; prints medians and ratios, then the memory of a long run at its quarters, then
the latency of packets at real speed.
    bench/compare_mux.py [--runs 5] [--minutes 30] [--build build/bench]
"""
import argparse
import os
import shutil
import subprocess
import time

from pairs import head, pair

FPS, KBPS, CLIP_S = 30, 4000, 20
COPY = ["ffmpeg", "-v", "error", "-nostdin", "-y"]


def make_source(at, minutes):
    """A movie of `minutes` without B-frames at 4 Mbit/s, and its two streams by themselves."""
    camera = os.environ.get("ZEVA_BENCH_MOVIE")
    source = ["-stream_loop", "-1", "-i", camera] if camera else [
        "-f", "lavfi", "-i", f"testsrc2=size=1280x720:rate={FPS}", "-f", "lavfi", "-i", "sine=r=48000"]
    subprocess.run([*COPY, *source, "-t", str(CLIP_S), "-vf", f"scale=1280:720,fps={FPS},"
                    "noise=alls=12:allf=t", "-c:v", "libx264", "-preset", "ultrafast", "-bf", "0",
                    "-g", str(2 * FPS), "-b:v", f"{KBPS}k", "-maxrate", f"{KBPS}k", "-bufsize",
                    f"{KBPS}k", "-pix_fmt", "yuv420p", "-c:a", "aac", "-ac", "2", at("clip.mp4")],
                   check=True)
    subprocess.run([*COPY, "-stream_loop", str(minutes * 60 // CLIP_S - 1), "-i", at("clip.mp4"),
                    "-c", "copy", at("in.mp4")], check=True)
    for name, stream in (("in.h264", "v"), ("in.aac", "a")):
        subprocess.run([*COPY, "-i", at("in.mp4"), "-map", f"0:{stream}", "-c", "copy", at(name)],
                       check=True)


def resident_mib(pid):
    with open(f"/proc/{pid}/statm", encoding="ascii") as statm:
        return int(statm.read().split()[1]) * os.sysconf("SC_PAGESIZE") / 2**20


def memory(command):
    """Resident MiB after each quarter of a run."""
    samples = []
    with subprocess.Popen(command, stdin=subprocess.DEVNULL, stderr=subprocess.DEVNULL) as process:
        while process.poll() is None:
            samples.append(resident_mib(process.pid))
            time.sleep(0.02)
    return [round(samples[len(samples) * i // 4 - 1]) for i in range(1, 4)] + [round(max(samples))]


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--runs", type=int, default=5)
    parser.add_argument("--minutes", type=int, default=30)
    parser.add_argument("--real", type=int, default=20, help="seconds at real speed")
    parser.add_argument("--build", default="build/bench")
    parser.add_argument("--memory", default="/dev/shm/zeva-bench", help="a folder in memory")
    options = parser.parse_args()
    os.makedirs(options.memory, exist_ok=True)
    at = lambda name: os.path.join(options.memory, name)
    zeva, host = (os.path.join(options.build, "bin", n) for n in ("zeva", "bench_packets"))
    try:
        make_source(at, options.minutes)
        movie = [zeva, "mux", "--fast", "-y", "--input", at("in.mp4")]
        streams = [zeva, "mux", "--fast", "-y", "--video", at("in.h264"), "--audio", at("in.aac")]
        kinds = (("a.mkv", "b.mkv"), ("a.flv", "b.flv"), ("a.ts", "b.ts"))
        also = [v for mine, _ in kinds for v in ("--also", at(mine))]
        tee = "|".join(f"[f={f}]{at(name)}" for f, name in
                       (("mp4", "b.mp4"), ("matroska", "b.mkv"), ("flv", "b.flv"), ("mpegts", "b.ts")))
        frames = options.minutes * 60 * FPS
        head()
        pair("A zeva mux, B ffmpeg -c copy", [*movie, "-o", at("a.mp4")],
             [*COPY, "-i", at("in.mp4"), "-c", "copy", at("b.mp4")], options.runs, frames)
        pair("the same from elementary streams", [*streams, "-o", at("a.mp4")],
             [*COPY, "-r", str(FPS), "-i", at("in.h264"), "-i", at("in.aac"), "-c", "copy",
              at("b.mp4")], options.runs, frames)
        pair("A index on, B off", [*movie, "-o", at("a.mp4")],
             [*movie, "--no-index", "-o", at("b.mp4")], options.runs, frames)
        pair("A 4 outputs, B ffmpeg -f tee, fifo", [*movie, "-o", at("a.mp4"), *also],
             [*COPY, "-i", at("in.mp4"), "-map", "0", "-c", "copy", "-f", "tee", "-use_fifo", "1",
              tee], options.runs, frames)
        for outputs in ([], also):
            print(f"\nresident MiB with {1 + len(outputs) // 2} outputs, after each quarter, peak:",
                  memory([*movie, "-o", at("a.mp4"), *outputs]), flush=True)
        print(f"\nat real speed: {subprocess.check_output([host, at('clip.mp4'), at('h.mp4'), str(options.real)], text=True)}")
    finally:
        shutil.rmtree(options.memory)


if __name__ == "__main__":
    main()
