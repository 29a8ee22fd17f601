"""Keys and signals, driven through a terminal of our own."""
import os
import re
import select
import signal
import socket
import subprocess
import unittest

from support import Movie, RUN_TIMEOUT_S, ToolTest, native_only


class Session:
    """`zeva` on a pseudo terminal that becomes its controlling one."""

    def __init__(self, command):
        import fcntl
        import pty
        import struct
        import termios
        self.terminal, theirs = pty.openpty()
        fcntl.ioctl(theirs, termios.TIOCSWINSZ, struct.pack("HHHH", 24, 60, 0, 0))

        def take_terminal():
            os.setsid()
            fcntl.ioctl(0, termios.TIOCSCTTY, 0)

        self.process = subprocess.Popen(command, stdin=theirs, stdout=theirs, stderr=theirs,
                                        preexec_fn=take_terminal)
        os.close(theirs)
        self.text = ""

    def wait_for(self, pattern):
        """Reads on until the pattern comes; forgets the text up to its end."""
        while not (match := re.search(pattern, self.text)):
            ready, _, _ = select.select([self.terminal], [], [], RUN_TIMEOUT_S)
            data = os.read(self.terminal, 65536) if ready else b""
            if not data:
                raise AssertionError(f"no {pattern!r} in {self.text!r}")
            self.text += data.decode(errors="replace")
        self.text = self.text[match.end():]
        return match

    def press(self, key):
        os.write(self.terminal, key)

    def finish(self):
        rest = self.text
        while True:
            try:
                data = os.read(self.terminal, 65536)
            except OSError:  # how a pseudo terminal tells its end
                break
            if not data:
                break
            rest += data.decode(errors="replace")
        os.close(self.terminal)
        return self.process.wait(RUN_TIMEOUT_S), rest


@native_only
class ControlTest(ToolTest):
    def start(self, *arguments):
        session = Session(self.command("--pattern", "--size", "64x64", *arguments))
        self.addCleanup(session.process.wait)
        self.addCleanup(session.process.kill)
        return session

    def test_pause_is_cut_out_and_q_finishes(self):
        session = self.start("-o", "a.mp4", "--also", "b.mkv")
        session.wait_for(r" [1-9]\d* frames")
        session.press(b"p")
        before = session.wait_for(r"paused  (\d+) frames").group(1)
        for _ in range(8):
            during = session.wait_for(r"paused  (\d+) frames").group(1)
        self.assertEqual(during, before)
        session.press(b"xp")
        session.wait_for(rf"\r[0-9:.]+  (?!{before} )\d+ frames")
        session.press(b"q")
        status, text = session.finish()
        self.assertEqual(status, 0, text)
        frames = int(re.search(r"(\d+) frames, 0 dropped, 2 outputs finished", text).group(1))
        self.assertGreater(frames, int(before))
        for name in ["a.mp4", "b.mkv"]:
            movie = Movie(name)
            self.assertEqual(movie.frames, frames)
            times = [time for time, _ in movie.packets()]
            self.assertLess(max(b - a for a, b in zip(times, times[1:])), 0.07)
            self.assertAlmostEqual(movie.duration, frames / 30, delta=0.15)

    def test_status_line_stays_on_its_line(self):
        session = self.start("-o", "a-name-that-is-much-too-long-for-the-line-of-the-terminal.mp4")
        line = session.wait_for(r"\r([^\r\n]*\d frames[^\r\n]*)\r").group(1)
        self.assertLess(len(line), 60)
        session.press(b"q")
        self.assertEqual(session.finish()[0], 0)

    def test_each_way_to_ask_for_the_end_finishes_the_movie(self):
        for name, ask in [
                ("ctrl-c", lambda session: session.press(b"\x03")),
                ("SIGINT", lambda session: session.process.send_signal(signal.SIGINT)),
                ("SIGTERM", lambda session: session.process.send_signal(signal.SIGTERM)),
                ("SIGHUP", lambda session: session.process.send_signal(signal.SIGHUP)),
                ("ctrl-c while paused", lambda session: (session.press(b"p"),
                                                         session.wait_for("paused"),
                                                         session.press(b"\x03")))]:
            with self.subTest(name):
                session = self.start("-o", "a.mp4")
                session.wait_for(r" [1-9]\d* frames")
                ask(session)
                status, text = session.finish()
                self.assertEqual(status, 0, text)
                self.assertIn("1 output finished", text)
                self.assertGreater(Movie("a.mp4").frames, 0)
                self.assertEqual(os.listdir("."), ["a.mp4"])

    def test_second_interrupt_quits_at_once_and_the_index_is_protected(self):
        session = self.start("-o", "a.mp4")
        session.wait_for(r"[1-9]\.\d  \d+ frames")
        # Both are pending when the program goes on, so that it has no time to finish in between.
        for number in [signal.SIGSTOP, signal.SIGINT, signal.SIGTERM, signal.SIGCONT]:
            session.process.send_signal(number)
        self.assertEqual(session.finish()[0], 130)
        index_size = os.path.getsize("a.mp4.index")
        text = self.record("--pattern", "-o", "a.mp4", expect=1)
        self.assertIn("a.mp4 is an unfinished recording", text)
        self.assertEqual(os.path.getsize("a.mp4.index"), index_size)
        os.remove("a.mp4.index")
        self.record("--pattern", "--fast", "--duration", "1", "-o", "a.mp4")

    def test_interrupt_while_a_server_does_not_answer(self):
        with socket.socket() as server:
            server.bind(("127.0.0.1", 0))
            server.listen()
            url = f"rtmp://127.0.0.1:{server.getsockname()[1]}/live/x"
            session = self.start("-o", url)
            connection, _ = server.accept()
            with connection:
                session.process.send_signal(signal.SIGINT)
                status, text = session.finish()
        self.assertEqual(status, 1, text)
        self.assertIn("stopped before the outputs were open", text)

    def test_interrupt_while_standard_input_is_silent(self):
        process = subprocess.Popen(self.command("--raw", "64x64@25", "-o", "a.mp4", "--fast"),
                                   stdin=subprocess.PIPE, stderr=subprocess.PIPE)
        self.addCleanup(process.stderr.close)
        process.stdin.write(bytes(64 * 64 * 4 * 100))
        process.stdin.flush()  # more than a pipe holds: most of it has been taken by now
        process.send_signal(signal.SIGTERM)
        self.assertEqual(process.wait(RUN_TIMEOUT_S), 0)
        process.stdin.close()
        self.assertGreater(Movie("a.mp4").frames, 50)


if __name__ == "__main__":
    unittest.main()
