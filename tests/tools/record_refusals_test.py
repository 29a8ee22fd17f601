"""Wrong usage is refused before anything is written, with a sentence that names the argument."""
import os

from support import ToolTest

# (arguments, what the sentence must contain), one row for each rule
REFUSALS = [
    ("--pattern", "--output is required"),
    ("--pattern --raw 16x16@5 -o a.mp4", "exactly one of --input, --pattern and --raw"),
    ("--pattern -o a.mp4 --loop", "it needs --input"),
    ("--raw 320x240@0 -o a.mp4", "--raw 320x240@0: not of the form"),
    ("--pattern -o a.mp4 --no-video --no-audio", "nothing to record"),
    ("--pattern -o a.mp4 --size 320x239", "must be even"),
    ("--pattern -o a.mp4 --preset Medium", "--preset Medium"),
    ("--pattern -o a.mp4 --rc ABR", "--rc ABR"),
    ("--pattern -o a.mp4 --crf 20", "only with --rc crf"),
    ("--pattern -o a.mp4 --rc crf --bitrate 900", "--bitrate has no meaning with --rc crf"),
    ("--pattern -o a.wmv --rc crf", "--rc crf is known to the encoder libx264"),
    ("--pattern -o a.mp4 --fps 0", "--fps 0: not a rate"),
    ("--pattern -o a.mp4 --fps 29,97", "--fps 29,97: not a rate"),
    ("--pattern -o a.mp4 --fps 241", "--fps 241: not a rate"),
    ("--raw 320x240@ -o a.mp4", "--raw 320x240@: not of the form"),
    ("--pattern -o a.mp4 --vcodec h26x", "--vcodec h26x: there is no such encoder"),
    ("--pattern -o a.mp4 --vcodec aac", "--vcodec aac: there is no such encoder"),
    ("--pattern -o a.mp4 --acodec libx264", "--acodec libx264: there is no such encoder"),
    ("--pattern -o a.flv --acodec ac3", "--acodec ac3: -o a.flv cannot hold ac3"),
    ("--pattern -o a.mpg --acodec aac", "--acodec aac: -o a.mpg cannot hold aac"),
    ("--pattern -o a.mp3 --vcodec mpeg4", "--vcodec: no pictures are recorded"),
    ("--raw 64x64@5 -o a.mp4 --acodec aac", "--acodec: no sound is recorded"),
    ("--pattern -o a.mp4 --vcodec mpeg4 --x264 ref=1", "--x264 sets the encoder libx264"),
    ("--pattern -o a.mp4 --vcodec mpeg4 --profile main", "--profile main: the profiles are those"),
    ("--pattern -o a.mp4 --hardware --profile high10", "--profile high10 needs the encoder libx264"),
    ("--pattern -o a.mp4 --meta :x", "--meta :x: not of the form"),
    ("--pattern -o a.mp4 --meta a:b;c:d", "';'"),
    (f"--pattern -o a.mp4 --meta a:{'x' * 125} --meta b:{'x' * 126}", "255 bytes"),
    (f"--pattern -o a.mp4 --also {'x' * 508}.flv", "511 bytes"),
    ("--pattern -o a.mp4 --also b.flv --also c.mkv --also d.mov --also e.avi", "at most three"),
    ("--pattern -o a.mp4 --also b.flv --also ./b.flv", "b.flv and --also ./b.flv are the same"),
    ("--input in.mp4 -o linked.mp4", "--input in.mp4 are the same"),
    ("--input in.mp4 -o file:in.mp4", "--input in.mp4 are the same"),
    ("--pattern -o a.mkv --also rtsp://localhost/x", "to rtsp:// at once"),
    ("--pattern -o a.mp4 --also b.unheard", "--also b.unheard: no container"),
    ("--pattern -o a.flv --vcodec flv --also b.mp4", "--also b.mp4: cannot hold the flv1"),
    ("--pattern -o a.mp4 --also b.mpg", "--also b.mpg: cannot hold the aac"),
    ("--pattern -o a.webm", "-o a.webm: there is no encoder"),
    ("--pattern -o a.mkv --index a.index", "only an MP4 or one of its kin"),
    ("--pattern -o a.mp4 --no-index --index a.index", "--index and --no-index"),
]


class RefusalTest(ToolTest):
    def test_table(self):
        with open("in.mp4", "w", encoding="utf-8") as untouched:
            untouched.write("a movie")
        os.link("in.mp4", "linked.mp4")
        for arguments, fragment in REFUSALS:
            with self.subTest(arguments[:80]):
                self.assertIn(fragment, self.record(*arguments.split(), expect=2))
                self.assertEqual(sorted(os.listdir(".")), ["in.mp4", "linked.mp4"])
                self.assertEqual(os.path.getsize("in.mp4"), 7)
        for setting in ["nosuch=1", "ref"]:  # only the encoder knows
            text = self.record("--pattern", "-o", "a.mp4", "--x264", setting, expect=1)
            self.assertRegex(text, f"--x264.*'{setting}'")
        self.assertEqual(sorted(os.listdir(".")), ["in.mp4", "linked.mp4"])
        self.assertIn("Examples:", self.record("--help"))
