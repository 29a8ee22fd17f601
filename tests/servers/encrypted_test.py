"""Streams over TLS and SRT arrive whole, and a bad server costs its own output only."""
import os
import time

from encrypted_servers import MuteServer, RtmpsServer, SrtServer
from servers import Recording, Server, wait_until, when_data_came
from support import EMULATOR, Movie, ToolTest, make_camera_movie, native_only

COMMANDS = ["record", "mux"]
KINDS = [RtmpsServer, SrtServer]
FPS = 25
# Pictures that no encoder makes small, so that servers have something to write soon.
NOISE = ["-vf", "scale=320:180,noise=alls=100:allf=t", "-bf", "0"]
NEARLY_LOSSLESS = ["--preset", "ultrafast", "--rc", "cqp", "--qp", "10"]


class EncryptedTest(ToolTest):
    def setUp(self):
        super().setUp()
        os.environ["no_proxy"] = "127.0.0.1"  # FFmpeg's TLS asks for it

    def server(self, kind, name):
        server = kind(name + kind.scheme)
        self.addCleanup(server.kill)
        return server.start()

    def mute_server(self, kind):
        server = MuteServer(kind)
        self.addCleanup(server.close)
        return server

    def run_zeva(self, command, main, *further, options=()):
        also = [word for url in further for word in ("--also", url)]
        recording = Recording(command, "--input", "in.mp4", *options, "-o", main, *also)
        self.addCleanup(recording.kill)
        return recording

    def assert_whole(self, movie, frames):
        self.assertEqual((movie.video["codec_name"], movie.frames), ("h264", frames))
        self.assertEqual(movie.audio["codec_name"], "aac")
        self.assertAlmostEqual(movie.times("a")[-1] - movie.times("v")[0], frames / FPS, delta=0.3)
        self.assertLess(movie.longest_gap(), 1.5 / FPS)

    def test_streams_arrive_whole(self):
        """Pictures that refer to later ones among them, as a main and as a further output."""
        make_camera_movie("in.mp4")
        started = []
        for command in COMMANDS:
            for first in (True, False):
                name = f"{command}{first}"
                rtmps, srt = [self.server(kind, name) for kind in KINDS]
                outputs = [srt.url, rtmps.url] if first else [name + ".mp4", rtmps.url, srt.url]
                started.append((outputs, rtmps, srt, self.run_zeva(command, *outputs)))
        for outputs, rtmps, srt, recording in started:
            with self.subTest(outputs=outputs):
                status, text = recording.end()
                self.assertEqual(status, 0, text)
                movies = [srt.finished(), rtmps.finished()]
                movies += [Movie(url) for url in outputs if "://" not in url]
                for movie in movies:
                    self.assert_whole(movie, 75)
                self.assertEqual(len({movie.sounds for movie in movies}), 1)

    def test_server_dies_in_mid_stream(self):
        make_camera_movie("in.mp4", *NOISE, "-t", "10")
        streams = []
        for command in COMMANDS:
            for kind in KINDS:
                server, file = self.server(kind, command), f"{command}{kind.scheme}.mp4"
                recording = self.run_zeva(command, file, server.url)
                streams.append((command, server, file, recording))
        when_data_came([(server, recording.process) for _, server, _, recording in streams],
                       lambda server: server.kill())
        for command, server, file, recording in streams:
            with self.subTest(command=command, url=server.url):
                status, text = recording.end()
                self.assertEqual(status, 0, text)
                self.assertIn(f"'{server.url}' is lost and tried again", text)
                self.assert_whole(Movie(file), 250)

    def test_what_cannot_be_opened(self):
        make_camera_movie("in.mp4")
        gone = [self.server(kind, "gone") for kind in KINDS]
        for server in gone:
            server.kill()
        mute = [self.mute_server(kind).url for kind in KINDS]
        wrong = self.server(SrtServer, "wrong").address + "?passphrase=another+horse"
        began = time.monotonic()
        started = []
        timeout = ["--timeout", "4"]
        silence = "Connection timed out"
        for url, reason in [(gone[0].url, "Connection refused"), (mute[0], "Immediate exit"),
                            (gone[1].url, silence), (mute[1], silence), (wrong, "Permission denied")]:
            # FFmpeg has no words for these on Windows.
            reason = "" if EMULATOR else reason
            file = f"{len(started)}.mp4"
            started += [
                (self.run_zeva("record", file, url, options=["--require-streams", *timeout]),
                 "io open failed: " + reason),
                (self.run_zeva("record", url, options=timeout), "Could not open url (code 11)"),
                (self.run_zeva("mux", url), f"Failed to open I/O for '{url}' (code -32)")]
        for recording, reason in started:
            with self.subTest(recording.process.args):
                status, text = recording.end()
                self.assertEqual(status, 1, text)
                self.assertIn(reason, text)
        self.assertLess(time.monotonic() - began, 3 * 5)  # the time-out of packets

    @native_only
    def test_stop_while_a_server_does_not_answer(self):
        make_camera_movie("in.mp4", "-t", "20")
        started = []
        for command in COMMANDS:
            for kind in KINDS:
                mute = self.mute_server(kind)
                recording = self.run_zeva(command, mute.url)
                mute.wait_for_client()
                started.append((command, kind, recording))
        for command, kind, recording in started:
            with self.subTest(command=command, scheme=kind.scheme):
                begin = time.monotonic()
                recording.interrupt()
                status, text = recording.end()
                self.assertEqual(status, 1, text)
                self.assertLess(time.monotonic() - begin, 3 * 2)

    @native_only
    def test_stop_gives_up_a_server_that_does_not_read(self):
        make_camera_movie("in.mp4", *NOISE, "-t", "20")
        started = []
        for command in COMMANDS:
            for kind in KINDS:
                server, file = self.server(kind, command), f"{command}{kind.scheme}.mp4"
                options = NEARLY_LOSSLESS if command == "record" else []
                options = ["--require-streams", *options]
                started.append((server, file, self.run_zeva(command, file, server.url, options=options)))
        when_data_came([(server, recording.process) for server, _, recording in started], Server.freeze)
        # More than the system keeps between us and the server.
        wait_until(lambda: all(os.path.getsize(file) > 8e6 for _, file, _ in started), "8 MB")
        for server, file, recording in started:
            with self.subTest(url=server.url):
                begin = time.monotonic()
                recording.interrupt()
                status, text = recording.end()
                self.assertLess(time.monotonic() - begin, 3 * 2, text)
                self.assertEqual(status, 1, text)
                self.assertIn(server.url + " failed: ", text)
                movie = Movie(file)
                self.assert_whole(movie, movie.frames)
