"""Movies with a flash and a click at the same instants. These are uneven, so that one cannot be
taken for another."""
import array
import fractions
import os
import struct
import subprocess
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
    "decoded before 0, B-frames": Variant(
        UNEVEN, options=(*REORDERED, "-movflags", "negative_cts_offsets")),
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
            step = 1 / fractions.Fraction(rate)
            times += [stretch_begin + n * step for n in range(int(rate * length))]
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
