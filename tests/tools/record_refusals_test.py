"""Wrong usage is refused before anything is written, with a sentence that names the argument."""
import os
import subprocess
import unittest

from support import EMULATOR, RUN_TIMEOUT_S, TOOL, ToolTest, make_camera_movie

# (arguments, what the sentence must contain)
REFUSALS = [
    (["--pattern"], "--output"),
    (["-o", "a.mp4"], "--input, --pattern and --raw"),
    (["--pattern", "--raw", "16x16@5", "-o", "a.mp4"], "--input, --pattern and --raw"),
    (["--pattern", "--loop", "-o", "a.mp4"], "--loop"),
    (["--pattern", "--duration", "0", "-o", "a.mp4"], "--duration"),
    (["--pattern", "--duration", "soon", "-o", "a.mp4"], "--duration"),
    (["--raw", "320x240", "-o", "a.mp4"], "--raw 320x240"),
    (["--raw", "320x240@0", "-o", "a.mp4"], "--raw 320x240@0"),
    (["--raw", "99999999999x240@25", "-o", "a.mp4"], "--raw"),
    (["--raw", "320x240@25", "--no-video", "-o", "a.mp4"], "--no-video"),
    (["--raw", "320x240@25", "-o", "a.mp3"], "-o a.mp3"),
    (["--pattern", "--no-video", "--no-audio", "-o", "a.mp4"], "--no-video and --no-audio"),
    (["--pattern", "--size", "321x240", "-o", "a.mp4"], "--size 321x240"),
    (["--pattern", "--size", "320x239", "-o", "a.mp4"], "must be even"),
    (["--pattern", "--size", "big", "-o", "a.mp4"], "--size big"),
    (["--pattern", "--size", "320x240x3", "-o", "a.mp4"], "--size 320x240x3"),
    (["--pattern", "--fps", "0", "-o", "a.mp4"], "--fps"),
    (["--pattern", "--preset", "Medium", "-o", "a.mp4"], "--preset Medium"),
    (["--pattern", "--profile", "ultra", "-o", "a.mp4"], "--profile ultra"),
    (["--pattern", "--tune", "", "-o", "a.mp4"], "--tune"),
    (["--pattern", "--rc", "ABR", "-o", "a.mp4"], "--rc ABR"),
    (["--pattern", "--crf", "20", "-o", "a.mp4"], "--crf"),
    (["--pattern", "--rc", "cbr", "--crf", "52", "-o", "a.mp4"], "--crf"),
    (["--pattern", "--qp", "20", "-o", "a.mp4"], "--qp"),
    (["--pattern", "--rc", "cqp", "--bitrate", "900", "-o", "a.mp4"], "--bitrate"),
    (["--pattern", "--meta", "title", "-o", "a.mp4"], "--meta title"),
    (["--pattern", "--meta", ":x", "-o", "a.mp4"], "--meta :x"),
    (["--pattern", "--meta", "a:b;c:d", "-o", "a.mp4"], "';'"),
    (["--pattern", "--meta", "a:" + "x" * 125, "--meta", "b:" + "x" * 126, "-o", "a.mp4"],
     "255 bytes"),
    (["--pattern", "-o", "x" * 508 + ".mp4"], "511 bytes"),
    (["--pattern", "-o", "a.mp4", "--also", "x" * 508 + ".flv"], "511 bytes"),
    (["--pattern", "-o", "a.mp4", "--also", "b.flv", "--also", "c.mkv", "--also", "d.mov",
      "--also", "e.avi"], "at most three"),
    (["--pattern", "-o", "a.mp4", "--also", "b.MP4"], "--no-index"),
    (["--pattern", "-o", "a.mp4", "--also", "b.flv", "--also", "./b.flv"], "--also ./b.flv"),
    (["--pattern", "-o", "a.mkv", "--also", "rtsp://localhost/x"], "main output"),
    (["--pattern", "-o", "a.mp4", "--also", "b.unheard"], "--also b.unheard"),
    (["--pattern", "-o", "a.flv", "--also", "b.mp4"], "--also b.mp4: cannot hold the flv1"),
    (["--pattern", "-o", "a.mp4", "--also", "b.mp3"], "--also b.mp3: cannot hold the h264"),
    (["--pattern", "-o", "a.mp4", "--also", "b.aac"], "--also b.aac: cannot hold the h264"),
    (["--pattern", "-o", "a.webm"], "-o a.webm: there is no encoder"),
    (["--pattern", "-o", "a.mp4", "--index", "a.mp4"], "--index a.mp4"),
    (["--pattern", "-o", "a.mp4", "--log", "a.mp4.index"], "--log a.mp4.index"),
    (["--pattern", "-o", "a.mkv", "--index", "a.index"], "--index"),
    (["--pattern", "-o", "a.mp4", "--index", "a.index", "--no-index"], "--no-index"),
    (["--pattern", "-o", "a.mp4", "--keep-index", "--no-index"], "--keep-index"),
    (["--pattern", "-o", "a.mp4", "--unknown"], "--unknown"),
]


class RefusalTest(ToolTest):
    def test_table(self):
        for arguments, fragment in REFUSALS:
            with self.subTest(" ".join(arguments)[:80]):
                text = self.record(*arguments, expect=2)
                self.assertIn(fragment, text)
                self.assertEqual(os.listdir("."), [])

    def test_output_over_input_by_whatever_name(self):
        make_camera_movie("in.mp4", seconds=1)
        before = os.path.getsize("in.mp4")
        os.link("in.mp4", "linked.mp4")
        os.mkdir("folder")
        for name in ["in.mp4", "./in.mp4", "folder/../in.mp4", "linked.mp4", "file:in.mp4"]:
            with self.subTest(name):
                text = self.record("--input", "in.mp4", "-o", name, expect=2)
                self.assertIn("--input in.mp4 are the same", text)
                self.assertEqual(os.path.getsize("in.mp4"), before)

    def test_help_and_version_are_no_errors(self):
        for arguments, fragment in [(["--version"], "zeva "), (["--help"], "record"),
                                    (["record", "--help"], "Examples:")]:
            done = subprocess.run([*EMULATOR, TOOL, *arguments], stdout=subprocess.PIPE,
                                  stdin=subprocess.DEVNULL, timeout=RUN_TIMEOUT_S)
            self.assertEqual(done.returncode, 0)
            self.assertIn(fragment, done.stdout.decode())
        done = subprocess.run([*EMULATOR, TOOL], stderr=subprocess.PIPE,
                              stdin=subprocess.DEVNULL, timeout=RUN_TIMEOUT_S)
        self.assertEqual(done.returncode, 2)


if __name__ == "__main__":
    unittest.main()
