"""Runs `zeva` and judges what it wrote with programs that are not ours."""
import json
import os
import pty
import re
import select
import subprocess
import tempfile
import unittest

TOOL = os.environ["ZEVA_TOOL"]
EMULATOR = os.environ.get("ZEVA_TOOL_EMULATOR", "").split()
# Signals of this system do not reach a program under an emulator as they would there.
native_only = unittest.skipIf(EMULATOR, "needs signals of this system")
RUN_TIMEOUT_S = 120


def run(command, stdin=subprocess.DEVNULL):
    return subprocess.run(command, stdin=stdin, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          encoding="utf-8", errors="replace", timeout=RUN_TIMEOUT_S)


def judge(*command):
    """Output of ffmpeg or ffprobe, which must succeed."""
    done = run(command)
    if done.returncode != 0:
        raise AssertionError(f"{command}: {done.stdout}")
    return done.stdout


def ffmpeg(*arguments):
    return judge("ffmpeg", "-nostdin", "-hide_banner", "-y", *arguments)


class Session:
    """`zeva` on a pseudo terminal that becomes its controlling one."""

    def __init__(self, command):
        self.terminal, theirs = pty.openpty()
        self.process = subprocess.Popen(["setsid", "--ctty", *command], stdin=theirs,
                                        stdout=theirs, stderr=theirs)
        os.close(theirs)
        self.text = ""

    def wait_for(self, pattern):
        """Reads on until the pattern comes; forgets the text up to its end."""
        while not (match := re.search(pattern, self.text)):
            if not select.select([self.terminal], [], [], RUN_TIMEOUT_S)[0]:
                raise AssertionError(f"no {pattern!r} in {self.text!r}")
            self.text += os.read(self.terminal, 65536).decode(errors="replace")
        self.text = self.text[match.end():]
        return match

    def press(self, key):
        os.write(self.terminal, key)

    def finish(self):
        """Reads to the end, which a pseudo terminal tells by an error."""
        try:
            while True:
                self.text += os.read(self.terminal, 65536).decode(errors="replace")
        except OSError:
            os.close(self.terminal)
        return self.process.wait(RUN_TIMEOUT_S), self.text


class Movie:
    """What ffprobe says about a file, after decoding all of it without an error."""

    def __init__(self, path, clean=True):
        self.path = path
        if clean:
            self.decode()
        facts = json.loads(judge("ffprobe", "-v", "error", "-count_packets", "-show_streams",
                                 "-show_format", "-of", "json", path))
        self.tags = {k.lower(): v for k, v in facts["format"].get("tags", {}).items()}
        self.duration = float(facts["format"].get("duration", "nan"))  # a live stream has none
        streams = {stream["codec_type"]: stream for stream in facts["streams"]}
        self.video, self.audio = streams["video"], streams.get("audio")
        self.frames = int(self.video["nb_read_packets"])
        self.sounds = int(self.audio["nb_read_packets"]) if self.audio else 0

    def decode(self):
        # In the file's own time base: rounded to whole pictures, two of a live stream may meet.
        complaints = ffmpeg("-v", "error", "-i", self.path, "-enc_time_base", "-1", "-f", "null", "-")
        if complaints.strip():
            raise AssertionError(f"{self.path} does not decode cleanly: {complaints}")

    def packets(self, kind="v"):
        lines = judge("ffprobe", "-v", "error", "-select_streams", kind, "-show_entries",
                      "packet=pts_time,flags", "-of", "csv=p=0", self.path).split()
        return [(float(line.split(",")[0]), line.split(",")[1]) for line in lines]

    def times(self, kind="v"):
        """When each packet is shown or heard, without what an encoder put before the beginning."""
        return sorted(time for time, flags in self.packets(kind) if "D" not in flags)

    def last_length(self):
        """Of the picture that is shown last, in seconds; 0 when the file does not tell."""
        lines = judge("ffprobe", "-v", "error", "-select_streams", "v", "-show_entries",
                      "packet=pts_time,duration_time", "-of", "csv=p=0", self.path).split()
        time, length = max((line.rstrip(",").split(",") for line in lines),
                           key=lambda packet: float(packet[0]))
        return 0 if length == "N/A" else float(length)

    def longest_gap(self, kind="v"):
        times = sorted(time for time, _ in self.packets(kind))
        return max(b - a for a, b in zip(times, times[1:]))

    def picture_hashes(self, *options):
        return picture_hashes(self.path, *options)

    def ssim(self, reference, pictures=1000):
        """Likeness to a reference, picture by picture in the order of pictures."""
        chain = f"trim=end_frame={pictures},setpts=N/TB/25"
        text = ffmpeg("-i", self.path, "-i", reference, "-lavfi",
                      f"[0:v]{chain}[a];[1:v]{chain}[b];[a][b]ssim", "-f", "null", "-")
        return float(re.search(r"SSIM.* All:([0-9.]+)", text).group(1))


