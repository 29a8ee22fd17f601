"""Colours arrive: eight bars and a ramp of greys, made and judged by the formulas of the standards."""
import re

from support import Movie, ToolTest, ffmpeg

BARS = [(r, g, b) for r in (0, 1) for g in (0, 1) for b in (0, 1)]
PATCHES = BARS + [(i / 7,) * 3 for i in range(8)]
# Red's and blue's share of luma (ITU-R BT.601, BT.709, BT.2020).
SHARES = {"smpte170m": (0.299, 0.114), "bt470bg": (0.299, 0.114), "bt709": (0.2126, 0.0722),
          "bt2020nc": (0.2627, 0.0593)}
CHROMA = {"420": (2, 2), "422": (2, 1), "444": (1, 1)}
TAGS = ("color_space", "color_primaries", "color_transfer", "color_range")
OF_709 = ("bt709", "bt709", "bt709", "tv")


def to_yuv(rgb, matrix, full, bits):
    red, blue = SHARES[matrix]
    r, g, b = rgb
    y = red * r + (1 - red - blue) * g + blue * b
    u, v = (b - y) / (2 - 2 * blue), (r - y) / (2 - 2 * red)
    one = 1 << (bits - 8)
    if full:
        top = 256 * one - 1
        return [min(top, round(x)) for x in (y * top, u * top + 128 * one, v * top + 128 * one)]
    return [round(x * one) for x in (16 + 219 * y, 128 + 224 * u, 128 + 224 * v)]


def to_rgb(yuv, matrix, full, bits):
    red, blue = SHARES[matrix]
    one = 1 << (bits - 8)
    top = 256 * one - 1
    if full:
        y, u, v = yuv[0] / top, (yuv[1] - 128 * one) / top, (yuv[2] - 128 * one) / top
    else:
        y, u, v = (yuv[0] / one - 16) / 219, (yuv[1] / one - 128) / 224, (yuv[2] / one - 128) / 224
    r, b = y + v * (2 - 2 * red), y + u * (2 - 2 * blue)
    rgb = r, (y - red * r - blue * b) / (1 - red - blue), b
    return [min(max(part, 0), 1) for part in rgb]


def layout(pix_fmt):
    """How wide and how high the chroma samples are, and the bits of a sample."""
    kind = re.search("4[024]+", pix_fmt).group()
    return (*CHROMA[kind], int((re.search("p(1[0-6])", pix_fmt) or [0, 8])[1]))


