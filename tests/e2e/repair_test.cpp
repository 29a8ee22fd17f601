// A recording without its trailer comes back packet for packet, judged by an independent prober.
#include <gtest/gtest.h>

#include <fstream>
#include <thread>

#include "judge.h"
#include "recording.h"

namespace {

using namespace zeva_test;
namespace fs = std::filesystem;

// The packets of each stream, without their place in the file. Edit lists round the last one's
// duration to milliseconds.
std::map<std::string, std::vector<Row>> packets_by_stream(const fs::path& file) {
  std::map<std::string, std::vector<Row>> found;
  std::string type;
  for (const Row& row :
       probe(file,
             "-ignore_editlist 1 -show_data_hash md5 -show_entries packet=codec_type,pts,dts,"
             "duration,size,flags,data_hash")) {
    if (row.count("codec_type") > 0) found[type = row.at("codec_type")].emplace_back();
    found[type].back().insert(row.begin(), row.end());  // side data splits a packet's row
  }
  return found;
}

TEST(Repair, GivesBackEveryPacketButTheLast) {
  const fs::path whole = work_file("电影 一.mp4"), index = work_file("电影 一.index");
  const fs::path broken = work_file("坏.mp4"), repaired = work_file("修复.mp4");
  MovieInfo info = settings(whole);
  set_text(info.moov_url, utf8(index));
  Recording recording(info);
  recording.feed(0, 5 * kFps);
  recording.stop();
  const std::string bytes = read_file(whole);
  std::ofstream(broken, std::ios::binary) << bytes.substr(0, bytes.rfind("moov") - 4);

  const auto on_progress = [](double progress, int code, const char*, void* user) {
    EXPECT_EQ(code, 0);
    *static_cast<double*>(user) = progress;
  };
  double progress = -1;
  void* repair = ZEVA_StartRepair_Async(utf8(broken).c_str(), utf8(index).c_str(),
                                        utf8(repaired).c_str(), on_progress, &progress);
  while (ZEVA_Repair_IsRunning(repair)) std::this_thread::yield();
  ZEVA_StopRepair(&repair);
  EXPECT_EQ(repair, nullptr);
  EXPECT_EQ(progress, 1.0);
  auto expected = packets_by_stream(whole), found = packets_by_stream(repaired);
  ASSERT_EQ(found.size(), 2U);
  size_t missing = 0;
  for (auto& [type, packets] : expected) {
    missing += packets.size() - found[type].size();
    packets.resize(found[type].size());
    EXPECT_EQ(packets, found[type]) << type;
  }
  EXPECT_EQ(missing, 1U);
  EXPECT_EQ(decode_faults(repaired), "");

  EXPECT_TRUE(ZEVA_StartRepair_sync(utf8(broken).c_str(), utf8(index).c_str(),
                                    utf8(repaired).c_str(), nullptr, nullptr));
  EXPECT_FALSE(ZEVA_StartRepair_sync(nullptr, nullptr, nullptr, nullptr, nullptr));
  EXPECT_FALSE(ZEVA_Repair_IsRunning(nullptr));
  ZEVA_StopRepair(nullptr);
  ZEVA_StopRepair(&repair);
}

}  // namespace
