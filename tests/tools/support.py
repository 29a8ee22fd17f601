"""Runs `zeva` and judges what it wrote with programs that are not ours."""
import json
import os
import re
import shutil
import subprocess
import tempfile
import unittest

TOOL = os.environ["ZEVA_TOOL"]
EMULATOR = os.environ.get("ZEVA_TOOL_EMULATOR", "").split()
# Signals and terminals of this system do not reach a program under an emulator as they would there.
native_only = unittest.skipIf(EMULATOR, "needs signals and terminals of this system")
RUN_TIMEOUT_S = 120


def judge(*command):
    """Output of ffmpeg or ffprobe, which must succeed."""
    done = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE, timeout=RUN_TIMEOUT_S)
    if done.returncode != 0:
        raise AssertionError(f"{command}: {done.stderr.decode(errors='replace')}")
    return done.stdout.decode(errors="replace") + done.stderr.decode(errors="replace")


def ffmpeg(*arguments):
    return judge("ffmpeg", "-nostdin", "-hide_banner", "-y", *arguments)


class Movie:
    """What ffprobe says about a file, after decoding all of it without an error."""

    def __init__(self, path):
        self.path = path
        complaints = ffmpeg("-v", "error", "-i", path, "-f", "null", "-")
        if complaints.strip():
            raise AssertionError(f"{path} does not decode cleanly: {complaints}")
        facts = json.loads(judge("ffprobe", "-v", "error", "-count_packets", "-show_streams",
                                 "-show_format", "-of", "json", path))
        self.format = facts["format"]
        self.duration = float(self.format.get("duration", 0))
        self.tags = {k.lower(): v for k, v in self.format.get("tags", {}).items()}
        self.video = self._first(facts, "video")
        self.audio = self._first(facts, "audio")

    @staticmethod
    def _first(facts, kind):
        return next((s for s in facts["streams"] if s["codec_type"] == kind), None)

    @property
    def frames(self):
        return int(self.video["nb_read_packets"])

    def packets(self, kind="v"):
        lines = judge("ffprobe", "-v", "error", "-select_streams", kind, "-show_entries",
                      "packet=pts_time,flags", "-of", "csv=p=0", self.path).split()
        return [(float(line.split(",")[0]), line.split(",")[1]) for line in lines]

    def ssim(self, reference, reference_filter="null"):
        """Likeness to a reference, picture by picture in the order of pictures."""
        text = ffmpeg("-v", "info", "-i", self.path, "-i", reference, "-lavfi",
                      f"[0:v]setpts=N/TB/25[a];[1:v]{reference_filter},setpts=N/TB/25[b];[a][b]ssim",
                      "-f", "null", "-")
        return float(re.search(r"SSIM.* All:([0-9.]+)", text).group(1))


class ToolTest(unittest.TestCase):
    """Each test works in a folder of its own."""

    def setUp(self):
        before = os.getcwd()
        folder = tempfile.mkdtemp(prefix="zeva-tool-")
        self.addCleanup(shutil.rmtree, folder)
        self.addCleanup(os.chdir, before)
        os.chdir(folder)

    @staticmethod
    def command(*arguments):
        return [*EMULATOR, TOOL, "record", *arguments]

    def record(self, *arguments, expect=0, input=None, **popen):
        """Runs to the end; returns what the user reads."""
        source = {"input": input} if input is not None else {"stdin": subprocess.DEVNULL}
        done = subprocess.run(self.command(*arguments), stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, timeout=RUN_TIMEOUT_S, **source, **popen)
        text = done.stderr.decode(errors="replace")
        self.assertEqual(done.returncode, expect, text)
        return text


def make_camera_movie(path, *options, seconds=3, size="160x120", rate=25):
    """Moving pictures with stereo sound."""
    ffmpeg("-v", "error", "-f", "lavfi", "-i", f"testsrc2=size={size}:rate={rate}", "-f", "lavfi",
           "-i", "sine=frequency=440:sample_rate=44100", "-t", str(seconds), "-ac", "2",
           "-c:v", "libx264", "-preset", "ultrafast", "-qp", "10", "-bf", "2",
           "-pix_fmt", "yuv420p", "-c:a", "aac", *options, path)
