"""Streams arrive whole at servers that are not ours, and a bad server costs its own output only."""
import json
import os
import re
import subprocess
from pathlib import Path
from types import SimpleNamespace

from flash_judge import Seen, compare
from flash_movie import make
from servers import Recording, RtmpServer, RtspServer, Server, wait_until, when_data_came
from support import EMULATOR, RUN_TIMEOUT_S, Movie, ToolTest, ffmpeg, make_camera_movie, native_only, run

COMMANDS = ["record", "mux"]
REQUIRED = "--require-streams"
KINDS = [RtmpServer, RtspServer]
FPS = 25
# Pictures that no encoder makes small: they fill what lies between us and a server.
NOISE = ["-vf", "scale=320:180,noise=alls=100:allf=t", "-bf", "0"]
# Four seconds of these are 24 MB, more than twice the 10 MB that the two systems' buffers may grow to.
MUCH_NOISE = ["-vf", "scale=480:270,noise=alls=100:allf=t", "-bf", "0"]
NEARLY_LOSSLESS = ["--preset", "ultrafast", "--rc", "cqp", "--qp", "10"]


class StreamingTest(ToolTest):
    """Recordings run side by side where they can, as real speed takes its time."""

    def server(self, kind, name=None):
        server = kind(name or kind.scheme)
        self.addCleanup(server.kill)
        return server.start()

    def run_zeva(self, *arguments):
        recording = Recording(*arguments)
        self.addCleanup(recording.kill)
        return recording

    def streams(self, cases):
        """Recordings to a file and a server of their own: (command, kind of server, seconds, options...) each.
        They start together, once all servers are there."""
        cases = [(self.server(kind, f"{command}{seconds}{kind.scheme}"), command, seconds, *options)
                 for command, kind, seconds, *options in cases]
        return [self.stream(*case) for case in cases]

    def stream(self, server, command, seconds, *options):
        # `record` has one codec for all outputs, and takes RTSP, which has another, only first.
        first = command == "record" and isinstance(server, RtspServer)
        file = server.folder.name + (".mkv" if first else ".mp4")
        outputs = [server.url, file] if first else [file, server.url]
        if command == "record":
            options = [*options, *NEARLY_LOSSLESS]
        recording = self.run_zeva(command, "--input", "in.mp4", "--duration", str(seconds), *options,
                                  "-o", outputs[0], "--also", outputs[1])
        return SimpleNamespace(server=server, command=command, frames=seconds * FPS, file=file,
                               sound="opus" if first else "aac", recording=recording)

    def assert_failed(self, stream, reason="."):
        status, text = stream.recording.end()
        self.assertEqual(status, 1, text)
        self.assertRegex(text, f"{stream.server.url} failed: .*{reason}.* \\(code -")
        # All outputs end when a required one breaks, sound and picture where they are then.
        movie = Movie(stream.file)
        self.assertGreater(movie.frames, 0)
        self.assert_whole(movie, movie.frames, stream.sound, delta=1)

    def assert_whole(self, movie, frames, sound, delta=0.3):
        self.assertEqual((movie.video["codec_name"], movie.frames), ("h264", frames))
        self.assertEqual(movie.audio["codec_name"], sound)
        for kind in "va":
            self.assertAlmostEqual(movie.packets(kind)[-1][0], frames / FPS, delta=delta)


