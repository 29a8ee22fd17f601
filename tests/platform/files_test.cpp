#include "files.h"

#include <gtest/gtest.h>

namespace {

TEST(Files, ConvertsUtf8) {
  EXPECT_EQ(zeva::to_wide(nullptr, true), u"");
  EXPECT_EQ(zeva::to_wide("", true), u"");
  // Within 16 bits, and beyond: a pair.
  EXPECT_EQ(zeva::to_wide("a/录像\xF0\x9F\x8E\xAC.mp4", true), u"a/录像\xD83C\xDFAC.mp4");
}

TEST(Files, LockLastsAsLongAsTheFileIsOpen) {
  const std::string path = testing::TempDir() + "zeva-lock-\xC3\xA9";
  EXPECT_FALSE(zeva::is_locked(path));
  for (int round = 0; round < 2; ++round) {
    zeva::FilePtr file(zeva::open_file(path.c_str(), "wb"));
    ASSERT_NE(file, nullptr);
    EXPECT_TRUE(zeva::lock_file(file.get()));
    EXPECT_TRUE(zeva::is_locked(path));
    const zeva::FilePtr reader(zeva::open_file(path.c_str(), "rb"));
    file.reset();
    EXPECT_FALSE(zeva::is_locked(path)) << "a reader is no writer";
  }
  zeva::remove_file(path);
}

}  // namespace
