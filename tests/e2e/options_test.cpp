// ZevaOptions in classic recordings: the rate of the pictures, encoders by name and their options.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/frame.h>
}

#include "judge.h"
#include "recording.h"

namespace {
using namespace zeva_test;  // NOLINT: a test reads better without the prefix
namespace fs = std::filesystem;
using testing::HasSubstr;

MovieInfo pictures_only(const fs::path& file) {
  MovieInfo info = settings(file);
  info.disable_audio = true;
  return info;
}

struct Picture {
  double begin_sec;
  double length_sec = 0;  // as the host says; 0 for nothing said
};

// Writes them through ZEVA_write_video_frame; how many were taken.
int write_pictures(Recording& recording, const std::vector<Picture>& pictures) {
  AVFrame* frame = av_frame_alloc();
  frame->format = AV_PIX_FMT_BGRA;
  frame->width = kWidth;
  frame->height = kHeight;
  EXPECT_EQ(av_frame_get_buffer(frame, 0), 0);
  int taken = 0;
  for (size_t n = 0; n < pictures.size(); ++n) {
    const std::vector<uint8_t> pixels = gradients(static_cast<int>(n), frame->linesize[0]);
    memcpy(frame->data[0], pixels.data(), pixels.size());
    frame->pts = kStartUs + std::llround(pictures[n].begin_sec * 1e6);
    frame->pkt_duration = std::llround(pictures[n].length_sec * 1e6);
    const int64_t said = frame->pkt_duration;
    taken += ZEVA_write_video_frame(recording.handle, frame, {1, 1000000}) ? 1 : 0;
    EXPECT_EQ(frame->pkt_duration, said) << "the frame is the host's";
  }
  av_frame_free(&frame);
  return taken;
}

std::vector<Picture> evenly(int count, double interval_sec) {
  std::vector<Picture> pictures;
  for (int n = 0; n < count; ++n) pictures.push_back({n * interval_sec});
  return pictures;
}

// A picture a second, then five seconds of sixty, then a picture a second.
std::vector<Picture> still_quick_still() {
  std::vector<Picture> pictures;
  for (int n = 0; n < 12; ++n) pictures.push_back({double(n)});
  for (int n = 0; n < 300; ++n) pictures.push_back({12 + n / 60.0});
  for (int n = 0; n < 13; ++n) pictures.push_back({17.0 + n});
  return pictures;
}

// Pictures of the file, counted from its first one, against those that were given.
void expect_times(const fs::path& file, const std::vector<Picture>& given, double tolerance_sec) {
  SCOPED_TRACE(file.filename());
  std::vector<double> found;
  for (const Row& frame : probe(file,
                                "-select_streams v -show_frames "
                                "-show_entries frame=best_effort_timestamp_time")) {
    // Side data stand in rows of their own.
    if (frame.count("best_effort_timestamp_time") == 0) continue;
    found.push_back(number(frame, "best_effort_timestamp_time"));
  }
  ASSERT_EQ(found.size(), given.size());
  double worst = 0;
  for (size_t n = 0; n < found.size(); ++n) {
    worst = std::max(worst, std::abs(found[n] - found[0] - given[n].begin_sec));
  }
  EXPECT_LE(worst, tolerance_sec);
  EXPECT_EQ(decode_faults(file), "");
}

// ---- rates

TEST(Rates, AreFractions) {
  const struct {
    const char* file;
    int num, den, effective_fps;
    double tolerance_sec;
  } cases[] = {
      {"ntsc.mp4", 30000, 1001, 30, 2e-6},  {"decimal.mp4", 2997, 100, 30, 2e-6},
      {"ntsc.mkv", 30000, 1001, 30, 1e-3},  {"ntsc.flv", 30000, 1001, 30, 1e-3},
      {"ntsc.avi", 30000, 1001, 30, 2e-6},  {"half.avi", 25, 2, 13, 2e-6},
      {"half.mp4", 25, 2, 13, 2e-6},        {"slow.mp4", 1, 3, 1, 2e-6},
      {"film.ts", 24000, 1001, 24, 2e-5},   {"odd.avi", 2997003, 100000, 30, 1e-4},
      {"sixty.mov", 60000, 1001, 60, 2e-6}, {"high.mp4", 1000, 1, 1000, 2e-6},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.file);
    const fs::path file = work_file(c.file);
    MovieInfo info = pictures_only(file);
    info.fps = 0;  // the options' rate takes its place
    ZevaOptions with = options();
    with.rate_num = c.num;
    with.rate_den = c.den;
    Recording recording(info, with);
    EXPECT_EQ(recording.effective.fps, c.effective_fps);
    const auto pictures = evenly(75, static_cast<double>(c.den) / c.num);
    EXPECT_EQ(write_pictures(recording, pictures), 75);
    const AVRational milliseconds{1, 1000};
    const AVFrame* test = nullptr;
    for (int n = 0; n < 31; ++n) {
      test = ZEVA_generate_testing_vFrame(recording.handle, milliseconds);
    }
    ASSERT_NE(test, nullptr);
    EXPECT_NEAR(static_cast<double>(test->pts), 30000.0 * c.den / c.num, 1);
    recording.stop();
    EXPECT_TRUE(recording.failures().empty());
    expect_times(file, pictures, c.tolerance_sec);
  }
}

