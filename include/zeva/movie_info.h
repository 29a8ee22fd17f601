// Settings of a classic recording, and the names of its encoder settings.
//
//   MovieInfo info{};                             // crf 23, qp 20, everything else 0
//   snprintf(info.url, sizeof info.url, "%s", "movie.mp4");
//   snprintf(info.moov_url, sizeof info.moov_url, "%s", "movie.mp4.index");
//   info.width = info.src_width = 1280;
//   info.height = info.src_height = 720;
//   info.fps = 30; info.gop_size = 60; info.video_bitrate = 4000;
//   info.src_pix_fmt = AV_PIX_FMT_BGRA; info.pix_fmt = AV_PIX_FMT_YUV420P; info.colorspace = 2;
//   info.src_sample_rate = info.sample_rate = 48000; info.channels = 2;
//   info.sample_fmt = AV_SAMPLE_FMT_S16; info.audio_bitrate = 128;
//   info.preset = preset_from_str("veryfast"); info.profile = profile_from_str("high");
//   info.tune = tune_from_str("zerolatency");
//
// The record is plain data: it is copied whole, and its layout is part of the binary interface.
// Only the strings of `other_urls` are referenced, and must outlive the recording.
#pragma once

#include <cstddef>
#include <cstdint>

#include "zeva/export.h"

// Encoder speed against size. The names are those of the H.264 encoder's presets.
enum Quality_Level : int32_t {
  kQualityUltrafast,
  kQualitySuperfast,
  kQualityVeryfast,
  kQualityFaster,
  kQualityFast,
  kQualityMedium,
  kQualitySlow,
  kQualitySlower,
  kQualityVeryslow,
  kQualityPlacebo,
  kQualityNone,  // leave the encoder's default
};

// H.264 profile (ISO/IEC 14496-10 Annex A). Those above "high" are made of pictures that need them:
// `pix_fmt` is replaced by 4:2:0 of 10 bits (high10), 4:2:2 or 4:4:4 where it is something else.
enum Profile_Level : int32_t {
  kProfileBaseline,
  kProfileMain,
  kProfileHigh,
  kProfileHigh10,
  kProfileHigh422,
  kProfileHigh444,
  kProfileNone,
};

// What the encoder is tuned for.
enum Tune_Level : int32_t {
  kTuneFilm,
  kTuneAnimation,
  kTuneGrain,
  kTuneStillimage,
  kTunePsnr,
  kTuneSsim,
  kTuneFastdecode,
  kTuneZerolatency,
  kTuneNone,
};

// URLs of live streams: rtmp:// and rtmps:// (FLV), rtsp:// (over TCP; sound is Opus) and srt://
// (MPEG-TS). What follows the question mark of an srt:// URL are FFmpeg's options of that protocol:
// passphrase, streamid, latency (in microseconds). The certificate of an rtmps:// server is not
// checked: the stream is encrypted, but not protected from a server that poses as another one.
struct MovieInfo {
  char url[512];              // main output: UTF-8 path or a live stream's URL, zero-terminated
  char moov_url[512];         // crash-safe index beside an .mp4 output; empty for none
  char meta_info[256];        // "key:value;key:value", written into the container
  const char* other_urls[4];  // further outputs, at most 3; the list ends at the first null

  bool disable_audio;
  int32_t audio_bitrate;    // kbit/s
  int32_t src_sample_rate;  // Hz, of the PCM the host delivers
  int32_t sample_rate;      // Hz, encoded; replaced by what the encoder supports
  int32_t channels;         // 1..8, of the PCM the host delivers; the movie's are ZevaOptions'
  int32_t sample_fmt;       // AVSampleFormat of the host's PCM

