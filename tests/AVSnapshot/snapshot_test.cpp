#include "snapshot.h"

#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <vector>

#include "media.h"
#include "temp_dir.h"

namespace {

std::vector<std::string> lines_of(const std::string& path) {
  std::vector<std::string> lines;
  std::istringstream text(read_file(path));
  for (std::string line; std::getline(text, line);) {
    if (!line.empty() && line.back() == '\r') line.pop_back();  // text mode on Windows
    lines.push_back(line);
  }
  return lines;
}

void add_subtitle_stream(AVFormatContext* oc) {
  AVStream* st = avformat_new_stream(oc, nullptr);
  st->codecpar->codec_type = AVMEDIA_TYPE_SUBTITLE;
  st->codecpar->codec_id = AV_CODEC_ID_DVD_SUBTITLE;
  st->time_base = {1, 12800};
}

TEST(Snapshot, TellsStreamsAtOnceAndPacketsOnePacketLate) {
  constexpr int kPictures = 1, kSubtitles = 2, kSound = 3;
  const TempDir dir;
  const std::string index = dir.path("a.index");
  AVFormatContext* made = nullptr;
  ASSERT_GE(avformat_alloc_output_context2(&made, nullptr, "mp4", dir.path("a.mp4").c_str()), 0);
  const zeva::FormatContextPtr oc(made);
  add_subtitle_stream(made);
  add_picture_stream(made);
  add_subtitle_stream(made);
  add_sound_stream(made);
  ASSERT_GE(avio_open(&made->pb, made->url, AVIO_FLAG_WRITE), 0);
  auto snapshot = std::make_unique<zeva::Snapshot>();
  ASSERT_TRUE(snapshot->open(index.c_str()));
  ASSERT_TRUE(snapshot->attach(made));
  ASSERT_GE(avformat_write_header(made, nullptr), 0);

  // A stream that is neither repeats the line before it.
  const std::string pictures =
      R"({"type":"video","index":1,"codec":"mpeg4","format":"yuv420p","h":48,"w":64,)"
      R"("tb.num":1,"tb.den":12800,"ev":""})";
  const std::string sound =
      R"({"type":"audio","index":3,"codec":"aac","format":"fltp","channels":2,)"
      R"("frame_size":1024,"sample_rate":48000,"tb.num":1,"tb.den":48000,"ev":"EZA="})";
  const std::vector<std::string> described{"", pictures, pictures, sound};
  std::vector<std::string> lines = lines_of(index);
  EXPECT_EQ(lines.at(0).rfind("## version=2, ", 0), 0U);
  lines.erase(lines.begin());
  EXPECT_EQ(lines, described);

  const std::string start = std::to_string(avio_tell(made->pb));
  const struct {
    int stream;
    int64_t pts, duration;
    int size;
    bool key;
  } packets[] = {{kPictures, 0, 1024, 50, true},     {kSound, 0, 1024, 20, true},
                 {kSound, 1024, 1024, 21, true},     {kPictures, 1024, 512, 51, false},
                 {kPictures, 1536, 1024, 52, false}, {kSound, 2048, 7, 22, true},
                 {kSubtitles, 1600, 9, 23, true},    {kPictures, 2000, 512, 53, false}};
  for (const auto& p : packets) {
    const auto packet = make_packet(p.stream, p.pts, p.pts, p.duration, p.size, p.key);
    ASSERT_EQ(av_write_frame(made, packet.get()), 0);
  }
  ASSERT_EQ(av_write_trailer(made), 0);
  snapshot.reset();
  EXPECT_EQ(lines_of(index).back(), "1," + start +
                                        ",50,,,,1;"            // a picture, then sound
                                        "3,,20,,,,1;"          // sound, then sound
                                        "3,,21,1024,,1024,1;"  // sound, then a picture
                                        "1,,51,1024,,512,;"
                                        "1,,52,512,,,;"  // a picture, then sound
                                        "3,,22,1024,,7,1;"
                                        "2,,23,64,,9,1;");  // counts on from the pictures
  avio_closep(&made->pb);
}

}  // namespace