TEST(Rates, OfNoOptionsAreWhole) {
  const fs::path file = work_file("plain.mp4");
  Recording recording(pictures_only(file), options());
  EXPECT_EQ(recording.effective.fps, kFps);
  EXPECT_EQ(write_pictures(recording, evenly(50, 1.0 / 50)), 26)
      << "two of a time are one too many";
  recording.stop();
}

TEST(VariableRate, KeepsEveryPictureAtItsTime) {
  const struct {
    const char* file;
    double tolerance_sec;
    const char* encoder_options;
  } cases[] = {
      {"screen.mp4", 7e-6, nullptr},
      {"screen.mkv", 1e-3, nullptr},
      {"screen.flv", 1e-3, nullptr},
      {"screen.ts", 2e-5, nullptr},
      {"screen.avi", 5e-3, nullptr},
      {"b_frames.mp4", 7e-6, "bf=2"},
      {"b_frames.ts", 2e-5, "bf=2"},
      {"b_frames.flv", 1e-3, "bf=2"},
      {"ahead.mp4", 7e-6, "tune=film:rc-lookahead=40:bf=3"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.file);
    const fs::path file = work_file(c.file);
    MovieInfo info = pictures_only(file);
    ZevaOptions with = options();
    with.variable_rate = 1;
    with.encoder_options = c.encoder_options;
    with.video_codec = c.encoder_options != nullptr ? "libx264" : nullptr;
    with.rate_num = 65;  // 325 pictures in 30 s
    with.rate_den = 6;
    Recording recording(info, with);
    const std::vector<Picture> pictures = still_quick_still();
    EXPECT_EQ(write_pictures(recording, pictures), 325);
    recording.stop();
    EXPECT_TRUE(recording.failures().empty());
    expect_times(file, pictures, c.tolerance_sec);
  }
}

std::vector<std::string> packet_times(const fs::path& file) {
  std::vector<std::string> times;
  for (const Row& packet : packets(file)) {
    times.push_back(packet.at("pts") + " " + packet.at("dts") + " " + packet.at("flags"));
  }
  return times;
}

