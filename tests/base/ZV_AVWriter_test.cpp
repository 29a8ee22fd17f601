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

TEST_F(WriterTest, WritesEveryOutputOfTheChain) {
  make_main("a.mp4");
  add_others({"b.mp4", "c.mkv"});
  const WriterResult opened = open("title:A b;no pair;comment:x:y");
  EXPECT_EQ(opened.value, 1);
  EXPECT_FALSE(opened.failed);
  ASSERT_TRUE(writer->start());
  write_movie(30);
  EXPECT_EQ(writer->write_packet(kFrames, nullptr, true), 0);
  finish();
  writer->stop();  // a second stop finds nothing to do
  for (const char* name : {"a.mp4", "b.mp4", "c.mkv"}) {
    const Movie m = movie(name);
    EXPECT_EQ(m.count(0), 30) << name;
    EXPECT_EQ(m.count(1), 30) << name;
    EXPECT_EQ(m.title, "A b");
    EXPECT_EQ(m.comment, "x:y");
    int64_t last_ms = 0;
    for (const MoviePacket& p : m.packets) {
      last_ms = std::max(last_ms, av_rescale_q(p.pts, m.time_bases[size_t(p.stream)], {1, 1000}));
    }
    EXPECT_EQ(last_ms, 29 * 40) << name;
  }
  EXPECT_EQ(errors.count, 0);
}

TEST_F(WriterTest, MetadataActsAsMuxerOptionsToo) {
  make_main("a.mp4");
  ASSERT_FALSE(open("title:t;movflags:frag_keyframe+empty_moov").failed);
  ASSERT_TRUE(writer->start());
  write_movie(2);
  finish();
  EXPECT_NE(read_file(dir.path("a.mp4")).find("moof"), std::string::npos);
}

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

