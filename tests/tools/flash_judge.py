#!/usr/bin/env python3
"""Judges the pictures and sound of a recording by the flashes and clicks of the movie it is made of.

    flash_judge.py --zeva build/linux/bin/zeva [--seconds 600] [--variant NAME]...
                   [--rtmp rtmp://server/live/ --files FOLDER]

Each variant of the movie goes through `zeva record` and `zeva mux` into MP4, MKV and FLV. A table
tells how many pictures and flashes came out, and how far flashes are from their clicks in the first
and the last ten pairs. With --rtmp all runs at real speed, and FOLDER is where the server records.
"""
import argparse
import array
import bisect
import os
import re
import subprocess
import tempfile
import time
from dataclasses import dataclass

from flash_movie import DARK, RATE, VARIANTS, WHITE, make


def frames_of(path, kind, chain, *output):
    """What the filter `showinfo` says of each decoded frame, and ffmpeg's output."""
    done = subprocess.run(["ffmpeg", "-nostdin", "-hide_banner", "-nostats", "-copyts", "-i", path,
                           "-map", f"0:{kind}?", *chain, *output, "-"], stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE, check=True)
    text = done.stderr.decode(errors="replace")
    return re.findall(r"showinfo_\d+ @ \S+\] n: *\d+ (.*)", text), done.stdout


class Seen:
    """What is in a movie: seconds of its pictures, flashes and clicks."""

    def __init__(self, path):
        chain = ["-vf", "settb=1/1000000,showinfo", "-vsync", "passthrough"]
        lines, _ = frames_of(path, "v", chain, "-f", "null")
        times = [int(re.search(r"pts: *(-?\d+)", line)[1]) / 1e6 for line in lines]
        bright = [int(re.search(r"mean:\[(\d+)", line)[1]) > (DARK + WHITE) / 2 for line in lines]
        self.pictures = times
        self.flashes = [t for t, now, before in zip(times, bright, [False, *bright])
                        if now and not before]
        self.read_sound(path)
        self.begin = min(times[:1] + self.sound_begin)

    def read_sound(self, path):
        chain = f"aformat=s16:{RATE}:mono,asettb=1/1000000,ashowinfo"
        lines, pcm = frames_of(path, "a", ["-af", chain], "-f", "s16le")
        samples = array.array("h", pcm)
        self.clicks, self.sound_begin, at, loudest = [], [], 0, 0
        for line in lines:
            begin = int(re.search(r"pts: *(-?\d+)", line)[1]) / 1e6
            self.sound_begin = self.sound_begin or [begin]
            count = int(re.search(r"nb_samples:(\d+)", line)[1])
            block = samples[at:at + count]
            at += count
            peak = max(block)
            if peak < 28000 / 3:
                continue
            moment = begin + block.index(peak) / RATE
            if self.clicks and moment - self.clicks[-1] < 0.05:  # one click on two blocks
                if peak > loudest:
                    self.clicks[-1], loudest = moment, peak
            else:
                self.clicks.append(moment)
                loudest = peak
        if at != len(samples):
            raise AssertionError(f"{path}: {len(samples)} samples, {at} of them told")


@dataclass
class Verdict:
    pictures: int
    due_pictures: int
    flashes: int
    due_flashes: int
    clicks: int
    due_clicks: int
    first_ms: float  # the worst of the first ten pairs: flash behind its click
    last_ms: float
    worst_ms: float
    drift_ms: float  # how far a picture is from its time, at most
    begin_s: float  # the movie's first picture or sound

    def complaint(self, most_ms=5):
        """Empty when every picture, flash and click is there, each flash at its click, and the movie
        begins at 0."""
        there = (self.pictures, self.flashes, self.clicks)
        due = (self.due_pictures, self.due_flashes, self.due_clicks)
        is_true = abs(self.worst_ms) <= most_ms and abs(self.begin_s) <= 0.1
        return "" if there == due and is_true else str(self)

    def row(self):
        return (f"{self.pictures}/{self.due_pictures} | {self.flashes}/{self.due_flashes} | "
                f"{self.clicks}/{self.due_clicks} | {self.first_ms:+.1f} | {self.last_ms:+.1f} | "
                f"{self.worst_ms:+.1f} | {self.drift_ms:.1f} | {self.begin_s:.3f}")


