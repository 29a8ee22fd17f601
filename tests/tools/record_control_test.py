"""Keys and signals, driven through a terminal of our own."""
import os
import re
import signal
import socket
from unittest import mock

from support import EMULATOR, Movie, ToolTest, native_only


class ControlTest(ToolTest):
    def start(self, *arguments):
        return super().start("--pattern", "--size", "64x64", *arguments)

    def test_pause_is_cut_out_and_q_finishes(self):
        session = self.start("-o", "a.mp4")
        session.wait_for(r" [1-9]\d* frames")
        session.press(b"p")
        before = session.wait_for(r"paused  (\d+) frames").group(1)
        for _ in range(8):
            self.assertEqual(session.wait_for(r"paused  (\d+) frames").group(1), before)
        session.press(b"xp")
        session.wait_for(rf"\r[0-9:.]+  (?!{before} )\d+ frames")
        session.press(b"q")
        status, text = session.finish()
        self.assertEqual(status, 0, text)
        frames = int(re.search(r"(\d+) frames, 0 dropped, 1 output finished", text).group(1))
        movie = Movie("a.mp4")
        self.assertEqual(movie.frames, frames)
        self.assertLess(movie.longest_gap(), 0.07)

    def test_each_way_to_ask_for_the_end_finishes_the_movie(self):
        signals = [(b"", signal.SIGTERM), (b"p", signal.SIGHUP)]
        for key, number in [(b"\x03", None), *([] if EMULATOR else signals)]:
            with self.subTest(key=key, number=number):
                session = self.start("-y", "-o", "a.mp4")
                session.wait_for(r" [1-9]\d* frames")
                session.press(key)
                if number:
                    session.wait_for("paused" if key else "frames")
                    session.process.send_signal(number)
                status, text = session.finish()
                self.assertEqual(status, 0, text)
                self.assertIn("1 output finished", text)
                self.assertGreater(Movie("a.mp4").frames, 0)
                self.assertEqual(os.listdir("."), ["a.mp4"])

    @native_only
    def test_second_interrupt_quits_at_once_and_the_index_is_protected(self):
        # Quitting at once leaves threads behind: that is no fault for the thread sanitizer to tell.
        options = os.environ.get("TSAN_OPTIONS", "") + ":report_thread_leaks=0"
        with mock.patch.dict(os.environ, TSAN_OPTIONS=options):
            session = self.start("-o", "a.mp4")
        # Until then a slow machine's encoder may hold everything back.
        session.wait_for(r"[3-9]\.\d  \d+ frames")
        # Both are pending when the program goes on, so that it has no time to finish in between.
        for number in [signal.SIGSTOP, signal.SIGINT, signal.SIGTERM, signal.SIGCONT]:
            session.process.send_signal(number)
        self.assertEqual(session.finish()[0], 130)
        index_size = os.path.getsize("a.mp4.index")
        for arguments in [], ["-y"], ["-y", "--no-index"], ["-y", "--index", "b.index"]:
            text = self.record("--pattern", "-o", "a.mp4", *arguments, expect=1)
            self.assertIn("a.mp4 is an unfinished recording", text)
        self.assertEqual(os.path.getsize("a.mp4.index"), index_size)

    def test_interrupt_while_a_server_does_not_answer(self):
        with socket.create_server(("127.0.0.1", 0)) as server:
            session = self.start("-o", f"rtmp://127.0.0.1:{server.getsockname()[1]}/live/x")
            with server.accept()[0]:
                session.press(b"\x03")
                status, text = session.finish()
        self.assertEqual(status, 1, text)
        self.assertIn("stopped before the outputs were open", text)
