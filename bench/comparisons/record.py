"""Recordings of raw pictures as fast as the machine can: ours, ffmpeg's and GStreamer's."""
import os
import re

from . import bench as b
from . import sources
from .pairs import Pair, show

KBPS, GOP, FPS = 6000, 2 * sources.FPS, sources.FPS
SPEED_AIM, CPU_AIM = 1.10, 0.88


def ours(bench, source, target, preset="veryfast"):
    return [bench.zeva, "record", "--fast", "-y", *source, "--preset", preset, "--profile", "high",
            "--rc", "abr", "--bitrate", str(KBPS), "--gop", str(GOP), *target]


def ffmpegs(source, target, preset="veryfast", kbps=KBPS):
    """What ours does by itself at this size, ffmpeg must be told: the matrix of HD."""
    return [*sources.FFMPEG, *source, "-vf", "scale=out_color_matrix=bt709:out_range=tv",
            "-colorspace", "bt709", "-color_range", "tv", "-c:v", "libx264", "-preset", preset,
            "-profile:v", "high", "-b:v", f"{kbps}k", "-g", str(GOP), "-bf", "0", "-pix_fmt", "yuv420p",
            "-c:a", "aac", "-b:a", "128k", *target]


def gstreamers(source, size, target, preset="veryfast", kbps=KBPS, mux=("mp4mux",)):
    """x264enc's rate control is the others' once it has no buffer to keep to."""
    width, height = size.split("x")
    profile = "video/x-h264,profile=" + ("high" if preset == "veryfast" else "baseline")
    chain = [source, ["rawvideoparse", "format=bgra", f"width={width}", f"height={height}",
                      f"framerate={FPS}/1"], ["videoconvert"], ["video/x-raw,format=I420"],
             ["x264enc", "pass=cbr", f"bitrate={kbps}", "vbv-buf-capacity=0", f"speed-preset={preset}",
              f"key-int-max={GOP}", "bframes=0"], [profile], ["h264parse"], mux, ["filesink", f"location={target}"]]
    return ["gst-launch-1.0", "-q", *[word for link in chain for word in ["!", *link]][1:]]


def encoder_settings(path):
    """The settings as x264 writes them into the first picture."""
    with open(path, "rb") as file:
        found = re.search(rb"x264 - core.*? options: ([ -~]*)", file.read(1 << 20))
    return found.group(1).decode().split() if found else []


def run_equally(sides, rounds, frames):
    """The runs, once it is sure that nobody won by fewer pictures or an easier setting."""
    runs = b.run_in_turn(sides, rounds)
    first = encoder_settings(sides[0].outputs[0])
    for side in sides:
        b.check_pictures(side.outputs, frames)
        different = set(first) ^ set(encoder_settings(side.outputs[0]))
        if not first or different:
            raise b.Failed(f"{side.name} encodes by other settings: {' '.join(sorted(different))}")
    return runs


def compare_raw(bench, size, frames, preset, rows):
    """The three, from bare pictures in a file."""
    raw, mine, ffmpeg, gst = (bench.at(name) for name in ("raw.bgra", "ours.mp4", "ffmpeg.mp4", "gst.mp4"))
    sides = [
        b.Side("zeva record", ours(bench, ["--raw", f"{size}@{FPS}"], ["-o", mine], preset), raw, (mine,)),
        b.Side("ffmpeg", ffmpegs(sources.raw_input(raw, size), [ffmpeg], preset), outputs=(ffmpeg,)),
        b.Side("GStreamer", gstreamers(["filesrc", f"location={raw}"], size, gst, preset), outputs=(gst,))]
    my_runs, *others = run_equally(sides, bench.rounds, frames)
    rows += [Pair(f"{size}, {preset}: {side.name}", my_runs, runs, frames) for side, runs in zip(sides[1:], others)]
    return my_runs


def compare_movie(bench, size, frames, rows):
    """With sound, to one output and four, and without the index."""
    movie = bench.at("raw.mov")
    sources.with_sound(movie, bench.at("raw.bgra"), size, frames)
    mine, bare, peer = (bench.at(name) for name in ("ours.mp4", "bare.mp4", "ffmpeg.mp4"))
    source, four, fours = ["--input", movie], bench.at("four"), bench.at("tee")
    runs = run_equally([
        b.Side("zeva record", ours(bench, source, ["-o", mine]), outputs=(mine,)),
        b.Side("ffmpeg", ffmpegs(["-i", movie], [peer]), outputs=(peer,)),
        b.Side("without index", ours(bench, source, ["-o", bare, "--no-index"]), outputs=(bare,)),
        b.Side("four of zeva record", ours(bench, source, sources.four_of_ours(four)),
               outputs=sources.four_names(four)),
        b.Side("ffmpeg's tee", ffmpegs(["-i", movie], sources.four_of_ffmpegs(fours)),
               outputs=sources.four_names(fours)),
    ], bench.rounds, frames)
    rows += [Pair(f"{size}, with sound: ffmpeg", runs[0], runs[1], frames),
             Pair("index on: index off", runs[0], runs[2], frames),
             Pair("four outputs: ffmpeg's tee with fifo", runs[3], runs[4], frames)]


def compare(bench):
    rows = []
    frames, frames_4k = bench.choose(300, 30), bench.choose(120, 15)
    sources.pictures(bench.at("raw.bgra"), "1920x1080", frames)
    compare_raw(bench, "1920x1080", frames, "veryfast", rows)
    compare_movie(bench, "1920x1080", frames, rows)
    os.remove(bench.at("raw.mov"))
    sources.pictures(bench.at("raw.bgra"), "3840x2160", frames_4k)
    runs = compare_raw(bench, "3840x2160", frames_4k, "ultrafast", rows)
    real_time = frames_4k / FPS / b.median(runs, "wall_s")
    text = show(rows, "Recording as fast as the machine can, ours beside a peer", bench.plot("record"))
    return {"record": text + b.aim("1080p, speed against ffmpeg", rows[0].speed, SPEED_AIM, at_least=True) +
                      b.aim("1080p, processor time against ffmpeg", rows[0].cpu, CPU_AIM) +
                      b.aim("1080p, speed against GStreamer", rows[1].speed, 1, at_least=True) +
                      b.aim("4K30 with ultrafast, times real time", real_time, 1, at_least=True)}
