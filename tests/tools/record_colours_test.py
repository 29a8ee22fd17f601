"""Colours arrive: eight bars and a ramp of greys, made and judged by the formulas of the standards."""
import math
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
    r, g, b = rgb
    if matrix == "ycgco":
        y, u, v = (r + 2 * g + b) / 4, (2 * g - r - b) / 4, (r - b) / 2
    else:
        red, blue = SHARES[matrix]
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


def pq_light(stored):
    """In units of reference white, 203 cd/m2 (SMPTE ST 2084)."""
    root = stored ** (32 / 2523)
    return (max(root - 0.8359375, 0) / (18.8515625 - 18.6875 * root)) ** (16384 / 2610) * 10000 / 203


def hlg_light(stored):
    """Of greys, on a display of 1000 cd/m2 (ITU-R BT.2100)."""
    scene = (stored ** 2 / 3 if stored <= 0.5 else
             (math.exp((stored - 0.55991073) / 0.17883277) + 0.28466892) / 12)
    return scene ** 1.2 * 1000 / 203


def written(name, source, options=(), codec=("ffv1",), tags=()):
    """Five times the raw picture, as ffmpeg is told to write it: input and output."""
    pix_fmt, side = source
    told = [word for pair in zip(("-colorspace", "-color_primaries", "-color_trc", "-color_range"),
                                 tags) if pair[1] for word in pair]
    given = ["-color_range", tags[3]] if len(tags) > 3 and tags[3] else []
    return (["-f", "rawvideo", "-pix_fmt", pix_fmt, "-s", f"{8 * side}x{2 * side}", *given,
             "-stream_loop", "4", "-i", name + ".raw"], [*options, "-c:v", *codec, *told, name])


def write_all(*movies):
    """By one command: starting it takes longer than its work."""
    inputs = [word for taken, _ in movies for word in taken]
    ffmpeg(*inputs, *[word for n, (_, made) in enumerate(movies) for word in ("-map", f"{n}:v", *made)])