// Each output in its own units, the crash-safe index included.
TEST(VariableRate, ReachesFurtherOutputsAndTheIndex) {
  const fs::path file = work_file("main.flv"), mp4 = work_file("b.mp4"), mkv = work_file("c.mkv"),
                 index = work_file("b.mp4.index");
  MovieInfo info = pictures_only(file);
  const std::string others[] = {utf8(mp4), utf8(mkv)};
  info.other_urls[0] = others[0].c_str();
  info.other_urls[1] = others[1].c_str();
  set_text(info.moov_url, utf8(index));
  ZevaOptions with = options();
  with.variable_rate = 1;
  with.video_codec = "libx264";
  with.encoder_options = "bf=2";
  Recording recording(info, with);
  const std::vector<Picture> pictures = still_quick_still();
  EXPECT_EQ(write_pictures(recording, pictures), 325);
  recording.stop();
  EXPECT_TRUE(recording.failures().empty());
  expect_times(file, pictures, 1e-3);
  expect_times(mkv, pictures, 1e-3);
  expect_times(mp4, pictures, 7e-6);
  const fs::path repaired = work_file("repaired.mp4");
  EXPECT_TRUE(ZEVA_StartRepair_sync(others[0].c_str(), utf8(index).c_str(), utf8(repaired).c_str(),
                                    nullptr, nullptr));
  // The index learns of a packet's end from the next one: it never has the last.
  std::vector<std::string> whole = packet_times(mp4);
  whole.pop_back();
  EXPECT_EQ(packet_times(repaired), whole);
}

TEST(VariableRate, EndsWithItsLastPicture) {
  const struct {
    const char* scenario;
    std::vector<Picture> pictures;
    double end_sec;
  } cases[] = {
      {"said", {{0, 0.5}, {0.5, 0.1}, {0.6, 2.25}}, 2.85},
      {"as the interval before", {{0}, {0.4}, {0.65}}, 0.9},
      {"one alone, as long as the mean", {{0}}, 0.04},
      {"quick after still", {{0}, {0.9}, {0.91}, {0.92}}, 0.93},
  };
  for (const char* name : {"end.mp4", "end.mkv", "end.flv"}) {
    for (const char* tune : {"zerolatency", "film"}) {
      for (const auto& c : cases) {
        SCOPED_TRACE(std::string(name) + ", " + tune + ": " + c.scenario);
        // Without a look-ahead the first quick picture is written before anything is known of it.
        const bool guessed = std::string(c.scenario) == "quick after still";
        const double slack = guessed && std::string(tune) == "zerolatency" ? 1 : 0.0021;
        const fs::path file = work_file(name);
        MovieInfo info = pictures_only(file);
        info.tune = tune_from_str(tune);
        ZevaOptions with = options();
        with.variable_rate = 1;
        with.video_codec = "libx264";
        Recording recording(info, with);
        write_pictures(recording, c.pictures);
        recording.stop();
        const Row format = probe(file, "-show_entries format=duration").at(0);
        EXPECT_NEAR(number(format, "duration"), c.end_sec, slack);
      }
    }
  }
}

// Noise, which no encoder makes small.
std::vector<uint8_t> noise(int frame) {
  std::vector<uint8_t> bgra(size_t{4} * kWidth * kHeight);
  uint32_t state = 12345U + static_cast<uint32_t>(frame);
  for (uint8_t& byte : bgra)
    byte = static_cast<uint8_t>((state = state * 1664525U + 1013904223U) >> 24);
  return bgra;
}

TEST(VariableRate, SpendsTheBitRateAtTheMeanRate) {
  for (const char* name : {"rate.mp4", "rate.avi", "rate.ts"}) {
    for (const int fps : {5, 40}) {
      SCOPED_TRACE(std::string(name) + " at " + std::to_string(fps));
      const fs::path file = work_file(name);
      MovieInfo info = pictures_only(file);
      info.video_bitrate = 1000 + 125 * fps;
      info.gop_size = 100;
      ZevaOptions with = options();
      with.variable_rate = 1;
      with.rate_num = fps;
      with.rate_den = 1;
      Recording recording(info, with);
      for (int n = 0; n < 8 * fps; ++n) {
        recording.picture(noise(n), kStartUs + int64_t{1000000} * n / fps);
      }
      recording.stop();
      const double kbit = 8.0 * static_cast<double>(fs::file_size(file)) / 1000 / 8;
      EXPECT_GT(kbit, info.video_bitrate * 0.7);
      EXPECT_LT(kbit, info.video_bitrate * 1.4);
    }
  }
}

