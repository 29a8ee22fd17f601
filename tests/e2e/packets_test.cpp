// Packets in, movies out: what is in them, when it plays, and what becomes of bad input.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <random>
#include <set>
#include <thread>

#include "judge.h"
#include "packet_host.h"
#include "recording.h"
#include "zeva/status.h"

namespace {
using namespace zeva_test;  // NOLINT: a test reads better without the prefix
namespace fs = std::filesystem;
using testing::AnyOf;
using testing::Each;
using testing::ElementsAre;

const char kPictures[] = "-map 0:v -vsync 0 -pix_fmt yuv420p -f rawvideo";

// ---- when each packet is to play, computed from the host's stamps alone

// Six packets are compared at a time; equal stamps move up by one microsecond.
std::vector<int64_t> in_order(const std::vector<int64_t>& stamps) {
  std::set<int64_t> waiting;
  std::vector<int64_t> ordered;
  for (int64_t stamp : stamps) {
    while (waiting.count(stamp) != 0) ++stamp;
    waiting.insert(stamp);
    if (waiting.size() <= 5) continue;
    ordered.push_back(*waiting.begin());
    waiting.erase(waiting.begin());
  }
  ordered.insert(ordered.end(), waiting.begin(), waiting.end());
  return ordered;
}

// How uneven the spacing is: the mean change from interval to interval.
double unevenness(const std::vector<int64_t>& times) {
  double sum = 0;
  for (size_t i = 2; i < times.size(); ++i) {
    sum += std::abs(static_cast<double>(times[i] - 2 * times[i - 1] + times[i - 2]));
  }
  return sum / static_cast<double>(times.size());
}

// Near the host's stamps, but smoother.
void expect_smoothed(const fs::path& file, bool video, const std::vector<int64_t>& stamps_us) {
  const std::string unit = streams(file).at(video ? 0 : 1).at("time_base");  // 1/...
  const int64_t per_second = std::stoll(unit.substr(2));
  std::vector<int64_t> found;
  for (const Row& packet : packets(file)) {
    if ((packet.at("codec_type") == "video") != video) continue;
    found.push_back(std::stoll(packet.at("pts")) * 1000000 / per_second);
  }
  ASSERT_EQ(found.size(), stamps_us.size()) << file;
  for (size_t i = 0; i < found.size(); ++i) EXPECT_NEAR(found[i], stamps_us[i], 35000) << file << i;
  EXPECT_LT(unevenness(found), unevenness(stamps_us) / 3) << file;
}

TEST(PacketMovies, PlayAtTheSmoothedTimesOfTheHostInEveryContainer) {
  SourceMovie movie = make_source(8);
  const std::string urls[] = {utf8(work_file("movie.MP4")), utf8(work_file("movie.mkv")),
                              utf8(work_file("movie.ts"))};
  MovieInfo2 info = packet_settings(utf8(work_file("movie.flv")));
  for (int i = 0; i < 3; ++i) info.others[i + 1] = urls[i].c_str();
  set_text(info.moov, utf8(work_file("movie.index")));
  set_text(info.meta, "title:My: film;nothing;artist:me");
  std::minstd_rand random(7);
  std::vector<int64_t> stamps[2];
  for (HostPacket& packet : movie.packets) {
    std::vector<int64_t>& of_stream = stamps[packet.video];
    packet.usec += 1000000000 + static_cast<int>(random() % 12000);
    if (!packet.video && of_stream.size() % 10 == 9) packet.usec = of_stream.back();
    of_stream.push_back(packet.usec);
  }
  const size_t count = movie.packets.size();
  for (size_t i = 30; i + 10 < count; i += 17) std::swap(movie.packets[i], movie.packets[i + 3]);
  LogCapture log;
  PacketRecording recording(info);
  int64_t later_us = 0, last_picture_us = 0;
  for (size_t i = 0; i < count; ++i) {
    HostPacket& packet = movie.packets[i];
    if (i == count / 2) {
      const int64_t begin_us = ZEVA_current_sys_usec();
      EXPECT_TRUE(ZEVA2_pause(recording.handle) && ZEVA2_is_paused(recording.handle));
      while (ZEVA_current_sys_usec() < begin_us + 50000) std::this_thread::yield();
      EXPECT_TRUE(ZEVA2_resume(recording.handle) && !ZEVA2_resume(recording.handle));
      later_us = ZEVA_current_sys_usec() - begin_us;
    }
    packet.usec += later_us;
    if (packet.video) last_picture_us = packet.usec;
    EXPECT_TRUE(recording.write(packet));
  }
  const int64_t paused_us = last_picture_us - stamps[1][0] - ZEVA2_movie_time(recording.handle);
  EXPECT_THAT(recording.stop(), ElementsAre(0));
  EXPECT_GT(paused_us, 40000);
  EXPECT_EQ(log.count("pause_drift=" + std::to_string(paused_us) + ","), count - count / 2);
  for (const bool video : {false, true}) {
    std::vector<int64_t> rebased;
    for (size_t i = 0; i < count; ++i) {
      if (movie.packets[i].video != video) continue;
      const int64_t shift_us = i < count / 2 ? 0 : paused_us;
      rebased.push_back(movie.packets[i].usec - stamps[video][0] - shift_us);
    }
    for (const char* file : {"movie.flv", "movie.MP4", "movie.mkv"}) {
      expect_smoothed(work_file(file), video, in_order(rebased));
    }
  }
  for (const char* name : {"movie.flv", "movie.MP4", "movie.mkv", "movie.ts"}) {
    EXPECT_EQ(decode_faults(work_file(name)), "") << name;
    EXPECT_TRUE(decode(work_file(name), kPictures) == decode(work_file("source.mp4"), kPictures));
  }
  EXPECT_EQ(probe(work_file("movie.MP4"), "-show_entries format_tags")[0]["tag:title"], "My: film");
  EXPECT_NE(read_file(work_file("movie.index")).find("## version=2"), std::string::npos);
}

TEST(LengthPrefixedPackets, DecodeToTheSamePicturesWithAnyKindOfParameterSets) {
  const SourceMovie movie = make_source(6, false);
  for (const bool whole_record : {true, false}) {
    const fs::path file = work_file(whole_record ? "record.mp4" : "sets.mp4");
    std::vector<uint8_t> record = movie.extradata;
    MovieInfo2 info = packet_settings(utf8(file));
    if (whole_record) {
      info.extradata = record.data();
      info.extradata_len = static_cast<int32_t>(record.size());
    } else {  // each behind its length in 16 bits, at 6 and one byte behind the first
      info.sps_len = record[7];
      info.sps = &record[8];
      info.pps_len = record[static_cast<size_t>(10 + info.sps_len)];
      info.pps = info.sps + info.sps_len + 3;
    }
    PacketRecording recording(info);
    const std::string set_alone = std::string(3, '\0') + std::string(&record[7], &record[8]) +
                                  std::string(&record[8], &record[8] + record[7]);
    std::fill(record.begin(), record.end(), uint8_t{0xEE});  // ours again
    for (const HostPacket& packet : movie.packets) {
      if (packet.video) recording.write({true, 0, set_alone});
      recording.write(packet);
    }
    for (const char* bad : {"\x7F\xFF\1\1\x65", "\1", "\1\1\1\1"}) {
      EXPECT_FALSE(recording.write({true, movie.packets.back().usec, bad}));
    }
    EXPECT_THAT(recording.stop(), ElementsAre(0));
    EXPECT_TRUE(decode(file, kPictures) == decode(work_file("source.mp4"), kPictures)) << file;
  }
}

// ---- stamps as hosts have them

// A gap, a jump back and a change of rate end nothing: what can be placed is there, in all outputs.
TEST(UnevenStamps, EndNoRecording) {
  const SourceMovie movie = make_source(6);
  const struct {
    const char* what;
    std::function<int64_t(int64_t)> time;
    size_t left_out;  // at most
  } cases[] = {
      {"first interval of 184 ms", [](int64_t us) { return us > 0 ? us + 150000 : us; }, 0},
      {"a gap of 5 s", [](int64_t us) { return us > 3000000 ? us + 5000000 : us; }, 0},
      {"half the rate for two seconds",
       [](int64_t us) {
         return us < 2000000 ? us : us < 4000000 ? 2 * us - 2000000 : us + 2000000;
       },
       0},
      {"0.3 s back", [](int64_t us) { return us > 3000000 ? us - 300000 : us; }, 20},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    const std::string others[] = {utf8(work_file("b.flv")), utf8(work_file("c.mkv"))};
    MovieInfo2 info = packet_settings(utf8(work_file("a.mp4")));
    for (int i = 0; i < 2; ++i) info.others[i] = others[i].c_str();
    PacketRecording recording(info);
    for (HostPacket packet : movie.packets) {
      packet.usec = c.time(packet.usec);
      EXPECT_TRUE(recording.write(packet));
    }
    const std::vector<int> told = recording.stop();
    EXPECT_EQ(told.front(), 0);
    for (size_t i = 1; i < told.size(); ++i) EXPECT_EQ(told[i], kZevaStatusPacketsLeftOut);
    EXPECT_EQ(told.size() > 1, c.left_out > 0);
    for (const std::string& url : {info.url + std::string(), others[0], others[1]}) {
      EXPECT_GE(packets(fs::u8path(url)).size() + c.left_out, movie.packets.size()) << url;
    }
  }
}

// ---- bad input, and outputs that fail

TEST(BadPacketSettings, EndTheRecordingWithTheirCode) {
  static const uint8_t bytes[8] = {1, 66, 0, 30, 0xFF, 0xE1, 0x40, 0};  // ends within its SPS
  const SourceMovie movie = make_source(1);
  const std::string missing = utf8(work_file("missing") / "movie.mp4");
  const auto record = [](int32_t length) {
    return [=](MovieInfo2& i) { i.extradata = bytes, i.extradata_len = length; };
  };
  const auto sps = [](int32_t length) {
    return [=](MovieInfo2& i) { i.sps = bytes, i.sps_len = length; };
  };
  const struct {
    const char* name;
    int code;
    std::function<void(MovieInfo2&)> spoil;
  } cases[] = {
      {"PCM of no format", -10, [](MovieInfo2& i) { i.acodec = kPacketAudioPcm; }},
      {"null SPS", -11, [](MovieInfo2& i) { i.sps_len = 20; }},
      {"negative SPS", -11, sps(-3)},
      {"absurd SPS", -11, sps(INT32_MAX)},
      {"tiny SPS", -11, sps(3)},
      {"absurd record", -11, record(INT32_MAX)},
      {"negative record", -11, record(-1)},
      {"truncated record", -11, record(sizeof bytes)},
      {"no output", -33, [](MovieInfo2& i) { i.url[0] = '\0'; }},
      {"missing folder", -32, [&](MovieInfo2& i) { i.others[2] = missing.c_str(); }},
      {"missing folder of the index", -7, [&](MovieInfo2& i) { set_text(i.moov, missing); }},
      {"no streams", -23, [](MovieInfo2& i) { i.vcodec = 7, i.acodec = 9; }},
      {"texts without end", -32,
       [](MovieInfo2& i) { memset(i.url, '/', sizeof i.url + sizeof i.moov + sizeof i.meta); }},
  };
  for (const auto& c : cases) {
    MovieInfo2 info = packet_settings(utf8(work_file("first.mp4")));
    c.spoil(info);
    PacketRecording recording(info);
    EXPECT_EQ(recording.handle == nullptr, c.code == -10 || c.code == -11) << c.name;
    recording.write(movie.packets);
    EXPECT_EQ(recording.stop().back(), c.code) << c.name;
  }
}

// None of them ends the recording.
TEST(BadPackets, LeaveAMovieAllTheSame) {
  const SourceMovie movie = make_source(7);
  std::minstd_rand random(3);
  std::string garbage(3000, ' ');
  for (char& byte : garbage) byte = static_cast<char>(random() >> 8);
  PacketRecording recording(packet_settings(utf8(work_file("movie.mkv"))));
  const auto write_stream = [&](bool video) {
    for (size_t i = 0; i < movie.packets.size(); ++i) {
      if (movie.packets[i].video == video) recording.write(movie.packets[i]);
      if (i % 50 == 20) recording.write({video, movie.packets[i].usec, garbage});
      if (i % 50 == 21) recording.write({video, movie.packets[i].usec, {}});
    }
  };
  std::thread sound(write_stream, false);
  write_stream(true);
  sound.join();
  for (const int64_t usec : {INT64_MAX, INT64_MIN, int64_t{-1}}) {
    recording.write({false, usec, movie.packets[1].bytes});
  }
  recording.write({true, movie.packets.back().usec, std::string(size_t{64} << 20, '\0')});
  EXPECT_THAT(recording.stop(), Each(AnyOf(0, kZevaStatusPacketsLeftOut)));
  EXPECT_GT(packets(work_file("movie.mkv")).size(), 20U);
}

TEST(PacketRecordings, CanBeStoppedAtOnceAndTwice) {
  const SourceMovie movie = make_source(1);
  const fs::path file = work_file("short.mp4");
  for (size_t count = 0; count < 20; ++count) {
    fs::remove(file);
    PacketRecording recording(packet_settings(utf8(file)));
    for (size_t i = 0; i < count; ++i) recording.write(movie.packets[i]);
    const bool told_failure = recording.stop().size() > 1;
    EXPECT_TRUE(told_failure || decode_faults(file).empty()) << count << " packets";
  }
}

}  // namespace