def shown_all(names):
    """The tags, pixel format and decoded pictures of movies, by one command."""
    inputs = [word for name in names for word in ("-i", name)]
    text = ffmpeg("-xerror", *inputs, *[word for n, name in enumerate(names) for word in (
        "-map", f"{n}:v", "-f", "rawvideo", name + ".decoded")])
    found = re.findall(r"Stream #\d+:0.*: Video: .*?, (\w+)(?:\(([^()]*)\))?, \d+x\d+", text)
    for name, (pix_fmt, said) in zip(names, found[:len(names)]):
        words = [word for word in said.split(", ") if word not in ("progressive", "top first")]
        ranges = [word for word in words if word in ("tv", "pc")]
        colours = "".join(word for word in words if word not in ranges).split("/")
        colours = [colour.replace("unknown", "") for colour in colours] * (3 // len(colours))
        with open(name + ".decoded", "rb") as decoded:
            yield (*colours, *ranges), pix_fmt, decoded.read()


class ColoursTest(ToolTest):
    @staticmethod
    def movie(name, pix_fmt, matrix, full, tags, side=40, codec=("ffv1",), options=()):
        bits = layout(pix_fmt)[2]
        draw(name + ".raw", pix_fmt, [to_yuv(rgb, matrix, full, bits) for rgb in PATCHES], side)
        return written(name, (pix_fmt, side), options=options, codec=codec, tags=tags)

    def make(self, *arguments, **more):
        write_all(self.movie(*arguments, **more))

    def record_to(self, output, source, *arguments):
        quality = ["--bitrate", "20000"] if output.endswith("mpg") else ["--rc", "cqp", "--qp", "1"]
        self.record("--input", source, "--fast", "-y", *quality, *arguments, "-o", output)

    @staticmethod
    def patches_of(shown, side=40, turned=False):
        """The movie's tags, pixel format and patches, of its last picture."""
        tags, pix_fmt, pictures = shown
        wide, high, bits = layout(pix_fmt)
        size = 16 * side * side * (1 + 2 / wide / high) * (1 + (bits > 8))
        matrix = tags[0] or "smpte170m"  # of small pictures that do not say
        patches = [to_rgb(yuv, matrix, tags[3:] == ("pc",), bits)
                   for yuv in pick(pictures[-int(size):], pix_fmt, side, turned)]
        return tags, pix_fmt, patches

    def recorded(self, source, *arguments, side=40, turned=False, output="out.mkv"):
        self.record_to(output, source, *arguments)
        return self.patches_of(next(shown_all([output])), side, turned)

    def assert_colours(self, patches, true_ones=PATCHES):
        for rgb, found in zip(true_ones, patches):
            for wanted, value in zip(rgb, found):
                self.assertAlmostEqual(wanted * 255, value * 255, delta=3, msg=(rgb, found))

    def test_a_movie_keeps_its_colours(self):
        high = {"high10": "yuv420p10le", "high422": "yuv422p", "high444": "yuv444p"}
        for matrix in "smpte170m", "bt470bg", "bt709", "bt2020nc":
            rest = {"bt709": ("bt709", "bt709"), "bt2020nc": ("bt2020", "bt2020-10")}.get(
                matrix, ("smpte170m", "smpte170m"))
            cases = [(f"{n}{full}.mkv", *case, full) for full in (False, True)
                     for n, case in enumerate([
                         ("yuv420p", ""), ("yuv422p", ""), ("yuv444p", "high444"), ("yuv420p10le", ""),
                         ("yuv422p10le", "high10"), ("yuv420p", "high422"), ("yuv444p12le", "")])]
            write_all(*(self.movie(name, pix_fmt, matrix, full, (matrix, *rest, "pc" if full else "tv"))
                        for name, pix_fmt, _, full in cases))
            for name, _, profile, _ in cases:
                self.record_to("out" + name, name, *(["--profile", profile] if profile else []))
            all_shown = shown_all(["out" + case[0] for case in cases])
            for (_, pix_fmt, profile, full), shown in zip(cases, all_shown):
                with self.subTest(matrix, full=full, pix_fmt=pix_fmt, profile=profile):
                    tags, pixels, patches = self.patches_of(shown)
                    self.assertEqual(tags, (matrix, *rest, "tv"))
                    self.assertEqual(pixels, high.get(profile, "yuv420p"))
                    self.assert_colours(patches)

    def test_a_matrix_that_few_players_know_becomes_a_usual_one(self):
        for full in False, True:
            self.make("in.mkv", "yuv444p", "ycgco", full, ("ycgco", "bt709", "bt709",
                                                           "pc" if full else "tv"), 160)
            tags, _, patches = self.recorded("in.mkv", side=160)
            self.assertEqual(tags, OF_709)
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
        for pix_fmt, codec, chain, output in [
                ("gbrp", "ffv1", "null", "out.mkv"), ("bgr24", "rawvideo", "null", "out.mkv"),
                ("rgb24", "libx264rgb", "null", "out.mkv"), ("bgra", "rawvideo", "null", "out.mkv"),
                ("gbrp10le", "ffv1", "null", "out.mkv"), ("pal8", "rawvideo", palette, "out.mkv"),
                ("bgr24", "rawvideo", "null", "out.mpg")]:  # which cannot say what it holds
            with self.subTest(pix_fmt, output=output):
                ffmpeg("-f", "rawvideo", "-pix_fmt", "rgb24", "-s", "320x80", "-r", "25",
                       "-stream_loop", "4", "-i", "rgb", "-vf", chain, "-c:v", codec, "-qp", "0",
                       "-pix_fmt", pix_fmt, "in.mov")
                tags, _, patches = self.recorded("in.mov", output=output)
                self.assertEqual(tags, OF_709 if output == "out.mkv" else ("", "", "", "tv"))
                self.assert_colours(patches)

    def test_turned_and_changing_pictures(self):
        for pix_fmt, full in [("yuv420p", True), ("yuv422p10le", False)]:
            with self.subTest(pix_fmt):
                tags = (*OF_709[:3], "pc" if full else "tv")
                self.make("flat.mp4", pix_fmt, "bt709", full, tags, codec=("libx264", "-qp", "0"))
                ffmpeg("-i", "flat.mp4", "-c", "copy", "-metadata:s:v:0", "rotate=180", "in.mp4")
                found, _, patches = self.recorded("in.mp4", turned=True)
                self.assertEqual(found, OF_709)
                self.assert_colours(patches)
        self.make("a.ts", "yuv420p", "bt709", False, OF_709, codec=("libx264", "-qp", "0"))
        self.make("b.ts", "yuv420p", "smpte170m", True, ("smpte170m",) * 3 + ("pc",), 80,
                  ("libx264", "-qp", "0"))
        with open("in.ts", "wb") as joined:
            for part in "a.ts", "b.ts":
                with open(part, "rb") as movie:
                    joined.write(movie.read())
        tags, _, patches = self.recorded("in.ts")
        self.assertEqual(tags, OF_709)
        self.assert_colours(patches)

    def test_hdr_is_ten_bits_or_709(self):
        """The bars are at 203 cd/m2, which is reference white (ITU-R BT.2408)."""
        for transfer, white, light in [("smpte2084", 0.5807, pq_light),
                                       ("arib-std-b67", 0.75, hlg_light)]:
            tags = "bt2020nc", "bt2020", transfer, "tv"
            stored = [[part * white for part in rgb] for rgb in PATCHES]
            cases = [("yuv420p10le", "", "yuv420p10le"), ("yuv422p10le", "", "yuv420p10le"),
                     ("yuv444p12le", "--profile high444", "yuv444p10le"),
                     ("yuv420p", "--profile high422", "yuv422p10le"),
                     ("yuv420p10le", "--profile high", "yuv420p"),
                     ("yuv444p12le", "--profile main", "yuv420p"),
                     ("yuv420p10le", "--vcodec mpeg2video", "yuv420p")]
            names = [f"{n}.mkv" for n in range(len(cases))]
            write_all(*(self.hdr_movie(name, case[0], stored, tags) for name, case in zip(names, cases)))
            for name, (_, arguments, _) in zip(names, cases):
                self.record_to("out" + name, name, *arguments.split())
            all_shown = shown_all(["out" + name for name in names])
            for (pix_fmt, arguments, wanted), shown in zip(cases, all_shown):
                with self.subTest(transfer, pix_fmt=pix_fmt, arguments=arguments):
                    found, pixels, patches = self.patches_of(shown)
                    self.assertEqual(pixels, wanted)
                    if "10le" in wanted:
                        self.assertEqual(found, tags)
                        self.assert_colours(patches, stored)
                    else:
                        self.assertEqual(found, OF_709)
                        self.assert_shown(patches, [light(part[0]) for part in stored[8:]])

    @staticmethod
    def hdr_movie(name, pix_fmt, stored, tags, codec=("ffv1",)):
        bits = layout(pix_fmt)[2]
        draw(name + ".raw", pix_fmt, [to_yuv(rgb, "bt2020nc", False, bits) for rgb in stored], 40)
        return written(name, (pix_fmt, 40), codec=codec, tags=tags)

    def test_light_that_changes_within_a_movie(self):
        """High dynamic range behind other pictures is made like them, and the other way round."""
        lossless = "libx264", "-qp", "0"
        for transfer, white, light in [("smpte2084", 0.5807, pq_light),
                                       ("arib-std-b67", 0.75, hlg_light)]:
            tags = "bt2020nc", "bt2020", transfer, "tv"
            stored = [[part * white for part in rgb] for rgb in PATCHES]
            write_all(self.hdr_movie("hdr.ts", "yuv420p10le", stored, tags, lossless),
                      self.movie("sdr.ts", "yuv420p", "bt709", False, OF_709, codec=lossless))
            for first, second, profile in [("sdr", "hdr", "high"), ("hdr", "sdr", "high"),
                                           ("hdr", "sdr", "high10")]:
                with self.subTest(transfer, first=first, profile=profile):
                    with open("in.ts", "wb") as joined:
                        for part in first, second:
                            with open(part + ".ts", "rb") as movie:
                                joined.write(movie.read())
                    found, _, patches = self.recorded("in.ts", "--profile", profile)
                    self.assertEqual(found, tags if profile == "high10" else OF_709)
                    if second == "hdr":
                        self.assert_shown(patches, [light(part[0]) for part in stored[8:]])
                    elif profile == "high":
                        self.assert_colours(patches)
                    else:
                        self.assert_lit(patches, light)

    def assert_lit(self, patches, light):
        """What was shown with a gamma of 2.4 has that light, with white at 203 cd/m2."""
        for patch, found in zip(PATCHES[8:], patches[8:]):
            self.assertLess(max(found) - min(found), 2.5 / 255)
            self.assertAlmostEqual(light(found[1]) ** (1 / 2.4), patch[0], delta=3 / 255)
        for bar, found in zip(BARS[1:7], patches[1:7]):
            on = [part for part, lit in zip(found, bar) if lit]
            off = [part for part, lit in zip(found, bar) if not lit]
            self.assertGreater(min(on), max(off) + 0.05, (bar, found))

    def assert_shown(self, patches, lights):
        """Greys are neutral and, up to near white, as bright as they were; bars keep their hue."""
        for light, found in zip(lights, patches[8:]):
            self.assertLess(max(found) - min(found), 2.5 / 255)
            if light < 0.7:
                self.assertAlmostEqual(found[1], light ** (1 / 2.4), delta=3 / 255)
        self.assertTrue(0.9 < patches[7][1] < 0.98, patches[7])
        for bar, found in zip(BARS[1:7], patches[1:7]):
            on = [part for part, lit in zip(found, bar) if lit]
            off = [part for part, lit in zip(found, bar) if not lit]
            self.assertGreater(min(on), max(off) + 0.25, (bar, found))

    def test_interlaced_pictures_become_whole_ones(self):
        """A bar moves over even ground, above still lines: a comb would make columns uneven."""
        width, height, still = 320, 96, 32
        with open("raw", "wb") as raw:
            for n in range(10):
                for y in range(height):
                    x = 40 + 12 * (2 * n + y % 2)  # the upper field is the earlier one
                    moving = b"\x40" * x + b"\xc0" * 24 + b"\x40" * (width - x - 24)
                    raw.write(moving if y >= still else (b"\x30", b"\xd0")[y % 2] * width)
                raw.write(b"\x80" * (width * height // 2))
        for name, *codec in [
                ("a.mkv", "libx264", "-qp", "4", "-flags", "+ildct+ilme", "-x264-params", "tff=1"),
                ("a.ts", "mpeg2video", "-q:v", "1", "-flags", "+ildct+ilme"),
                ("a.mov", "prores_ks", "-flags", "+ildct"), ("b.mkv", "ffv1"),
                ("c.mkv", "ffvhuff")]:
            with self.subTest(codec[0]):
                ffmpeg("-f", "rawvideo", "-pix_fmt", "yuv420p", "-s", f"{width}x{height}", "-r", "25",
                       "-i", "raw", "-vf", "setfield=tff", "-top", "1", "-field_order", "tt", "-c:v",
                       *codec, name)
                self.record("--input", name, "--fast", "-y", "--rc", "cqp", "--qp", "4", "-o",
                            "out.mp4")
                movie = Movie("out.mp4")
                self.assertEqual((movie.frames, movie.video.get("field_order", "progressive")),
                                 (10, "progressive"))
                ffmpeg("-i", "out.mp4", "-f", "rawvideo", "-pix_fmt", "gray", "decoded")
                with open("decoded", "rb") as decoded:
                    lumas = decoded.read()
                for n in range(10):
                    for x in range(8, width - 8):
                        column = lumas[n * width * height + x:(n + 1) * width * height:width]
                        moving = column[still + 4:-4]
                        self.assertLess(max(moving) - min(moving), 40, (n, x))
                        self.assertGreater(min(column[5:still - 4:2]) - max(column[4:still - 4:2]),
                                           120, (n, x))
