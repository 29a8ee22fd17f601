"""The codecs, profiles and encoder settings that are asked for are those that come out."""
import os

from support import Movie, ToolTest, ffmpeg, make_camera_movie

CODECS = [  # (output, arguments, pictures, sound)
    ("a.mp4", "", "h264", "aac"), ("a.mov", "", "h264", "aac"), ("a.flv", "", "h264", "aac"),
    ("a.mkv", "", "h264", "aac"), ("a.ts", "", "h264", "aac"), ("a.m2ts", "", "h264", "aac"),
    ("a.3gp", "", "h264", "aac"), ("a.avi", "", "h264", "aac"), ("a.mpg", "", "mpeg1video", "mp2"),
    ("a.vob", "", "mpeg2video", "mp2"), ("a.wmv", "", "msmpeg4v3", "wmav2"),
    ("a.flv", "--vcodec flv --acodec mp3", "flv1", "mp3"),
    ("a.mkv", "--vcodec mpeg4 --acodec flac", "mpeg4", "flac"),
    ("a.ts", "--vcodec mpeg2video --acodec libopus", "mpeg2video", "opus"),
    ("a.avi", "--vcodec mpeg4 --acodec libmp3lame", "mpeg4", "mp3"),
    ("a.mp4", "--vcodec libx264 --acodec aac", "h264", "aac"),
]

PROFILES = [  # (bits of the source, name, profile and pixel format that come out)
    (8, "baseline", "Constrained Baseline", "yuv420p"), (8, "main", "Main", "yuv420p"),
    (8, "high", "High", "yuv420p"), (10, "high", "High", "yuv420p"),
    (8, "high10", "High 10", "yuv420p10le"), (10, "high10", "High 10", "yuv420p10le"),
    (8, "high422", "High 4:2:2", "yuv422p"), (10, "high422", "High 4:2:2", "yuv422p10le"),
    (8, "high444", "High 4:4:4 Predictive", "yuv444p"),
    (10, "high444", "High 4:4:4 Predictive", "yuv444p10le"),
]


def x264_settings(path):
    """What libx264 wrote about itself into its first picture."""
    with open(path, "rb") as movie:
        text = movie.read().split(b"options: ")[1].split(b"\0")[0]
    return dict(word.split("=") for word in text.decode("ascii", "ignore").split() if "=" in word)


class CodecsTest(ToolTest):
    def test_containers_get_h264_and_aac_unless_told_otherwise(self):
        make_camera_movie("in.mp4")
        for output, arguments, video, audio in CODECS:
            with self.subTest(output, arguments=arguments):
                self.record("--input", "in.mp4", "--fast", "-y", "-o", output, *arguments.split())
                movie = Movie(output)
                self.assertEqual((movie.video["codec_name"], movie.audio["codec_name"],
                                  movie.audio["sample_rate"]),
                                 (video, audio, "48000" if audio == "opus" else "44100"))
                self.assertEqual(movie.frames, 75)
                self.assertGreater(movie.ssim("in.mp4"), 0.9)

    def test_any_container_may_be_the_main_one(self):
        make_camera_movie("in.mp4")
        names = ["a.ts", "b.avi", "c.mkv", "d.mp4"]
        for main in names[:2]:
            also = [word for name in names if name != main for word in ("--also", name)]
            self.record("--input", "in.mp4", "--fast", "-y", "-o", main, *also)
            for name in names:
                with self.subTest(main, name=name):
                    self.assertEqual(Movie(name).frames, 75)
                    self.assertGreater(Movie(name).ssim("in.mp4"), 0.9)

    def test_profiles_are_real(self):
        """A ramp of 1024 shades shows whether more than 8 bits arrived."""
        for bits, pixels in [(8, "yuv420p"), (10, "yuv444p10le")]:
            ffmpeg("-f", "lavfi", "-i", "nullsrc=size=1024x64:rate=5:duration=1,format=gray10le,"
                   "geq=lum='64+X*876/1024'", "-pix_fmt", pixels, "-c:v", "ffv1", f"{bits}.mkv")
        for bits, profile, wanted, pixels in PROFILES:
            with self.subTest(profile, bits=bits):
                self.record("--input", f"{bits}.mkv", "--fast", "-y", "--profile", profile, "--rc",
                            "cqp", "--qp", "1", "-o", "a.mp4")
                video = Movie("a.mp4").video
                self.assertEqual((video["profile"], video["pix_fmt"]), (wanted, pixels))
                ffmpeg("-i", "a.mp4", "-frames:v", "1", "-vf", "format=gray10le", "-f", "rawvideo",
                       "raw")
                with open("raw", "rb") as raw:
                    shades = len({raw.read(2) for _ in range(1024)})
                if bits == 10 and "10le" in pixels:
                    self.assertGreater(shades, 600)
                elif "10le" not in pixels:
                    self.assertLess(shades, 257)

    def test_encoder_is_told_what_is_asked_for(self):
        make_camera_movie("in.mp4")
        sizes = []
        for arguments, wanted in [
                ("--rc crf", {"rc": "crf", "crf": "23.0"}),
                ("--rc crf --crf 35", {"rc": "crf", "crf": "35.0"}),
                ("--rc crf --crf 18 --x264 bframes=2:ref=4", {"crf": "18.0", "bframes": "2"}),
                ("--x264 keyint=7:bframes=1", {"rc": "abr", "keyint": "7", "bframes": "1"}),
                ("--rc abr --bitrate 700", {"rc": "abr", "bitrate": "700"})]:
            with self.subTest(arguments):
                self.record("--input", "in.mp4", "--fast", "-y", "-o", "a.mkv", *arguments.split())
                found = x264_settings("a.mkv")
                self.assertEqual({name: found[name] for name in wanted}, wanted)
                self.assertEqual(Movie("a.mkv").frames, 75)
                sizes.append(os.path.getsize("a.mkv"))
        self.assertLess(sizes[1], sizes[0])
        self.assertLess(sizes[0], sizes[2])
