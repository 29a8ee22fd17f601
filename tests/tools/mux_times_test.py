"""Packets keep their order, their times and their distance from the other stream's."""
import json

from support import (Movie, ToolTest, ffmpeg, judge, make_camera_movie, picture_hashes,
                     timeline)

COPY = ["-c", "copy"]
OUTPUTS = ["a.mp4", "b.mkv", "c.flv", "d.ts"]
INTERLACED = ["-flags", "+ilme+ildct", "-x264opts", "tff=1"]

# (name, what is made of in.mp4, which has pictures in another order than they are shown), one row
# for each kind of movie; "-i" stands for in.mp4
MOVIES = [
    ("reordered.mp4", ["-i", *COPY]), ("reordered.mkv", ["-i", *COPY]),
    ("reordered.ts", ["-i", *COPY]), ("reordered.flv", ["-i", *COPY]),
    ("pyramid.mp4", ["-i", "-c:v", "libx264", "-bf", "5", "-b_strategy", "0", "-b-pyramid", "normal",
                     "-c:a", "copy"]),
    ("in-order.mp4", ["-i", "-c:v", "libx264", "-bf", "0", "-c:a", "copy"]),
    ("interlaced.mp4", ["-i", "-c:v", "libx264", "-bf", "2", *INTERLACED, "-c:a", "copy"]),
    ("interlaced.ts", ["-i", "-c:v", "libx264", "-bf", "0", *INTERLACED, "-c:a", "copy"]),
    ("open-gop.mp4", ["-i", "-c:v", "libx264", "-bf", "3", "-b_strategy", "0", "-g", "12",
                      "-x264opts", "open-gop=1:scenecut=0", "-c:a", "copy"]),
    ("uneven.mp4", ["-i", "-vf", "settb=1/90000,setpts='(N+gte(N,1)*(0.5+0.2*sin(N*2)))/25/TB'",
                    "-vsync", "passthrough", "-enc_time_base", "1/90000", "-video_track_timescale",
                    "90000", "-c:v", "libx264", "-bf", "2", "-c:a", "copy"]),
    ("gap.mkv", ["-i", "-vf", "select='not(between(t,1,4))'", "-vsync", "passthrough", "-c:v",
                 "libx264", "-bf", "2", "-c:a", "copy"]),
    ("late-sound.mp4", ["-i", "-itsoffset", "1.5", "-i", "-map", "0:v", "-map", "1:a", *COPY]),
    ("late-pictures.mp4", ["-itsoffset", "4", "-i", "-i", "-map", "0:v", "-map", "1:a", *COPY]),
    ("very-late-sound.mkv", ["-i", "-itsoffset", "7", "-i", "-map", "0:v", "-map", "1:a", *COPY]),
    ("early-sound.mkv", ["-itsoffset", "0.3", "-i", "-i", "-map", "0:v", "-map", "1:a", *COPY]),
    ("short-sound.mp4", ["-i", "-t", "2", "-i", "-map", "0:v", "-map", "1:a", *COPY]),
    ("short-pictures.mp4", ["-t", "2", "-i", "-i", "-map", "0:v", "-map", "1:a", *COPY]),
]


class MuxTimesTest(ToolTest):
    subcommand = "mux"

    def make(self, name, options):
        words = [word for option in options
                 for word in (["-i", "in.mp4"] if option == "-i" else [option])]
        ffmpeg(*words, name)

    def mux(self, source, *arguments):
        also = [word for output in OUTPUTS[1:] for word in ("--also", output)]
        return self.record("--input", source, "-y", "-o", OUTPUTS[0], *also, *arguments)

    def assert_holds(self, output, pictures, times):
        """These pictures, and pictures and sound at these times."""
        self.assertEqual(picture_hashes(output), pictures)
        found = timeline(output)
        if output.endswith("ts"):  # whose packets hold several pieces of sound
            found["a"], times = found["a"][:1], {**times, "a": times["a"][:1]}
        for kind in "va":
            self.assertEqual(len(found[kind]), len(times[kind]), kind)
            for time, wanted in zip(found[kind], times[kind]):
                self.assertAlmostEqual(time, wanted, delta=0.0021, msg=kind)

    def test_movies_of_all_kinds(self):
        make_camera_movie("in.mp4", "-g", "25", "-t", "5")
        for name, options in MOVIES:
            self.make(name, options)
            expected = picture_hashes(name), timeline(name)
            with self.subTest(name):
                self.assertNotIn("warning", self.mux(name, "--fast"))
            for output in OUTPUTS:
                with self.subTest(name, output=output):
                    self.assert_holds(output, *expected)

    def test_a_stream_that_begins_late_is_there_in_real_time(self):
        make_camera_movie("in.mp4", "-g", "25", "-t", "1")
        for name, offsets in [("sound.mkv", [0, 4]), ("pictures.mkv", [4, 0])]:
            ffmpeg("-itsoffset", str(offsets[0]), "-i", "in.mp4", "-itsoffset", str(offsets[1]),
                   "-i", "in.mp4", "-map", "0:v", "-map", "1:a", *COPY, name)
            with self.subTest(name):
                self.assertNotIn("warning", self.mux(name))
                self.assert_holds("a.mp4", picture_hashes(name), timeline(name))

    def test_pictures_before_the_first_key_picture_move_nothing(self):
        make_camera_movie("in.mp4", "-g", "25", "-t", "8")
        ffmpeg("-i", "in.mp4", *COPY, "in.ts")
        with open("in.ts", "rb") as whole:
            stream = whole.read()
        # The bytes from the sixth picture on, which is no key picture.
        packets = json.loads(judge("ffprobe", "-v", "error", "-select_streams", "v", "-show_packets",
                                   "-of", "json", "in.ts"))["packets"]
        with open("cut.ts", "wb") as cut:
            cut.write(stream[:2 * 188 * 2] + stream[int(packets[6]["pos"]):])
        text = self.mux("cut.ts", "--fast")
        self.assertRegex(text, r"warning: \d+ pictures of --input cut.ts .*first key picture")
        source, copy = Movie("in.ts"), Movie("a.mp4")
        key = [time for time, flags in source.packets() if "K" in flags][1]
        sound_from = copy.times()[0] - copy.times("a")[0]
        self.assertEqual(copy.frames, len([time for time in source.times() if time >= key]))
        sounds = source.times("a")
        self.assertAlmostEqual(min(abs(key - sound_from - time) for time in sounds), 0, delta=0.002)
        self.assertGreater(sound_from, 0.5)

    def test_turned_clips_stay_turned(self):
        make_camera_movie("flat.mp4")
        for turn in [90, 180, 270]:
            with self.subTest(turn):
                ffmpeg("-i", "flat.mp4", *COPY, "-metadata:s:v:0", f"rotate={turn}", "in.mp4")
                self.mux("in.mp4", "--fast")
                self.assert_holds("a.mp4", picture_hashes("in.mp4"), timeline("in.mp4"))
                turns = [side["rotation"] for name in ["in.mp4", "a.mp4"]
                         for side in Movie(name).video["side_data_list"] if "rotation" in side]
                self.assertEqual(len(turns), 2)
                self.assertEqual(turns[0], turns[1])
