#include "index_format.h"

#include <gtest/gtest.h>

#include <limits>

namespace {

TEST(IndexFormat, ZeroIsAnEmptyField) {
  constexpr int64_t kLow64 = std::numeric_limits<int64_t>::min();
  constexpr int32_t kLow32 = std::numeric_limits<int32_t>::min();
  const struct {
    zeva::IndexRecord record;
    std::string text;
  } cases[] = {
      {{}, ",,,,,,;"},
      {{1, 48, 371, 1024, 512, 960, 1}, "1,48,371,1024,512,960,1;"},
      {{kLow32, kLow64, kLow32, kLow64, kLow64, kLow64, kLow32},
       "-2147483648,-9223372036854775808,-2147483648,-9223372036854775808,-9223372036854775808,"
       "-9223372036854775808,-2147483648;"},
  };
  for (const auto& c : cases) {
    std::string out(zeva::kIndexRecordMaxBytes, '#');
    EXPECT_EQ(zeva::format_index_record(c.record, out.data()), static_cast<int>(c.text.size()));
    EXPECT_STREQ(out.c_str(), c.text.c_str());  // the longest fits, with its terminating zero
  }
}

}  // namespace
