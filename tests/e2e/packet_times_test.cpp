// When packets play: both times of a picture, a common start, sound and picture in step.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <optional>

#include "elementary.h"
#include "judge.h"
#include "packet_host.h"
#include "recording.h"
#include "zeva/status.h"

namespace {
using namespace zeva_test;  // NOLINT: a test reads better without the prefix
namespace fs = std::filesystem;
using testing::ElementsAre;

constexpr int64_t kPictureUs = 40000;

struct Times {
  double pts, dts;
};

std::vector<Times> times_of(const fs::path& file, bool video) {
  std::vector<Times> times;
  for (const Row& packet : packets(file)) {
    if ((packet.at("codec_type") == "video") != video) continue;
    const bool decoded = packet.at("dts_time") != "N/A";
    times.push_back({number(packet, "pts_time"), decoded ? number(packet, "dts_time") : NAN});
  }
  return times;
}

bool write2(PacketRecording& recording, std::string bytes, int64_t pts_us, int64_t dts_us) {
  return ZEVA2_write_video_packet2(recording.handle, bytes.data(),
                                   static_cast<int32_t>(bytes.size()), pts_us, dts_us);
}

// ---- reordered pictures

// Both times are kept as they are, jitter included; pictures whose times cannot be are left out.
TEST(ReorderedPictures, KeepBothTimes) {
  const std::vector<TimedPacket> pictures = timed_h264_packets(60, "bframes=3:b-adapt=0");
  const auto jitter_us = [](int64_t pts) { return pts % 3 * 2000; };
  const std::string others[] = {utf8(work_file("b.flv")), utf8(work_file("c.mkv")),
                                utf8(work_file("d.ts"))};
  MovieInfo2 info = packet_settings(utf8(work_file("a.mp4")));
  for (int i = 0; i < 3; ++i) info.others[i] = others[i].c_str();
  info.acodec = 0;
  PacketRecording recording(info);
  bool reordered = false;
  const int64_t base_us = 7000000;
  for (const TimedPacket& picture : pictures) {
    reordered = reordered || picture.pts != picture.dts;
    const int64_t dts_us = base_us + picture.dts * kPictureUs;
    const int64_t pts_us = base_us + picture.pts * kPictureUs + jitter_us(picture.pts);
    EXPECT_TRUE(write2(recording, picture.bytes, pts_us, dts_us));
    if (picture.pts != 20) continue;
    EXPECT_TRUE(write2(recording, picture.bytes, pts_us, dts_us));          // once more
    EXPECT_TRUE(write2(recording, picture.bytes, dts_us + 1, dts_us + 2));  // too late to be shown
    EXPECT_TRUE(write2(recording, picture.bytes, base_us, base_us - 100000000));  // long past
  }
  ASSERT_TRUE(reordered);
  // Each time that one is left out and the one before was not.
  EXPECT_THAT(recording.stop(),
              ElementsAre(0, kZevaStatusPacketsLeftOut, kZevaStatusPacketsLeftOut));
  for (const std::string& url : {std::string(info.url), others[0], others[1], others[2]}) {
    SCOPED_TRACE(url);
    const fs::path file = fs::u8path(url);
    const std::vector<Times> found = times_of(file, true);
    ASSERT_EQ(found.size(), pictures.size());
    // Containers without negative times begin with the first decoding time.
    const double shift = found.front().pts;
    for (size_t i = 0; i < found.size(); ++i) {
      const double pts =
          static_cast<double>(pictures[i].pts * kPictureUs + jitter_us(pictures[i].pts)) / 1e6;
      const double dts = static_cast<double>(pictures[i].dts * kPictureUs) / 1e6;
      EXPECT_NEAR(found[i].pts - shift, pts, 0.0011) << i;
      if (url != others[1]) {  // Matroska has presentation times only
        EXPECT_NEAR(found[i].dts - shift, dts, 0.0011) << i;
      }
    }
    // The stream's own clock says 5 pictures a second, which ffmpeg believes of a transport stream.
    if (url != others[2]) {
      EXPECT_EQ(decode_faults(file), "");
    }
  }
  EXPECT_NEAR(times_of(work_file("a.mp4"), true).front().pts, 0, 1e-6);
}

// ---- options

TEST(Options, TurnPicturesAndStartTogether) {
  const SourceMovie movie = make_source(2);
  for (const int rotation : {0, 90, 180, 270}) {
    SCOPED_TRACE(rotation);
    ZevaOptions options;
    ZevaOptions_init(&options);
    options.rotation_deg = rotation;
    options.common_start = 1;
    const fs::path file = work_file("movie.mp4");
    PacketRecording recording(packet_settings(utf8(file)), &options);
    std::optional<double> first_sound;
    for (HostPacket packet : movie.packets) {
      if (!packet.video) packet.usec += 1500000;
      if (!packet.video && !first_sound) first_sound = static_cast<double>(packet.usec) / 1e6;
      recording.write(packet);
    }
    EXPECT_THAT(recording.stop(), ElementsAre(0));
    EXPECT_NEAR(times_of(file, true).front().pts, 0, 0.001);
    EXPECT_NEAR(times_of(file, false).front().pts, *first_sound, 0.001);
    // ffprobe counts counterclockwise, from -180 to 180.
    const std::vector<Row> sides = probe(file, "-show_entries stream_side_data=rotation");
    const double turned = sides.empty() ? 0 : number(sides.front(), "rotation");
    EXPECT_EQ(std::fmod(360 - turned, 360), rotation);
    EXPECT_EQ(decode_faults(file), "");
  }
  ZevaOptions askew;
  ZevaOptions_init(&askew);
  askew.rotation_deg = 45;
  PacketRecording refused(packet_settings(utf8(work_file("askew.mp4"))), &askew);
  EXPECT_EQ(refused.handle, nullptr);
}

}  // namespace