class ServersTest(StreamingTest):
    def test_file_and_stream_are_whole_and_alike(self):
        make_camera_movie("in.mp4")
        for stream in self.streams(("record", kind, 3) for kind in KINDS):
            status, text = stream.recording.end()
            self.assertEqual(status, 0, text)
            self.assertIn("75 frames, 0 dropped, 2 outputs finished", text)
            ours, theirs = Movie(stream.file), stream.server.finished()
            for movie in [ours, theirs]:
                self.assert_whole(movie, 75, stream.sound)
                self.assertGreater(movie.ssim("in.mp4"), 0.95)
            self.assertEqual(ours.sounds, theirs.sounds)

    def test_packets_go_to_a_file_and_both_kinds_of_server(self):
        make_camera_movie("in.mp4", *NOISE, "-t", "5")
        rtmp, rtsp = [self.server(kind) for kind in KINDS]
        status, text = self.run_zeva("mux", "--input", "in.mp4", "-o", "out.mp4", "--also",
                                     rtmp.url, "--also", rtsp.url).end()
        self.assertEqual(status, 0, text)
        movies = [Movie("out.mp4"), rtmp.finished(), rtsp.finished()]
        for movie, sound in zip(movies, ["aac", "aac", "opus"]):
            self.assert_whole(movie, 125, sound)
        self.assertEqual(movies[0].sounds, movies[1].sounds)
        # Also the end of the sound, which the transcoder holds when the recording ends.
        seconds = 1024 * len(movies[0].packets("a")) / int(movies[0].audio["sample_rate"])
        self.assertGreaterEqual(len(movies[2].packets("a")) / 50, seconds)

    def test_flashes_arrive_at_their_clicks(self):
        streams = []
        for name in ("gaps", "sound 2 s late, B-frames"):
            os.mkdir(name)
            source = make(name, name)
            for command in COMMANDS:
                server = self.server(RtmpServer, command + name.split(maxsplit=1)[0])
                streams.append((source, server, self.run_zeva(command, "--input", source, "-o",
                                                              server.url)))
        for source, server, recording in streams:
            status, text = recording.end()
            with self.subTest(recording.process.args[1:]):
                self.assertEqual(status, 0, text)
                seen = Seen(server.finished().path)
                self.assertEqual(compare(Seen(source), seen).complaint(), "")

    def test_a_stream_beside_a_file_never_hurts_it(self):
        make_camera_movie("in.mp4", "-g", "12", "-bf", "0", "-t", "7")
        runs = []
        for command, options in (("record", ["--stream-bitrate", "200", "--stream-size", "80x60"]),
                                 ("mux", [])):
            server = RtmpServer(command)
            self.addCleanup(server.kill)
            runs.append((command, server, self.run_zeva(
                command, "--input", "in.mp4", "-o", command + ".mp4", "--also", server.url, "--json",
                *options)))
        for command, server, _ in runs:
            movie = Path(command + ".mp4")
            wait_until(lambda: movie.exists() and movie.stat().st_size > 0, f"a first {movie}")
            server.start()
        when_data_came([(server, recording.process) for _, server, recording in runs], Server.kill)
        for _, server, _ in runs:
            server.start()
        for command, server, recording in runs:
            status, text = recording.end()
            with self.subTest(command):
                self.assertEqual(status, 0, text)
                codes = re.findall(r"\(code (1\d\d)\)", text)
                # Of two reports within a second only the newer state is told.
                self.assertEqual([code for code in codes if code != "101"], ["100", "103", "104"])
                self.assert_whole(Movie(command + ".mp4"), 175, "aac")
                states = [json.loads(line) for line in text.splitlines() if line.startswith("{")]
                phases = [state["outputs"][1]["phase"] for state in states if state["outputs"]]
                self.assertEqual(states[-1]["exit_status"], 0)
                self.assertEqual(states[-1]["outputs"][1]["reconnects"], 1)
                self.assertIn("live", phases)
                self.assertEqual(states[-1]["outputs"][0]["packets_dropped"], 0)
                stream = server.finished()
                self.assertEqual(stream.video["width"], 80 if command == "record" else 160)
                self.assertLess(stream.packets("v")[0][0], 0.2)

    def test_server_dies_in_mid_stream(self):
        make_camera_movie("in.mp4", *NOISE, "-t", "5")
        streams = self.streams((command, kind, 5, REQUIRED) for command in COMMANDS for kind in KINDS)
        when_data_came([(stream.server, stream.recording.process) for stream in streams], Server.kill)
        for stream in streams:
            self.assert_failed(stream)

    def test_server_that_stops_reading(self):
        make_camera_movie("in.mp4", *MUCH_NOISE, "-t", "12")
        # Given up when a time-out is over, or else by the stop.
        streams = self.streams([
            case for kind in KINDS for case in (
                ("record", kind, 8, REQUIRED, "--timeout", "1"),
                ("record", kind, 6, REQUIRED, "--timeout", "3600"),
                ("mux", kind, 12, REQUIRED), ("mux", kind, 4, REQUIRED))])
        when_data_came([(stream.server, stream.recording.process) for stream in streams], Server.freeze)
        for stream in streams:
            self.assert_failed(stream, "Immediate exit")

    def test_stop_gives_up_a_server_that_does_not_read(self):
        """The headers promise a grace of 1.5 s."""
        make_camera_movie("in.mp4", *MUCH_NOISE, "-ar", "48000", "-t", "6")
        ffmpeg("-i", "in.mp4", "-c", "copy", "in.ts")
        servers = [(self.server(kind, kind.scheme + source), source)
                   for source in ("4", "in.ts") for kind in KINDS]
        hosts = [(server, subprocess.Popen(
            [*EMULATOR, os.environ["ZEVA_STREAM_HOST"], "1", source, server.url],
            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, encoding="utf-8"))
            for server, source in servers]
        when_data_came(hosts, Server.freeze)
        for server, host in hosts:
            told, _ = host.communicate(timeout=RUN_TIMEOUT_S)
            with self.subTest(server=server.url):
                self.assertRegex(told, r"stop [0-9.]+ ms")
                self.assertLess(float(told.split("stop ")[1].split(" ms")[0]), 3 * 1500)

    def test_what_cannot_be_opened(self):
        make_camera_movie("in.mp4", *NOISE)
        rtmp, rtsp = self.server(RtmpServer), self.server(RtspServer)
        gone = self.server(RtmpServer, "gone")
        gone.kill()
        gone_rtsp = gone.url.replace("rtmp:", "rtsp:")
        wrong, wrong_rtsp = [server.url.replace("live", "dead") for server in (rtmp, rtsp)]
        # Windows tries a few times more, and FFmpeg there has no words for what comes of it.
        refused = "" if EMULATOR else "Connection refused"
        for command, outputs, text in [
                ("record", [gone.url], "Could not open url (code 11)"),
                ("record", ["a.mp4", gone.url], "io open failed: " + refused),
                ("record", [gone_rtsp], refused or "(code 21)"),
                ("record", [wrong], "Could not open url (code 11)"),
                ("record", ["a.mp4", wrong], "io open failed: "),
                ("record", [wrong_rtsp], "404 Not Found (code 21)"),
                ("record", ["a.mp4", rtsp.url], "an rtsp:// URL must be the main output (-o)"),
                ("mux", ["a.mp4", gone.url], "(code -32)"),
                ("mux", ["a.mp4", wrong], "(code -32)"),
                ("mux", ["a.mp4", gone_rtsp], f"{refused} (code -33)"),
                ("mux", ["a.mp4", wrong_rtsp], "404 Not Found (code -33)")]:
            with self.subTest(command=command, outputs=outputs):
                options = ["-o", outputs[0], *(f"--also={url}" for url in outputs[1:])]
                status, said = self.run_zeva(command, "--input", "in.mp4", "-y", REQUIRED,
                                             *options).end()
                self.assertIn(text, said)
                self.assertEqual(status, 2 if "must be" in text else 1)

    @native_only
    def test_stop_while_a_server_does_not_answer(self):
        make_camera_movie("in.mp4", *NOISE, "-t", "60")
        for command in COMMANDS:
            for kind in KINDS:
                server = self.server(kind, command + kind.scheme)
                server.freeze()
                recording = self.run_zeva(command, "--input", "in.mp4", "-o", server.url)
                wait_until(server.has_connection, "a connection")
                recording.interrupt()
                status, text = recording.end()
                self.assertEqual(status, 1, text)

    def test_ten_streams_in_one_process(self):
        make_camera_movie("in.mp4", *NOISE, "-ar", "48000")
        ffmpeg("-i", "in.mp4", "-c", "copy", "in.ts")
        server = self.server(RtmpServer)
        for name, source in [("frames", "3"), ("packets", "in.ts")]:
            done = run([*EMULATOR, os.environ["ZEVA_STREAM_HOST"], "10", source,
                        server.url + name + "{}"])
            self.assertEqual(done.returncode, 0, done.stdout)
            for number in range(10):
                self.assert_whole(server.finished(f"movie{name}{number}.flv"), 75, "aac")
