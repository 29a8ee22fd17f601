// Outputs that break while others go on: full disks, removed files. Linux only, which has a device
// that is always full and lets open files be removed.
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

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

void expect_whole(const fs::path& file) {
  EXPECT_EQ(decode_faults(file), "");
  const std::vector<Row> found = streams(file);
  ASSERT_EQ(found.size(), 2U);
  EXPECT_EQ(number(found[0], "nb_read_frames"), kFrames);
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
  MovieInfo info = settings(main);
  info.other_urls[0] = urls[0].c_str();
  info.other_urls[1] = urls[1].c_str();
  Recording recording(info);
  ASSERT_TRUE(recording.open());
  recording.feed(0, kFrames);
  EXPECT_TRUE(recording.open());
  recording.stop();
  expect_told_once(recording, -ENOSPC);
  expect_whole(main);
  expect_whole(good);
}

TEST(LostOutputsLinux, AFullMainOutputIsToldOnceAndTheOthersGoOn) {
  const fs::path good = work_file("good.flv");
  const std::string url = utf8(good);
  MovieInfo info = settings(full_device("main.mp4"));
  info.other_urls[0] = url.c_str();
  LogCapture log;
  Recording recording(info);
  ASSERT_TRUE(recording.open());
  recording.feed(0, kFrames);
  recording.stop();
  expect_told_once(recording, -ENOSPC);
  EXPECT_EQ(log.count("[Write Pkt Err]"), 1);
  expect_whole(good);
}

// A file system of a few pages, for as long as the object lives.
class SmallDisk {
 public:
  explicit SmallDisk(const fs::path& folder) : folder_(folder) {
    fs::create_directories(folder_);
    mounted = mount("tmpfs", folder_.c_str(), "tmpfs", 0, "size=96k") == 0;
  }
  ~SmallDisk() {
    if (mounted) umount2(folder_.c_str(), MNT_DETACH);
  }
  bool mounted;

 private:
  fs::path folder_;
};

// The packets of the main output lie where its index says, as far as the disk took them.
TEST(LostOutputsLinux, AFullDiskKeepsTheFileSoFarAndItsIndex) {
  const fs::path folder = work_file("disk");
  const SmallDisk disk(folder);
  if (!disk.mounted) GTEST_SKIP() << "no right to mount a small file system: " << strerror(errno);
  const fs::path file = folder / "main.mp4";
  const fs::path good = work_file("good.flv");
  const fs::path index = work_file("main.index");
  const std::string url = utf8(good);
  MovieInfo info = settings(file);
  set_text(info.moov_url, utf8(index));
  info.other_urls[0] = url.c_str();
  Recording recording(info);
  ASSERT_TRUE(recording.open());
  recording.feed(0, kFrames);
  recording.stop();
  expect_told_once(recording, -ENOSPC);
  expect_whole(good);

  // All the records but the stream lines and the header; the first one names its position.
  std::string records = read_file(index);
  records.erase(0, records.rfind('}') + 2);
  const std::string kept = read_file(file);
  const size_t first = std::stoul(records.substr(records.find(',') + 1));
  ASSERT_GT(kept.size(), size_t{64} * 1024);
  size_t end = first;
  for (size_t at = 0; at < records.size(); at = records.find(';', at) + 1) {
    const size_t size_field = records.find(',', records.find(',', at) + 1) + 1;
    end += std::stoul(records.substr(size_field));
    if (records.find(';', at) == std::string::npos) break;
  }
  // What was told to the disk is indexed: all of it but the packet under way.
  EXPECT_GT(end, kept.size() - 16384);
  // Read by the index, the first video packet is the length-prefixed one of the movie.
  const std::vector<Row> sent = packets(good);
  const auto first_size = static_cast<size_t>(number(sent[0], "size"));
  EXPECT_NE(
      kept.find(read_file(good).substr(static_cast<size_t>(number(sent[0], "pos")), first_size)),
      std::string::npos);
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
