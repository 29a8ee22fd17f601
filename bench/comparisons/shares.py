"""Where the processor time of a recording goes, by sampling."""
import collections
import os
import re

from . import bench as b
from . import record, sources, svg

OURS_AIM_PERCENT = 3
X264, AAC, KERNEL = "x264", "AAC and the rest of libavcodec", "operating system"
CONVERSION, OURS = "picture conversion (src/pixels, swscale)", "ours: ZEVALib and zeva"
OBJECTS = [  # the first that fits
    (r"^libx264", X264),
    (r"^libavcodec", AAC),
    (r"^libswscale", CONVERSION),
    (r"^(libZEVALib|zeva$)", OURS),
    (r"^lib(avformat|avutil|swresample)", "libavformat, libavutil, libswresample"),
    (r"^\[", KERNEL),
    (r"", "C library and others"),
]


def conversion_functions(library):
    """Names of what src/pixels defines, by the debugger's line table."""
    lines = b.call("nm", "--line-numbers", "--defined-only", library).splitlines()
    return {line.split("\t")[0].split(" ", 2)[2] for line in lines if "/src/pixels/" in line}


def group_of(library, symbol, conversions):
    group = next(name for pattern, name in OBJECTS if re.search(pattern, library))
    return CONVERSION if group == OURS and symbol in conversions else group


def sample(bench, command, stdin):
    """Percent by group."""
    data = bench.at("perf.data")
    b.run(b.Side("perf record", ["perf", "record", "-q", "-e", "cpu-clock", "-F", "1999", "-o", data,
                                 "--", *command], stdin))
    conversions = conversion_functions(os.path.join(bench.build, "lib", "libZEVALib.so"))
    counts = collections.Counter()
    for line in b.call("perf", "report", "-i", data, "--stdio", "-q", "-n", "--no-demangle", "--sort", "dso,symbol", "-t", "|").splitlines():
        fields = [field.strip() for field in line.split("|")]
        if len(fields) >= 4:
            _, count, library, symbol = fields[:4]
            counts[group_of(library, re.sub(r"^\[.\] ", "", symbol), conversions)] += int(count)
    return {name: 100 * counts[name] / counts.total() for _, name in OBJECTS}


def compare(bench):
    frames, size = bench.choose(300, 60), "1920x1080"
    raw, movie, target = bench.at("raw.bgra"), bench.at("raw.mov"), ["-o", bench.at("ours.mp4")]
    sources.pictures(raw, size, frames)
    sources.with_sound(movie, raw, size, frames)
    bare = sample(bench, record.ours(bench, ["--raw", f"{size}@{sources.FPS}"], target), raw)
    sound = sample(bench, record.ours(bench, ["--input", movie], target), os.devnull)
    groups = [name for _, name in OBJECTS]
    text = b.table([f"{size}, veryfast", "bare pictures, %", "movie with sound, %"],
                   [[name, f"{bare[name]:.2f}", f"{sound[name]:.2f}"] for name in groups])
    svg.bars(bench.plot("shares"), "Where the processor time of a 1080p recording goes", "percent",
             ["bare pictures", "movie with sound"], [(name, [bare[name], sound[name]]) for name in groups])
    text += "\n"
    for what, shares in (("bare pictures", bare), ("movie with sound", sound)):
        rest = 100 - shares[X264] - shares[AAC] - shares[KERNEL]
        text += b.aim(f"{what}, percent of our own code", shares[OURS], OURS_AIM_PERCENT)
        text += b.aim(f"{what}, percent of all but x264, AAC and the operating system", rest, OURS_AIM_PERCENT)
    return {"shares": text}
