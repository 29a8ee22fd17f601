"""People's movies can be recorded from: a clip of each promised kind, made by another FFmpeg."""
import os
import re
import unittest

from support import ToolTest, ffmpeg

PAL_DV = ["-s", "720x576", "-pix_fmt", "yuv420p", "-ar", "48000"]
TONE_DB = -24.1  # of the sine that all clips sound
# No encoder has these; their decoders are looked for by name elsewhere: VP6, VC-1, WMV 9, WMA Pro,
# AMR, MS-MPEG-4 version 1.

# (file, encoders of pictures and sound or None, further options)
CLIPS = [
    ("phone.mp4", "libx264", "aac", []),
    ("phone.mov", "libx265", "alac", ["-tag:v", "hvc1", "-x265-params", "log-level=none"]),
    ("old-phone.3gp", "h263", "aac", ["-s", "176x144"]),
    ("camera.mov", "mjpeg", "pcm_s16be", ["-pix_fmt", "yuvj420p"]),
    ("quicktime.mov", "mpeg4", "adpcm_ima_qt", []),
    ("editor.mov", "prores", "pcm_s24le", []),
    ("editor2.mov", "dnxhd", "pcm_s24be",
     ["-s", "1280x720", "-b:v", "60M", "-pix_fmt", "yuv422p"]),
    ("sounds.mov", "libx264", "pcm_s32be", []),
    ("floats.mov", "libx264", "pcm_f32be", []),
    ("web.webm", "libvpx", "libvorbis", ["-deadline", "realtime"]),
    ("web2.webm", "libvpx-vp9", "libopus", ["-deadline", "realtime", "-cpu-used", "8"]),
    ("disc.mkv", "libx264", "eac3", []),
    ("disc2.mkv", "libx264", "dca", ["-strict", "-2", "-ar", "48000"]),
    ("disc3.mkv", "libx264", "truehd", ["-strict", "-2", "-ar", "48000"]),
    ("archive.mkv", "ffv1", "flac", []),
    ("captured.mkv", "rawvideo", "pcm_f64le", []),
    ("captured.avi", "utvideo", "pcm_s16le", []),
    ("captured2.avi", "huffyuv", "pcm_u8", ["-pix_fmt", "yuv422p"]),
    ("captured3.avi", "ffvhuff", "pcm_s32le", []),
    ("divx.avi", "mpeg4", "libmp3lame", ["-bf", "2", "-tag:v", "xvid"]),
    ("packed.avi", "msmpeg4", "adpcm_ms", []),
    ("packed2.avi", "msmpeg4v2", "adpcm_ima_wav", []),
    ("tape.avi", "dvvideo", "pcm_s16le", PAL_DV),
    ("tape.dv", "dvvideo", "pcm_s16le", PAL_DV),
    ("stream.flv", "flv", "nellymoser", ["-ar", "44100", "-ac", "1"]),
    ("stream2.flv", "libx264", "aac", []),
    ("stream3.flv", "flv", "adpcm_swf", []),
    ("media.wmv", "wmv2", "wmav2", []),
    ("media2.wmv", "wmv1", "wmav1", []),
    ("television.ts", "mpeg2video", "mp2", []),
    ("television2.ts", "libx264", "aac", ["-mpegts_flags", "latm"]),
    ("television3.m2ts", "libx265", "pcm_bluray",
     ["-x265-params", "log-level=none", "-ar", "48000"]),
    ("disc.vob", "mpeg2video", "ac3", []),
    ("disc2.vob", "mpeg2video", "pcm_dvd", ["-ar", "48000"]),
    ("video-cd.mpg", "mpeg1video", "mp2", []),
    ("free.ogg", "libtheora", "libvorbis", []),
    ("list.m3u8", "libx264", "aac", []),
    ("bare.h264", "libx264", None, []),
    ("bare.hevc", "libx265", None, ["-x265-params", "log-level=none"]),
    ("bare.m2v", "mpeg2video", None, []),
    ("sound.mp3", None, "libmp3lame", []),
    ("sound.m4a", None, "aac", []),
    ("sound.aac", None, "aac", []),
    ("sound.wav", None, "pcm_s24le", []),
    ("sound2.wav", None, "pcm_f32le", []),
    ("sound3.wav", None, "pcm_alaw", []),
    ("sound4.wav", None, "pcm_mulaw", []),
    ("sound.w64", None, "pcm_s16le", []),
    ("sound.flac", None, "flac", []),
    ("sound.ogg", None, "libvorbis", []),
    ("sound.opus", None, "libopus", []),
    ("sound.wma", None, "wmav2", []),
    ("sound.ac3", None, "ac3", []),
    ("sound.eac3", None, "eac3", []),
]


class InputFormatsTest(ToolTest):
    def make(self, name, video, audio, options):
        sources, codecs = [], []
        if video:
            sources += ["-i", "pictures.mkv"]
            codecs += ["-c:v", video, "-q:v", "3", "-g", "10"]
        if audio:
            sources += ["-i", "sound.mkv"]
            codecs += ["-c:a", audio]
        ffmpeg(*sources, *codecs, "-strict", "unofficial", *options, name)

    @unittest.skipIf("thread" in os.environ.get("ZEVA_SANITIZED", ""),
                     "decoders are not instrumented: the sanitizer takes their threads' work for races")
    def test_clips_of_all_kinds(self):
        ffmpeg("-f", "lavfi", "-i", "testsrc2=size=320x240:rate=25:duration=1", "-c:v", "ffv1",
               "-pix_fmt", "yuv420p", "pictures.mkv")
        ffmpeg("-f", "lavfi", "-i", "sine=frequency=440:sample_rate=44100:duration=1", "-ac", "2",
               "-c:a", "flac", "sound.mkv")
        for name, video, audio, options in CLIPS:
            with self.subTest(name, video=video, audio=audio):
                self.make(name, video, audio, options)
                text = self.record("--input", name, "--fast", "--no-index", "-y", "-o", "out.mp4")
                frames = int(re.search(r"(\d+) frames", text).group(1)) if video else 0
                self.assertAlmostEqual(frames, 25 if video else 0, delta=3)
                self.assert_holds(bool(video), bool(audio))

    def assert_holds(self, pictures, sound):
        """The moving picture and the tone that all clips show, for a second."""
        graphs = []
        if pictures:
            chain = "trim=end_frame=20,setpts=N/TB/25"
            graphs.append(f"[0:v]scale=320:240,setsar=1,format=yuv420p,{chain}[a];[1:v]{chain}[b];"
                          "[a][b]ssim")
        if sound:
            graphs.append("[0:a]aresample=44100,aformat=channel_layouts=stereo,volumedetect")
        found = ffmpeg("-i", "out.mp4", "-i", "pictures.mkv", "-lavfi", ";".join(graphs), "-f",
                       "null", "-")
        if pictures:
            self.assertGreater(float(re.search(r"SSIM.* All:([0-9.]+)", found).group(1)), 0.75)
        if sound:
            # The filter may be set up twice; the last one heard the sound.
            samples, volume = [re.findall(rf"{what}: (\S+)", found)[-1]
                               for what in ("n_samples", "mean_volume")]
            self.assertAlmostEqual(int(samples), 88200, delta=12000)
            self.assertAlmostEqual(float(volume), TONE_DB, delta=2)
