// Outputs that break while others go on: full disks, removed files. Linux only, which has a device
// that is always full and lets open files be removed.
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <random>
#include <sstream>

#include "judge.h"
#include "recording.h"

namespace {
using namespace zeva_test;  // NOLINT: a test reads better without the prefix
namespace fs = std::filesystem;

constexpr int kFrames = 2 * kFps;

// A name with the right extension for the device on which every write fails.
fs::path full_device(const std::string& name) {
  const fs::path link = work_file(name);
  fs::create_symlink("/dev/full", link);
  return link;
}

// Pictures that no codec makes small: FFmpeg hands data to a file in pieces of 256 KiB only.
std::vector<uint8_t> noise(int frame) {
  std::minstd_rand random(static_cast<unsigned>(frame) + 1);
  std::vector<uint8_t> bgra(size_t{4} * kWidth * kHeight);
  for (uint8_t& byte : bgra) byte = static_cast<uint8_t>(random() >> 8);
  return bgra;
}

MovieInfo large_movie(const fs::path& file) {
  MovieInfo info = settings(file);
  info.video_bitrate = 10000;
  return info;
}

// Records until the failure has been told: the writing goes on behind the recording. Returns the
// number of pictures.
int feed_until_told(Recording& recording) {
  int frame = 0;
  for (; frame < kFrames || (recording.failures().empty() && frame < 1000); ++frame) {
    recording.picture(noise(frame), time_us(frame));
    recording.sound(tone(frame), time_us(frame));
  }
  EXPECT_FALSE(recording.failures().empty()) << "not told while recording";
  return frame;
}

void expect_whole(const fs::path& file, int frames = kFrames) {
  EXPECT_EQ(decode_faults(file), "");
  const std::vector<Row> found = streams(file);
  ASSERT_EQ(found.size(), 2U);
  EXPECT_EQ(number(found[0], "nb_read_frames"), frames);
}

void expect_told_once(Recording& recording, int code) {
  const std::vector<Status> failures = recording.failures();
  ASSERT_EQ(failures.size(), 1U);
  EXPECT_EQ(failures[0].code, code);
  EXPECT_NE(failures[0].text, "");
}

TEST(LostOutputsLinux, AFullFurtherOutputIsToldOnceAndTheOthersGoOn) {
  const fs::path main = work_file("main.mp4");
  const fs::path good = work_file("good.mkv");
  const std::string urls[] = {utf8(full_device("full.flv")), utf8(good)};
  MovieInfo info = large_movie(main);
  info.other_urls[0] = urls[0].c_str();
  info.other_urls[1] = urls[1].c_str();
  Recording recording(info);
  ASSERT_TRUE(recording.open());
  const int frames = feed_until_told(recording);
  EXPECT_TRUE(recording.open());
  recording.stop();
  expect_told_once(recording, -ENOSPC);
  expect_whole(main, frames);
  expect_whole(good, frames);
}

TEST(LostOutputsLinux, AFullMainOutputIsToldOnceAndTheOthersGoOn) {
  const fs::path good = work_file("good.ts");
  const std::string url = utf8(good);
  MovieInfo info = large_movie(full_device("main.mkv"));
  info.other_urls[0] = url.c_str();
  LogCapture log;
  Recording recording(info);
  ASSERT_TRUE(recording.open());
  const int frames = feed_until_told(recording);
  recording.stop();
  expect_told_once(recording, -ENOSPC);
  EXPECT_EQ(log.count("[Write Pkt Err]"), 1);
  expect_whole(good, frames);
}

// A file system of a megabyte, which only this process sees and which ends with it.
bool mount_small_disk(const fs::path& folder) {
  fs::create_directories(folder);
  return unshare(CLONE_NEWNS) == 0 &&
         mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
         mount("tmpfs", folder.c_str(), "tmpfs", 0, "size=1m") == 0;
}

// Where the index says the packets of the main output lie, they lie, as far as the disk took them.
TEST(LostOutputsLinux, AFullDiskKeepsTheFileSoFarAndItsIndex) {
  const fs::path folder = work_file("disk");
  if (!mount_small_disk(folder)) {
    GTEST_SKIP() << "no right to mount a small file system: " << strerror(errno);
  }
  const fs::path file = folder / "main.mp4";
  const fs::path good = work_file("good.mkv");
  const fs::path index = work_file("main.index");
  const std::string url = utf8(good);
  MovieInfo info = large_movie(file);
  set_text(info.moov_url, utf8(index));
  info.other_urls[0] = url.c_str();
  Recording recording(info);
  ASSERT_TRUE(recording.open());
  const int frames = feed_until_told(recording);
  recording.stop();
  expect_told_once(recording, -ENOSPC);
  expect_whole(good, frames);

  const std::string movie = read_file(file);
  EXPECT_GE(movie.size(), 700000U);
  std::string records = read_file(index);
  records.erase(0, records.rfind('}') + 2);  // header and streams
  records.erase(std::remove(records.begin(), records.end(), '\n'), records.end());
  // Of the first record, the position; of all, stream and size. A video packet is a chain of pieces
  // with their lengths in front (ISO/IEC 14496-15), so a wrong position breaks the chain.
  std::istringstream list(records);
  size_t at = 0;
  int whole_pictures = 0;
  for (std::string record; std::getline(list, record, ';');) {
    const size_t second = record.find(',') + 1;
    const size_t third = record.find(',', second) + 1;
    if (at == 0) at = std::stoul(record.substr(second));
    const size_t end = at + std::stoul(record.substr(third));
    if (end > movie.size()) break;
    const bool video = record[0] == ',' || record[0] == '0';
    for (; video && at < end; whole_pictures += at == end ? 1 : 0) {
      const auto byte = [&](size_t i) { return size_t{static_cast<uint8_t>(movie[at + i])}; };
      at += 4 + (byte(0) << 24 | byte(1) << 16 | byte(2) << 8 | byte(3));
    }
    ASSERT_TRUE(!video || at == end) << "no picture ends at " << end;
    at = end;
  }
  EXPECT_GT(whole_pictures, 5);
  EXPECT_GT(at, movie.size() - 200000) << "the index ends long before the file";
}

TEST(LostOutputsLinux, ARemovedFileDoesNotDisturbTheOthers) {
  const fs::path main = work_file("main.mp4");
  const fs::path good = work_file("good.flv");
  const std::string url = utf8(good);
  MovieInfo info = settings(main);
  set_text(info.moov_url, utf8(work_file("main.index")));
  info.other_urls[0] = url.c_str();
  Recording recording(info);
  recording.feed(0, 10);
  ASSERT_TRUE(fs::remove(main));
  ASSERT_TRUE(fs::remove(work_file("main.index")));
  recording.feed(10, kFrames);
  recording.stop();
  EXPECT_TRUE(recording.failures().empty());
  EXPECT_FALSE(fs::exists(main));
  expect_whole(good);
}

}  // namespace
