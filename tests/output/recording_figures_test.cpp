#include "recording_figures.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "versioned_record.h"

namespace {

TEST(CallTimes, AreOfTheLatestCalls) {
  zeva::CallTimes times;
  EXPECT_EQ(times.summary().mean_us, 0);
  EXPECT_EQ(times.summary().p99_us, 0);
  times.add(7);
  EXPECT_EQ(times.summary().mean_us, 7);
  EXPECT_EQ(times.summary().p99_us, 7);
  const struct {
    int calls;  // of 0, 1, 2 ... us in a scattered order
    int64_t mean_us, p99_us;
  } cases[] = {{2, 0, 1}, {100, 49, 98}, {101, 50, 99}, {512, 255, 506}, {4096 + 512, 255, 506}};
  for (const auto& c : cases) {
    zeva::CallTimes some;
    for (int n = 0; n < c.calls; ++n) some.add(c.calls < 512 ? n : n * 77 % 512);
    EXPECT_EQ(some.summary().mean_us, c.mean_us) << c.calls;
    EXPECT_EQ(some.summary().p99_us, c.p99_us) << c.calls;
  }
}

TEST(RecordingFigures, CountTimesOfEncodedPicturesOnly) {
  zeva::RecordingFigures figures;
  figures.begin_picture();
  figures.cost = {3, 0, false};
  figures.end_picture(false, 1000000);
  figures.begin_picture();
  figures.cost = {10, 20, true};
  figures.end_picture(true, 40);
  figures.give_sound(21333);
  ZevaStatistics told;
  ZevaStatistics_init(&told);
  figures.fill(told);
  EXPECT_EQ(told.pictures_given, 2);
  EXPECT_EQ(told.pictures_refused, 1);
  EXPECT_EQ(told.sound_us_given, 21333);
  EXPECT_EQ(told.convert_mean_us, 10);
  EXPECT_EQ(told.encode_mean_us, 20);
  EXPECT_EQ(told.call_p99_us, 40);
}

struct Grown {
  ZevaStatistics known;
  int64_t later[4];
};

TEST(VersionedRecord, IsFilledAsFarAsTheHostKnowsIt) {
  ZevaStatistics full;
  memset(&full, 0x11, sizeof full);
  for (const uint32_t size : {4U, 8U, 16U, uint32_t{sizeof(ZevaStatistics)},
                              uint32_t{sizeof(Grown)}, 0U, 3U, 5000U, 0xEEEEEEEEU}) {
    SCOPED_TRACE(size);
    Grown given;
    memset(&given, 0xEE, sizeof given);
    given.known.struct_size = size;
    const bool valid = size >= 4 && size <= 4096;
    EXPECT_EQ(zeva::fill_record(full, given.known), valid);
    EXPECT_EQ(given.known.struct_size, size);
    const auto* bytes = reinterpret_cast<const uint8_t*>(&given);
    for (size_t at = 4; at < sizeof given; ++at) {
      const int wanted = valid && at < std::min<size_t>(size, sizeof full) ? 0x11 : 0xEE;
      ASSERT_EQ(bytes[at], wanted) << at;
    }
  }
}

}  // namespace
