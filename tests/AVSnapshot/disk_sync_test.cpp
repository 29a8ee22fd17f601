#include "disk_sync.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <future>

#include "log_capture.h"
#include "temp_dir.h"

namespace {

std::atomic<int> g_syncs{0};
std::atomic<int> g_good_syncs{0};  // before the first that fails

bool sync_for_a_while(FILE*) {
  if (g_syncs++ < g_good_syncs) return true;
  errno = EIO;
  return false;
}

TEST(DiskSync, SaysOnceThatTheDiskLostSomethingAndNeverTakesItBack) {
  const TempDir dir;
  const LogCapture log;
  const std::string path = dir.path("a.mp4");
  write_file(path, "x");
  for (const int good : {0, 1, 1000}) {
    SCOPED_TRACE(good);
    g_syncs = 0;
    g_good_syncs = good;
    std::promise<std::string> told;
    zeva::DiskSync disk([&](const std::string& text) { told.set_value(text); }, sync_for_a_while);
    disk.start({path, dir.path(""), "", dir.path("none")}, good == 1);
    disk.request();
    if (good == 0) {
      EXPECT_NE(told.get_future().get().find(path + ": "), std::string::npos);
    }
    const bool kept = good == 1000;
    EXPECT_EQ(disk.end(), kept);
    EXPECT_EQ(disk.end(), kept) << "the answer stays";
    if (good == 0) {
      EXPECT_EQ(g_syncs, 1) << "a later sync would succeed without what is lost";
    }
  }
  EXPECT_EQ(log.count("the disk may not keep " + path), 2);
}

TEST(DiskSync, SyncsBeforeItReturnsWhenAsked) {
  const TempDir dir;
  write_file(dir.path("a.index"), "x");
  g_syncs = 0;
  g_good_syncs = 1000;
  zeva::DiskSync disk({}, sync_for_a_while);
  disk.start({dir.path("a.index")}, true);
  EXPECT_GE(g_syncs, 1);
  EXPECT_TRUE(disk.end());
  EXPECT_TRUE(zeva::DiskSync().end()) << "nothing was written";
}

}  // namespace
