"""Every picture of a movie keeps its time, at the rate that is asked for, with the sound it had."""
from fractions import Fraction

from support import Movie, ToolTest, ffmpeg, timeline

H264 = ["-c:v", "libx264", "-preset", "ultrafast"]
FINE = ["-vsync", "passthrough", "-enc_time_base", "1/90000", "-video_track_timescale", "90000"]

# (name, rate of the drawn pictures, seconds, what becomes of them and how they are stored), one row
# for each way in which times are not even
UNEVEN = [
    ("burst.mp4", 60, 20, ["-vf", "select='between(t,5,9.99)+not(mod(n,60))'", *FINE, *H264]),
    ("wavering.mp4", 25, 3, ["-vf", "settb=1/90000,setpts='(N+gte(N,1)*(0.5+0.2*sin(N*2)))/25/TB'",
                             *FINE, *H264, "-bf", "2"]),
    ("gap.mkv", 25, 8, ["-vf", "select='not(between(t,1,6))'", *FINE, *H264, "-bf", "2"]),
    ("double.mkv", 25, 2, ["-pix_fmt", "yuvj420p", "-c:v", "mjpeg", "-bsf:v", "setts=ts='if(eq(mod(N,10),5),PREV_OUTPTS,TS)'"]),
    ("television.ts", "30000/1001", 3, H264),
    ("film.mp4", "24000/1001", 3, [*H264, "-bf", "3"]),
    ("slow.mp4", "12.5", 3, H264),
    ("slides.mp4", 1, 3, [*H264, "-bsf:v", "setts=duration='if(eq(N,2),7/TB,DURATION)'"]),
    ("quick.mp4", 200, 1, H264),
]


def draw(name, rate, seconds, options, sound=None):
    """Moving pictures, with a tone where `sound` says how it is made."""
    tone = ["-f", "lavfi", "-i", f"sine=sample_rate=48000:duration={seconds}"] if sound else []
    ffmpeg("-f", "lavfi", "-i", f"testsrc2=size=160x96:rate={rate}:duration={seconds}", *tone,
           *(sound or []), "-pix_fmt", "yuv420p", *options, name)


