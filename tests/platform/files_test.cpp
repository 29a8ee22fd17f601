#include "files.h"

#include <gtest/gtest.h>

namespace {

TEST(Files, ConvertsUtf8) {
  EXPECT_EQ(zeva::to_wide(nullptr, true), u"");
  EXPECT_EQ(zeva::to_wide("", true), u"");
  // Within 16 bits, and beyond: a pair.
  EXPECT_EQ(zeva::to_wide("a/录像\xF0\x9F\x8E\xAC.mp4", true), u"a/录像\xD83C\xDFAC.mp4");
}

}  // namespace
