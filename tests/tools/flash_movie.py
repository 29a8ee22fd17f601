#!/usr/bin/env python3
"""Movies with a flash and a click at the same instants, and a judge of what a recording made of them.

    flash_movie.py --zeva build/linux/bin/zeva [--seconds 600] [--variant NAME]... [--rtmp URL --files FOLDER]

Each variant of the movie goes through `zeva record` and `zeva mux` into MP4, MKV and FLV; a table tells
how many pictures and flashes came out, and how far the flashes are from their clicks in the first and
in the last ten pairs. With --rtmp everything runs at real speed and FOLDER is where the server records.
Flashes come at uneven instants, so that one cannot be taken for another.
"""
import argparse
import array
import bisect
import fractions
import os
import re
import struct
import subprocess
import tempfile
import time
from dataclasses import dataclass, field

SIZE = (64, 48)
DARK, WHITE = 16, 235
RATE = 48000
BLOCK = 1024  # samples; sound begins and stops at blocks
BUMP = [0, 480, 1876, 4101, 7000, 10372, 13986, 17591, 20939, 23801, 25981, 27341, 28000]  # 0.25 ms
NTSC = fractions.Fraction(30000, 1001)
ALWAYS = (0.0, 1e9)


@dataclass
class Variant:
    """`cycle`: (pictures a second, for how many seconds), over and over. The others: from second to
    second, where less than 0 counts from the end."""
    cycle: list = field(default_factory=lambda: [(25, 1)])
    pictures: tuple = ALWAYS
    sound: tuple = ALWAYS
    picture_gap: tuple = (0, 0)
    sound_gap: tuple = (0, 0)
    options: tuple = ("-bf", "0")
    kind: str = "mp4"


UNEVEN = [(60, 3), (1, 3), (15, 2), (NTSC, 2), (fractions.Fraction(25, 2), 2), (7, 1), (30, 2)]
REORDERED = ("-bf", "3", "-b_strategy", "0")
VARIANTS = {
    "even": Variant(),
    "29.97": Variant([(NTSC, 1001)]),
    "variable rate": Variant(UNEVEN),
    "60 among 1": Variant([(1, 5), (60, 5)]),
    "B-frames": Variant(UNEVEN, options=REORDERED),
    "gaps": Variant(UNEVEN, picture_gap=(3, 8), sound_gap=(6, 9)),
    "gap, B-frames": Variant(picture_gap=(4.1, 9.1), options=REORDERED),
    "pictures 0.3 s late": Variant(pictures=(0.3, 1e9)),
    "pictures 2 s late, B-frames": Variant(pictures=(2, 1e9), options=REORDERED),
    "pictures 4 s late": Variant(UNEVEN, pictures=(4, 1e9)),
    "sound 0.3 s late": Variant(sound=(0.3, 1e9)),
    "sound 2 s late, B-frames": Variant(UNEVEN, sound=(2, 1e9), options=REORDERED),
    "sound 4 s late": Variant(sound=(4, 1e9)),
    "sound ends first": Variant(UNEVEN, sound=(0, -5)),
    "pictures end first": Variant(pictures=(0, -5)),
    "29.97 in whole milliseconds": Variant([(NTSC, 1001)], kind="mkv"),
    "from MPEG-TS, B-frames": Variant(UNEVEN, sound=(0.5, 1e9), options=REORDERED, kind="ts"),
    "decoded before 0, B-frames": Variant(UNEVEN, options=(*REORDERED, "-movflags", "negative_cts_offsets")),
    "pictures from 2 s, MPEG-TS": Variant(pictures=(2, 1e9), kind="ts"),
}


def within(moment, span, seconds):
    begin, end = (edge if edge >= 0 else seconds + edge for edge in span)
    return begin <= moment < end


def picture_times(variant, seconds):
    """Exact seconds."""
    times, stretch_begin = [], fractions.Fraction(0)
    while stretch_begin < seconds:
        for rate, length in variant.cycle:
            times += [stretch_begin + n / fractions.Fraction(rate) for n in range(int(rate * length))]
            stretch_begin += length
    return [t for t in times if t < seconds and within(t, variant.pictures, seconds)
            and not within(t, variant.picture_gap, seconds)]


