"""What comes in arrives whole and in time, and what is said when it cannot."""
import json
import os
import re
import subprocess

from support import (Movie, ToolTest, ffmpeg, judge, make_camera_movie, native_only, read_index,
                     run)

PATTERN = ["--pattern", "--size", "160x96", "--fast"]


class MovieTest(ToolTest):
    def copy(self, source, *arguments):
        return self.record("--input", source, "--fast", "-o", "out.mp4", *arguments)

    def test_four_outputs_hold_the_same_movie(self):
        make_camera_movie("in.mp4")
        text = self.copy("in.mp4", "--also", "b.flv", "--also", "c.mkv", "--also", "d.ts",
                         "--meta", "title:A day", "--meta", "artist:me", "--gop", "7", "--profile",
                         "baseline", "--hardware")  # of which there is none everywhere
        self.assertIn("75 frames, 0 dropped, 4 outputs finished", text)
        main = Movie("out.mp4")
        self.assertGreater(main.ssim("in.mp4"), 0.95)
        self.assertEqual((main.video["width"], main.audio["sample_rate"]), (160, "44100"))
        self.assertIn("Baseline", main.video["profile"])
        self.assertEqual((main.tags["title"], main.tags["artist"]), ("A day", "me"))
        keys = [i for i, (_, flags) in enumerate(main.packets()) if "K" in flags]
        self.assertEqual((main.frames, keys), (75, list(range(0, 75, 7))))
        for name in ["b.flv", "c.mkv", "d.ts"]:
            for kind in "va":
                with self.subTest(name, kind=kind):
                    # Decoding is exact: equal packets give equal pictures and samples.
                    self.assertEqual(self.decoded(name, kind), self.decoded("out.mp4", kind))
                    times, expected = Movie(name).packets(kind), main.packets(kind)
                    self.assertEqual(len(times), len(expected))
                    for (time, _), (wanted, _) in zip(times, expected):
                        self.assertAlmostEqual(time - times[0][0], wanted - expected[0][0],
                                               delta=0.0011)

    @staticmethod
    def decoded(name, kind):
        """A hash for each picture or piece of sound, with the encoder's lead-in."""
        everything = ["-ignore_editlist", "1"] if name.endswith(".mp4") else []
        lines = ffmpeg("-v", "error", *everything, "-i", name, "-map", f"0:{kind}", "-vsync",
                       "passthrough", "-f", "framehash", "-").splitlines()
        return [line.split(",")[-1] for line in lines if not line.startswith("#")]

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

    def test_turned_pictures_become_upright(self):
        make_camera_movie("flat.mp4")
        # ffmpeg itself turns pictures when it decodes, so its decoding is the reference.
        for turn, profile, width in [(90, "high", 120), (180, "high", 160), (270, "high10", 120)]:
            with self.subTest(turn):
                ffmpeg("-i", "flat.mp4", "-c", "copy", "-metadata:s:v:0", f"rotate={turn}", "in.mp4")
                self.copy("in.mp4", "-y", "--profile", profile)
                movie = Movie("out.mp4")
                self.assertEqual((movie.frames, movie.video["width"]), (75, width))
                self.assertGreater(movie.ssim("in.mp4"), 0.95)

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

    def test_every_container_keeps_sound_in_step_and_gaps_silent(self):
        # A flash at 2 s, a beep at 2.1 s; the sound starts at 0.3 s and has a hole before the beep.
        ffmpeg("-f", "lavfi", "-i", "sine=sample_rate=48000:duration=3.7,"
               "volume=0:enable='lt(t,1.8)',aselect='lt(t,0.6)+gte(t,0.75)'",
               "-c:a", "pcm_s16le", "sound.mkv")
        ffmpeg("-f", "lavfi", "-i", "color=black:size=160x120:rate=25:duration=4,"
               "drawbox=color=white:t=fill:enable='gte(t,2)'", "-itsoffset", "0.3", "-i",
               "sound.mkv", "-c:v", "libx264", "-c:a", "copy", "in.mkv")
        for name, video, audio in [("a.mp4", "h264", "aac"), ("a.mkv", "h264", "aac"),
                                   ("a.flv", "h264", "aac"), ("a.ts", "h264", "aac"),
                                   ("a.avi", "h264", "aac"), ("a.mpg", "mpeg1video", "mp2")]:
            with self.subTest(name):
                self.record("--input", "in.mkv", "--fast", "-o", name)
                movie = Movie(name)
                codecs = movie.video["codec_name"], movie.audio["codec_name"]
                self.assertEqual((movie.frames, *codecs), (100, video, audio))
                self.assertAlmostEqual(movie.duration, 4, delta=0.1)
                found = ffmpeg("-i", name, "-vf", "blackdetect=d=0.1", "-af", "silencedetect=d=0.1",
                               "-f", "null", "-")
                for sign, moment in [("black_end", 2), ("silence_end", 2.1)]:
                    seen = float(re.search(sign + r": *([0-9.]+)", found).group(1))
                    self.assertAlmostEqual(seen, moment, delta=0.0404, msg=sign)  # one picture

    def test_index_tells_where_every_packet_lies(self):
        make_camera_movie("in.mp4")
        os.mkdir("录像 一")
        for movie, index, *arguments in [
                ("a.mp4", "a.index"), ("b.mp4", "b.index", "--no-audio"),
                ("c.MP4", "c.index", "--no-video"), ("录像 一/电影.mp4", "录像 一/索引 二")]:
            with self.subTest(movie):
                self.record("--input", "in.mp4", "--fast", "-o", movie, "--index", index,
                            "--keep-index", *arguments)
                facts = json.loads(judge("ffprobe", "-v", "error", "-show_streams", "-show_packets",
                                         "-of", "json", movie))
                streams, packets = read_index(index)
                for told, found in zip(streams, facts["streams"], strict=True):
                    base = f"{told['tb.num']}/{told['tb.den']}"
                    self.assertEqual((told["index"], told["codec"], base),
                                     (found["index"], found["codec_name"], found["time_base"]))
                    self.assertTrue(told["ev"], "no decoder can start without it")
                found = sorted((int(p["pos"]), p["stream_index"], int(p["size"]), p["pts"],
                                p["dts"], p["duration"], p["flags"][0] == "K")
                               for p in facts["packets"])
                # The last packet's size is not known before a next one comes: it has no record.
                self.assertEqual(packets, found[:-1])

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
    def test_full_output_is_told_once_and_the_others_go_on(self):
        os.symlink("/dev/full", "full.mkv")
        for main, other in ("full.mkv", "a.mp4"), ("a.mp4", "full.mkv"):
            with self.subTest(main):
                # Long enough to fill the queue of the broken output many times.
                text = self.record("--pattern", "--size=64x64", "--fast", "--duration=60", "-o",
                                   main, "--also", other, "--also=b.ts", "--log=log", expect=1)
                self.assertRegex(text, "zeva: full.mkv [a-z ]+: .*No space left on device")
                self.assertIn("the index is kept: a.mp4.index", text)
                with open("log", encoding="utf-8") as log:
                    self.assertEqual(log.read().count("[Write Pkt Err]"), 1)
                for name in ["a.mp4", "b.ts"]:
                    self.assertEqual(Movie(name).frames, 1800)
                    os.remove(name)
                os.remove("a.mp4.index")
                os.remove("log")

    def test_movie_without_its_index_is_whole_and_a_warning_says_so(self):
        os.mkdir("folder")
        text = self.record(*PATTERN, "--duration=1", "-o", "a.mp4", "--index", "folder")
        self.assertRegex(text, "warning: .*folder")
        self.assertIn("warning: there was no index: a crash would have lost the movie", text)
        self.assertEqual(Movie("a.mp4").frames, 30)

    @native_only
    def test_removed_output_does_not_disturb_the_others(self):
        picture = bytes(160 * 120 * 4)
        command = self.command("--raw", "160x120@25", "--fast", "-o", "a.mp4", "--also", "b.flv")
        with subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT) as tool:
            tool.stdin.write(picture * 40)
            for name in ["a.mp4", "a.mp4.index"]:
                os.remove(name)
            text = tool.communicate(picture * 10)[0]
        self.assertEqual(tool.returncode, 1, text)
        self.assertEqual(Movie("b.flv").frames, 50)

    @native_only
    def test_full_disk_keeps_the_file_so_far_and_its_index(self):
        if run(["unshare", "--mount", "true"]).returncode != 0:
            self.skipTest("no right to mount a small file system")
        os.mkdir("disk")
        with open("noise", "wb+") as noise:  # which no codec makes small
            noise.write(os.urandom(320 * 180 * 4 * 50))
            noise.seek(0)
            # Only this program sees the disk, which ends with it.
            done = run(["unshare", "--mount", "sh", "-c", "mount -t tmpfs -o size=1m none disk; "
                        '"$@"; status=$?; cp disk/a.mp4 .; exit $status', "sh",
                        *self.command("--raw", "320x180@25", "--bitrate", "10000", "-o",
                                      "disk/a.mp4", "--index", "index", "--also", "b.mkv",
                                      "--keep-free", "0")], noise)
        self.assertEqual(done.returncode, 1, done.stdout)
        self.assertEqual(len(re.findall("an output failed: .*No space left", done.stdout)), 1)
        self.assertEqual(Movie("b.mkv").frames, 50)
        # A picture is a chain of pieces with their lengths in front (ISO/IEC 14496-15).
        with open("a.mp4", "rb") as file:
            movie = file.read()
        whole = [p for p in read_index("index")[1] if p[0] + p[2] <= len(movie)]
        for position, _, size, *_ in whole:
            at = position
            while at < position + size:
                at += 4 + int.from_bytes(movie[at:at + 4], "big")
            self.assertEqual(at, position + size)
        self.assertGreater(len(whole), 5)
        self.assertGreater(at, len(movie) - 200000, "the index ends long before the file")
