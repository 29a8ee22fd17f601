"""Encoded packets from memory into memory, with the index, beside `ffmpeg -c copy`; the index's size."""
import os

from . import bench as b
from . import sources
from .pairs import Pair, show

MEGABIT_S = 4
SPEED_AIM = 0.87
SEARCH = ("the library looks through each picture's bytes for its units, a sixteenth of the time, which ffmpeg leaves to "
          "its parser alone, and hands packets from thread to thread.")
BYTE_STREAM = ("each picture becomes a byte stream for the host's interface, is searched there for its units, a sixteenth "
               "of the time, and becomes length-prefixed again; ffmpeg passes on what it has read.")


def make_inputs(bench, seconds):
    """A movie as MP4 and Matroska, and its two streams by themselves."""
    movie = bench.at("in.mp4")
    sources.encoded(movie, seconds, MEGABIT_S)
    for name, stream in (("in.mkv", "0"), ("in.h264", "0:v"), ("in.aac", "0:a")):
        b.call(*sources.FFMPEG, "-i", movie, "-map", stream, "-c", "copy", bench.at(name))


def cases(bench):
    """(case, our side, the peer, why we are behind). An MP4's tags would keep the tee from writing FLV and Matroska."""
    mine, peer = [bench.zeva, "mux", "--fast", "-y"], bench.at("peer.mp4")
    streams = ["--video", bench.at("in.h264"), "--fps", str(sources.FPS), "--audio", bench.at("in.aac")]
    bare_peer = ["-r", str(sources.FPS), "-i", bench.at("in.h264"), "-i", bench.at("in.aac")]
    movie, matroska, one = ["--input", bench.at("in.mp4")], bench.at("in.mkv"), ["-o", bench.at("ours.mp4")]
    four, fours = bench.at("four"), bench.at("tee")
    side = lambda name, *parts, outputs: b.Side(name, [word for part in parts for word in part], outputs=outputs)
    ours = lambda *parts: side("zeva mux", mine, one, *parts, outputs=[one[1]])
    copy = lambda *parts: side("ffmpeg", sources.FFMPEG, *parts, ["-c", "copy", peer], outputs=[peer])
    yield "from bare streams: ffmpeg -c copy", ours(streams), copy(bare_peer), SEARCH
    yield "from an MP4: ffmpeg -c copy", ours(movie), copy(["-i", bench.at("in.mp4")]), BYTE_STREAM
    yield "index on: index off", ours(movie), side("without index", mine, movie, ["-o", peer, "--no-index"],
                                                   outputs=[peer]), ""
    yield ("four outputs: ffmpeg's tee with fifo",
           side("four of zeva mux", mine, ["--input", matroska], sources.four_of_ours(four),
                outputs=sources.four_names(four)),
           side("ffmpeg's tee", sources.FFMPEG, ["-i", matroska, "-c", "copy"], sources.four_of_ffmpegs(fours),
                outputs=sources.four_names(fours)), BYTE_STREAM)


def index_size(bench, seconds):
    """Bytes of the index of the movie that was copied."""
    movie = bench.at("ours.mp4")
    b.call(bench.zeva, "mux", "--fast", "-y", "--input", bench.at("in.mp4"), "-o", movie, "--keep-index")
    size, whole = os.path.getsize(movie + ".index"), os.path.getsize(movie)
    return b.table(["movie", "index, MB an hour", "of the movie"],
                   [[f"{sources.FPS} pictures and 47 sound packets a second, {MEGABIT_S} Mbit/s",
                     f"{size / seconds * 3600 / 1e6:.2f}", f"{100 * size / whole:.3f} %"]])


def compare(bench):
    seconds = bench.choose(1200, 60)
    make_inputs(bench, seconds)
    rows, pictures = [], b.pictures_of(bench.at("in.mp4"), "packets")
    for case, mine, peer, why in cases(bench):
        runs = b.run_in_turn([mine, peer], bench.rounds)
        b.check_pictures([*mine.outputs, *peer.outputs], pictures, "packets")
        rows.append(Pair(case, *runs, pictures, why))
    text = show(rows, "Packets as fast as the machine can, ours beside a peer", bench.plot("packets"))
    return {"packets": text + b.aim("from bare streams, speed against ffmpeg", rows[0].speed, SPEED_AIM, at_least=True),
            "index": index_size(bench, seconds)}
