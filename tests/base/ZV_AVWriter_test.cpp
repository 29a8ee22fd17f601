#include "ZV_AVWriter.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <future>

#include "log_capture.h"
#include "media.h"
#include "temp_dir.h"
#include "writer_clone.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;
using zeva::WriterResult;
using ZV::ZV_AVWriter;

constexpr AVRational kFrames{1, 25};

// Counts an output's error reports.
struct ErrorReports {
  static void on_error(int code, const char* message, void* self) {
    auto& reports = *static_cast<ErrorReports*>(self);
    reports.last_code = code;
    EXPECT_STRNE(message, "");
    if (reports.count++ == 0) reports.first.set_value();
  }
  std::atomic<int> count{0};
  std::atomic<int> last_code{0};
  std::promise<void> first;
};

class WriterTest : public testing::Test {
 protected:
  void make_main(const std::string& name, uint32_t limit = 60, uint32_t allowance = 1000) {
    oc = make_output(dir.path(name));
    ASSERT_TRUE(oc);
    writer = std::make_unique<ZV_AVWriter>(limit, allowance, dir.path(name).c_str());
    writer->error_callback = ErrorReports::on_error;
    writer->error_user = &errors;
  }
  void add_others(std::initializer_list<std::string> names) {
    std::vector<std::string> paths;
    std::vector<const char*> urls;
    for (const std::string& name : names) paths.push_back(name.empty() ? "" : dir.path(name));
    for (const std::string& path : paths) urls.push_back(path.c_str());
    urls.push_back(nullptr);
    writer->create_other_writers(urls.data());
  }
  WriterResult open(const char* meta_info = "", const std::string& index = "") {
    return writer->open(oc.get(), meta_info, index.c_str());
  }
  // Picture number `n`, in frames as an encoder stamps them.
  int write_picture(int64_t n, int size = 100) {
    const auto packet = make_packet(0, n, n, 1, size, true);
    return writer->write_packet(kFrames, packet.get(), true);
  }
  int write_sound(int64_t n) {
    const auto packet = make_packet(1, n * 1024, n * 1024, 1024, 30, true);
    return writer->write_packet({1, 48000}, packet.get(), true);
  }
  void write_movie(int pictures) {
    for (int64_t i = 0; i < pictures; ++i) {
      EXPECT_EQ(write_picture(i), 0);
      EXPECT_EQ(write_sound(i), 0);
    }
  }
  void finish() {
    writer->stop();
    if (oc->pb != nullptr) avio_closep(&oc->pb);
  }
  Movie movie(const std::string& name) const { return read_movie(dir.path(name)); }

  const TempDir dir;
  ErrorReports errors;
  zeva::FormatContextPtr oc;
  std::unique_ptr<ZV_AVWriter> writer;
};

TEST_F(WriterTest, DropsPacketsWhoseTimeDoesNotGrow) {
  const LogCapture log;
  make_main("a.mp4");
  add_others({"b.mp4"});
  ASSERT_FALSE(open().failed);
  ASSERT_TRUE(writer->start());
  for (const int64_t n : {0, 1, 1, 3, 2, 4}) EXPECT_EQ(write_picture(n), 0);
  for (const int64_t n : {0, 1}) EXPECT_EQ(write_sound(n), 0);  // has a clock of its own
  finish();
  EXPECT_EQ(movie("a.mp4").count(0), 4);
  EXPECT_EQ(movie("b.mp4").count(0), 4);
  EXPECT_EQ(movie("b.mp4").count(1), 2);
  EXPECT_EQ(log.count("*** ERROR:[streamIdx=0] pkt->pts=512 < last_pts(512), drop current"), 1);
  EXPECT_EQ(log.count("*** ERROR:[streamIdx=0] pkt->pts=1024 < last_pts(1536), drop current"), 1);
  EXPECT_EQ(log.count("*** ERROR"), 2);  // a dropped packet is not forwarded
}

TEST_F(WriterTest, ReorderedPicturesAreOrderedByDecodingTime) {
  make_main("a.mp4");
  oc->streams[0]->codecpar->video_delay = 1;
  ASSERT_FALSE(open().failed);
  ASSERT_TRUE(writer->start());
  const int64_t shown[] = {0, 3, 1, 2, 6, 4, 5};
  for (int64_t i = 0; i < 7; ++i) {
    const auto packet = make_packet(0, shown[i], i - 2, 1, 100, i == 0);
    EXPECT_EQ(writer->write_packet(kFrames, packet.get(), true), 0);
  }
  finish();
  EXPECT_EQ(movie("a.mp4").count(0), 7);
}

TEST_F(WriterTest, FullQueueBlocksUntilTheOutputTakesMore) {
  for (const bool interleave : {false, true}) {
    std::promise<void> gate;
    auto gate_open = gate.get_future().share();
    std::atomic<bool> full{false};
    const LogCapture log([&](const std::string& message) {
      if (message.rfind("write full", 0) == 0 && !full.exchange(true)) gate.set_value();
    });
    std::atomic<bool> closed{false};
    WriteIo io([&](const uint8_t*, int size) {
      if (closed) gate_open.wait();
      return size;
    });
    AVFormatContext* made = nullptr;
    ASSERT_GE(avformat_alloc_output_context2(&made, nullptr, "matroska", "x.mkv"), 0);
    const zeva::FormatContextPtr context(made);
    add_picture_stream(made);
    made->pb = io.pb;
    ZV_AVWriter slow(3, 2, "x.mkv");
    ASSERT_FALSE(slow.open(made, "", "").failed);
    closed = true;
    ASSERT_TRUE(slow.start());
    for (int64_t n = 0; n < 40; ++n) {
      const auto packet = make_packet(0, n, n, 1, 9000, true);
      ASSERT_EQ(slow.write_packet(kFrames, packet.get(), interleave), 0);
    }
    slow.stop();
    EXPECT_GE(
        log.count(interleave ? "write full: maxNpkt=5, have=5" : "write full: maxNpkt=3, have=3"),
        1);
    EXPECT_EQ(log.count("[writer](main): n=40 (---tailer-pkt---)"), 1);
    EXPECT_EQ(log.count("[writer](main): n=41 (---write-tailer---)"), 1);
  }
}

#ifndef _WIN32
#endif

TEST_F(WriterTest, OpeningFailsWithItsCodeAndText) {
  const struct {
    std::string other;
    int64_t code;
    std::string text;
  } cases[] = {
      {"", -1, "clone: invalid paramters"},
      {"x.unknown", -3, "guss format is null"},
      {"no/such/folder/b.mp4", -6, "io open failed: No such file or directory, "},
      {"no/such/folder/b.mkv", -6, "io open failed: No such file or directory, "},
      {"c.wav", AVERROR(EINVAL), ""},  // holds no pictures: refused by the header
  };
  for (const auto& c : cases) {
    make_main("a.mp4");
    add_others({c.other});
    const WriterResult result = open();
    EXPECT_TRUE(result.failed) << c.other;
    EXPECT_EQ(result.value, c.code) << c.other;
    EXPECT_THAT(result.message, StartsWith(c.text));
    if (c.code == -6) {
      EXPECT_THAT(result.message, HasSubstr(dir.path(c.other)));
    }
    finish();
  }
  make_main("a.mp4");
  oc->streams[0]->codecpar->codec_id = AV_CODEC_ID_GIF;  // not for MP4
  EXPECT_LT(open().value, 0);
  finish();
}

}  // namespace
