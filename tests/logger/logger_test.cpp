#include "logger.h"

#include <gtest/gtest.h>

#include <cstring>
#include <tuple>
#include <vector>

#include "files.h"
#include "temp_dir.h"
#include "zeva/log.h"

namespace {

// Every log site's way in.
template <typename... Args>
void log(int level, const char* file, int line, const char* fmt, Args... args) {
  qel::Logger::log(qel::Logger::instance(nullptr), "bg", level, file, line, fmt, args...);
}

class LoggerTest : public testing::Test {
 protected:
  LoggerTest() { ZEVA_Log_On2(sink, 4); }
  ~LoggerTest() override {
    ZEVA_Set_Log_Callback({});
    ZEVA_Log_On2(nullptr, 2);
    fclose(sink);
  }
  // What came since the last call.
  std::string written() {
    std::string text = read_file(path).substr(seen);
    seen += text.size();
    return text;
  }

  const TempDir dir;
  const std::string path = dir.path("sink");
  FILE* sink = zeva::open_file(path.c_str(), "wb");
  size_t seen = 0;
};

TEST_F(LoggerTest, LineHasHeaderAndOneNewline) {
  log(4, "C:\\build/src\\zv_av", 57, "--- before %s", "stop");
  const std::string line = written();
  const size_t mark = line.find("[I]");
  EXPECT_EQ(mark, strlen("1121-23:59:59"));
  EXPECT_EQ(line.substr(mark), "[I][bg] zv_av 57  : --- before stop\n");
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
    log(c.level, "f", 1, "m");
    const std::string line = written();
    const std::string mark = c.mark != 0 ? std::string("[") + c.mark + "][bg]" : "";
    EXPECT_EQ(line.empty(), mark.empty()) << c.threshold << " " << c.level;
    EXPECT_NE(line.find(mark), std::string::npos) << line;
  }
}

TEST_F(LoggerTest, LongestLineEndsInZeroAndNewline) {
  log(2, "f.cpp", 1, "%s", std::string(5000, 'x').c_str());
  const std::string line = written();
  ASSERT_EQ(line.size(), 1023U);
  EXPECT_EQ(line.substr(1020), std::string("x\0\n", 3));
  // A file name that overflows the header's room must not overflow the line's.
  log(2, std::string(3000, 'n').c_str(), 1, "m");
  EXPECT_EQ(written().size(), 1023U);
}

TEST_F(LoggerTest, CallbackTakesEverythingUnfiltered) {
  using Call = std::tuple<std::string, int, std::string, int, std::string>;
  std::vector<Call> calls;
  ZEVA_Log_Level(-1);
  ZEVA_Set_Log_Callback([&](auto... call) { calls.emplace_back(call...); });
  log(5, "/src/base/zv_av.cpp", 57, "n=%d", 7);
  log(9, nullptr, 0, "%s", std::string(5000, 'x').c_str());
  log(-2, "f", 0, "low");
  ZEVA_Set_Log_Callback({});
  log(0, "f", 1, "after");
  const std::vector<Call> expected{{"bg", 5, "/src/base/zv_av.cpp", 57, "n=7"},
                                   {"bg", 6, "", 0, std::string(1022, 'x')},
                                   {"bg", 0, "f", 0, "low"}};
  EXPECT_EQ(calls, expected);
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
  EXPECT_LT(text.find(": first"), text.find(": second"));
  EXPECT_NE(text.find(": second"), std::string::npos);
}

}  // namespace
