"""Recordings at real speed that get SIGKILL: how much of what they had been fed can still be played.

All record the same pictures side by side, from a pipe that gets one picture each 1/30 s. Fed is what
the recorder has read when it is killed; played is what ffmpeg can decode afterwards.
"""
import os
import statistics
import subprocess
import threading
import time

from . import bench as b
from . import record, sources, svg

SIZE, KBPS, PRESET = "848x480", 2000, "ultrafast"
PICTURES, PICTURE_BYTES = 4 * sources.FPS, 848 * 480 * 4
INSTANTS_S = (4.3, 5.9, 6.4, 7.7, 8.2, 9.5, 10.8, 11.1)


class Recorder:
    """One recorder, fed at real speed by a thread of its own until it is killed."""

    def __init__(self, command, pictures, complaints):
        self.fed = 0
        self.process = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.DEVNULL,
                                        stderr=complaints)
        self.thread = threading.Thread(target=self.feed, args=[pictures], daemon=True)
        self.thread.start()

    def feed(self, path):
        start = time.monotonic()
        with open(path, "rb") as pictures:
            while self.feed_picture(pictures.fileno(), self.fed % PICTURES * PICTURE_BYTES):
                self.fed += 1
                time.sleep(max(0, start + self.fed / sources.FPS - time.monotonic()))

    def feed_picture(self, file, offset):
        """From file to pipe without a copy here. False when the recorder is dead."""
        end = offset + PICTURE_BYTES
        try:
            while offset < end:
                offset += os.sendfile(self.process.stdin.fileno(), file, offset, end - offset)
        except BrokenPipeError:
            return False
        return True

    def kill(self):
        alive = self.process.poll() is None
        self.process.kill()
        self.process.wait()
        self.thread.join(10)
        if not alive:
            raise b.Failed(f"{self.process.args[0]} ended by itself")
        return self.fed


def ffmpeg(target, *how):
    return record.ffmpegs(sources.raw_input("-", SIZE), [*how, target], PRESET, KBPS)


def recorders(bench, at):
    """Each one's name, its command, and what makes its file playable."""
    zeva = [bench.zeva, "record", "-y", "--raw", f"{SIZE}@{sources.FPS}", "--preset", PRESET,
            "--bitrate", str(KBPS), "--gop", str(record.GOP), "-o", at("ours.mp4")]
    recovery = ["mp4mux", f"moov-recovery-file={at('gst.recovery')}"]
    gst = record.gstreamers(["fdsrc", "fd=0"], SIZE, at("gst.mp4"), PRESET, KBPS, mux=recovery)
    return {
        "ZEVALib: MP4 and its index": (
            zeva, at("ours.whole.mp4"),
            [bench.zeva, "repair", at("ours.mp4"), at("ours.mp4.index"), "-o", at("ours.whole.mp4")]),
        "ffmpeg: plain MP4": (ffmpeg(at("plain.mp4")), at("plain.mp4"), []),
        "ffmpeg: fragmented MP4": (
            ffmpeg(at("frag.mp4"), "-movflags", "frag_keyframe+empty_moov"), at("frag.mp4"), []),
        "ffmpeg: Matroska": (ffmpeg(at("movie.mkv")), at("movie.mkv"), []),
        "GStreamer: MP4, recovery file": (
            gst, at("gst.whole.mp4"),
            ["gst-launch-1.0", "-q", "qtmoovrecover", f"recovery-input={at('gst.recovery')}",
             f"broken-input={at('gst.mp4')}", f"fixed-output={at('gst.whole.mp4')}"]),
    }


def one_kill(bench, pictures, number, instant):
    """Seconds fed and lost by the recorder's name."""
    folder = bench.at(f"kill{number}")
    os.makedirs(folder)
    at = lambda name: os.path.join(folder, name)
    known = recorders(bench, at)
    with open(at("complaints"), "w", encoding="utf-8") as complaints:
        running = {name: Recorder(command, pictures, complaints)
                   for name, (command, _, _) in known.items()}
        try:
            time.sleep(instant)
        finally:
            fed = {name: recorder.kill() for name, recorder in running.items()}
    seconds = {}
    for name, (_, movie, mend) in known.items():
        if mend:
            subprocess.run(mend, stdin=subprocess.DEVNULL, capture_output=True, timeout=60, check=False)
        seconds[name] = [fed[name] / sources.FPS, (fed[name] - b.pictures_of(movie)) / sources.FPS]
    return seconds


def compare(bench):
    pictures = bench.at("lost.bgra")
    sources.pictures(pictures, SIZE, PICTURES)
    instants = INSTANTS_S[:bench.choose(len(INSTANTS_S), 2)]
    kills = [one_kill(bench, pictures, n, instant) for n, instant in enumerate(instants)]
    rows = []
    for name in kills[0]:
        fed, lost = zip(*(kill[name] for kill in kills))
        rows.append((name, [statistics.mean(lost), max(lost), statistics.mean(fed)]))
    svg.bars(bench.plot("lost"), f"Media lost at SIGKILL, {len(kills)} kills each",
             "seconds of what had been fed; shorter is better", ["mean", "worst"], [(name, row[:2]) for name, row in rows])
    text = b.table(["recorder", "lost, mean s", "lost, worst s", "fed, mean s", "kills"],
                   [[name, *(f"{figure:.2f}" for figure in row), len(kills)] for name, row in rows])
    return {"lost": text}
