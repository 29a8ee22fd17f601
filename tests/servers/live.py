"""Hosts that record to files and live streams, and what becomes of both."""
import json
import os
import subprocess
import threading
from pathlib import Path

from servers import wait_until
from support import EMULATOR, Movie, ffmpeg, judge

# As people stream beside a recording.
LIVE = "optional,drop,keep:{keep},reconnect:250:2000:-1"
KBITS, SECOND_BYTES = 3000, 450000  # of pictures; a second of the whole stream has less
WAITING, IS_LIVE, DROPPING, RECONNECTING, BACK, GIVEN_UP, FINISHED_EARLY = 100, 101, 102, 103, 104, 105, 110


def make_packets(path, size="320x180", kbits=KBITS):
    """As many bits as the pictures have that the host encodes."""
    rate = f"{kbits}k"
    ffmpeg("-f", "lavfi", "-i", f"testsrc2=size={size}:rate=25", "-f", "lavfi", "-i", "sine=sample_rate=48000",
           "-t", "4", "-ac", "2", "-vf", "noise=alls=100:allf=t", "-c:v", "libx264", "-preset", "ultrafast", "-tune",
           "zerolatency", "-b:v", rate, "-maxrate", rate, "-bufsize", rate, "-g", "25", "-pix_fmt", "yuv420p",
           "-c:a", "aac", path)


def policy(url, keep_ms=3000, words=LIVE):
    return words.format(keep=keep_ms) + "=" + url


class LiveHost:
    """A process that records whenever it is told to. What it says comes at any time, on a thread of its own."""

    def __init__(self, media, outputs, environment=()):
        arguments = [media, str(KBITS) if media == "frames" else f"{media}.ts"]
        self.media, self.outputs = media, outputs
        self.process = subprocess.Popen([*EMULATOR, os.environ["ZEVA_LIVE_HOST"], *arguments, *outputs],
                                        stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                                        encoding="utf-8", env={**os.environ, **dict(environment)})
        self.said = []
        self.reader = threading.Thread(target=self._read, daemon=True)
        self.reader.start()
        self.at_rest = self.usage()

    def __str__(self):
        return f"{self.media} to {self.outputs}"

    def _read(self):
        for line in self.process.stdout:
            self.said.append(json.loads(line))

    def _tell(self, word):
        self.process.stdin.write(word + "\n")
        self.process.stdin.flush()

    def _wait(self, find, what):
        def ended_or_found():
            return find() or (self.process.poll() is not None and not self.reader.is_alive())
        wait_until(ended_or_found, f"{what} of {self}; said: {self.statuses()}")
        if not (found := find()):
            raise AssertionError(f"{self} ended with {self.process.returncode} instead of {what}")
        return found

    def answer(self, key):
        return next((line for line in self.said if key in line), None)

    def begin(self):
        self._tell("start")

    def started(self):
        return self._wait(lambda: self.answer("started_ms"), "start")

    def ask_to_stop(self):
        self._tell("stop")

    def stopped(self):
        return self._wait(lambda: self.answer("stop_ms"), "stop")

    def end(self):
        self.process.stdin.close()
        self.process.wait(60)

    def kill(self):
        self.process.kill()
        self.process.wait()
        self.reader.join()
        for pipe in self.process.stdin, self.process.stdout:
            pipe.close()

    def statuses(self):
        return [(line["at"], line["code"], line["text"]) for line in list(self.said) if "code" in line]

    def codes(self, *of_interest):
        return [code for _, code, _ in self.statuses() if not of_interest or code in of_interest]

    def wait_for(self, code, count=1):
        """The seconds at which it was told for the `count`th time."""
        def times():
            found = [at for at, told, _ in self.statuses() if told == code]
            return found[count - 1:]
        return self._wait(times, f"{count} x {code}")[0]

    def states(self, output):
        return [line["outputs"][output] for line in list(self.said) if "outputs" in line]

    def state(self, output):
        return self.states(output)[-1]

    def most(self, output, fact):
        return max(state[fact] for state in self.states(output))

    def usage(self):
        """KiB in memory, threads and descriptors; none of a program behind an emulator."""
        if EMULATOR:
            return 0, 0, 0
        folder = Path("/proc", str(self.process.pid))
        facts = dict(line.split(":", 1) for line in (folder / "status").read_text(encoding="ascii").splitlines())
        return int(facts["VmRSS"].split()[0]), int(facts["Threads"]), len(list((folder / "fd").iterdir()))


def key_first(movie):
    """Of each stream: its time 0 is near the beginning, and its first picture needs no other."""
    time, flags = movie.packets()[0]
    return "K" in flags and time < 1


def pictures_in(path):
    return int(judge("ffprobe", "-v", "error", "-select_streams", "v", "-count_packets", "-show_entries",
                     "stream=nb_read_packets", "-of", "csv=p=0", path).split(",")[0])


def whole_movie(path, pictures):
    movie = Movie(path)
    if movie.frames != pictures:
        raise AssertionError(f"{path} has {movie.frames} of {pictures} pictures")
    return movie
