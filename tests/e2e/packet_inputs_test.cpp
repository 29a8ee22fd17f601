// Packets as hosts write them: silent streams, parameter sets on their own, bad packets.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <thread>

#include "elementary.h"
#include "judge.h"
#include "packet_host.h"
#include "recording.h"
#include "zeva/status.h"

namespace {
using namespace zeva_test;  // NOLINT: a test reads better without the prefix
namespace fs = std::filesystem;
using testing::ElementsAre;

const char kPictures[] = "-map 0:v -vsync 0 -pix_fmt yuv420p -f rawvideo";

std::vector<double> times_of(const fs::path& file, bool video) {
  std::vector<double> times;
  for (const Row& packet : packets(file)) {
    if ((packet.at("codec_type") == "video") == video) times.push_back(number(packet, "pts_time"));
  }
  return times;
}

int64_t records_in(const fs::path& index) {
  const std::string text = read_file(index);
  return std::count(text.begin(), text.end(), ';');
}

// For three times as long as is promised at most.
bool wait_for_records(const fs::path& index, int64_t expected) {
  const auto begin = std::chrono::steady_clock::now();
  while (records_in(index) < expected) {
    if (std::chrono::steady_clock::now() - begin > std::chrono::seconds(3)) return false;
    std::this_thread::yield();
  }
  return true;
}

struct Unit {
  int type;
  std::string bytes;  // with its start code
};

std::vector<Unit> units_of(const std::string& stream) {
  std::vector<Unit> units;
  const std::string mark("\0\0\1", 3);
  for (size_t at = stream.find(mark); at != std::string::npos;) {
    const size_t next = stream.find(mark, at + 3);
    std::string bytes = stream.substr(at, next - at);
    while (next != std::string::npos && bytes.back() == '\0') bytes.pop_back();
    units.push_back({bytes[3] & 0x1F, std::string(1, '\0') + bytes});
    at = next;
  }
  return units;
}

bool is_key(const HostPacket& picture) {
  const std::vector<Unit> units = units_of(picture.bytes);
  return std::any_of(units.begin(), units.end(), [](const Unit& unit) { return unit.type == 5; });
}

// ---- silent streams

// The other one is recorded, and the host hears of packets that come after all.
TEST(SilentInput, IsLeftOut) {
  const SourceMovie movie = make_source(2);
  for (const bool silent_video : {true, false}) {
    const fs::path file = work_file("movie.mp4");
    PacketRecording recording(packet_settings(utf8(file)));
    std::vector<HostPacket> silent;
    for (const HostPacket& packet : movie.packets) {
      if (packet.video == silent_video) {
        silent.push_back(packet);
      } else {
        EXPECT_TRUE(recording.write(packet));
      }
    }
    ASSERT_TRUE(recording.wait_for(kZevaStatusInputLeftOut));
    const int64_t begin_us = ZEVA_current_sys_usec();
    for (const HostPacket& packet : silent) EXPECT_FALSE(recording.write(packet));
    EXPECT_LT(ZEVA_current_sys_usec() - begin_us, 50000 * 3);  // one full queue holds for 50 ms
    EXPECT_TRUE(recording.wait_for(kZevaStatusInputLate));
    EXPECT_THAT(recording.stop(), ElementsAre(0, kZevaStatusInputLeftOut, kZevaStatusInputLate));
    EXPECT_EQ(packets(file).size(), movie.packets.size() - silent.size());
    EXPECT_EQ(decode_faults(file), "");
  }
}

// Pictures that are far apart, and then none, hold nothing back: neither the opening nor the sound.
TEST(RarePictures, HoldNoSoundBack) {
  const SourceMovie movie = make_source(6);
  const fs::path file = work_file("movie.mp4"), index = work_file("movie.index");
  MovieInfo2 info = packet_settings(utf8(file));
  set_text(info.moov, utf8(index));
  PacketRecording recording(info);
  int64_t sounds = 0, pictures = 0;
  for (const int second : {0, 1, 2, 5}) {
    for (const HostPacket& packet : movie.packets) {
      const bool within = packet.usec >= sounds * 1024 * 1000000 / 48000 - 1000 &&
                          packet.usec < second * 1000000 + 1000000;
      const bool key = packet.video && second < 3 && packet.usec == second * 1000000;
      if (!(packet.video ? key : within)) continue;
      EXPECT_TRUE(recording.write(packet));
      ++(packet.video ? pictures : sounds);
    }
    // Five of each stream may be sorted for half a second; the last packet has no record.
    EXPECT_TRUE(wait_for_records(index, sounds + pictures - 1)) << second;
  }
  const fs::path broken = work_file("broken.mp4"), whole = work_file("whole.mp4");
  fs::copy_file(file, broken);
  EXPECT_TRUE(ZEVA_StartRepair_sync(utf8(broken).c_str(), utf8(index).c_str(), utf8(whole).c_str(),
                                    nullptr, nullptr));
  EXPECT_GE(static_cast<int64_t>(packets(whole).size()), sounds + pictures - 1);
  EXPECT_EQ(decode_faults(whole), "");
  EXPECT_THAT(recording.stop(), ElementsAre(0));
  EXPECT_EQ(static_cast<int64_t>(packets(file).size()), sounds + pictures);
}

// The host joins a running stream. Its sound is there from the beginning, the pictures from the key
// picture on, at the time that the host gave.
TEST(KeyPicture, MayBeFarAway) {
  const SourceMovie movie = make_source(10);
  const fs::path file = work_file("movie.mp4"), live = work_file("movie.flv");
  MovieInfo2 info = packet_settings(utf8(file));
  const std::string other = utf8(live);
  info.others[0] = other.c_str();
  PacketRecording recording(info);
  size_t sounds = 0, pictures = 0;
  for (const HostPacket& packet : movie.packets) {
    if (packet.video && packet.usec < 9000000 && is_key(packet)) continue;
    EXPECT_TRUE(recording.write(packet));
    if (!packet.video) ++sounds;
    if (packet.video && packet.usec >= 9000000) ++pictures;
  }
  EXPECT_THAT(recording.stop(), ElementsAre(0, kZevaStatusPacketsLeftOut));
  for (const fs::path& output : {file, live}) {
    const std::vector<double> seen = times_of(output, true), heard = times_of(output, false);
    ASSERT_EQ(seen.size(), pictures);
    ASSERT_EQ(heard.size(), sounds);
    // The first picture that came, at 0.04 s, is time 0.
    EXPECT_NEAR(seen.front(), 9 - 0.04, 0.002);
    EXPECT_NEAR(heard.front(), 0, 0.001);
    EXPECT_EQ(decode_faults(output), "");
  }
}

TEST(NoPacketAtAll, GivesTheDocumentedCode) {
  for (const bool flushed : {false, true}) {
    PacketRecording recording(packet_settings(utf8(work_file("movie.mp4"))));
    if (flushed) ZEVA2_write_video_packet(recording.handle, nullptr, 0, 0);
    EXPECT_THAT(recording.stop(), ElementsAre(0, -23));
    EXPECT_FALSE(fs::exists(work_file("movie.mp4")));
  }
}

// ---- parameter sets as packets of their own

// One packet a unit, whatever time they have, is the same movie as one packet a picture.
TEST(ParameterSets, JoinTheNextPicture) {
  const SourceMovie movie = make_source(4);
  const fs::path whole = work_file("whole.mp4");
  PacketRecording reference(packet_settings(utf8(whole)));
  reference.write(movie.packets);
  EXPECT_THAT(reference.stop(), ElementsAre(0));
  const std::string delimiter("\0\0\0\1\x09\xF0", 6), filler("\0\0\0\1\x0C\xFF\x80", 7);
  const struct {
    const char* what;
    std::function<int64_t(int64_t)> time;
    std::string before, after;
  } cases[] = {
      {"the picture's time", [](int64_t us) { return us; }, "", ""},
      {"no time", [](int64_t) { return 0; }, "", ""},
      {"a later time", [](int64_t us) { return us + 10000; }, delimiter, ""},
      {"a far later time", [](int64_t us) { return us + 900000000; }, "", filler},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    const fs::path file = work_file("movie.mp4");
    PacketRecording recording(packet_settings(utf8(file)));
    for (const HostPacket& packet : movie.packets) {
      if (!packet.video) recording.write(packet);
      if (!packet.video) continue;
      if (!c.before.empty()) recording.write({true, c.time(packet.usec), c.before});
      for (const Unit& unit : units_of(packet.bytes)) {
        const bool slice = unit.type == 1 || unit.type == 5;
        EXPECT_TRUE(recording.write({true, slice ? packet.usec : c.time(packet.usec), unit.bytes}));
      }
      if (!c.after.empty()) recording.write({true, c.time(packet.usec), c.after});
    }
    EXPECT_LT(ZEVA2_movie_time(recording.handle), 4000000);
    EXPECT_THAT(recording.stop(), ElementsAre(0));
    EXPECT_EQ(times_of(file, true), times_of(whole, true));
    EXPECT_EQ(times_of(file, false), times_of(whole, false));
    EXPECT_TRUE(decode(file, kPictures) == decode(whole, kPictures));
  }
}

// Pictures of several slices, in a packet each, all in one, or two pictures in a packet.
TEST(Slices, MakeOnePictureHoweverTheyCome) {
  const std::vector<std::string> pictures = h264_packets(50, "slices=3");
  const auto record = [&](const char* name, const std::function<void(PacketRecording&)>& write) {
    const fs::path file = work_file(name);
    MovieInfo2 info = packet_settings(utf8(file));
    info.acodec = 0;
    PacketRecording recording(info);
    write(recording);
    EXPECT_THAT(recording.stop(), ElementsAre(0));
    return file;
  };
  const fs::path whole = record("whole.mp4", [&](PacketRecording& recording) {
    for (size_t i = 0; i < 50; ++i) {
      recording.write({true, static_cast<int64_t>(i) * 40000, pictures[i]});
    }
  });
  const fs::path sliced = record("sliced.mp4", [&](PacketRecording& recording) {
    for (size_t i = 0; i < 50; ++i) {
      for (const Unit& unit : units_of(pictures[i])) {
        EXPECT_TRUE(recording.write({true, static_cast<int64_t>(i) * 40000, unit.bytes}));
      }
    }
  });
  const fs::path paired = record("paired.mp4", [&](PacketRecording& recording) {
    for (size_t i = 0; i < 10; ++i) {
      recording.write({true, static_cast<int64_t>(i) * 40000, pictures[i]});
    }
    for (size_t i = 10; i < 50; i += 2) {
      recording.write({true, static_cast<int64_t>(i) * 40000, pictures[i] + pictures[i + 1]});
    }
  });
  EXPECT_EQ(times_of(sliced, true), times_of(whole, true));
  EXPECT_EQ(times_of(paired, true).size(), 50U);
  for (const fs::path& file : {sliced, paired}) {
    EXPECT_TRUE(decode(file, kPictures) == decode(whole, kPictures)) << file;
  }
}

// ---- bad packets

// Each costs itself and a log line, in every output.
TEST(OneBadPacket, CostsThatPacket) {
  const SourceMovie movie = make_source(3);
  std::string sound;
  for (const HostPacket& packet : movie.packets) {
    if (!packet.video) sound = packet.bytes;
  }
  const auto changed = [&](size_t at, char value) {
    std::string bytes = sound;
    bytes[at] = value;
    return bytes;
  };
  const std::string no_length = [&] {
    std::string bytes = changed(3, '\x80');
    bytes[4] = '\0', bytes[5] = '\x1F';
    return bytes;
  }();
  const struct {
    const char* what;
    bool video;
    std::string bytes;
  } cases[] = {
      {"a length of 0", false, no_length},
      {"a length beyond the packet", false, changed(3, '\x83')},
      {"cut off", false, sound.substr(0, sound.size() - 1)},
      {"three bytes", false, "\xFF\xF1\x4C"},
      {"a header alone", false, adts_header(0)},
      {"no header", false, sound.substr(7)},
      {"a rate that does not exist", false, changed(2, '\x74')},
      {"blocks with a checksum", false, changed(1, '\xF0').replace(6, 1, "\xFD")},
      {"no start code", true, std::string(3000, 'x')},
      {"nothing but a start code", true, std::string("\0\0\0\1", 4)},
      {"zeros", true, std::string(100000, '\0')},
  };
  for (const auto& c : cases) {
    // In the middle, as the first packet, and as the last one.
    for (const int64_t at_us : {int64_t{1500000}, int64_t{0}, INT64_MAX}) {
      SCOPED_TRACE(std::string(c.what) + " at " + std::to_string(at_us));
      const std::string others[] = {utf8(work_file("b.flv")), utf8(work_file("c.mkv")),
                                    utf8(work_file("d.ts"))};
      MovieInfo2 info = packet_settings(utf8(work_file("a.mp4")));
      for (int i = 0; i < 3; ++i) info.others[i] = others[i].c_str();
      const LogCapture log;
      PacketRecording recording(info);
      bool written = false;
      for (const HostPacket& packet : movie.packets) {
        if (!written && packet.usec >= at_us) {
          recording.write({c.video, packet.usec, c.bytes});
          written = true;
        }
        recording.write(packet);
      }
      if (!written) recording.write({c.video, 3000000, c.bytes});
      EXPECT_THAT(recording.stop(), ElementsAre(0));
      EXPECT_EQ(log.count("bytes is left out"), 1);
      for (const std::string& url : {std::string(info.url), others[0], others[1]}) {
        EXPECT_EQ(packets(fs::u8path(url)).size(), movie.packets.size()) << url;
      }
    }
  }
}

}  // namespace
