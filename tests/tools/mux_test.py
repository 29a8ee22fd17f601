"""Packets arrive as they were, in time, and what is said when they cannot."""
import os
import re
import signal

from support import EMULATOR, Movie, ToolTest, ffmpeg, make_camera_movie, native_only

REAL_MOVIE = "/usr/share/forensics-samples/original-files/movie2/movie-hello.mp4"

# (arguments, exit status, what the sentence must contain), one row for each rule
REFUSALS = [
    ("-o a.mp4", 2, "either --input, or --video, --audio or --pcm"),
    ("--audio in.aac --pcm -o a.mp4", 2, "--audio and --pcm"),
    ("--audio in.aac --fps 25 -o a.mp4", 2, "--fps is the rate of --video"),
    ("--video in.h264 --fps 0 -o a.mp4", 2, "--fps 0: not a rate"),
    ("--video in.h264 --no-audio -o a.mp4", 2, "and there is none"),
    ("--input in.mp4 --no-audio --no-video -o a.mp4", 2, "nothing to record"),
    ("--pcm --pcm-format s32 -o a.mp4", 2, "--pcm-format s32"),
    ("--pcm --pcm-rate 44000 -o a.mp4", 2, "--pcm-rate 44000"),
    (f"--input in.mp4 -o a.mp4{' --also b.flv' * 5}", 2, "at most four"),
    (f"--input in.mp4 -o a.mp4 --meta a:{'x' * 254}", 2, "255 bytes"),
    ("--video in.h264 -o in.h264", 2, "--video in.h264 are the same"),
    ("--input absent.mp4 -o a.mp4", 1, "--input absent.mp4 does not exist"),
    ("--input in.mp4 -o a.webm", 1, "-o a.webm: this kind of output cannot hold H.264"),
    ("--video b-frames.h264 -o a.mp4", 1, "(B-frames)"),
    ("--input mp3.mp4 --no-video -o a.mp4", 1, "its sound is mp3, not AAC"),
    ("--video in.aac -o a.mp4", 1, "--video in.aac holds no H.264"),
]


class MuxTest(ToolTest):
    subcommand = "mux"

    def make_streams(self):
        make_camera_movie("in.mp4", "-bf", "0", "-g", "25", "-t", "8")
        ffmpeg("-i", "in.mp4", "-map", "0:v", "-c", "copy", "in.h264")
        ffmpeg("-i", "in.mp4", "-map", "0:a", "-c", "copy", "in.aac")

    def test_four_containers_hold_the_same_pictures(self):
        self.make_streams()
        for source in ["in.mp4", REAL_MOVIE]:
            original = Movie(source)
            pictures = original.picture_hashes("-ignore_editlist", "1")
            sounds, gap = len(original.packets("a")), original.longest_gap()
            text = self.record("--input", source, "--fast", "-y", "-o", "a.mp4", "--also", "b.flv",
                               "--also", "c.mkv", "--also", "d.ts", "--meta", "title:A day")
            self.assertRegex(text, rf"{original.frames} frames.* 4 outputs finished")
            self.assertFalse([name for name in os.listdir(".") if name.endswith("index")])
            for name in ["a.mp4", "b.flv", "c.mkv", "d.ts"]:
                with self.subTest(source, name=name):
                    movie = Movie(name)
                    self.assertEqual(movie.picture_hashes(), pictures)
                    self.assertAlmostEqual(len(movie.packets("a")), sounds, delta=1)
                    self.assertLess(movie.longest_gap(), gap + 0.002)
                    self.assertLess(movie.longest_gap("a"), 0.1)  # TS groups sound
                    if name != "d.ts":
                        self.assertEqual(movie.tags["title"], "A day")

    def test_elementary_streams_are_counted(self):
        self.make_streams()
        for fps, arguments in [(25, []), (10, ["--fps", "10"])]:
            self.record("--video", "in.h264", *arguments, "--audio", "in.aac", "--fast", "-y",
                        "-o", "a.mp4")
            self.assertEqual(Movie("a.mp4").picture_hashes(), Movie("in.mp4").picture_hashes())
            for i, (time, _) in enumerate(Movie("a.mp4").packets()):
                self.assertAlmostEqual(time, i / fps, delta=0.0015)
            sound = Movie("a.mp4").packets("a")
            self.assertAlmostEqual(sound[-2][0] - sound[0][0], (len(sound) - 2) * 1024 / 44100,
                                   delta=0.002)

    def test_raw_sound_to_its_end(self):
        self.make_streams()
        for name, codec in [("s16", "pcm_s16le"), ("flt32", "pcm_f32le")]:
            ffmpeg("-i", "in.mp4", "-vn", "-c:a", codec, "-f", codec[4:], "in.raw")
            with open("in.raw", "rb") as raw:
                self.record("--pcm", "--pcm-format", name, "--pcm-rate", "44100", "--video",
                            "in.h264", "--fast", "-y", "-o", "a.mkv", stdin=raw)
            volumes = [float(re.search(r"mean_volume: (\S+)", ffmpeg(
                "-i", movie, "-t", "8", "-af", "volumedetect", "-vn", "-f", "null", "-")).group(1))
                for movie in ("in.mp4", "a.mkv")]
            self.assertAlmostEqual(*volumes, delta=0.5)
            self.assertAlmostEqual(Movie("a.mkv").packets("a")[-1][0], 8.0, delta=0.05)

    def test_refusals(self):
        self.make_streams()
        ffmpeg("-i", "in.mp4", "-c:v", "libx264", "-bf", "2", "-c:a", "mp3", "mp3.mp4")
        ffmpeg("-i", "mp3.mp4", "-map", "0:v", "-c", "copy", "b-frames.h264")
        there = sorted(os.listdir("."))
        for arguments, status, fragment in REFUSALS:
            with self.subTest(arguments[:80]):
                self.assertIn(fragment, self.record(*arguments.split(), expect=status))
                self.assertEqual(sorted(os.listdir(".")), there)

    @native_only
    def test_disk_full_under_one_of_the_outputs(self):
        self.make_streams()
        os.symlink("/dev/full", "full.mkv")
        text = self.record("--input", "in.mp4", "--fast", "-o", "full.mkv", "--also", "a.mp4",
                           expect=1)
        self.assertIn("full.mkv failed: Failed to write to 'full.mkv'", text)
        Movie("a.mp4")

    def test_keys_and_signals_finish_the_movie(self):
        make_camera_movie("in.mp4", "-bf", "0", "-t", "60", "-an")
        ffmpeg("-i", "in.mp4", "-c", "copy", "in.h264")
        for last in [b"q", b"\x03", *([] if EMULATOR else [signal.SIGTERM])]:
            with self.subTest(last):
                session = self.start("--video", "in.h264", "--fps", "200", "-y", "-o", "a.mp4")
                session.wait_for(r" [1-9]\d\d frames")
                session.press(b"p")
                before = session.wait_for(r"paused  (\d+) frames").group(1)
                for _ in range(2):
                    self.assertEqual(session.wait_for(r"paused  (\d+) frames").group(1), before)
                session.press(b"p")
                session.wait_for(rf"\d  (?!{before} )\d+ frames")
                if isinstance(last, bytes):
                    session.press(last)
                else:
                    session.process.send_signal(last)
                status, text = session.finish()
                self.assertEqual(status, 0, text)
                self.assertLess(Movie("a.mp4").longest_gap(), 0.04)
                self.assertNotIn("a.mp4.index", os.listdir("."))
