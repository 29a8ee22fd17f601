"""Servers over TLS and SRT: nginx behind a proxy, FFmpeg as a listener, one that is mute."""
import re
import socket
import sys
from pathlib import Path

from servers import HERE, RtmpServer, Server, wait_until
from support import Movie, judge

PASSPHRASE = "correct horse"


class RtmpsServer(Server):
    scheme, stream = "rtmps", "/movie"

    def __init__(self, folder):
        super().__init__(folder)
        self.behind = RtmpServer(self.folder / "rtmp")

    def start(self):
        judge("openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt",
              "ec_paramgen_curve:prime256v1", "-nodes", "-subj", "/CN=localhost", "-keyout",
              self.folder / "key.pem", "-out", self.folder / "certificate.pem")
        both = [(self.folder / name).read_text() for name in ("key.pem", "certificate.pem")]
        (self.folder / "both.pem").write_text("".join(both))
        self.behind.start()
        return super().start()

    def command(self):
        return [sys.executable, "-B", HERE / "tls_proxy.py", str(self.port), str(self.behind.port),
                self.folder / "both.pem"]

    def kill(self):
        super().kill()
        self.behind.kill()

    def has_data(self, size=100000):
        return self.behind.has_data(size)

    def finished(self, name=None):
        return self.behind.finished(name)


class SrtServer(Server):
    """Takes one stream, and ends with it."""
    scheme, recording = "srt", "movie.ts"

    def __init__(self, folder):
        self.stream = "?latency=200000&passphrase=" + PASSPHRASE.replace(" ", "+")
        super().__init__(folder)
        self.address = f"srt://127.0.0.1:{self.port}"
        self.url = self.address + self.stream

    def command(self):
        return ["ffmpeg", "-nostdin", "-analyzeduration", "1000000", "-f", "mpegts", "-i",
                f"{self.address}?mode=listener&passphrase={PASSPHRASE.replace(' ', '+')}",
                "-map", "0", "-c", "copy", "-flush_packets", "1", self.folder / self.recording]

    def answers(self):
        if self.process.poll() is not None:
            raise AssertionError(self.output())
        table = Path("/proc/net/udp").read_text(encoding="ascii")
        return re.search(f":{self.port:04X} ", table)

    def finished(self, name=None):
        wait_until(lambda: self.process.poll() is not None, f"the end of {self.url}")
        return Movie(str(self.folder / self.recording))


class MuteServer:
    """Takes connections, or what connections begin with, and never answers."""

    def __init__(self, kind):
        packets = kind is SrtServer
        self.connection = None
        self.socket = socket.socket(type=socket.SOCK_DGRAM if packets else socket.SOCK_STREAM)
        self.socket.bind(("127.0.0.1", 0))
        if not packets:
            self.socket.listen()
        self.url = f"{kind.scheme}://127.0.0.1:{self.socket.getsockname()[1]}/live/movie"

    def wait_for_client(self):
        self.socket.settimeout(60)
        if self.socket.type == socket.SOCK_STREAM:
            self.connection = self.socket.accept()[0]
        else:
            self.socket.recv(1)

    def close(self):
        self.socket.close()
        if self.connection:
            self.connection.close()
