#include "files.h"

#include <gtest/gtest.h>

#include "temp_dir.h"

namespace {

TEST(Files, ConvertsUtf8) {
  const struct {
    const char* utf8;
    std::u16string wide;
  } cases[] = {
      {"", u""},
      {"a/b.mp4", u"a/b.mp4"},
      {"录像", u"录像"},
      {"\xF0\x9F\x8E\xAC", u"\xD83C\xDFAC"},  // beyond 16 bits: a pair
  };
  for (const auto& c : cases) EXPECT_EQ(zeva::to_wide(c.utf8, true), c.wide) << c.utf8;
  EXPECT_EQ(zeva::to_wide(nullptr, true), u"");
}

TEST(Files, OpensByUtf8Path) {
  const TempDir dir;
  const std::string path = dir.path("录像 索引.txt");
  FILE* file = zeva::open_file(path.c_str(), "wb");
  ASSERT_NE(file, nullptr);
  fputs("内容", file);
  fclose(file);
  EXPECT_TRUE(std::filesystem::exists(std::filesystem::u8path(path)));
  EXPECT_EQ(read_file(path), "内容");
}

TEST(Files, ReportsWhatCannotBeOpened) {
  const TempDir dir;
  EXPECT_EQ(zeva::open_file(nullptr, "rb"), nullptr);
  EXPECT_EQ(zeva::open_file("", "wb"), nullptr);
  EXPECT_EQ(zeva::open_file(dir.path("no/such/folder").c_str(), "wb"), nullptr);
}

}  // namespace
