// A recording without its trailer comes back through both exported functions, judged by an
// independent prober; what exactly comes back, the engine's own tests compare.
#include <gtest/gtest.h>

#include <fstream>
#include <thread>

#include "judge.h"
#include "recording.h"

namespace {
using namespace zeva_test;  // NOLINT: a test reads better without the prefix
namespace fs = std::filesystem;

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
    *static_cast<double*>(user) = code == 0 ? progress : -1;
  };
  const std::string in = utf8(broken), log = utf8(index), out = utf8(repaired);
  for (const bool async : {true, false}) {
    fs::remove(repaired);
    double progress = -1;
    void* repair = nullptr;
    if (async)
      repair = ZEVA_StartRepair_Async(in.c_str(), log.c_str(), out.c_str(), on_progress, &progress);
    while (ZEVA_Repair_IsRunning(repair)) std::this_thread::yield();
    ZEVA_StopRepair(&repair);
    EXPECT_EQ(repair, nullptr);
    EXPECT_TRUE(async || ZEVA_StartRepair_sync(in.c_str(), log.c_str(), out.c_str(), on_progress,
                                               &progress));
    EXPECT_EQ(progress, 1.0);
    EXPECT_EQ(packets(repaired).size() + 1, packets(whole).size());
    EXPECT_EQ(decode_faults(repaired), "");
  }
}

}  // namespace