def draw(path, pix_fmt, colours, side):
    """One picture of planes: the patches in two rows of eight."""
    wide, high, bits = layout(pix_fmt)
    with open(path, "wb") as raw:
        for plane, (w, h) in enumerate([(1, 1), (wide, high), (wide, high)]):
            for row in colours[:8], colours[8:]:
                line = b"".join(yuv[plane].to_bytes(1 + (bits > 8), "little") * (side // w)
                                for yuv in row)
                raw.write(line * (side // h))


def pick(planes, pix_fmt, side, turned=False):
    """The middles of the patches."""
    wide, high, bits = layout(pix_fmt)
    bytes_each = 1 + (bits > 8)
    found = []
    for i in range(16):
        x, y = (i % 8 * side + side // 2, i // 8 * side + side // 2)
        if turned:
            x, y = 8 * side - 1 - x, 2 * side - 1 - y
        yuv, start = [], 0
        for w, h in [(1, 1), (wide, high), (wide, high)]:
            at = start + ((y // h) * (8 * side // w) + x // w) * bytes_each
            yuv.append(int.from_bytes(planes[at:at + bytes_each], "little"))
            start += (8 * side // w) * (2 * side // h) * bytes_each
        found.append(yuv)
    return found


class ColoursTest(ToolTest):
    def make(self, name, pix_fmt, matrix, full, tags, side=40, codec=("ffv1",), options=()):
        bits = layout(pix_fmt)[2]
        draw("raw", pix_fmt, [to_yuv(rgb, matrix, full, bits) for rgb in PATCHES], side)
        self.wrap(name, pix_fmt, tags, side, codec, options)

    @staticmethod
    def wrap(name, pix_fmt, tags, side, codec=("ffv1",), options=()):
        told = [word for pair in zip(("-colorspace", "-color_primaries", "-color_trc",
                                      "-color_range"), tags) if pair[1] for word in pair]
        given = ["-color_range", tags[3]] if len(tags) > 3 and tags[3] else []
        ffmpeg("-f", "rawvideo", "-pix_fmt", pix_fmt, "-s", f"{8 * side}x{2 * side}", *given,
               "-stream_loop", "4", "-i", "raw", *options, "-c:v", *codec, *told, name)

    def recorded(self, source, *arguments, side=40, turned=False, output="out.mkv"):
        """The movie's tags, pixel format and patches, of its last picture."""
        quality = ["--bitrate", "4000"] if output.endswith("mpg") else ["--rc", "cqp", "--qp", "1"]
        self.record("--input", source, "--fast", "-y", *quality, *arguments, "-o", output)
        video = Movie(output).video
        ffmpeg("-i", output, "-f", "rawvideo", "-pix_fmt", video["pix_fmt"], "decoded")
        with open("decoded", "rb") as decoded:
            pictures = decoded.read()
        tags = tuple(video.get(tag, "") for tag in TAGS)
        wide, high, bits = layout(video["pix_fmt"])
        size = 16 * side * side * (1 + 2 / wide / high) * (1 + (bits > 8))
        matrix = tags[0] or "smpte170m"  # of small pictures that do not say
        patches = [to_rgb(yuv, matrix, tags[3] == "pc", bits)
                   for yuv in pick(pictures[-int(size):], video["pix_fmt"], side, turned)]
        return tags, video["pix_fmt"], patches

    def assert_colours(self, patches):
        for rgb, found in zip(PATCHES, patches):
            for wanted, value in zip(rgb, found):
                self.assertAlmostEqual(wanted * 255, value * 255, delta=3, msg=(rgb, found))

    def test_a_movie_keeps_its_colours(self):
        high = {"high10": "yuv420p10le", "high422": "yuv422p", "high444": "yuv444p"}
        for matrix in "smpte170m", "bt470bg", "bt709", "bt2020nc":
            rest = {"bt709": ("bt709", "bt709"), "bt2020nc": ("bt2020", "bt2020-10")}.get(
                matrix, ("smpte170m", "smpte170m"))
            for full in (False, True):
                for pix_fmt, profile in [("yuv420p", ""), ("yuv422p", ""), ("yuv444p", "high444"),
                                         ("yuv420p10le", ""), ("yuv422p10le", "high10"),
                                         ("yuv420p", "high422"), ("yuv444p12le", "")]:
                    with self.subTest(matrix, full=full, pix_fmt=pix_fmt, profile=profile):
                        self.make("in.mkv", pix_fmt, matrix, full,
                                  (matrix, *rest, "pc" if full else "tv"))
                        tags, pixels, patches = self.recorded(
                            "in.mkv", *(["--profile", profile] if profile else []))
                        self.assertEqual(tags, (matrix, *rest, "tv"))
                        self.assertEqual(pixels, high.get(profile, "yuv420p"))
                        self.assert_colours(patches)

    def test_what_has_no_tags_gets_those_of_its_pixels(self):
        of_601 = ("smpte170m", "smpte170m", "smpte170m", "tv")
        for side, matrix, wanted in [(40, "smpte170m", of_601), (160, "bt709", OF_709)]:
            for codec in ["ffv1"], ["libx264", "-qp", "0"]:
                with self.subTest(side=side, codec=codec):
                    self.make("in.mkv", "yuv420p", matrix, False, (), side, codec)
                    tags, _, patches = self.recorded("in.mkv", side=side)
                    self.assertEqual(tags, wanted)
                    self.assert_colours(patches)
        # A photo says what it is (JFIF: all colours of BT.601), whatever its size.
        self.make("in.mkv", "yuvj420p", "bt470bg", True, (), 160, ["mjpeg", "-q:v", "1"])
        tags, _, patches = self.recorded("in.mkv", side=160)
        self.assertEqual((tags[0], tags[3]), ("bt470bg", "tv"))
        self.assert_colours(patches)

    def test_rgb_becomes_709(self):
        colours = [bytes(round(255 * part) for part in rgb) * 40 for rgb in PATCHES]
        with open("rgb", "wb") as raw:
            raw.write(b"".join(colours[:8]) * 40 + b"".join(colours[8:]) * 40)
        palette = "split[a][b];[a]palettegen=reserve_transparent=0[p];[b][p]paletteuse=dither=none"
        for pix_fmt, codec, chain in [("gbrp", "ffv1", "null"), ("bgr24", "rawvideo", "null"),
                                      ("rgb24", "libx264rgb", "null"), ("bgra", "rawvideo", "null"),
                                      ("gbrp10le", "ffv1", "null"), ("pal8", "rawvideo", palette)]:
            for output in "out.mkv", "out.mpg":  # the second one cannot say what it holds
                with self.subTest(pix_fmt, output=output):
                    ffmpeg("-f", "rawvideo", "-pix_fmt", "rgb24", "-s", "320x80", "-r", "25",
                           "-stream_loop", "4", "-i", "rgb", "-vf", chain, "-c:v", codec, "-qp",
                           "0", "-pix_fmt", pix_fmt, "in.mov")
                    tags, _, patches = self.recorded("in.mov", output=output)
                    self.assertEqual(tags, OF_709 if output == "out.mkv" else ("", "", "", "tv"))
                    self.assert_colours(patches)