// ---- encoders

TEST(Encoders, ByName) {
  const struct {
    const char* file;
    const char *video, *audio;
    const char *video_found, *audio_found;
  } cases[] = {
      {"named.flv", "libx264", "aac", "h264", "aac"},
      {"named.mkv", "mpeg4", "libopus", "mpeg4", "opus"},
      {"named.ts", "libx264", "aac", "h264", "aac"},
      {"named.avi", nullptr, "ac3", "mpeg4", "ac3"},
      {"named.mp4", nullptr, nullptr, "h264", "aac"},
      {"empty.mp4", "", "", "h264", "aac"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.file);
    const fs::path file = work_file(c.file);
    ZevaOptions with = options();
    with.video_codec = c.video;
    with.audio_codec = c.audio;
    Recording recording(settings(file), with);
    recording.feed(0, kFps);
    recording.stop();
    EXPECT_TRUE(recording.failures().empty());
    const std::vector<Row> found = streams(file);
    ASSERT_EQ(found.size(), 2U);
    EXPECT_EQ(found[0].at("codec_name"), c.video_found);
    EXPECT_EQ(found[1].at("codec_name"), c.audio_found);
    EXPECT_EQ(number(found[0], "nb_read_frames"), kFps);
    EXPECT_EQ(decode_faults(file), "");
  }
}

struct Refusal {
  const char* url;
  std::function<void(ZevaOptions&)> set;
  const char* told;
};

void expect_refusals(const std::vector<Refusal>& refusals) {
  for (const Refusal& r : refusals) {
    SCOPED_TRACE(r.told);
    const fs::path file = work_file(r.url);
    ZevaOptions with = options();
    r.set(with);
    Recording recording(settings(file), with);
    EXPECT_FALSE(recording.open());
    ASSERT_EQ(recording.statuses().size(), 1U);
    EXPECT_EQ(recording.statuses()[0].code, AVERROR(EINVAL));
    EXPECT_THAT(recording.statuses()[0].text, HasSubstr(r.told));
    EXPECT_FALSE(recording.sound(tone(0), kStartUs));
    recording.stop();
    EXPECT_FALSE(fs::exists(file));
  }
}

