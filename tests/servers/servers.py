"""Servers on this machine, ended by their process ids, and recordings that stream to them."""
import os
import signal
import socket
import subprocess
import time
from pathlib import Path

from support import EMULATOR, Movie, RUN_TIMEOUT_S, TOOL

HERE = Path(__file__).parent
PATIENCE_S = 150  # a sanitizer on a busy machine


def wait_until(condition, what):
    deadline = time.monotonic() + PATIENCE_S
    while not (result := condition()):
        if time.monotonic() > deadline:
            raise AssertionError(f"waited in vain for {what}")
        time.sleep(0.02)
    return result


def when_data_came(streams, action):
    """Acts on the server of each (server, process) as soon as its own data are there: the streams go on
    meanwhile, and would be over by the time that the slowest server had some."""
    waiting = list(streams)

    def act():
        for stream in [stream for stream in waiting if stream[0].has_data()]:
            action(stream[0])
            waiting.remove(stream)
        return not waiting
    try:
        wait_until(act, "data at every server")
    except AssertionError as error:
        stories = [f"{server.url}\n{server.output()}\n{cut_short(process)}" for server, process in waiting]
        raise AssertionError("\n".join([str(error), *stories])) from error


def cut_short(process):
    """Its state, and what it has said so far."""
    status = process.poll()
    process.kill()
    text = process.communicate()[0]
    return f"{'still running' if status is None else f'ended with {status}'}\n{text}"


class Server:
    """A recording server on a port of its own; `url` is where to stream, `movie` what it writes."""

    def __init__(self, folder):
        with socket.create_server(("127.0.0.1", 0)) as free:
            self.port = free.getsockname()[1]
        self.folder = Path(folder).absolute()
        self.folder.mkdir()
        self.url = f"{self.scheme}://127.0.0.1:{self.port}/live{self.stream}"
        self.process = None

    def start(self):
        with open(self.folder / "output.txt", "w", encoding="utf-8") as output:
            self.process = subprocess.Popen(self.command(), stdout=output, stderr=output)
        wait_until(self.answers, f"{self.scheme} server")
        return self

    def answers(self):
        if self.process.poll() is not None:
            raise AssertionError(self.output())
        with socket.socket() as client:
            return client.connect_ex(("127.0.0.1", self.port)) == 0

    def output(self):
        return (self.folder / "output.txt").read_text(encoding="utf-8", errors="replace")

    def has_connection(self):
        """Made by the system: a server that hangs need not know."""
        table = Path("/proc/net/tcp").read_text(encoding="ascii")
        rows = [line.split() for line in table.splitlines()]
        return any(row[2].endswith(f":{self.port:04X}") and row[3] == "01" for row in rows)

    def freeze(self):
        self.process.send_signal(signal.SIGSTOP)

    def kill(self):
        if self.process:
            self.process.kill()
            self.process.wait()

    def has_data(self, size=100000):
        movie = self.folder / self.recording
        return movie.exists() and movie.stat().st_size > size

    def finished(self, name=None):
        """The movie that was recorded, once the server has closed it."""
        path = self.folder / (name or self.recording)
        files = f"/proc/{self.process.pid}/fd"

        def closed():
            in_use = {os.path.realpath(f"{files}/{number}") for number in os.listdir(files)}
            return path.exists() and path.stat().st_size > 0 and str(path) not in in_use
        wait_until(closed, f"the end of {path}")
        return Movie(str(path))


class RtmpServer(Server):
    scheme, stream, recording = "rtmp", "/movie", "movie.flv"

    def command(self):
        return [HERE.parents[1] / "scripts/rtmp-server.sh", self.folder, str(self.port)]


class RtspServer(Server):
    scheme, stream, recording = "rtsp", "", "movie.mkv"

    def command(self):
        return ["/usr/bin/python3", "-B", HERE / "rtsp_server.py", str(self.port),
                self.folder / self.recording]


class Recording:
    """A running `zeva`, which is behind an emulator on another system."""

    def __init__(self, *arguments):
        self.process = subprocess.Popen([*EMULATOR, TOOL, *arguments], stdin=subprocess.DEVNULL,
                                        stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                        encoding="utf-8", errors="replace")

    def interrupt(self):
        self.process.send_signal(signal.SIGINT)

    def end(self):
        """The exit status and what the user has read."""
        text = self.process.communicate(timeout=RUN_TIMEOUT_S)[0]
        return self.process.returncode, text

    def kill(self):
        self.process.kill()
        self.process.communicate()