class TimesTest(ToolTest):
    def copy(self, source, *arguments, more=()):
        outputs = [word for name in more for word in ("--also", name)]
        return self.record("--input", source, "--fast", "-y", "-o", "a.mp4", *outputs, *arguments)

    def assert_same_times(self, name, wanted):
        """Within what the coarsest container can say: a millisecond."""
        times = Movie(name).times()
        self.assertEqual(len(times), len(wanted), name)
        for time, expected in zip(times, wanted):
            self.assertAlmostEqual(time - times[0], expected - wanted[0], delta=0.0012)

    def test_every_picture_keeps_its_time(self):
        for name, rate, seconds, options in UNEVEN:
            with self.subTest(name):
                draw(name, rate, seconds, options)
                source = Movie(name, clean=False)
                text = self.copy(name, more=["b.mkv", "c.flv", "d.ts"])
                self.assertIn(f"{source.frames} frames, 0 dropped", text)
                wanted = source.times()
                for i in range(1, len(wanted)):  # one of the same time comes right after
                    if wanted[i] <= wanted[i - 1]:
                        wanted[i] = wanted[i - 1] + 0.001
                for copy in ["a.mp4", "b.mkv", "c.flv", "d.ts"]:
                    self.assert_same_times(copy, wanted)
                if source.last_length():
                    self.assertAlmostEqual(Movie("a.mp4").last_length(), source.last_length(),
                                           delta=0.002)

    def test_avi_counts_pictures_and_loses_none(self):
        draw("burst.mp4", 60, 4, UNEVEN[0][3][:1] + ["select='gte(t,3)+not(mod(n,60))'"] +
             UNEVEN[0][3][2:])
        text = self.copy("burst.mp4", more=["b.avi"])
        self.assertIn("63 frames, 0 dropped", text)
        self.assert_same_times("a.mp4", Movie("burst.mp4").times())

    def test_sound_and_pictures_begin_and_end_apart(self):
        draw("in.mp4", 25, 4, H264, ["-c:a", "aac"])
        for name, options in [
                ("late-sound.mp4", ["-i", "in.mp4", "-itsoffset", "1.5", "-i", "in.mp4"]),
                ("late-pictures.mp4", ["-itsoffset", "1.5", "-i", "in.mp4", "-i", "in.mp4"]),
                ("short-sound.mkv", ["-i", "in.mp4", "-t", "1", "-i", "in.mp4"]),
                ("short-pictures.mkv", ["-t", "1", "-i", "in.mp4", "-i", "in.mp4"])]:
            with self.subTest(name):
                ffmpeg(*options, "-map", "0:v", "-map", "1:a", "-c", "copy", name)
                source = timeline(name)
                self.copy(name)
                self.assert_same_times("a.mp4", source["v"])
                copy = Movie("a.mp4")
                self.assertAlmostEqual(copy.times()[0], source["v"][0], delta=0.002)
                self.assertAlmostEqual(copy.times("a")[-1], source["a"][-1], delta=0.05)

    def test_small_holes_in_sound_do_not_add_up(self):
        """A piece of 20 ms is missing every second; the beep is at 9 s."""
        draw("in.mkv", 25, 10, H264, ["-af", "volume=0:enable='lt(t,9)':eval=frame,asetnsamples=960,"
                                      "aselect='mod(n+25,50)'", "-c:a", "pcm_s16le"])
        self.copy("in.mkv")
        found = ffmpeg("-i", "a.mp4", "-af", "silencedetect=d=0.5", "-f", "null", "-")
        end = float(found.split("silence_end: ")[1].split()[0])
        self.assertAlmostEqual(end, 9, delta=0.006)

    def test_a_rate_that_is_asked_for(self):
        draw("in.mp4", 60, 2, H264)
        picture = bytes(64 * 64 * 4)
        for rate, meant in [("29.97", "30000/1001"), ("30000/1001", "30000/1001"), ("12.5", "25/2"),
                            ("23.976", "24000/1001"), ("59.94", "60000/1001"), ("60", "60")]:
            with open("raw", "wb+") as raw:
                raw.write(picture * 30)
                raw.seek(0)
                self.record("--raw", f"64x64@{rate}", "--fast", "-y", "-o", "raw.mp4", stdin=raw)
            self.copy("in.mp4", "--fps", rate)
            self.record("--pattern", "--size", "64x64", "--fps", rate, "--duration", "2", "--fast",
                        "-y", "-o", "pattern.mp4")
            for name in ["a.mp4", "raw.mp4", "pattern.mp4"]:
                with self.subTest(rate, name=name):
                    self.assertEqual(Fraction(Movie(name).video["r_frame_rate"]), Fraction(meant))
                    times = Movie(name).times()
                    for i, time in enumerate(times):
                        self.assertAlmostEqual(time, float(i / Fraction(meant)), delta=0.0001)
            self.assertEqual(Movie("raw.mp4").frames, 30)

    def test_channels_stay_as_many_as_they_are(self):
        for layout, arguments, wanted in [
                ("mono", [], "mono"), ("stereo", [], "stereo"), ("quad", [], "4 channels"),
                ("5.1", [], "5.1"), ("5.1(side)", [], "5.1"), ("7.1", [], "8 channels"),
                ("5.1", ["--acodec", "mp3"], "stereo"), ("mono", ["--acodec", "ac3"], "mono")]:
            with self.subTest(layout, arguments=arguments):
                draw("in.mkv", 25, 1, H264, ["-af", f"aformat=channel_layouts={layout}", "-c:a",
                                             "flac" if layout != "quad" else "pcm_s16le"])
                self.record("--input", "in.mkv", "--fast", "-y", "-o", "a.mkv", *arguments)
                sound = Movie("a.mkv").audio
                found = sound.get("channel_layout", f"{sound['channels']} channels")
                self.assertIn(wanted, {found, f"{sound['channels']} channels"})
