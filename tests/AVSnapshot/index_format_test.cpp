#include "index_format.h"

#include <gtest/gtest.h>

#include <limits>

#include "media.h"

namespace {

using zeva::IndexRecord;

TEST(IndexFormat, ZeroIsAnEmptyField) {
  constexpr int64_t kLow64 = std::numeric_limits<int64_t>::min();
  constexpr int32_t kLow32 = std::numeric_limits<int32_t>::min();
  const struct {
    IndexRecord record;
    std::string text;
  } cases[] = {
      {{}, ",,,,,,;"},
      {{1, 48, 371, 1024, 512, 960, 1}, "1,48,371,1024,512,960,1;"},
      {{0, 0, 5123, 0, -1024, 512, 1}, ",,5123,,-1024,512,1;"},
      {{kLow32, kLow64, kLow32, kLow64, kLow64, kLow64, kLow32},
       "-2147483648,-9223372036854775808,-2147483648,-9223372036854775808,-9223372036854775808,"
       "-9223372036854775808,-2147483648;"},
  };
  for (const auto& c : cases) {
    std::string out(zeva::kIndexRecordMaxBytes, '#');
    EXPECT_EQ(zeva::format_index_record(c.record, out.data()), static_cast<int>(c.text.size()));
    EXPECT_STREQ(out.c_str(), c.text.c_str());  // the longest fits, with its terminating zero
  }
}

TEST(IndexFormat, DescribesStreams) {
  const zeva::FormatContextPtr oc = make_output("x.mp4", false);
  AVStream* subtitle = avformat_new_stream(oc.get(), nullptr);
  subtitle->codecpar->codec_type = AVMEDIA_TYPE_SUBTITLE;
  EXPECT_EQ(zeva::index_stream_line(*oc->streams[0]),
            R"({"type":"video","index":0,"codec":"mpeg4","format":"yuv420p","h":48,"w":64,)"
            R"("tb.num":1,"tb.den":12800,"ev":""})");
  EXPECT_EQ(zeva::index_stream_line(*oc->streams[1]),
            R"({"type":"audio","index":1,"codec":"aac","format":"fltp","channels":2,)"
            R"("frame_size":1024,"sample_rate":48000,"tb.num":1,"tb.den":48000,"ev":"EZA="})");
  EXPECT_EQ(zeva::index_stream_line(*subtitle), "");
  EXPECT_EQ(zeva::index_header_line().rfind("## version=2, ", 0), 0U);
  EXPECT_EQ(zeva::index_header_line().back(), '\n');
}

}  // namespace
