#include "moov_parser.h"

#include <gtest/gtest.h>

#include "log_capture.h"
#include "temp_dir.h"

namespace {

const std::string kHeader = "## version=2, test\r\n";
const std::string kAudio =
    "{\"type\":\"audio\",\"sample_rate\":48000,\"channels\":2,\"ev\":\"\"}\r\n";

std::string video(const std::string& ev) { return R"({"type":"video","ev":")" + ev + "\"}\n"; }

TEST(MoovParser, DescribesStreamsOrSaysWhyNot) {
  const TempDir dir;
  const std::string path = dir.path("索引.index");
  const struct {
    std::string index;
    bool good;
    const char *message, *video_ev, *audio_ev;
  } cases[] = {
      {kHeader + ",48,1,,,,1;\n" + kAudio, false, "未找到有效的音视频流: ", "", ""},
      {kHeader + kAudio, true, "---> 没有检测到视频流", "", "EZA="},
      {video("") + R"({"type":"audio","sample_rate":44100,"channels":1})", true,
       "--> no global PPS/SPS, generate ...",
       "AULAKP/hABhnQsAo2gHgCJ+WEAAAAwAQAAADAojxgyoBAARozg/I", "Egg="},
      {video("AAAAAWdCwCjaAAAAAWjOAAAAAA=="), true, "没有检测到音频流", "AULAKP/hAAVnQsAo2gEAAmjO",
       ""},
      {video("AULAKP/hAAVnQsAo2gEAAmjO"), false, "no sps/pps", "", ""},
      {video("AAAAAWdCwCjaAAAAAQ=="), false, "未找到v_extradata", "", ""},
      {video("this is no base64!"), false, "no sps/pps", "", ""},
      {R"({"type":"audio","ev":"AAEC"})", true, "---> 没有检测到视频流", "", "AAEC"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.index);
    write_file(path, c.index);
    const LogCapture log;
    zeva::MoovParser parser;
    EXPECT_EQ(parser.parse(path.c_str()), c.good);
    EXPECT_EQ(log.count(c.message), 1);
    if (!c.good) continue;
    EXPECT_EQ(parser.streams().video.ev, c.video_ev);
    EXPECT_EQ(parser.streams().audio.ev, c.audio_ev);
  }
}

TEST(MoovParser, HandsOutRecordLines) {
  const TempDir dir;
  const LogCapture quiet;
  const std::string path = dir.path("movie.index"), long_line(9999, 'x');
  write_file(path, kHeader + kAudio + "# note\n,,1,,,,1;\r\n" + long_line + "\nlast");
  zeva::MoovParser parser;
  ASSERT_TRUE(parser.parse(path.c_str()));
  EXPECT_EQ(parser.progress(), 0.0);
  std::string all;
  double before = 0;
  for (; const char* line = parser.next_record_line(); before = parser.progress()) {
    EXPECT_GT(parser.progress(), before);
    all += line;
  }
  EXPECT_EQ(all, ",,1,,,,1;" + long_line + "last");
  EXPECT_EQ(parser.line_number(), 7) << "the long line comes in two pieces";
  EXPECT_EQ(parser.progress(), 1.0);
}

}  // namespace
