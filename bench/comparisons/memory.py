"""Resident memory over hours of a recording: pictures are small, so that an hour takes seconds."""
import os
import statistics
import subprocess
import time

from . import bench as b
from . import sources, svg

SIZE = "160x90"
LONGEST_RUN_S = 1800


def resident_mib(pid):
    with open(f"/proc/{pid}/statm", encoding="ascii") as file:
        return int(file.read().split()[1]) * os.sysconf("SC_PAGESIZE") / 2**20


def samples(command, hours):
    """Points of (hours of media, MiB), the hours in proportion to the time that has passed."""
    points, start = [], time.monotonic()
    with subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                          stderr=subprocess.DEVNULL) as process:
        while process.poll() is None:
            points.append((time.monotonic() - start, resident_mib(process.pid)))
            if points[-1][0] > LONGEST_RUN_S:
                process.kill()
            time.sleep(0.05)
        whole = time.monotonic() - start
    if process.returncode != 0:
        raise b.Failed(f"{command[0]}: status {process.returncode} after {whole:.0f} s")
    return [(hours * passed / whole, mib) for passed, mib in points]


def slope(points):
    """MiB an hour, without the first fifth, in which buffers are filled, and the end, when tables are written."""
    hours = points[-1][0]
    steady = [p for p in points if hours * 0.2 < p[0] < hours * 0.97]
    return statistics.linear_regression(*zip(*steady)).slope


def compare(bench):
    hours = bench.choose(1, 0.1)
    raw, movie = bench.at("small.bgra"), bench.at("small.mov")
    sources.pictures(raw, SIZE, 20 * sources.FPS)
    sources.with_sound(movie, raw, SIZE, 20 * sources.FPS)
    end = str(hours * 3600)
    settings = ["-c:v", "libx264", "-preset", "ultrafast", "-g", "60", "-b:v", "200k", "-pix_fmt",
                "yuv420p", "-c:a", "aac", "-b:a", "64k"]
    curves = {
        "zeva record, with its index": samples(
            [bench.zeva, "record", "--fast", "-y", "--input", movie, "--loop", "--duration", end,
             "--preset", "ultrafast", "--profile", "baseline", "--gop", "60", "--bitrate", "200",
             "--audio-bitrate", "64", "-o", bench.at("ours.mp4")], hours),
        "ffmpeg": samples([*sources.FFMPEG, "-stream_loop", "-1", "-i", movie, "-t", end, *settings,
                           bench.at("ffmpeg.mp4")], hours),
    }
    svg.lines(bench.plot("memory"), f"Resident memory of a recording, {SIZE}", "hours of media",
              "MiB resident", curves)
    text = b.table(["recorder", "MiB an hour", "MiB in the middle", "most MiB"],
                   [[name, f"{slope(points):.1f}", f"{points[len(points) // 2][1]:.0f}",
                     f"{max(mib for _, mib in points):.0f}"] for name, points in curves.items()])
    return {"memory": text}
