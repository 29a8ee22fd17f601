"""What comes in arrives whole and in time, and what is said when it cannot."""
import os
import re

from support import Movie, ToolTest, ffmpeg, make_camera_movie, native_only

PATTERN = ["--pattern", "--size", "160x96", "--fast"]


class MovieTest(ToolTest):
    def copy(self, source, *arguments):
        return self.record("--input", source, "--fast", "-o", "out.mp4", *arguments)

    def test_three_containers_from_one_movie(self):
        make_camera_movie("in.mp4")
        text = self.copy("in.mp4", "--also", "b.flv", "--also", "c.mkv", "--meta", "title:A day",
                         "--meta", "artist:me", "--gop", "7", "--profile", "baseline")
        self.assertIn("75 frames, 0 dropped, 3 outputs finished", text)
        for name in ["out.mp4", "b.flv", "c.mkv"]:
            movie = Movie(name)
            keys = [i for i, (_, flags) in enumerate(movie.packets()) if "K" in flags]
            self.assertEqual((movie.frames, keys), (75, list(range(0, 75, 7))))
            self.assertEqual((movie.video["width"], movie.audio["sample_rate"]), (160, "44100"))
            self.assertIn("Baseline", movie.video["profile"])
            self.assertEqual((movie.tags["title"], movie.tags["artist"]), ("A day", "me"))
            self.assertGreater(movie.ssim("in.mp4"), 0.95)

    def test_index_is_where_and_as_long_as_asked_for(self):
        for arguments, indexes in [
                ("-o a.mp4 --also b.mp4 --no-index", []), ("-o c.mp4 --index c.idx", []),
                ("-o d.mkv --also d.mp4 --keep-index", ["d.mp4.index"]),
                ("-o e.mp4 --keep-index --index e.idx", ["d.mp4.index", "e.idx"])]:
            self.record(*PATTERN, "--duration", "1", *arguments.split())
            left = [name for name in os.listdir(".") if not name.endswith((".mp4", ".mkv"))]
            self.assertEqual(sorted(left), indexes, arguments)

    def test_names_outside_ascii(self):
        make_camera_movie("снято é.mp4")
        self.record("--input", "снято é.mp4", "--fast", "-o", "копия ü.mp4", "--log", "журнал.txt",
                    "--index", "указатель", "--keep-index", "--meta", "title:Привет")
        self.assertEqual(Movie("копия ü.mp4").tags["title"], "Привет")
        self.assertLess({"указатель", "журнал.txt"}, set(os.listdir(".")))

    def test_turned_pictures_at_wavering_times_become_upright_and_steady(self):
        waver = "settb=1/90000,setpts='(N+gte(N,1)*(0.5+0.2*sin(N*2)))/25/TB'"
        make_camera_movie("flat.mp4", "-vf", waver, "-vsync", "passthrough", "-enc_time_base",
                          "1/90000", "-video_track_timescale", "90000")
        # ffmpeg itself turns pictures when it decodes, so its decoding is the reference.
        ffmpeg("-i", "flat.mp4", "-c", "copy", "-metadata:s:v:0", "rotate=90", "in.mp4")
        frames = int(re.search(r"(\d+) frames, 0 dropped", self.copy("in.mp4")).group(1))
        movie = Movie("out.mp4")
        self.assertGreaterEqual(frames, 75)
        self.assertEqual((movie.frames, movie.video["width"]), (frames, 120))
        self.assertLess(movie.longest_gap(), 0.1)
        self.assertGreater(movie.ssim("in.mp4", pictures=1), 0.95)

    def test_raw_pictures_up_to_the_last_whole_one(self):
        make_camera_movie("in.mp4")
        ffmpeg("-i", "in.mp4", "-pix_fmt", "bgra", "-f", "rawvideo", "in.raw")
        with open("in.raw", "ab+") as raw:
            raw.write(b"half a picture")
            raw.seek(0)
            text = self.record("--raw", "160x120@25", "--fast", "-o", "out.mp4", stdin=raw)
        self.assertIn("last 14 bytes", text)
        self.assertEqual(Movie("out.mp4").frames, 75)
        self.assertGreater(Movie("out.mp4").ssim("in.mp4"), 0.95)

    def test_gaps_in_the_sound_are_filled_with_silence(self):
        # A flash at 2 s, a beep at 2.1 s; the sound starts at 0.3 s and has a hole before the beep.
        ffmpeg("-f", "lavfi", "-i", "sine=sample_rate=48000:duration=4,volume=0:enable='lt(t,1.8)',"
               "aselect='lt(t,0.6)+gte(t,0.75)'", "-c:a", "pcm_s16le", "sound.mkv")
        ffmpeg("-f", "lavfi", "-i", "color=black:size=160x120:rate=25:duration=4,"
               "drawbox=color=white:t=fill:enable='gte(t,2)'", "-itsoffset", "0.3", "-i",
               "sound.mkv", "-c:v", "libx264", "-c:a", "copy", "in.mkv")
        self.copy("in.mkv")
        found = ffmpeg("-i", "out.mp4", "-vf", "blackdetect=d=0.1", "-af", "silencedetect=d=0.1",
                       "-f", "null", "-")
        for sign, moment in [("black_end", 2), ("silence_end", 2.1)]:
            seen = float(re.search(sign + r": *([0-9.]+)", found).group(1))
            self.assertAlmostEqual(seen, moment, delta=0.06, msg=sign)

    def test_what_cannot_be_opened_is_named(self):
        open("empty.mp4", "w").close()
        for arguments, bad in [("--input absent.mp4 -o a.mp4", "absent.mp4 does not exist"),
                               ("--input empty.mp4 -o a.mp4", "empty.mp4 cannot be opened"),
                               ("--pattern -o missing/a.mp4", "missing/a.mp4"),
                               ("--pattern -o a.mp4 --index missing/a.index", "missing/a.index"),
                               ("--pattern -o a.mp4 --also empty.mp4/b.flv", "empty.mp4/b.flv"),
                               ("--pattern -o a.mp4 --log missing/a.log", "--log missing/a.log")]:
            with self.subTest(arguments):
                self.assertIn(bad, self.record(*arguments.split(), expect=1))
                self.assertEqual(os.listdir("."), ["empty.mp4"])

    @native_only
    def test_disk_full_under_one_of_the_outputs(self):
        os.symlink("/dev/full", "full.mkv")
        text = self.record(*PATTERN, "--duration=5", "--output=full.mkv", "--also=a.mp4", expect=1)
        self.assertRegex(text, "zeva: full.mkv [a-z ]+: No space left on device")
        self.assertIn("the index is kept: a.mp4.index", text)
        self.assertEqual(Movie("a.mp4").frames, 150)
