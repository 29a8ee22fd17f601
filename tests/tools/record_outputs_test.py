"""What the outputs are, and what is said when one of them fails."""
import os
import socket
import unittest

from support import Movie, ToolTest, make_camera_movie, native_only


class OutputTest(ToolTest):
    def test_three_containers_from_one_movie(self):
        make_camera_movie("in.mp4")
        text = self.record("--input", "in.mp4", "--fast", "-o", "a.mp4", "--also", "b.flv",
                           "--also", "c.mkv", "--meta", "title:A day", "--meta", "artist:me")
        self.assertIn("75 frames, 0 dropped, 3 outputs finished", text)
        for name in ["a.mp4", "b.flv", "c.mkv"]:
            with self.subTest(name):
                movie = Movie(name)
                self.assertEqual(movie.video["codec_name"], "h264")
                self.assertEqual((movie.video["width"], movie.video["height"]), (160, 120))
                self.assertEqual(movie.audio["codec_name"], "aac")
                self.assertEqual(movie.audio["sample_rate"], "44100")
                self.assertEqual(movie.frames, 75)
                self.assertAlmostEqual(movie.duration, 3, delta=0.15)
                self.assertEqual((movie.tags["title"], movie.tags["artist"]), ("A day", "me"))
        self.assertGreater(Movie("c.mkv").ssim("in.mp4"), 0.95)
        self.assertFalse(os.path.exists("a.mp4.index"))

    def test_index_is_where_and_as_long_as_asked_for(self):
        cases = [
            (["-o", "a.mp4", "--keep-index"], "a.mp4.index"),
            (["-o", "b.mkv", "--also", "b.mp4", "--keep-index"], "b.mp4.index"),
            (["-o", "c.mp4", "--keep-index", "--index", "c.idx"], "c.idx"),
            (["-o", "d.mp4", "--index", "d.idx"], None),
            (["-o", "e.mp4", "--also", "f.mp4", "--no-index"], None),
        ]
        for arguments, index in cases:
            with self.subTest(arguments):
                self.record("--pattern", "--size", "64x64", "--fast", "--duration", "1", *arguments)
                left = [name for name in os.listdir(".") if not name.endswith((".mp4", ".mkv"))]
                self.assertEqual(left, [index] if index else [])
                for name in os.listdir("."):
                    if name == index:
                        self.assertGreater(os.path.getsize(name), 100)
                        os.remove(name)

    def test_encoder_settings_arrive(self):
        pattern = ["--pattern", "--fast", "--duration", "4"]
        self.record(*pattern, "--size", "160x96", "--fps", "20", "--gop", "7", "--profile",
                    "baseline", "--tune", "zerolatency", "--preset", "ultrafast", "--log", "x264.log",
                    "--audio-bitrate", "64", "-o", "a.mp4")
        movie = Movie("a.mp4")
        self.assertEqual((movie.video["width"], movie.video["height"]), (160, 96))
        self.assertIn("Baseline", movie.video["profile"])
        self.assertEqual(movie.frames, 80)
        keys = [i for i, (_, flags) in enumerate(movie.packets()) if "K" in flags]
        self.assertEqual(keys, list(range(0, 80, 7)))
        self.assertAlmostEqual(int(movie.audio["bit_rate"]), 64000, delta=16000)
        with open("x264.log", encoding="utf-8", errors="replace") as log:
            self.assertIn("me=dia", log.read())  # ultrafast; the default preset has me=hex
        sizes = {}
        for name, arguments in [("abr", ["--bitrate", "300"]),
                                ("cbr", ["--rc", "cbr", "--bitrate", "300"]),
                                ("crf", ["--rc", "cbr", "--bitrate", "3000", "--crf", "40"]),
                                ("vbr", ["--rc", "vbr", "--bitrate", "300"]),
                                ("fine", ["--rc", "cqp", "--qp", "10"]),
                                ("coarse", ["--rc", "cqp", "--qp", "45"])]:
            self.record(*pattern, "--size", "640x360", "--no-audio", *arguments, "-o", name + ".mp4")
            movie = Movie(name + ".mp4")
            self.assertIsNone(movie.audio)
            sizes[name] = int(movie.video["bit_rate"])
        for name in ["abr", "cbr", "vbr"]:
            self.assertAlmostEqual(sizes[name], 300000, delta=100000, msg=name)
        self.assertLess(sizes["crf"], 1000000)
        self.assertGreater(sizes["fine"], 2 * sizes["coarse"])

    def test_streams_follow_container_and_switches(self):
        for name, arguments, kinds in [("a.mp3", [], "a"), ("b.wav", [], "a"), ("c.gif", [], "v"),
                                       ("d.mp4", ["--no-video"], "a"),
                                       ("e.mp4", ["--no-audio"], "v"), ("f.mpg", [], "va")]:
            with self.subTest(name):
                self.record("--pattern", "--size", "64x64", "--fps", "25", "--fast", "--duration",
                            "2", *arguments, "-o", name)
                movie = Movie(name)
                found = ("v" if movie.video else "") + ("a" if movie.audio else "")
                self.assertEqual(found, kinds)
                self.assertAlmostEqual(movie.duration, 2, delta=0.25)

    def test_names_outside_ascii(self):
        make_camera_movie("снято é.mp4", seconds=1)
        self.record("--input", "снято é.mp4", "--fast", "-o", "копия ü.mp4", "--log", "журнал.txt",
                    "--index", "указатель", "--keep-index", "--meta", "title:Привет")
        self.assertEqual(Movie("копия ü.mp4").tags["title"], "Привет")
        self.assertGreater(os.path.getsize("указатель"), 100)
        self.assertGreater(os.path.getsize("журнал.txt"), 100)

    def test_only_our_own_lines_reach_the_user(self):
        pattern = ["--pattern", "--size", "64x64", "--fast", "--duration", "1", "-o", "a.mp4"]
        text = self.record(*pattern)
        self.assertEqual([line for line in text.splitlines() if not line.startswith("zeva: ")], [])
        self.assertIn("x264", self.record(*pattern, "--verbose"))
        self.record(*pattern, "--log", "a.log", "--log-level", "0")
        with open("a.log", encoding="utf-8", errors="replace") as log:
            self.assertIn("x264", log.read())


