#include "logger.h"

#include <gtest/gtest.h>

#include <atomic>
#include <regex>
#include <thread>
#include <vector>

#include "clock.h"
#include "temp_dir.h"
#include "zeva/log.h"

namespace {

// Every log site's way in.
template <typename... Args>
void log(int level, const char* file, int line, const char* fmt, Args... args) {
  qel::Logger::log(qel::Logger::instance(nullptr), "bg", level, file, line, fmt, args...);
}

std::string stamp() {
  char text[64] = "";
  zeva::format_local_time(text, sizeof text, "%m%d-%H:%M:%S", zeva::calendar_seconds());
  return text;
}

class LoggerTest : public testing::Test {
 protected:
  LoggerTest() { ZEVA_Log_On2(sink, 2); }
  ~LoggerTest() override {
    ZEVA_Set_Log_Callback({});
    FILE* last = qel::Logger::instance(nullptr)->sink;
    ZEVA_Log_On2(nullptr, 2);
    if (last != sink && last != stderr && last != stdout) fclose(last);
    fclose(sink);
  }
  std::string written() const { return read_file(path); }

  const TempDir dir;
  const std::string path = dir.path("sink");
  FILE* sink = zeva::open_file(path.c_str(), "wb");
};

TEST_F(LoggerTest, LineHasHeaderAndOneNewline) {
  ZEVA_Log_Level(4);
  const std::string before = stamp();
  log(4, "C:\\build/src\\zv_av", 57, "--- before %s", "stop");
  const std::string after = stamp();
  const std::string line = written();
  ASSERT_GT(line.size(), before.size());
  EXPECT_EQ(line.substr(before.size()), "[I][bg] zv_av 57  : --- before stop\n");
  EXPECT_LE(before, line.substr(0, before.size()));
  EXPECT_GE(after, line.substr(0, before.size()));
}

TEST_F(LoggerTest, ThresholdAndMarks) {
  const struct {
    int threshold;
    int level;
    char mark;  // 0: nothing is written
  } cases[] = {
      {2, 0, '-'},  {2, 1, 'F'},  {2, 2, 'E'}, {2, 3, 0},   {3, 3, 'W'}, {4, 4, 'I'},
      {4, 5, 0},    {5, 5, 'D'},  {5, 6, 0},   {6, 6, '='}, {9, 9, '='}, {5, 9, 0},
      {2, -3, '-'}, {0, -3, '-'}, {-1, 0, 0},  {-1, -3, 0},
  };
  for (const auto& c : cases) {
    ZEVA_Log_Level(c.threshold);
    const size_t begin = written().size();
    log(c.level, "f", 1, "m");
    const std::string line = written().substr(begin);
    EXPECT_EQ(line.empty(), c.mark == 0) << c.threshold << " " << c.level;
    if (c.mark != 0) {
      EXPECT_NE(line.find(std::string("[") + c.mark + "][bg]"), std::string::npos) << line;
    }
  }
}

TEST_F(LoggerTest, LongestLineEndsInZeroAndNewline) {
  log(2, "f.cpp", 1, "%s", std::string(5000, 'x').c_str());
  const std::string line = written();
  ASSERT_EQ(line.size(), 1023U);
  EXPECT_EQ(line[1020], 'x');
  EXPECT_EQ(line[1021], '\0');
  EXPECT_EQ(line[1022], '\n');
  // A file name that overflows the header's room must not overflow the line's.
  log(2, std::string(3000, 'n').c_str(), 1, "m");
  EXPECT_EQ(written().size(), 2 * 1023U);
}

TEST_F(LoggerTest, CallbackTakesEverythingUnfiltered) {
  struct Call {
    std::string tag, file, message;
    int level, line;
  };
  std::vector<Call> calls;
  ZEVA_Log_Level(-1);
  ZEVA_Set_Log_Callback(
      [&](const char* tag, int level, const char* file, int line, const char* message) {
        calls.push_back({tag, file, message, level, line});
      });
  log(5, "/src/base/zv_av.cpp", 57, "n=%d", 7);
  log(9, nullptr, 0, "%s", std::string(5000, 'x').c_str());
  log(-2, "f", 0, "low");
  ZEVA_Set_Log_Callback({});
  log(0, "f", 1, "after");
  ASSERT_EQ(calls.size(), 3U);
  EXPECT_EQ(calls[0].tag, "bg");
  EXPECT_EQ(calls[0].file, "/src/base/zv_av.cpp");
  EXPECT_EQ(calls[0].message, "n=7");
  EXPECT_EQ(calls[0].level, 5);
  EXPECT_EQ(calls[0].line, 57);
  EXPECT_EQ(calls[1].file, "");
  EXPECT_EQ(calls[1].level, 6);
  EXPECT_EQ(calls[1].message, std::string(1022, 'x'));
  EXPECT_EQ(calls[2].level, 0);
  EXPECT_EQ(written(), "");
}

TEST_F(LoggerTest, OpensAndAppendsToATrimmedPath) {
  const std::string file = dir.path("日志 1.log");
  for (const char* round : {"first", "second"}) {
    ZEVA_Log_On(("\b\t \"" + file + "\" \t\r\n").c_str(), 5);
    FILE* opened = qel::Logger::instance(nullptr)->sink;
    ASSERT_NE(opened, stderr);
    log(5, "f", 1, "%s", round);
    ZEVA_Log_On2(sink, 2);
    fclose(opened);
  }
  const std::string text = read_file(file);
  const size_t first = text.find(": first");
  ASSERT_NE(first, std::string::npos);
  EXPECT_NE(text.find(": second", first), std::string::npos);
}

}  // namespace
