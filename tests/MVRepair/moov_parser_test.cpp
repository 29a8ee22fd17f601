#include "moov_parser.h"

#include <gtest/gtest.h>

#include "log_capture.h"
#include "temp_dir.h"

namespace {

constexpr char kHeader[] = "## version=2, test\r\n";
constexpr char kAudio[] = R"({"type":"audio","sample_rate":48000,"channels":2,"ev":""})"
                          "\r\n";

std::string video(const std::string& ev) { return R"({"type":"video","ev":")" + ev + "\"}\n"; }

std::string write(const TempDir& dir, const std::string& text) {
  const std::string path = dir.path("索引.index");
  FILE* file = zeva::open_file(path.c_str(), "wb");
  fwrite(text.data(), 1, text.size(), file);
  fclose(file);
  return path;
}

TEST(MoovParser, DescribesStreamsOrSaysWhyNot) {
  const std::string other_sound = R"({"type":"audio","sample_rate":44100,"channels":1})";
  const struct {
    std::string index;
    bool good;
    const char* message;
    const char* video_ev;
    const char* audio_ev;
  } cases[] = {
      {kHeader, false, "未找到有效的音视频流: ", "", ""},
      {std::string(kHeader) + ",48,1,,,,1;\n" + kAudio, false, "未找到有效的音视频流: ", "", ""},
      {std::string(kHeader) + kAudio, true, "---> 没有检测到视频流", "", "EZA="},
      {video("") + other_sound, true, "--> no global PPS/SPS, generate ...",
       "AULAKP/hABhnQsAo2gHgCJ+WEAAAAwAQAAADAojxgyoBAARozg/I", "Egg="},
      {video("AAAAAWdCwCjaAAAAAWjOAAAAAA=="), true, "---> 没有检测到音频流",
       "AULAKP/hAAVnQsAo2gEAAmjO", ""},
      {video("AULAKP/hAAVnQsAo2gEAAmjO"), false, "no sps/pps", "", ""},
      {video("AAAAAWdCwCjaAAAAAQ=="), false, "未找到v_extradata", "", ""},
      {video("this is no base64!"), false, "no sps/pps", "", ""},
      {R"({"type":"audio","ev":"AAEC"})", true, "---> 没有检测到视频流", "", "AAEC"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.index);
    const TempDir dir;
    const LogCapture log;
    zeva::MoovParser parser;
    EXPECT_EQ(parser.parse(write(dir, c.index).c_str()), c.good);
    EXPECT_EQ(log.count(c.message), 1);
    if (!c.good) continue;
    EXPECT_EQ(parser.streams().video.ev, c.video_ev);
    EXPECT_EQ(parser.streams().audio.ev, c.audio_ev);
  }
  const TempDir dir;
  const LogCapture log;
  for (const std::string& path : {dir.path("missing"), dir.path(""), std::string()}) {
    EXPECT_FALSE(zeva::MoovParser().parse(path.c_str()));
  }
  EXPECT_EQ(log.count("无法打开moov文件: "), 3);
}

TEST(MoovParser, HandsOutRecordLines) {
  const TempDir dir;
  const std::string head = std::string(kHeader) + kAudio + "# note\n";
  const std::string lines = ",,1,,,,1;\r\n,,2,,,,1;\n" + std::string(10000, 'x') + "\nlast";
  zeva::MoovParser parser;
  ASSERT_TRUE(parser.parse(write(dir, head + lines).c_str()));
  EXPECT_EQ(parser.version(), 2);
  EXPECT_EQ(parser.progress(), 0.0);
  std::string all;
  const auto total = static_cast<double>((head + lines).size());
  for (int64_t number = 4; const char* line = parser.next_record_line(); ++number) {
    EXPECT_EQ(parser.line_number(), number);
    EXPECT_DOUBLE_EQ(parser.progress(), static_cast<double>(head.size() + all.size()) / total);
    all += line;
  }
  EXPECT_EQ(all, lines);
  EXPECT_EQ(parser.line_number(), 8) << "the long line comes in two pieces";
  EXPECT_EQ(parser.progress(), 1.0);
  parser.reset();
  EXPECT_EQ(parser.next_record_line(), nullptr);
}

}  // namespace
