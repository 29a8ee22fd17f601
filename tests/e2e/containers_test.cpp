// What comes out of a recording: streams, pictures and sound of every container, and further
// outputs against the main one.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <sstream>

#include "judge.h"
#include "recording.h"

namespace {
using namespace zeva_test;  // NOLINT: a test reads better without the prefix
using testing::ElementsAre;
namespace fs = std::filesystem;

constexpr int kFrames = 2 * kFps;
constexpr double kFrameSeconds = 1.0 / kFps;
constexpr double kWithinOneFrame = 1.01 * kFrameSeconds;  // times are printed in decimals

std::vector<std::string> codecs(const fs::path& file) {
  std::vector<std::string> names;
  for (const Row& stream : streams(file)) names.push_back(stream.at("codec_name"));
  return names;
}

// The number behind `label` in what ffmpeg printed.
double number_after(const std::string& text, const std::string& label) {
  const size_t at = text.find(label);
  EXPECT_NE(at, std::string::npos) << "no " << label << " in " << text;
  return at == std::string::npos ? -1 : std::stod(text.substr(at + label.size()));
}

struct Container {
  const char* extension;
  const char* video;
  const char* audio;
};

void PrintTo(const Container& c, std::ostream* out) { *out << c.extension; }

class Containers : public testing::TestWithParam<Container> {};

// Black and silent, then everything at once: that moment must be one and the same in the movie.
TEST_P(Containers, HoldEveryFrameAndKeepSoundInStepWithPictures) {
  constexpr int kCue = kFrames - 10;
  const Container& c = GetParam();
  const fs::path file = work_file(std::string("movie.") + c.extension);
  MovieInfo info = settings(file);
  info.disable_video = c.video == nullptr;
  Recording recording(info);
  ASSERT_TRUE(recording.open());
  for (int frame = 0; frame < kFrames; ++frame) {
    const bool on = frame >= kCue;
    if (c.video != nullptr) {
      EXPECT_TRUE(recording.picture(on ? gradients(frame) : one_colour(0, 0, 0), time_us(frame)));
    }
    recording.sound(on ? tone(frame) : constant_sound(0), time_us(frame));
  }
  recording.stop();
  EXPECT_TRUE(recording.failures().empty());

  EXPECT_EQ(decode_faults(file), "");
  const std::vector<Row> found = streams(file);
  ASSERT_EQ(found.size(), c.video != nullptr ? 2U : 1U);
  const auto stream = [&](const char* type) {
    return *std::find_if(found.begin(), found.end(),
                         [&](const Row& row) { return row.at("codec_type") == type; });
  };
  const Row audio = stream("audio");
  EXPECT_EQ(audio.at("codec_name"), c.audio);
  EXPECT_EQ(number(audio, "channels"), 2);
  EXPECT_EQ(number(audio, "sample_rate"), recording.effective.sample_rate);
  const double seconds = number(probe(file, "-show_format").at(0), "duration");
  EXPECT_NEAR(seconds, kFrames * kFrameSeconds, 0.1);

  const std::string cues = run_shell("ffmpeg -hide_banner -i " + shell_path(file) +
                                     " -vf blackdetect=d=0.1:pix_th=0.1 "
                                     "-af silencedetect=n=-30dB:d=0.1 -f null -")
                               .output;
  const double heard = number_after(cues, "silence_end: ");
  EXPECT_NEAR(heard, kCue * kFrameSeconds, kWithinOneFrame);
  if (c.video == nullptr) return;
  const Row video = stream("video");
  EXPECT_EQ(video.at("codec_name"), c.video);
  EXPECT_EQ(number(video, "width"), kWidth);
  EXPECT_EQ(number(video, "height"), kHeight);
  EXPECT_EQ(number(video, "nb_read_frames"), kFrames);
  const double seen = number_after(cues, "black_end:");
  EXPECT_NEAR(seen, kCue * kFrameSeconds, kWithinOneFrame);
  EXPECT_NEAR(seen, heard, kWithinOneFrame);
}

INSTANTIATE_TEST_SUITE_P(
    All, Containers,
    testing::Values(Container{"mp4", "h264", "aac"}, Container{"mkv", "h264", "ac3"},
                    Container{"flv", "flv1", "mp3"}, Container{"ts", "mpeg2video", "mp2"},
                    Container{"avi", "mpeg4", "mp3"}, Container{"mpg", "mpeg1video", "mp2"},
                    Container{"mp3", nullptr, "mp3"}),
    [](const auto& param) { return param.param.extension; });

TEST(Pictures, OfAnMp4ResembleTheSource) {
  const fs::path file = work_file("movie.mp4");
  const fs::path source = work_file("source.bgra");
  MovieInfo info = settings(file);
  info.disable_audio = true;
  Recording recording(info);
  std::ofstream raw(source, std::ios::binary);
  for (int frame = 0; frame < kFrames; ++frame) {
    const std::vector<uint8_t> tight = gradients(frame);
    raw.write(reinterpret_cast<const char*>(tight.data()), static_cast<int64_t>(tight.size()));
    // Rows with padding behind them, as capture devices deliver.
    EXPECT_TRUE(recording.picture(gradients(frame, 4 * kWidth + 64), time_us(frame)));
  }
  raw.close();
  recording.stop();
  const std::string report = run_shell("ffmpeg -hide_banner -i " + shell_path(file) +
                                       " -f rawvideo -pix_fmt bgra -s 320x180 -r 25 -i " +
                                       shell_path(source) + " -lavfi '[0:v][1:v]ssim' -f null -")
                                 .output;
  EXPECT_GE(number_after(report, "SSIM Y:"), 0.95);
  EXPECT_GE(number_after(report, "All:"), 0.95);
}

TEST(Pictures, KeepBlueGreenAndRedApart) {
  const fs::path file = work_file("colours.mp4");
  MovieInfo info = settings(file);
  info.disable_audio = true;
  Recording recording(info);
  const std::vector<uint8_t> colours[] = {one_colour(220, 20, 20), one_colour(20, 220, 20),
                                          one_colour(20, 20, 220)};
  for (int frame = 0; frame < 3; ++frame) recording.picture(colours[frame], time_us(frame));
  recording.stop();
  const std::string decoded = decode(file, "-f rawvideo -pix_fmt bgra");
  ASSERT_EQ(decoded.size(), 3 * colours[0].size());
  for (size_t frame = 0; frame < 3; ++frame) {
    const size_t middle = frame * colours[0].size() + (size_t{90} * kWidth + 160) * 4;
    for (size_t channel = 0; channel < 3; ++channel) {
      EXPECT_NEAR(static_cast<uint8_t>(decoded[middle + channel]), channel == frame ? 220 : 20, 12)
          << "frame " << frame << ", channel " << channel;
    }
  }
}

// ---- further outputs

std::vector<Row> packets_of(const fs::path& file, const std::string& stream) {
  return probe(file, "-show_packets -show_entries packet=pts_time,size -select_streams " + stream);
}

// Decoding is exact: equal packets give equal pictures and samples. Only an MP4 can tell a player
// to drop the encoder's lead-in, so that it is asked for all of them.
std::vector<std::string> decoded_hashes(const fs::path& file, const std::string& stream) {
  const std::string everything = file.extension() == ".mp4" ? "-ignore_editlist 1" : "";
  std::istringstream lines(
      decode(file, "-map 0:" + stream + " -vsync passthrough -f framehash", everything));
  std::vector<std::string> hashes;
  for (std::string line; std::getline(lines, line);) {
    if (line[0] != '#') hashes.push_back(line.substr(line.rfind(',')));
  }
  return hashes;
}

TEST(FurtherOutputs, HoldTheSamePacketsAsTheMainOne) {
  const fs::path main = work_file("main.mp4");
  const fs::path others[] = {work_file("other.flv"), work_file("other.mkv"), work_file("other.ts")};
  std::string urls[3];
  MovieInfo info = settings(main);
  for (int i = 0; i < 3; ++i) {
    urls[i] = utf8(others[i]);
    info.other_urls[i] = urls[i].c_str();
  }
  Recording recording(info);
  ASSERT_TRUE(recording.open());
  recording.feed(0, kFrames);
  recording.stop();
  EXPECT_TRUE(recording.failures().empty());

  for (const fs::path& other : others) {
    SCOPED_TRACE(other.extension().string());
    EXPECT_EQ(decode_faults(other), "");
    EXPECT_THAT(codecs(other), ElementsAre("h264", "aac"));
    for (const char* stream : {"v", "a"}) {
      SCOPED_TRACE(stream);
      EXPECT_EQ(decoded_hashes(other, stream), decoded_hashes(main, stream));
      const std::vector<Row> expected = packets_of(main, stream);
      const std::vector<Row> found = packets_of(other, stream);
      ASSERT_EQ(found.size(), expected.size());
      const bool wrapped = other.extension() == ".ts";  // start codes and ADTS headers are added
      for (size_t i = 0; i < found.size(); ++i) {
        const auto time = [i](const std::vector<Row>& all) {
          return number(all[i], "pts_time") - number(all[0], "pts_time");
        };
        EXPECT_NEAR(time(found), time(expected), 0.0011) << "packet " << i;
        if (wrapped) continue;
        EXPECT_EQ(found[i].at("size"), expected[i].at("size")) << "packet " << i;
      }
    }
  }
}

}  // namespace
