"""A movie that is there already is replaced only when the user wants that."""
import os
import pathlib
import socket

from support import EMULATOR, TOOL, Session, ToolTest, native_only

PATTERN = ["--pattern", "--size", "64x64", "--fast", "--duration", "1"]
OLD = b"an older movie"


class ReplaceTest(ToolTest):
    def old(self, *names):
        for name in names or ["a.mp4"]:
            pathlib.Path(name).write_bytes(OLD)

    def is_old(self, name="a.mp4"):
        return pathlib.Path(name).read_bytes() == OLD

    def make_commands(self):
        """One of each that writes a movie to a.mp4, and its exit status."""
        self.record(*PATTERN, "-o", "in.mp4", "--keep-index", "--profile", "baseline")
        return [(["record", *PATTERN, "-o", "a.mp4"], 0),
                (["mux", "--input", "in.mp4", "--fast", "-o", "a.mp4"], 0),
                (["repair", "in.mp4", "in.mp4.index", "-o", "a.mp4"], 3)]  # the last packet is lost

    def test_without_a_terminal_only_a_flag_replaces(self):
        for command, status in self.make_commands():
            with self.subTest(command[0]):
                self.old()
                told = self.zeva(*command, expect=1)[1]
                self.assertEqual(told, "zeva: a.mp4 exists already; -y replaces it\n")
                self.assertTrue(self.is_old())
                self.zeva(*command, "--yes", expect=status)
                self.assertFalse(self.is_old())
                open("a.mp4", "w").close()  # nothing is lost with an empty file
                self.zeva(*command, expect=status)
                self.assertIn("-y,--yes", self.zeva(command[0], "--help")[0])

    def test_every_file_that_is_written_counts(self):
        self.old("b.mkv")
        for arguments in ["--also", "b.mkv"], ["--index", "b.mkv"]:
            told = self.record(*PATTERN, "-o", "a.mp4", *arguments, expect=1)
            self.assertIn("b.mkv exists already", told)
            self.assertTrue(self.is_old("b.mkv"))
            self.assertEqual(os.listdir("."), ["b.mkv"])

    def test_on_a_terminal_the_user_is_asked(self):
        # Under the emulator a pseudo terminal has no key that ends a line.
        answers = [b"\x03"] if EMULATOR else [b"\r", b"no\r", b"y\r", b"Yes\r", b"\x03", b"\x04"]
        for command, status in self.make_commands():
            for answer in answers:
                replaced = b"y" in answer.lower()
                with self.subTest(command[0], answer=answer):
                    self.old()
                    session = Session([*EMULATOR, TOOL, *command])
                    self.addCleanup(session.process.kill)
                    session.wait_for(r"a.mp4 exists already. Replace it\? \[y/N\]")
                    self.assertTrue(self.is_old())
                    session.press(answer)
                    self.assertEqual(session.finish()[0], status if replaced else 1, session.text)
                    self.assertEqual(self.is_old(), not replaced)

    def test_pictures_on_standard_input_are_no_answer(self):
        self.old()
        with open("in.raw", "wb+") as raw:
            raw.write(b"y\n" + bytes(64 * 64 * 4))
            raw.seek(0)
            told = self.record("--raw", "64x64@5", "-o", "a.mp4", stdin=raw, expect=1)
        self.assertIn("exists already", told)
        self.assertTrue(self.is_old())

    def test_failed_start_keeps_the_older_movie_and_its_index(self):
        self.old("precious.mp4", "precious.mp4.index")
        with socket.create_server(("127.0.0.1", 0)) as server:
            closed = server.getsockname()[1]
        text = self.record(*PATTERN, "-y", "-o", "precious.mp4", "--also",
                           f"rtmp://127.0.0.1:{closed}/x", expect=1)
        self.assertIn(f"rtmp://127.0.0.1:{closed}/x", text)
        self.assertTrue(self.is_old("precious.mp4"))
        self.assertTrue(self.is_old("precious.mp4.index"))

    def test_producer_of_nothing_leaves_no_file(self):
        for name in ["new.mp4", "precious.mp4"]:
            self.old("precious.mp4")
            text = self.record("--raw", "64x64@5", "-y", "-o", name, expect=1)
            self.assertIn("the source brought nothing to record", text)
            self.assertTrue(self.is_old("precious.mp4"))
        self.assertEqual(os.listdir("."), ["precious.mp4"])

    @native_only
    def test_movie_that_is_being_recorded_is_left_alone(self):
        session = self.start("--pattern", "--size", "64x64", "-o", "a.mp4")
        session.wait_for(r"[1-9]\.\d  \d+ frames")
        told = self.record(*PATTERN, "-y", "-o", "a.mp4", expect=1)
        self.assertIn("a.mp4.index belongs to a recording that is still running", told)
        session.press(b"q")
        self.assertEqual(session.finish()[0], 0)
