"""Inputs, all made from one camera movie that Debian has in a package."""
import os

from . import bench as b

FFMPEG = ["ffmpeg", "-v", "error", "-nostdin", "-y"]
FPS = 30
KINDS = {"mp4": "mp4", "mkv": "matroska", "flv": "flv", "ts": "mpegts"}  # of four outputs


def camera():
    for line in b.call("dpkg-query", "-L", "forensics-samples-files").splitlines():
        if line.endswith("/movie2/movie-hello.mp4"):
            return line
    raise b.Failed("the package forensics-samples-files does not hold movie-hello.mp4")


def pictures(path, size, frames, noise=4):
    """Bare BGRA pictures, with the noise that a camera has and a finished movie has lost."""
    b.call(*FFMPEG, "-stream_loop", "-1", "-i", camera(), "-t", str(frames / FPS), "-an",
           "-vf", f"scale={size.replace('x', ':')},fps={FPS},noise=alls={noise}:allf=t",
           "-f", "rawvideo", "-pix_fmt", "bgra", path)


def with_sound(path, pictures_path, size, frames):
    """The same pictures in a file that has 16-bit sound, too."""
    b.call(*FFMPEG, *raw_input(pictures_path, size), "-stream_loop", "-1", "-i", camera(),
           "-map", "0:v", "-map", "1:a", "-t", str(frames / FPS), "-c:v", "copy", "-c:a",
           "pcm_s16le", "-ac", "2", "-ar", "48000", path)


def raw_input(path, size):
    """How FFmpeg is told about bare pictures."""
    return ["-f", "rawvideo", "-pix_fmt", "bgra", "-s", size, "-r", str(FPS), "-i", path]


def encoded(path, seconds, megabit_s):
    """A long H.264 and AAC movie without B-frames and of a constant rate: a piece, repeated."""
    piece = path + ".piece.mp4"
    rate = f"{megabit_s}M"
    b.call(*FFMPEG, "-i", camera(), "-vf", f"scale=1280:720,fps={FPS},noise=alls=12:allf=t", "-c:v",
           "libx264", "-preset", "veryfast", "-bf", "0", "-g", str(2 * FPS), "-b:v", rate, "-minrate",
           rate, "-maxrate", rate, "-bufsize", rate, "-nal-hrd", "cbr", "-pix_fmt", "yuv420p",
           "-c:a", "aac", "-ac", "2", piece)
    b.call(*FFMPEG, "-stream_loop", "-1", "-i", piece, "-t", str(seconds), "-c", "copy", path)
    os.remove(piece)


def four_names(stem):
    return [f"{stem}.{ending}" for ending in KINDS]


def four_of_ours(stem):
    first, *others = four_names(stem)
    return ["-o", first, *(word for other in others for word in ("--also", other))]


def four_of_ffmpegs(stem):
    """Each output on a thread of its own, as ours are."""
    outputs = "|".join(f"[f={kind}]{name}" for name, kind in zip(four_names(stem), KINDS.values()))
    return ["-map", "0", "-flags", "+global_header", "-f", "tee", "-use_fifo", "1", outputs]