def picture_hashes(path, *options):
    """A hash for each picture; a complaint of the decoder would be one too."""
    lines = ffmpeg("-v", "error", *options, "-i", path, "-map", "0:v", "-vsync", "passthrough",
                   "-f", "framehash", "-hash", "murmur3", "-").splitlines()
    return [line.split(",")[-1] for line in lines if not line.startswith("#")]


def timeline(path):
    """When each packet of pictures ("v") and of sound ("a") is shown or heard, without what an
    encoder put before the beginning, from the earlier one's beginning on."""
    lines = judge("ffprobe", "-v", "error", "-show_entries", "packet=codec_type,pts_time,flags",
                  "-of", "csv=p=0", path).split()
    packets = [line.split(",")[:3] for line in lines]
    times = {kind[0]: sorted(float(time) for k, time, flags in packets
                             if k == kind and "D" not in flags) for kind in ("video", "audio")}
    beginning = min(moments[0] for moments in times.values() if moments)
    return {kind: [time - beginning for time in moments] for kind, moments in times.items()}


class ToolTest(unittest.TestCase):
    """Each test works in a folder of its own."""
    subcommand = "record"

    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="zeva-tool-")
        self.addCleanup(folder.cleanup)
        self.addCleanup(os.chdir, os.getcwd())
        os.chdir(folder.name)

    def command(self, *arguments):
        return [*EMULATOR, TOOL, self.subcommand, *arguments]

    def start(self, *arguments):
        session = Session(self.command(*arguments))
        self.addCleanup(session.process.wait)
        self.addCleanup(session.process.kill)
        return session

    def record(self, *arguments, expect=0, stdin=subprocess.DEVNULL):
        """Runs to the end; returns what the user reads."""
        done = run(self.command(*arguments), stdin)
        self.assertEqual(done.returncode, expect, done.stdout)
        return done.stdout


    def zeva(self, *arguments, expect=0):
        """Runs any subcommand; returns what it answers and what it tells besides."""
        done = subprocess.run([*EMULATOR, TOOL, *arguments], stdin=subprocess.DEVNULL,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, encoding="utf-8",
                              timeout=RUN_TIMEOUT_S)
        self.assertEqual(done.returncode, expect, done.stdout + done.stderr)
        return done.stdout, done.stderr

    def zeva_json(self, *arguments, expect=0):
        return json.loads(self.zeva(*arguments, "--json", expect=expect)[0])


def make_camera_movie(path, *options):
    """Three seconds of moving pictures with stereo sound."""
    ffmpeg("-f", "lavfi", "-i", "testsrc2=size=160x120:rate=25", "-f", "lavfi", "-i",
           "sine=frequency=440:sample_rate=44100", "-t", "3", "-ac", "2", "-c:v", "libx264",
           "-preset", "ultrafast", "-qp", "10", "-bf", "2", "-pix_fmt", "yuv420p", "-c:a", "aac",
           *options, path)


def read_index(path):
    """The stream lines, and what the records say once added up, packet by packet:
    (position, stream, size, pts, dts, duration, key)."""
    with open(path, encoding="utf-8") as index:
        header, *lines = index.read().splitlines()
    if not header.startswith("## version=2, "):
        raise AssertionError(f"{path} begins with {header}")
    streams = [json.loads(line) for line in lines if line.startswith("{")]
    frame_sizes = {s["index"]: s["frame_size"] for s in streams if s["type"] == "audio"}
    packets, last, end = [], {}, 0
    for record in "".join(lines[len(streams):]).split(";")[:-1]:
        stream, start, size, pts, dts, duration, key = [int(n or 0) for n in record.split(",")]
        last_pts, last_dts = last.get(stream, (0, 0))
        pts += last_pts
        dts = last_dts + dts if dts else pts
        last[stream] = pts, dts
        duration = duration or frame_sizes.get(stream, 0)
        packets.append((start or end, stream, size, pts, dts, duration, bool(key)))
        end = (start or end) + size
    return streams, packets