def nearest(moment, moments, reach=0.3):
    """Of growing moments."""
    at = bisect.bisect(moments, moment)
    best = min(moments[max(0, at - 1):at + 1], key=lambda m: abs(m - moment), default=None)
    return best if best is not None and abs(best - moment) <= reach else None


def pair(flashes, clicks):
    """Each flash that has its click, with it."""
    found = [(flash, nearest(flash, clicks, 0.05)) for flash in flashes]
    return [(flash, click) for flash, click in found if click is not None]


def apart_ms(source):
    """How far a flash is from its click, at most, in a movie where they are together."""
    return 1000 * max(abs(flash - click) for flash, click in pair(source.flashes, source.clicks))


def furthest(moments, others):
    """How far a moment is from the nearest of the others, at most; both count from their first."""
    others = [other - others[0] for other in others]
    return max((abs(nearest(m - moments[0], others, 1e9) - m + moments[0]) for m in moments),
               default=0) if others else float("nan")


def compare(source, result):
    """Looks for each flash and each click of the source in the result."""
    shift = result.begin - source.begin
    flashes = [nearest(flash + shift, result.flashes) for flash in source.flashes]
    clicks = [nearest(click + shift, result.clicks) for click in source.clicks]
    late = [1000 * (found - there - flash + click)
            for flash, click in pair(source.flashes, source.clicks)
            if (found := nearest(flash + shift, result.flashes)) is not None
            and (there := nearest(click + shift, result.clicks)) is not None]
    worst = lambda some: max(some, key=abs, default=float("nan"))
    return Verdict(len(result.pictures), len(source.pictures), len(flashes) - flashes.count(None),
                   len(flashes), len(clicks) - clicks.count(None), len(clicks), worst(late[:10]),
                   worst(late[-10:]), worst(late),
                   1000 * furthest(source.pictures, result.pictures), result.begin)


def print_row(*cells):
    print("|", " | ".join(str(cell) for cell in cells), "|", flush=True)


def tell(name, what, source, path):
    try:
        print_row(name, what, compare(source, Seen(path)).row())
    except (OSError, ValueError, subprocess.CalledProcessError) as error:
        print_row(name, what, f"no movie: {type(error).__name__}")


def record(command, movie, folder, *options):
    """`command`: zeva and its subcommand. As fast as it goes, unless the options name a server.
    Returns what it wrote, and the text of a failure."""
    outputs = [os.path.join(folder, f"{command[-1]}.{kind}") for kind in ("mp4", "mkv", "flv")]
    done = subprocess.run(
        [*command, "--input", movie, "-y", "-o", outputs[0], "--also", outputs[1], "--also",
         outputs[2], *(options or ["--fast"])], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT, encoding="utf-8", errors="replace", check=False)
    return outputs, done.stdout if done.returncode else ""


def judge_variant(name, zeva, options, folder):
    movie = make(folder, name, options.seconds)
    source = Seen(movie)
    print_row(name, f"nothing; {apart_ms(source):.2f} ms apart", compare(source, source).row())
    for command in ("record", "mux"):
        live = ["--also", options.rtmp + command] if options.rtmp else []
        outputs, failure = record([*zeva, command], movie, folder, *live)
        if failure:
            print(f"{command}: {failure.strip().splitlines()[-1]}")
        for path in outputs:
            tell(name, f"{command}, {path.split('.')[-1]}", source, path)
            if os.path.exists(path):
                os.remove(path)
        if live:
            time.sleep(2)  # for the server to close its file
            tell(name, f"{command}, RTMP", source, os.path.join(options.files, command + ".flv"))


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    parser.add_argument("--zeva", required=True)
    parser.add_argument("--emulator", default="", help="what runs a program of another system")
    parser.add_argument("--seconds", type=float, default=16)
    parser.add_argument("--variant", action="append", choices=VARIANTS)
    parser.add_argument("--rtmp", default="", help="rtmp://server/live/, to stream there as well")
    parser.add_argument("--files", help="the folder in which that server records")
    options = parser.parse_args()
    print_row("movie", "through", "pictures", "flashes", "clicks", "first ten, ms", "last ten, ms",
              "worst, ms", "a picture off its time, ms", "begins at, s")
    print("|" + "---|" * 10)
    for name in options.variant or VARIANTS:
        with tempfile.TemporaryDirectory(prefix="zeva-flash-") as folder:
            judge_variant(name, [*options.emulator.split(), options.zeva], options, folder)


if __name__ == "__main__":
    main()
