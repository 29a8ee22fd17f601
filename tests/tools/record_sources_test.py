"""Movies of all sorts, raw pictures and the pattern arrive whole and in time."""
import os
import re
import unittest

from support import Movie, ToolTest, ffmpeg, make_camera_movie


def moment(text, name):
    return float(re.search(name + r": *([0-9.]+)", text).group(1))


class MovieSourceTest(ToolTest):
    def copy(self, *arguments, source="in.mp4", expect=0):
        return self.record("--input", source, "--fast", *arguments, "-o", "out.mp4", expect=expect)

    def test_sound_stays_with_the_pictures(self):
        # A flash and, a little later, a beep; the sound starts late and has a hole before the beep.
        ffmpeg("-v", "error", "-f", "lavfi", "-i",
               "sine=frequency=800:sample_rate=48000:duration=4,volume=0:enable='lt(t,1.8)',"
               "aselect='lt(t,0.6)+gte(t,0.75)'", "-c:a", "pcm_s16le", "sound.mkv")
        ffmpeg("-v", "error", "-f", "lavfi", "-i",
               "color=black:size=160x120:rate=25:duration=4,drawbox=color=white:t=fill:"
               "enable='gte(t,2)'", "-itsoffset", "0.3", "-i", "sound.mkv", "-c:v", "libx264",
               "-c:a", "copy", "in.mkv")
        moments = {}
        for name in ["in.mkv", "out.mp4"]:
            if name == "out.mp4":
                self.copy(source="in.mkv")
            flash = ffmpeg("-i", name, "-vf", "blackdetect=d=0.1", "-an", "-f", "null", "-")
            beep = ffmpeg("-i", name, "-af", "silencedetect=d=0.1", "-vn", "-f", "null", "-")
            moments[name] = moment(flash, "black_end"), moment(beep, "silence_end")
        self.assertGreater(moments["in.mkv"][1], 2)  # or the input is not what it is meant to be
        for before, after in zip(moments["in.mkv"], moments["out.mp4"]):
            self.assertAlmostEqual(after, before, delta=0.06)

    def test_wavering_time_stamps_lose_no_picture(self):
        waver = "settb=1/90000,setpts='(N+gte(N,1)*(0.5+0.2*sin(N*2)))/25/TB'"
        make_camera_movie("in.mp4", "-vf", waver, "-vsync", "passthrough", "-enc_time_base",
                          "1/90000", "-video_track_timescale", "90000")
        text = self.copy()
        frames = int(re.search(r"(\d+) frames, 0 dropped", text).group(1))
        self.assertGreaterEqual(frames, 75)
        times = [time for time, _ in Movie("out.mp4").packets()]
        self.assertEqual(len(times), frames)
        self.assertLess(max(b - a for a, b in zip(times, times[1:])), 0.1)

    def test_half_the_rate_drops_every_second_picture(self):
        make_camera_movie("in.mp4", rate=50)
        text = self.copy("--fps", "25")
        frames, dropped = map(int, re.search(r"(\d+) frames, (\d+) dropped", text).groups())
        self.assertEqual(frames + dropped, 150)
        self.assertAlmostEqual(frames, 75, delta=1)
        self.assertEqual(Movie("out.mp4").frames, frames)
        self.assertAlmostEqual(Movie("out.mp4").duration, 3, delta=0.1)

    def test_turned_pictures_become_upright(self):
        make_camera_movie("flat.mp4", seconds=1)
        # ffmpeg itself turns pictures when it decodes, so its decoding is the reference.
        for degrees in [90, 180, 270]:
            with self.subTest(degrees):
                ffmpeg("-v", "error", "-i", "flat.mp4", "-c", "copy", "-metadata:s:v:0",
                       f"rotate={degrees}", "in.mp4")
                self.copy()
                movie = Movie("out.mp4")
                sides = (movie.video["width"], movie.video["height"])
                self.assertEqual(sides, (160, 120) if degrees == 180 else (120, 160))
                self.assertGreater(movie.ssim("in.mp4"), 0.95)

    def test_odd_and_non_square_pictures(self):
        for size, shape, expected in [("161x121", "1", (160, 120)), ("160x120", "4/3", (212, 120))]:
            with self.subTest(size):
                make_camera_movie("in.mkv", "-pix_fmt", "yuv444p", "-vf", f"setsar={shape}",
                                  seconds=1, size=size)
                self.copy(source="in.mkv")
                video = Movie("out.mp4").video
                self.assertEqual((video["width"], video["height"]), expected)

    def test_size_changes_in_mid_stream(self):
        parts = b""
        for size in ["160x120", "320x200"]:
            ffmpeg("-v", "error", "-f", "lavfi", "-i", f"testsrc2=size={size}:rate=25", "-t", "1",
                   "-c:v", "mpeg2video", "-q:v", "2", "-f", "mpeg2video", "part.m2v")
            with open("part.m2v", "rb") as part:
                parts += part.read()
        with open("in.m2v", "wb") as joined:
            joined.write(parts)
        self.copy(source="in.m2v")
        movie = Movie("out.mp4")
        self.assertEqual((movie.video["width"], movie.video["height"]), (160, 120))
        self.assertGreaterEqual(movie.frames, 48)

    def test_missing_streams_and_many_channels(self):
        make_camera_movie("in.mp4", "-an", seconds=1)
        self.copy()
        self.assertIsNone(Movie("out.mp4").audio)
        make_camera_movie("in.mp4", "-vn", "-ac", "6", seconds=1)
        self.copy()
        movie = Movie("out.mp4")
        self.assertIsNone(movie.video)
        self.assertAlmostEqual(movie.duration, 1, delta=0.1)
        self.assertIn("nothing to record", self.copy("--no-audio", expect=1))

    def test_loop_goes_on_in_time(self):
        make_camera_movie("in.mp4", seconds=1)
        self.copy("--loop", "--duration", "3.5")
        movie = Movie("out.mp4")
        self.assertAlmostEqual(movie.duration, 3.5, delta=0.15)
        for kind, longest in [("v", 0.13), ("a", 0.05)]:
            times = [time for time, _ in movie.packets(kind)]
            gaps = [b - a for a, b in zip(times, times[1:])]
            self.assertGreater(min(gaps), 0, kind)
            self.assertLess(max(gaps), longest, kind)

    def test_damaged_movie_is_recorded_as_far_as_it_goes(self):
        make_camera_movie("in.ts", "-f", "mpegts")
        with open("in.ts", "r+b") as movie:
            size = movie.seek(0, os.SEEK_END)
            for position in range(size // 3, size // 2, 700):
                movie.seek(position)
                movie.write(b"\x5a" * 60)
        text = self.copy(source="in.ts")
        self.assertIn("damaged pieces of the input in.ts", text)
        self.assertAlmostEqual(Movie("out.mp4").duration, 3, delta=0.5)

    def test_input_that_is_no_movie(self):
        with open("text.mp4", "w", encoding="utf-8") as text:
            text.write("not a movie\n" * 100)
        for name, fragment in [("absent.mp4", "absent.mp4 does not exist"),
                               ("text.mp4", "text.mp4 cannot be opened")]:
            text = self.copy(source=name, expect=1)
            self.assertEqual(len(text.splitlines()), 1, text)
            self.assertIn(fragment, text)
            self.assertFalse(os.path.exists("out.mp4"))


class OtherSourceTest(ToolTest):
    def test_raw_pictures_at_real_speed_and_fast(self):
        ffmpeg("-v", "error", "-f", "lavfi", "-i", "testsrc2=size=160x120:rate=25", "-t", "2",
               "-c:v", "ffv1", "reference.mkv")
        ffmpeg("-v", "error", "-i", "reference.mkv", "-pix_fmt", "bgra", "-f", "rawvideo", "in.raw")
        with open("in.raw", "rb") as raw:
            pictures = raw.read()
        for arguments, rest in [(["--fast"], b""), ([], b"half a picture")]:
            text = self.record("--raw", "160x120@25", *arguments, "-o", "out.mp4",
                               input=pictures + rest)
            self.assertEqual("last 14 bytes" in text, bool(rest))
            movie = Movie("out.mp4")
            self.assertIsNone(movie.audio)
            self.assertEqual(movie.frames, 50)
            self.assertEqual(movie.video["color_space"], "smpte170m")
            self.assertGreater(movie.ssim("reference.mkv"), 0.95)

    def test_nothing_on_standard_input(self):
        text = self.record("--raw", "160x120@25", "-o", "out.mp4", expect=1)
        self.assertIn("nothing to record", text)

    def test_pattern_has_moving_pictures_and_a_rising_tone(self):
        self.record("--pattern", "--duration", "2", "--size", "160x120", "-o", "out.mp4")
        movie = Movie("out.mp4")
        self.assertEqual(movie.frames, 60)
        self.assertAlmostEqual(float(movie.audio["duration"]), 2, delta=0.1)
        still = ffmpeg("-i", "out.mp4", "-vf", "freezedetect=d=0.2", "-an", "-f", "null", "-")
        self.assertNotIn("freeze_start", still)
        silent = ffmpeg("-i", "out.mp4", "-af", "silencedetect=d=0.2", "-vn", "-f", "null", "-")
        self.assertNotIn("silence_start", silent)


if __name__ == "__main__":
    unittest.main()
