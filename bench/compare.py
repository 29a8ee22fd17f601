#!/usr/bin/env python3
"""Sets `zeva record` beside the system's ffmpeg on the same raw movie in memory, and beside itself.

Runs A and B in turn, so that a machine that drifts drifts for both; prints medians and ratios.
    bench/compare.py [--runs 5] [--frames 300] [--build build/bench]
"""
import argparse
import json
import os
import shutil
import subprocess

from pairs import head, pair

SIZE, FPS = "1920x1080", 30
BITRATE = 6000
GOP = 60


def make_source(path, frames):
    """A camera-like 1080p movie: BGRA pictures and 16-bit sound, raw, in a NUT file."""
    camera = os.environ.get("ZEVA_BENCH_MOVIE")
    source = ["-stream_loop", "-1", "-i", camera] if camera else [
        "-f", "lavfi", "-i", f"testsrc2=size={SIZE}:rate={FPS}", "-f", "lavfi", "-i", "sine=r=48000"]
    subprocess.run(["ffmpeg", "-v", "error", "-y", *source, "-t", str(frames / FPS),
                    "-vf", f"scale={SIZE.replace('x', ':')},fps={FPS},noise=alls=4:allf=t",
                    "-ac", "2", "-ar", "48000", "-c:v", "rawvideo", "-pix_fmt", "bgra",
                    "-c:a", "pcm_s16le", path], check=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--runs", type=int, default=5)
    parser.add_argument("--frames", type=int, default=300)
    parser.add_argument("--build", default="build/bench")
    parser.add_argument("--memory", default="/dev/shm/zeva-bench", help="a folder in memory")
    options = parser.parse_args()
    os.makedirs(options.memory, exist_ok=True)
    at = lambda name: os.path.join(options.memory, name)
    zeva, host = (os.path.join(options.build, "bin", n) for n in ("zeva", "bench_host"))
    try:
        make_source(at("raw.nut"), options.frames)
        record = [zeva, "record", "--fast", "-y", "--input", at("raw.nut"), "--preset", "veryfast",
                  "--profile", "high", "--rc", "abr", "--bitrate", str(BITRATE), "--gop", str(GOP),
                  "--audio-bitrate", "128"]
        peer = ["ffmpeg", "-v", "error", "-nostdin", "-y", "-i", at("raw.nut"), "-c:v", "libx264",
                "-preset", "veryfast", "-profile:v", "high", "-b:v", f"{BITRATE}k", "-g", str(GOP),
                "-bf", "0", "-pix_fmt", "yuv420p", "-c:a", "aac", "-b:a", "128k", at("peer.mp4")]
        four = [v for i in range(3) for v in ("--also", at(f"also{i}.mkv"))]
        head()
        pair("A zeva record, B ffmpeg", [*record, "-o", at("a.mp4")], peer, options.runs,
             options.frames)
        pair("A index on, B off", [*record, "-o", at("a.mp4")],
             [*record, "--no-index", "-o", at("b.mp4")], options.runs, options.frames)
        pair("A 4 outputs, B 1", [*record, "-o", at("a.mp4"), *four],
             [*record, "-o", at("b.mp4")], options.runs, options.frames)
        if os.path.exists(host):
            for size in (("1920", "1080"), ("1280", "720")):
                out = subprocess.run([host, at("h.mp4"), *size, "20", "real"], check=True,
                                     capture_output=True, text=True).stdout
                print(f"\n{'x'.join(size)} at real speed: {json.dumps(json.loads(out))}")
    finally:
        shutil.rmtree(options.memory)


if __name__ == "__main__":
    main()