TEST_F(WriterTest, FirstPacketMayBeLateButNotEndlessly) {
  const LogCapture log;
  make_main("a.mkv");
  oc->streams[0]->time_base = oc->streams[1]->time_base = {1, 1000};
  ASSERT_FALSE(open().failed);
  for (const int64_t pts : {-999999, -999998}) {
    const auto packet = make_packet(0, pts, pts, 1, 10, true);
    EXPECT_EQ(writer->write_packet({1, 1000}, packet.get(), true), 0);
  }
  EXPECT_EQ(log.count("pkt->pts=-999999 < last_pts(-999999)"), 1);
  EXPECT_EQ(log.count("*** ERROR"), 1);
  finish();
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

TEST_F(WriterTest, RefusesPacketsItHasNoPlaceFor) {
  make_main("a.mp4");
  EXPECT_EQ(write_picture(0), -1);  // not open
  ASSERT_FALSE(open().failed);
  for (const int stream : {-1, 2, 8}) {
    const auto packet = make_packet(stream, 0, 0, 1, 10, true);
    EXPECT_EQ(writer->write_packet(kFrames, packet.get(), true), -1) << stream;
  }
  finish();
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

TEST_F(WriterTest, FailedMainOutputIsReportedAndTheOthersGoOn) {
  const LogCapture log;
  make_main("a.nut");
  add_others({"b.mp4"});
  avio_closep(&oc->pb);
  int room = 20000;
  WriteIo io([&](const uint8_t*, int size) {
    room -= size;
    return room < 0 ? AVERROR(ENOSPC) : size;
  });
  oc->pb = io.pb;
  ASSERT_FALSE(open().failed);
  ASSERT_TRUE(writer->start());
  int written = 0;
  for (; written < 40; ++written) {
    write_picture(written, 2000);
    write_sound(written);  // FFmpeg holds one stream back for the other
  }
  errors.first.get_future().wait();
  EXPECT_EQ(write_picture(written++), -1);
  writer->stop();
  oc->pb = nullptr;
  EXPECT_EQ(errors.count, 1);
  EXPECT_EQ(errors.last_code, AVERROR(ENOSPC));
  EXPECT_EQ(log.count("[Write Pkt Err]"), 1);
  EXPECT_EQ(log.count("max=60), err=" + std::to_string(AVERROR(ENOSPC)) + ", errmsg=No space left"),
            1);
  EXPECT_EQ(log.count("[writer](main): n="), 0);  // no trailer behind an error
  EXPECT_EQ(movie("b.mp4").count(0), written);
}

#ifndef _WIN32
TEST_F(WriterTest, FullDiskOfAFurtherOutputLeavesTheMainOneRunningOnLinux) {
  const LogCapture log;
  make_main("a.mp4");
  for (const char* name : {"full1.ts", "full2.ts"}) {
    std::filesystem::create_symlink("/dev/full", dir.path(name));
  }
  add_others({"full1.ts", "full2.ts", "b.mkv"});
  ASSERT_FALSE(open().failed);
  ASSERT_TRUE(writer->start());
  for (int n = 0; n < 60; ++n) {
    EXPECT_EQ(write_picture(n, 2000), 0);
    EXPECT_EQ(write_sound(n), 0);
  }
  finish();
  EXPECT_EQ(errors.count, 2);
  EXPECT_EQ(errors.last_code, AVERROR(ENOSPC));
  EXPECT_EQ(log.count("max=66), err="), 1);  // every further output may lag a little more
  EXPECT_EQ(log.count("max=72), err="), 1);
  EXPECT_EQ(movie("a.mp4").count(0), 60);
  EXPECT_EQ(movie("b.mkv").count(0), 60);
}
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

TEST_F(WriterTest, CloneFollowsTheKindOfUrl) {
  AVFormatContext* made = nullptr;
  ASSERT_GE(avformat_alloc_output_context2(&made, nullptr, "mov", "main.MP4"), 0);
  const zeva::FormatContextPtr main_context(made);
  add_picture_stream(made)->codecpar->codec_tag = 1234;
  zeva::IoInterrupt io;
  for (const auto& [name, format] :
       {std::pair{"b.mp4", "mov"}, {"c.Mp4", "mov"}, {"d.mkv", "matroska"}}) {
    const auto clone = zeva::clone_output_context(made, dir.path(name).c_str(), io.callback());
    ASSERT_TRUE(clone.context) << name;
    EXPECT_STREQ(clone.context->oformat->name, format);
    ASSERT_EQ(clone.context->nb_streams, 1U);
    const AVStream& st = *clone.context->streams[0];
    EXPECT_EQ(st.codecpar->codec_id, AV_CODEC_ID_MPEG4);
    EXPECT_EQ(st.codecpar->codec_tag, 0U);
    EXPECT_EQ(av_cmp_q(st.time_base, {1, 12800}), 0);
    avio_closep(&clone.context->pb);
  }
  EXPECT_EQ(zeva::clone_output_context(nullptr, "b.mp4", io.callback()).result.value, -1);
  EXPECT_EQ(zeva::clone_output_context(made, nullptr, io.callback()).result.value, -1);
}

TEST_F(WriterTest, EndedChainCannotBeOpenedOrStarted) {
  const LogCapture log;
  make_main("a.mp4");
  finish();  // before it was started: no tailer, nothing to join
  EXPECT_EQ(open().value, -20);
  EXPECT_EQ(open().message, "main writer already exited");
  EXPECT_FALSE(writer->start());
  EXPECT_EQ(log.count("main writer already exited ..."), 1);
  EXPECT_EQ(log.count("[writer]"), 0);
  EXPECT_EQ(writer->write_trailer(), -1);
}

TEST_F(WriterTest, EndingDuringTheOpeningIsNoticed) {
  make_main("a.mp4");
  const LogCapture log([&](const std::string& message) {
    if (message.rfind("启动快照", 0) == 0) writer->request_exit();
  });
  const WriterResult result = open("", dir.path("a.index"));
  EXPECT_EQ(result.value, -21);
  EXPECT_EQ(result.message, "main writer already exited 2");
  finish();
}

TEST_F(WriterTest, IndexIsForMp4OnlyAndNeverFailsTheOpening) {
  const struct {
    std::string movie, index;
    std::string message;
  } cases[] = {
      {"a.MP4", "a.index", "启动快照 (success): "},
      {"a.mp4", "no/such/folder/b.index", "启动快照失败: "},
      {"a.mkv", "c.index", ""},
      {"b.mp4", "", ""},
  };
  for (const auto& c : cases) {
    const LogCapture log;
    make_main(c.movie);
    const std::string index = c.index.empty() ? "" : dir.path(c.index);
    ASSERT_FALSE(open("", index).failed);
    ASSERT_TRUE(writer->start());
    write_movie(3);
    finish();
    EXPECT_EQ(log.count("启动快照"), c.message.empty() ? 0 : 1);
    if (!c.message.empty()) {
      EXPECT_EQ(log.count(c.message + index), 1);
    }
    EXPECT_EQ(log.count("delete moov OK"), c.movie == "a.MP4" ? 1 : 0);
    EXPECT_EQ(read_file(index).empty(), c.movie != "a.MP4");
    EXPECT_EQ(movie(c.movie).count(0), 3);
  }
}

TEST_F(WriterTest, PlainWriterWritesOnTheCallersThread) {
  zeva::BaseWriter plain;
  EXPECT_FALSE(plain.start());
  oc = make_output(dir.path("a.mp4"));
  EXPECT_EQ(plain.open(oc.get(), "title:plain", "").value, 1);
  for (int64_t n = 0; n < 3; ++n) {
    const auto packet = make_packet(0, n, n, 1, 100, true);
    EXPECT_EQ(plain.write_packet(kFrames, packet.get(), false), 0);
    EXPECT_EQ(packet->data, nullptr);  // taken over by FFmpeg
  }
  EXPECT_EQ(plain.write_packet(kFrames, nullptr, false), 0);
  EXPECT_EQ(plain.write_trailer(), 0);
  avio_closep(&oc->pb);
  EXPECT_EQ(movie("a.mp4").packets.back().pts, 2 * 512);
  EXPECT_EQ(movie("a.mp4").title, "plain");
}

}  // namespace
