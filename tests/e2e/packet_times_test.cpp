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
    const double start = found.front().pts;  // a transport stream's clock begins at 1.4 s
    for (size_t i = 0; i < found.size(); ++i) {
      const double pts =
          static_cast<double>(pictures[i].pts * kPictureUs + jitter_us(pictures[i].pts)) / 1e6;
      const double dts = static_cast<double>(pictures[i].dts * kPictureUs) / 1e6;
      EXPECT_NEAR(found[i].pts - start, pts, 0.0011) << i;
      // Matroska has presentation times only; without negative times, the first are squeezed.
      const bool kept = url != others[1] && (url == info.url || dts > 0.01);
      if (kept) {
        EXPECT_NEAR(found[i].dts - start, dts, 0.0011) << i;
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

// ---- PCM

// A sample of full volume at each of these; everything else is silent.
std::vector<int16_t> clicks(size_t samples, const std::vector<size_t>& at) {
  std::vector<int16_t> sound(2 * samples);
  for (const size_t click : at) {
    for (size_t i = 0; i < 32; ++i) sound[2 * (click + i)] = sound[2 * (click + i) + 1] = 30000;
  }
  return sound;
}

// The time of the loudest sample of the movie between two times, by the judge's own clock.
double loudest_at(const fs::path& file, double begin, double end) {
  // Players begin at the first stamp of all streams; so does the sound that is decoded here.
  const std::string raw = decode(file, "-map 0:a -af aresample=async=1:first_pts=0 -ac 1 -f s16le");
  size_t best = 0;
  int loudest = -1;
  for (size_t i = 0; 2 * i + 1 < raw.size(); ++i) {
    const double time = static_cast<double>(i) / 48000;
    if (time < begin || time > end) continue;
    const int16_t value = static_cast<int16_t>(static_cast<uint8_t>(raw[2 * i]) |
                                               static_cast<uint8_t>(raw[2 * i + 1]) << 8);
    if (std::abs(value) > loudest) loudest = std::abs(value), best = i;
  }
  return static_cast<double>(best) / 48000;
}

double duration_of(const fs::path& file, bool video) {
  for (const Row& stream : streams(file)) {
    if ((stream.at("codec_type") == "video") == video) return number(stream, "duration");
  }
  return -1;
}

// Sound made from PCM is in step with the pictures, and as long as it was.
TEST(Pcm, IsInStepAndAsLongAsItWas) {
  const std::vector<std::string> pictures = h264_packets(16);
  for (const size_t samples : {144000UL, 144001UL, 132300UL, 500UL}) {
    SCOPED_TRACE(samples);
    const std::string others[] = {utf8(work_file("b.flv")), utf8(work_file("c.mkv")),
                                  utf8(work_file("d.ts"))};
    const fs::path index = work_file("a.index");
    MovieInfo2 info = packet_settings(utf8(work_file("a.mp4")));
    for (int i = 0; i < 3; ++i) info.others[i] = others[i].c_str();
    set_text(info.moov, utf8(index));
    info.acodec = kPacketAudioPcm;
    info.sample_rate = 48000;
    info.channels = 2;
    info.sample_format = "s16";
    info.bitrate = 256;
    PacketRecording recording(info);
    const bool clicked = samples > 100000;
    std::vector<int16_t> sound =
        clicks(samples, clicked ? std::vector<size_t>{48000, 120000} : std::vector<size_t>{});
    size_t at = 0;
    for (size_t picture = 0; picture < pictures.size(); ++picture) {
      recording.write({true, static_cast<int64_t>(picture) * 200000, pictures[picture]});
      const size_t until = std::min(samples, (picture + 1) * 9600);
      if (until == at) continue;
      uint8_t* planes[] = {reinterpret_cast<uint8_t*>(&sound[2 * at]), nullptr, nullptr, nullptr};
      EXPECT_TRUE(ZEVA2_write_audio_pcm(recording.handle, planes, static_cast<int>(until - at),
                                        static_cast<int64_t>(at) * 1000000 / 48000));
      at = until;
    }
    EXPECT_THAT(recording.stop(), ElementsAre(0));
    const double seconds = static_cast<double>(samples) / 48000;
    // FFmpeg's edit list counts whole milliseconds.
    const double exactness = samples % 48 <= 1 ? 1.0 / 48000 : 0.001;
    EXPECT_NEAR(duration_of(work_file("a.mp4"), false), seconds, exactness);
    EXPECT_NEAR(times_of(work_file("a.mp4"), true).front().pts, 0, 1e-6);
    for (const std::string& url : {std::string(info.url), others[0], others[1], others[2]}) {
      SCOPED_TRACE(url);
      const fs::path file = fs::u8path(url);
      const std::vector<Times> seen = times_of(file, true), heard = times_of(file, false);
      ASSERT_EQ(seen.size(), pictures.size());
      EXPECT_EQ(heard.size(), (samples + 1023) / 1024 + 1);
      EXPECT_NEAR(seen.front().pts - heard.front().pts, 1024.0 / 48000, 0.0011);
      EXPECT_NEAR(seen[1].pts - seen[0].pts, 0.2, 0.0011);
      EXPECT_EQ(decode_faults(file), "");
    }
    if (!clicked) continue;
    EXPECT_NEAR(loudest_at(work_file("a.mp4"), 0.5, 1.5), 1 + 16 / 48000.0, 17 / 48000.0);
    EXPECT_NEAR(loudest_at(work_file("a.mp4"), 2, 2.7), 2.5 + 16 / 48000.0, 17 / 48000.0);
    const fs::path whole = work_file("whole.mp4");
    EXPECT_TRUE(ZEVA_StartRepair_sync(info.url, utf8(index).c_str(), utf8(whole).c_str(), nullptr,
                                      nullptr));
    EXPECT_NEAR(loudest_at(whole, 2, 2.7), 2.5 + 16 / 48000.0, 17 / 48000.0);
  }
}

}  // namespace
