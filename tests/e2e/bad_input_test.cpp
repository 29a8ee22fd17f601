// Bad input gets a clear answer: never a crash, a hang or a movie that claims success.
#include <gtest/gtest.h>

#include <algorithm>

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/mem.h>
}

#include "judge.h"
#include "recording.h"
#include "zeva/status.h"

namespace {
using namespace zeva_test;  // NOLINT: a test reads better without the prefix
namespace fs = std::filesystem;

constexpr int kLogError = 2;

bool has_error(const std::vector<LogLine>& lines, const std::string& part) {
  return std::any_of(lines.begin(), lines.end(), [&](const LogLine& line) {
    return line.level <= kLogError && line.message.find(part) != std::string::npos;
  });
}

struct BadStart {
  const char* what;
  void (*spoil)(MovieInfo&);
  const char* told = "";  // part of the status text
};

const BadStart kBadStarts[] = {
    {"empty URL", [](MovieInfo& i) { i.url[0] = '\0'; }},
    {"URL without terminator", [](MovieInfo& i) { memset(i.url, 'u', sizeof i.url); }},
    // 600 bytes run over the URL's field into the index path's.
    {"URL of 600 bytes", [](MovieInfo& i) { memset(reinterpret_cast<char*>(&i), 'u', 600); }},
    {"index path without terminator",
     [](MovieInfo& i) { memset(i.moov_url, 'm', sizeof i.moov_url); }},
    {"metadata without terminator",
     [](MovieInfo& i) { memset(i.meta_info, 'k', sizeof i.meta_info); }},
    {"missing folder", [](MovieInfo& i) { set_text(i.url, "no such folder/movie.mp4"); }},
    // Not even the administrator can write there.
    {"folder that cannot be written",
     [](MovieInfo& i) {
       const fs::path blocker = work_file("plain file");
       if (FILE* made = fopen(utf8(blocker).c_str(), "w")) fclose(made);
       set_text(i.url, utf8(blocker / "movie.mp4"));
     }},
    {"further output with an empty URL", [](MovieInfo& i) { i.other_urls[0] = ""; },
     "clone: invalid paramters"},
    {"further output of no known kind", [](MovieInfo& i) { i.other_urls[0] = "other.nothing"; },
     "guss format is null"},
    {"further output in a missing folder",
     [](MovieInfo& i) { i.other_urls[0] = "no such folder/b.mp4"; },
     "io open failed: No such file or directory, no such folder/b.mp4"},
    {"further output that holds no pictures", [](MovieInfo& i) { i.other_urls[0] = "c.wav"; },
     "Invalid argument"},
    {"four further outputs", [](MovieInfo& i) { std::fill_n(i.other_urls, 4, "never_made.flv"); }},
    {"both streams disabled", [](MovieInfo& i) { i.disable_audio = i.disable_video = true; }},
    {"fps 0", [](MovieInfo& i) { i.fps = 0; }},
    {"odd size", [](MovieInfo& i) { i.width = 321, i.height = 181; }},
    {"width 0", [](MovieInfo& i) { i.width = 0; }},
    {"height 0", [](MovieInfo& i) { i.height = 0; }},
    {"width beyond all codecs", [](MovieInfo& i) { i.width = 1 << 30; }},
    {"source width -320", [](MovieInfo& i) { i.src_width = -320; }},
    {"group of -1 pictures", [](MovieInfo& i) { i.gop_size = -1; }},
    {"negative video bit rate", [](MovieInfo& i) { i.video_bitrate = -600; }},
    {"negative audio bit rate", [](MovieInfo& i) { i.audio_bitrate = -128; }},
    {"9 channels", [](MovieInfo& i) { i.channels = 9; }},
    {"-2 channels", [](MovieInfo& i) { i.channels = -2; }},
    {"sample rate -48000", [](MovieInfo& i) { i.sample_rate = i.src_sample_rate = -48000; }},
    {"unknown sample format", [](MovieInfo& i) { i.sample_fmt = 99; }},
    {"unknown pixel format", [](MovieInfo& i) { i.pix_fmt = 9999; }},
    {"unknown source pixel format", [](MovieInfo& i) { i.src_pix_fmt = 9999; }},
    {"no source pixel format", [](MovieInfo& i) { i.src_pix_fmt = -1; }},
    {"preset 11", [](MovieInfo& i) { i.preset = static_cast<Quality_Level>(11); }},
    {"preset -1", [](MovieInfo& i) { i.preset = static_cast<Quality_Level>(-1); }},
    {"profile 7", [](MovieInfo& i) { i.profile = static_cast<Profile_Level>(7); }},
    {"tune 1000000", [](MovieInfo& i) { i.tune = static_cast<Tune_Level>(1000000); }},
};

TEST(BadSettings, AreToldByStatusAndLogAndNothingIsRecorded) {
  for (const BadStart& bad : kBadStarts) {
    SCOPED_TRACE(bad.what);
    MovieInfo info = settings(work_file("movie.mp4"));
    bad.spoil(info);
    LogCapture log;
    Recording recording(info);
    const std::vector<Status> told = recording.statuses();
    ASSERT_EQ(told.size(), 1U);
    EXPECT_NE(told[0].code, 0);
    EXPECT_NE(told[0].text, "");
    EXPECT_NE(told[0].text.find(bad.told), std::string::npos) << told[0].text;
    EXPECT_TRUE(has_error(log.take(), told[0].text)) << "not in the log: " << told[0].text;
    // Everything that needs an open output is refused, and the recording can be stopped.
    EXPECT_FALSE(recording.open());
    EXPECT_FALSE(recording.picture(gradients(0), time_us(0)));
    EXPECT_FALSE(recording.sound(tone(0), time_us(0)));
    EXPECT_FALSE(ZEVA_write_audio_pcm(recording.handle, nullptr, 0, time_us(9)));
    EXPECT_FALSE(ZEVA_pause(recording.handle));
    EXPECT_FALSE(ZEVA_resume(recording.handle));
    recording.stop();
    EXPECT_EQ(recording.statuses().size(), 1U);
  }
}

// Fields that only describe the host's pictures and sound may be left out by hosts that give none.
TEST(BadSettings, OfTheSourceRefuseItsPicturesAndSound) {
  const struct {
    const char* what;
    void (*spoil)(MovieInfo&);
    bool pictures;
  } cases[] = {
      {"source width 0", [](MovieInfo& i) { i.src_width = 0; }, true},
      {"source height 0", [](MovieInfo& i) { i.src_height = 0; }, true},
      {"0 channels", [](MovieInfo& i) { i.channels = 0; }, false},
      {"source sample rate 0", [](MovieInfo& i) { i.src_sample_rate = 0; }, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    MovieInfo info = settings(work_file("movie.mp4"));
    c.spoil(info);
    LogCapture log;
    Recording recording(info);
    EXPECT_EQ(recording.open(), recording.failures().empty());
    log.take();
    for (int frame = 0; frame < 5; ++frame) {
      EXPECT_FALSE(c.pictures ? recording.picture(gradients(frame), time_us(frame))
                              : recording.sound(tone(frame), time_us(frame)));
    }
    EXPECT_TRUE(!recording.open() || has_error(log.take(), "")) << "refused without a word";
  }
}

// The movie matters more than its index.
TEST(BadSettings, AnIndexInAMissingFolderIsLoggedOnly) {
  const fs::path file = work_file("movie.mp4");
  MovieInfo info = settings(file);
  set_text(info.moov_url, "no such folder/movie.index");
  const LogCapture log;
  Recording recording(info);
  ASSERT_TRUE(recording.open());
  recording.feed(0, kFps);
  recording.stop();
  EXPECT_GE(log.count("movie.index"), 1);
  EXPECT_EQ(decode_faults(file), "");
}

// ---- while recording

void write_wrong_strides(Recording& r) {
  std::vector<uint8_t> picture = gradients(0);
  const auto size = static_cast<int>(picture.size());
  for (const int stride : {0, 1, 4 * kWidth - 1, -4}) {
    EXPECT_FALSE(ZEVA_write_video_bgra(r.handle, picture.data(), size, time_us(10), stride));
  }
  EXPECT_FALSE(ZEVA_write_video_bgra(r.handle, nullptr, size, time_us(10), 4 * kWidth));
}

void write_wrong_lengths(Recording& r) {
  std::vector<int16_t> pcm = tone(0);
  for (const int bytes : {-4, INT32_MIN, 0}) {
    EXPECT_FALSE(ZEVA_write_audio_pcm(r.handle, pcm.data(), bytes, time_us(10)));
  }
}

void write_silence_that_goes_back(Recording& r) {
  for (const int frame : {3, -1000}) {
    EXPECT_FALSE(ZEVA_write_audio_pcm(r.handle, nullptr, 0, time_us(frame)));
  }
}

void write_pictures_that_go_back(Recording& r) {
  for (const int64_t time : {time_us(9), time_us(5), time_us(0), time_us(9) - 3600000000}) {
    EXPECT_FALSE(r.picture(one_colour(0, 0, 255), time));
  }
}

void write_frames_not_as_announced(Recording& r) {
  const AVRational microseconds{1, 1000000};
  EXPECT_FALSE(ZEVA_write_video_frame(r.handle, nullptr, microseconds));
  EXPECT_FALSE(ZEVA_write_audio_frame(r.handle, nullptr, microseconds));
  const struct {
    int format, width, height;
  } frames[] = {{-1, 0, 0}, {AV_PIX_FMT_BGRA, 16, 16}, {AV_PIX_FMT_BGRA, kWidth, kHeight - 2}};
  for (const auto& f : frames) {
    AVFrame* frame = av_frame_alloc();
    frame->format = f.format;
    frame->width = f.width;
    frame->height = f.height;
    EXPECT_EQ(av_frame_get_buffer(frame, 0) == 0, f.width > 0);
    frame->pts = time_us(10);
    EXPECT_FALSE(ZEVA_write_video_frame(r.handle, frame, microseconds)) << f.height;
    frame->pts = time_us(10);
    EXPECT_FALSE(ZEVA_write_audio_frame(r.handle, frame, microseconds)) << f.height;
    av_frame_free(&frame);
  }
}

// Good input, then bad, then good input again: the movie holds just the good input.
TEST(BadInput, IsRefusedAndLoggedAndTheRecordingGoesOn) {
  const struct {
    const char* what;
    void (*write)(Recording&);
    const char* log;
  } cases[] = {
      {"stride shorter than a row", write_wrong_strides, "stride"},
      {"sound of negative length", write_wrong_lengths, "bytes of sound"},
      {"silence whose time goes back", write_silence_that_goes_back, "refused"},
      {"pictures whose time does not grow", write_pictures_that_go_back, "@@@ V pts"},
      {"frames not as announced", write_frames_not_as_announced, "refused a picture"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    const fs::path file = work_file("movie.mp4");
    LogCapture log;
    Recording recording(settings(file));
    ASSERT_TRUE(recording.open());
    recording.feed(0, 10);
    log.take();
    c.write(recording);
    EXPECT_GE(log.count(c.log), 1);
    recording.feed(10, 2 * kFps);
    recording.stop();
    EXPECT_TRUE(recording.failures().empty());
    EXPECT_EQ(decode_faults(file), "");
    const std::vector<Row> found = streams(file);
    ASSERT_EQ(found.size(), 2U);
    EXPECT_EQ(number(found[0], "nb_read_frames"), 2 * kFps);
    EXPECT_NEAR(number(found[1], "duration"), 2, 0.1);
  }
}

// Every picture is a key frame, and ten pieces of sound are a packet of PCM: what the encoders put
// out needs more memory than there is, and little else does: these containers do not.
TEST(ShortOfMemory, TheHostIsToldOnceOfWhatTheEncodersRefuse) {
  for (const bool pictures : {true, false}) {
    SCOPED_TRACE(pictures);
    const fs::path file = work_file(pictures ? "movie.h264" : "sound.wav");
    MovieInfo info = settings(file);
    info.disable_audio = pictures;
    info.disable_video = !pictures;
    info.gop_size = 1;
    info.video_bitrate = 8000;
    Recording recording(info);
    ASSERT_TRUE(recording.open());
    const std::vector<int16_t> piece(size_t{2} * 1000, 99);
    const auto write = [&](int n) {
      return pictures ? recording.picture(gradients(n), time_us(n))
                      : recording.sound(piece, time_us(0) + int64_t{n} * 1000000000 / kSampleRate);
    };
    for (int n = 0; n < 60; ++n) {
      const bool short_of_memory = n / 10 % 2 == 1;
      if (n % 10 == 0) av_max_alloc(short_of_memory ? 4500 : INT32_MAX);
      EXPECT_EQ(write(n), !short_of_memory && (pictures || n % 10 == 9)) << n;
    }
    av_max_alloc(INT32_MAX);
    recording.stop();
    const std::vector<Status> told = recording.failures();
    EXPECT_EQ(told.size(), 3U) << "once for each of the three times";
    for (const Status& status : told) {
      EXPECT_EQ(status.code, pictures ? kZevaStatusPictureRefused : kZevaStatusSoundRefused);
      EXPECT_NE(status.text.find("Cannot allocate memory"), std::string::npos) << status.text;
    }
    if (pictures) {
      EXPECT_EQ(number(streams(file).at(0), "nb_read_frames"), 30);
    } else {
      EXPECT_EQ(decode(file, "-f s16le").size(), size_t{3} * 10000 * 4);
    }
    EXPECT_EQ(decode_faults(file), "");
  }
}

TEST(BrokenOutput, TakesNoMorePictures) {
  if (!fs::exists("/dev/full")) GTEST_SKIP() << "no disk that is always full";
  const fs::path file = work_file("full.h264");
  fs::create_symlink("/dev/full", file);
  MovieInfo info = settings(file);
  info.disable_audio = true;
  info.gop_size = 1;
  Recording recording(info);
  ASSERT_TRUE(recording.open());
  int taken = 0;
  while (taken < 2000 && recording.picture(gradients(taken), time_us(taken))) ++taken;
  EXPECT_LT(taken, 2000);
  EXPECT_FALSE(recording.picture(gradients(0), time_us(2001)));
  recording.stop();
  ASSERT_EQ(recording.failures().size(), 1U);
  EXPECT_EQ(recording.failures()[0].code, AVERROR(ENOSPC));
}

TEST(BadInput, SoundWhoseTimeGoesBackKeepsTheMovieWhole) {
  const fs::path file = work_file("back.mp4");
  Recording recording(settings(file));
  recording.feed(0, kFps);
  for (int frame = 0; frame < 5; ++frame) {
    EXPECT_FALSE(recording.sound(tone(frame), time_us(frame)));
  }
  recording.feed(kFps, 2 * kFps);
  recording.stop();
  EXPECT_TRUE(recording.failures().empty());
  EXPECT_EQ(decode_faults(file), "");
}

}  // namespace