TEST(Options, ThatCannotBeAreRefusedByName) {
  using O = ZevaOptions;
  expect_refusals({
      {"a.mp4", [](O& o) { o.rate_num = 30, o.rate_den = -1; }, "rate_num/rate_den 30/-1"},
      {"a.mp4", [](O& o) { o.rate_num = 0, o.rate_den = 1; }, "rate_num/rate_den 0/1"},
      {"a.mp4", [](O& o) { o.rate_num = 1001, o.rate_den = 1; }, "rate_num/rate_den 1001/1"},
      {"a.mp4", [](O& o) { o.rate_num = INT32_MAX, o.rate_den = 1; }, "rate_num/rate_den 2147"},
      {"a.mp4", [](O& o) { o.variable_rate = 2; }, "variable_rate 2"},
      {"a.mp4", [](O& o) { o.channels = 9; }, "channels 9"},
      {"a.mp4", [](O& o) { o.channels = -1; }, "channels -1"},
      {"a.mp3", [](O& o) { o.channels = 6; }, "channels 6: libmp3lame"},
      {"a.wmv", [](O& o) { o.channels = 6; }, "channels 6"},
      {"a.mp4", [](O& o) { o.rotation_deg = 45; }, "rotation_deg 45"},
      {"a.mp4", [](O& o) { o.struct_size = 0; }, "struct_size 0"},
      {"a.mp4", [](O& o) { o.struct_size = 3; }, "struct_size 3"},
      {"a.mp4", [](O& o) { o.struct_size = 0xCCCCCCCC; }, "struct_size 3435973836"},
      {"a.mp4", [](O& o) { o.video_codec = "x264"; }, "video_codec 'x264'"},
      {"a.mp4", [](O& o) { o.video_codec = "aac"; }, "video_codec 'aac'"},
      {"a.mp4", [](O& o) { o.audio_codec = "libx264"; }, "audio_codec 'libx264'"},
      {"a.flv", [](O& o) { o.audio_codec = "flac"; }, "a.flv' cannot hold flac"},
      {"a.ts", [](O& o) { o.audio_codec = "flac"; }, "a.ts' cannot hold flac"},
      {"a.mpg", [](O& o) { o.audio_codec = "aac"; }, "a.mpg' cannot hold aac"},
      {"a.mp4", [](O& o) { o.audio_codec = "wmav2"; }, "a.mp4' cannot hold wmav2"},
      {"a.wav", [](O& o) { o.video_codec = "libx264"; }, "a.wav' cannot hold h264"},
      {"a.mp4", [](O& o) { o.encoder_options = "crf"; }, "'crf' is not of the form"},
      {"a.mp4", [](O& o) { o.encoder_options = "crf="; }, "'crf=' is not of the form"},
      {"a.mp4", [](O& o) { o.encoder_options = "=5"; }, "'=5' is not of the form"},
      {"a.mp4", [](O& o) { o.encoder_options = "crf=20:nonsense=1"; }, "'nonsense=1'"},
      {"a.mp4", [](O& o) { o.encoder_options = "crf=low"; }, "'crf=low'"},
      {"a.mp4", [](O& o) { o.encoder_options = "vbv-maxrate=much"; }, "'vbv-maxrate=much'"},
      {"a.mp4", [](O& o) { o.encoder_options = "x264-params=nonsense=1"; }, "'nonsense=1'"},
      {"a.mp4", [](O& o) { o.encoder_options = "preset=quick"; }, "encoder_options 'preset=quick'"},
      {"a.mp4", [](O& o) { o.encoder_options = "time_base=1/7"; }, "'time_base=1/7'"},
      {"a.mp4", [](O& o) { o.encoder_options = "fullrange=on"; }, "settles 'fullrange=on'"},
      {"a.mp4", [](O& o) { o.encoder_options = "x264-params=colormatrix=bt709"; }, "settles"},
      {"a.avi", [](O& o) { o.encoder_options = "crf=20"; }, "mpeg4 does not know 'crf=20'"},
  });
}

// The library reads no further than a record's size, and never half a pointer.
TEST(Options, OfOlderAndNewerHosts) {
  struct Newer {
    ZevaOptions known;
    int64_t more;
  };
  const struct {
    uint32_t size;
    int64_t more;
    int effective_fps;  // 0: refused
    const char* told;
  } cases[] = {
      {sizeof(uint32_t), 0, kFps, ""},
      {offsetof(ZevaOptions, variable_rate), 0, 50, ""},
      {offsetof(ZevaOptions, video_codec), 0, 50, ""},
      {offsetof(ZevaOptions, video_codec) + 4, 0, 50, ""},
      {sizeof(ZevaOptions), 1, 0, "video_codec 'no such'"},
      {sizeof(Newer), 0, 0, "video_codec 'no such'"},
      {sizeof(Newer), 1, 0, "does not know"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.size);
    Newer newer{options(), c.more};
    newer.known.struct_size = c.size;
    newer.known.rate_num = 50;
    newer.known.rate_den = 1;
    newer.known.video_codec = "no such";
    Recording recording(pictures_only(work_file("a.mp4")), newer.known);
    EXPECT_EQ(recording.open(), c.effective_fps != 0);
    if (c.effective_fps != 0) {
      EXPECT_EQ(recording.effective.fps, c.effective_fps);
    } else {
      ASSERT_EQ(recording.failures().size(), 1U);
      EXPECT_EQ(recording.failures()[0].code, AVERROR(EINVAL));
      EXPECT_THAT(recording.failures()[0].text, HasSubstr(c.told));
    }
  }
}