  bool disable_video;
  int32_t rc_mode;        // 0 average bit rate, 1 constant, 3 constant quantiser, else variable
  int32_t video_bitrate;  // kbit/s; 0 lets the library choose
  int32_t width;          // of the encoded picture, pixels
  int32_t height;
  int32_t src_width;  // of the host's pictures, pixels
  int32_t src_height;
  int32_t fps;              // frames/s; replaced by the nearest rate that the encoder supports, or
                            // by the nearest whole one to ZevaOptions'
  int32_t gop_size;         // frames from key frame to key frame
  int32_t src_pix_fmt;      // AVPixelFormat of the host's pictures
  int32_t pix_fmt;          // AVPixelFormat to encode; replaced by what the encoder supports
  int32_t color_primaries;  // AVColorPrimaries; 0 leaves the encoder's default
  int32_t color_trc;        // AVColorTransferCharacteristic; 0 leaves the default
  // Matrix and range (AVColorSpace, AVColorRange; ITU-T H.273) of the movie: the host's pictures
  // are converted to them, and the movie is tagged with them. Replaced by what is really used where
  // unspecified (matrix 2, or 0; range 0): the matrix of the host's YUV pictures (ZevaOptions), for
  // others BT.709 from 1280 pixels wide or 577 high on, else SMPTE 170M; the limited range, or the
  // full one where `pix_fmt` implies it.
  int32_t colorspace;
  int32_t color_range;
  Quality_Level preset;
  Profile_Level profile;
  Tune_Level tune;
  bool hardware;        // try hardware H.264 encoders first; afterwards: whether one was taken
  int32_t crf = 23;     // 1..51, used with rc_mode 1
  int32_t qp = 20;      // 1..51, used with rc_mode 3
  int32_t timeout_sec;  // live streams: network time-out in seconds; 0 for default
};

extern "C" {

// Name to value; exact and case-sensitive. `s` must not be null. An unknown name gives the settings
// of a low-latency live recording: "veryfast", "baseline", "zerolatency".
ZEVA_API Quality_Level preset_from_str(const char* s);
ZEVA_API Profile_Level profile_from_str(const char* s);
ZEVA_API Tune_Level tune_from_str(const char* s);

// Value to name; a static string, never freed. The ...None value gives the empty string; a value
// outside the enumeration is the caller's error.
ZEVA_API const char* preset_to_str(Quality_Level q);
ZEVA_API const char* profile_to_str(Profile_Level p);
ZEVA_API const char* tune_to_str(Tune_Level t);

}  // extern "C"

static_assert(sizeof(void*) == 8, "ZEVALib is a 64-bit library");
static_assert(offsetof(MovieInfo, moov_url) == 512);
static_assert(offsetof(MovieInfo, meta_info) == 1024);
static_assert(offsetof(MovieInfo, other_urls) == 1280);
static_assert(offsetof(MovieInfo, disable_audio) == 1312);
static_assert(offsetof(MovieInfo, audio_bitrate) == 1316);
static_assert(offsetof(MovieInfo, src_sample_rate) == 1320);
static_assert(offsetof(MovieInfo, sample_rate) == 1324);
static_assert(offsetof(MovieInfo, channels) == 1328);
static_assert(offsetof(MovieInfo, sample_fmt) == 1332);
static_assert(offsetof(MovieInfo, disable_video) == 1336);
static_assert(offsetof(MovieInfo, rc_mode) == 1340);
static_assert(offsetof(MovieInfo, video_bitrate) == 1344);
static_assert(offsetof(MovieInfo, width) == 1348);
static_assert(offsetof(MovieInfo, height) == 1352);
static_assert(offsetof(MovieInfo, src_width) == 1356);
static_assert(offsetof(MovieInfo, src_height) == 1360);
static_assert(offsetof(MovieInfo, fps) == 1364);
static_assert(offsetof(MovieInfo, gop_size) == 1368);
static_assert(offsetof(MovieInfo, src_pix_fmt) == 1372);
static_assert(offsetof(MovieInfo, pix_fmt) == 1376);
static_assert(offsetof(MovieInfo, color_primaries) == 1380);
static_assert(offsetof(MovieInfo, color_trc) == 1384);
static_assert(offsetof(MovieInfo, colorspace) == 1388);
static_assert(offsetof(MovieInfo, color_range) == 1392);
static_assert(offsetof(MovieInfo, preset) == 1396);
static_assert(offsetof(MovieInfo, profile) == 1400);
static_assert(offsetof(MovieInfo, tune) == 1404);
static_assert(offsetof(MovieInfo, hardware) == 1408);
static_assert(offsetof(MovieInfo, crf) == 1412);
static_assert(offsetof(MovieInfo, qp) == 1416);
static_assert(offsetof(MovieInfo, timeout_sec) == 1420);
static_assert(sizeof(MovieInfo) == 1424);