def flashes_among(times):
    """Those of the pictures that are white: about one a second, none after another."""
    white, second, was_white = set(), 0, True
    for t in times:
        due = t >= second + 0.07 * (second * second % 7)
        if due and not was_white:
            white.add(t)
            second = int(t) + 1
            was_white = True
        else:
            was_white = False
    return white


def sound_blocks(variant, seconds, clicks):
    """(second, samples) of each block: quiet noise, and a click around each instant."""
    noise = array.array("h", ((n * n * 7919 >> 3) % 200 - 100 for n in range(BLOCK)))
    bump = BUMP + BUMP[-2::-1]
    due = {}
    for click in clicks:
        for n, value in enumerate(bump):
            due.setdefault((at := round(click * RATE) + n - len(BUMP) + 1) // BLOCK, []).append(
                (at % BLOCK, value))
    for number in range(int(seconds * RATE) // BLOCK):
        begin = number * BLOCK / RATE
        if within(begin, variant.sound, seconds) and not within(begin, variant.sound_gap, seconds):
            block = array.array("h", noise)
            for position, value in due.get(number, ()):
                block[position] = value
            yield begin, block.tobytes()


def element(number, content):
    """Of EBML (RFC 8794), with its size in eight bytes."""
    if isinstance(content, int):
        content = content.to_bytes(8, "big")
    return bytes.fromhex(number) + (len(content) | 1 << 56).to_bytes(8, "big") + content


def write_raw_movie(file, pictures, sound):
    """Matroska (RFC 9559) in microseconds, which no tool at hand writes from a list of times: a
    cluster for each picture and block of sound."""
    width, height = SIZE
    plane = width * height
    looks = {white: bytes([WHITE if white else DARK]) * plane + bytes([128]) * (plane // 2)
             for white in (True, False)}
    video = (element("D7", 1) + element("73C5", 1) + element("83", 1)
             + element("86", b"V_UNCOMPRESSED")
             + element("E0", element("B0", width) + element("BA", height)
                       + element("2EB524", b"I420")))
    audio = (element("D7", 2) + element("73C5", 2) + element("83", 2)
             + element("86", b"A_PCM/INT/LIT")
             + element("E1", element("B5", struct.pack(">d", RATE)) + element("9F", 1)
                       + element("6264", 16)))
    file.write(element("1A45DFA3", element("4282", b"matroska") + element("4287", 4)
                       + element("4285", 2)) + bytes.fromhex("1853806701FFFFFFFFFFFFFF")
               + element("1549A966", element("2AD7B1", 1000))
               + element("1654AE6B", element("AE", video) + element("AE", audio)))
    blocks = [(t, 1, white) for t, white in pictures] + [(t, 2, data) for t, data in sound]
    for moment, track, content in sorted(blocks, key=lambda block: block[0]):
        data = looks[content] if track == 1 else content
        file.write(element("1F43B675", element("E7", round(moment * 1000000))
                           + element("A3", bytes([0x80 + track, 0, 0, 0x80]) + data)))


def make(folder, name, seconds=16):
    """H.264 and AAC; returns the file. Everything about the encoding is usual but the times."""
    variant = VARIANTS[name]
    path = os.path.join(folder, "source." + variant.kind)
    times = picture_times(variant, seconds)
    white = flashes_among(times)
    clicks = [t for t in white if all(
        within(t + d, variant.sound, seconds) and not within(t + d, variant.sound_gap, seconds)
        for d in (-0.05, 0.05))]
    command = ["ffmpeg", "-v", "error", "-nostdin", "-y", "-i", "pipe:0", "-vsync", "passthrough",
               "-enc_time_base:v", "1:90000", "-c:v", "libx264", "-preset", "veryfast", "-g", "50",
               *variant.options, "-c:a", "aac", "-b:a", "128k", path]
    if variant.kind == "mp4":
        command[-1:-1] = ["-video_track_timescale", "90000"]
    with subprocess.Popen(command, stdin=subprocess.PIPE) as encoder:
        write_raw_movie(encoder.stdin, [(t, t in white) for t in times],
                        sound_blocks(variant, seconds, clicks))
        encoder.stdin.close()
    if encoder.returncode != 0:
        raise AssertionError(f"{command}: {encoder.returncode}")
    return path


def frames_of(path, kind, chain, *output):
    """What the filter `showinfo` says of each decoded frame, and ffmpeg's output."""
    done = subprocess.run(["ffmpeg", "-nostdin", "-hide_banner", "-nostats", "-copyts", "-i", path, "-map",
                           f"0:{kind}?", *chain, *output, "-"], stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE, check=True)
    text = done.stderr.decode(errors="replace")
    return re.findall(r"showinfo_\d+ @ \S+\] n: *\d+ (.*)", text), done.stdout


class Seen:
    """What is in a movie: seconds of its pictures, flashes and clicks."""

    def __init__(self, path):
        lines, _ = frames_of(path, "v", ["-vf", "settb=1/1000000,showinfo", "-vsync", "passthrough"],
                             "-f", "null")
        times = [int(re.search(r"pts: *(-?\d+)", line)[1]) / 1e6 for line in lines]
        bright = [int(re.search(r"mean:\[(\d+)", line)[1]) > (DARK + WHITE) / 2 for line in lines]
        self.pictures = times
        self.flashes = [t for t, now, before in zip(times, bright, [False, *bright]) if now and not before]
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

    def complaint(self, most_ms=5):
        """Empty when every picture, flash and click is there, and each flash at its click."""
        if (self.pictures, self.flashes, self.clicks) == (
                self.due_pictures, self.due_flashes, self.due_clicks) and abs(self.worst_ms) <= most_ms:
            return ""
        return str(self)

    def row(self):
        return (f"{self.pictures}/{self.due_pictures} | {self.flashes}/{self.due_flashes} | "
                f"{self.clicks}/{self.due_clicks} | {self.first_ms:+.1f} | {self.last_ms:+.1f} | "
                f"{self.worst_ms:+.1f} | {self.drift_ms:.1f}")


def nearest(moment, moments, reach=0.3):
    """Of growing moments."""
    at = bisect.bisect(moments, moment)
    best = min(moments[max(0, at - 1):at + 1], key=lambda m: abs(m - moment), default=None)
    return best if best is not None and abs(best - moment) <= reach else None


def pair(flashes, clicks):
    """Each flash that has its click, with it."""
    found = [(flash, nearest(flash, clicks, 0.05)) for flash in flashes]
    return [(flash, click) for flash, click in found if click is not None]


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
    late = [1000 * (found - there - flash + click) for flash, click in pair(source.flashes, source.clicks)
            if (found := nearest(flash + shift, result.flashes)) is not None
            and (there := nearest(click + shift, result.clicks)) is not None]
    worst = lambda some: max(some, key=abs, default=float("nan"))
    return Verdict(len(result.pictures), len(source.pictures), len(flashes) - flashes.count(None),
                   len(flashes), len(clicks) - clicks.count(None), len(clicks), worst(late[:10]),
                   worst(late[-10:]), worst(late), 1000 * furthest(source.pictures, result.pictures))


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
    done = subprocess.run([*command, "--input", movie, "-y", "-o", outputs[0], "--also", outputs[1],
                           "--also", outputs[2], *(options or ["--fast"])], stdin=subprocess.DEVNULL,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, encoding="utf-8",
                          errors="replace", check=False)
    return outputs, done.stdout if done.returncode else ""


def judge_variant(name, zeva, options, folder):
    movie = make(folder, name, options.seconds)
    source = Seen(movie)
    apart = max((abs(flash - click) for flash, click in pair(source.flashes, source.clicks)), default=0)
    print_row(name, f"nothing; {1000 * apart:.2f} ms apart", compare(source, source).row())
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
              "worst, ms", "a picture off its time, ms")
    print("|" + "---|" * 9)
    for name in options.variant or VARIANTS:
        with tempfile.TemporaryDirectory(prefix="zeva-flash-") as folder:
            judge_variant(name, [*options.emulator.split(), options.zeva], options, folder)


if __name__ == "__main__":
    main()