class FailureTest(ToolTest):
    pattern = ["--pattern", "--size", "160x120", "--fast", "--duration", "5"]

    def test_places_that_cannot_be_written(self):
        with open("file", "w"):
            pass
        for arguments, fragment in [
                (["-o", "missing/a.mp4"], "missing/a.mp4"),
                (["-o", "a.mp4", "--index", "missing/a.index"], "missing/a.index"),
                (["-o", "a.mp4", "--also", "file/b.flv"], "file/b.flv"),
                (["-o", "a.mp4", "--log", "missing/a.log"], "--log missing/a.log")]:
            with self.subTest(arguments):
                self.assertIn(fragment, self.record(*self.pattern, *arguments, expect=1))
                self.assertEqual(os.listdir("."), ["file"])

    def test_server_that_refuses(self):
        with socket.socket() as unused:
            unused.bind(("127.0.0.1", 0))
            url = f"rtmp://127.0.0.1:{unused.getsockname()[1]}/live/x"
            text = self.record(*self.pattern, "-o", url, "--also", "a.mp4", expect=1)
            self.assertIn(url + " could not be opened", text)
            text = self.record(*self.pattern, "-o", "a.mp4", "--also", url, expect=1)
            self.assertIn(url, text)
            self.assertFalse(os.path.exists("a.mp4.index"))

    @native_only
    def test_disk_full_under_one_of_the_outputs(self):
        cases = [("a.mp4", ["full.flv"], "full.flv"), ("full.mkv", ["a.mp4"], "full.mkv"),
                 ("full.mp4", [], "full.mp4")]
        for main, further, bad in cases:
            with self.subTest(bad):
                os.symlink("/dev/full", bad)
                also = [word for url in further for word in ("--also", url)]
                text = self.record(*self.pattern, "-o", main, *also, expect=1)
                self.assertRegex(text, f"zeva: {bad} [a-z ]+: No space left on device")
                self.assertNotIn("a.mp4 was not finished", text)
                if bad != "full.mp4":
                    self.assertEqual(Movie("a.mp4").frames, 150)
                    self.assertIn("the index is kept: a.mp4.index", text)
                    os.remove("a.mp4.index")
                os.remove(bad)


if __name__ == "__main__":
    unittest.main()