TEST(Options, ThatAFurtherOutputCannotHoldAreRefused) {
  const fs::path file = work_file("a.mp4"), other = work_file("b.flv");
  MovieInfo info = settings(file);
  const std::string url = utf8(other);
  info.other_urls[0] = url.c_str();
  ZevaOptions with = options();
  with.audio_codec = "ac3";
  Recording recording(info, with);
  ASSERT_EQ(recording.statuses().size(), 1U);
  EXPECT_EQ(recording.statuses()[0].code, AVERROR(EINVAL));
  EXPECT_THAT(recording.statuses()[0].text, HasSubstr("b.flv' cannot hold ac3"));
}

std::string encoder_text(const fs::path& file) {
  // libx264 writes its settings into the stream.
  const std::string bytes = read_file(file);
  const size_t begin = bytes.find("x264 - core");
  return begin == std::string::npos ? "" : bytes.substr(begin, bytes.find('\0', begin) - begin);
}

TEST(EncoderOptions, ReachTheEncoder) {
  const struct {
    const char* text;
    const char* found;
    const char* not_found;
  } cases[] = {
      {"crf=20", "rc=crf mbtree=0 crf=20.0", "vbv"},
      {"crf=20:vbv-maxrate=700:vbv-bufsize=1400", "vbv_maxrate=700 vbv_bufsize=1400", "rc=abr"},
      {"b=300000:g=7", "keyint=7 ", "crf"},
      {"x264-params=keyint=9\\:no-deblock=1:aq-mode=0", "deblock=0:", "keyint=25"},
      {"crf=20:qpstep=7:deblock=2\\:2", "qpstep=7", "rc=abr"},
      {"flags=low_delay:crf=20", "crf=20.0", "rc=abr"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    const fs::path file = work_file("options.mp4");
    MovieInfo info = pictures_only(file);
    info.video_bitrate = 0;
    ZevaOptions with = options();
    with.encoder_options = c.text;
    Recording recording(info, with);
    recording.feed(0, 5);
    recording.stop();
    EXPECT_TRUE(recording.failures().empty());
    const std::string told = encoder_text(file);
    EXPECT_THAT(told, HasSubstr(c.found));
    EXPECT_THAT(told, testing::Not(HasSubstr(c.not_found)));
    EXPECT_EQ(decode_faults(file), "");
  }
}

TEST(Profiles, ThatAreAcceptedAreUsed) {
  const struct {
    const char* profile;
    int pix_fmt;
    const char *found, *pixels;
  } cases[] = {
      {"baseline", AV_PIX_FMT_YUV420P, "Constrained Baseline", "yuv420p"},
      {"main", AV_PIX_FMT_YUV420P, "Main", "yuv420p"},
      {"high", AV_PIX_FMT_YUV420P, "High", "yuv420p"},
      {"high10", AV_PIX_FMT_YUV420P, "High 10", "yuv420p10le"},
      {"high10", AV_PIX_FMT_YUV420P10, "High 10", "yuv420p10le"},
      {"high422", AV_PIX_FMT_YUV420P, "High 4:2:2", "yuv422p"},
      {"high422", AV_PIX_FMT_YUV420P10, "High 4:2:2", "yuv422p10le"},
      {"high444", AV_PIX_FMT_YUV420P, "High 4:4:4 Predictive", "yuv444p"},
      {"high444", AV_PIX_FMT_YUV422P10, "High 4:4:4 Predictive", "yuv444p10le"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.profile);
    const fs::path file = work_file("profile.mp4");
    MovieInfo info = pictures_only(file);
    info.preset = kQualityVeryfast;
    info.profile = profile_from_str(c.profile);
    info.pix_fmt = c.pix_fmt;
    Recording recording(info, options());
    recording.feed(0, 5);
    recording.stop();
    const Row stream = streams(file).at(0);
    EXPECT_EQ(stream.at("profile"), c.found);
    EXPECT_EQ(stream.at("pix_fmt"), c.pixels);
    EXPECT_EQ(decode_faults(file), "");
  }
}

}  // namespace
