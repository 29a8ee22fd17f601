#include "avc.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>

namespace {
using Bytes = std::vector<uint8_t>;

Bytes join(const std::vector<Bytes>& pieces) {
  Bytes all;
  for (const Bytes& piece : pieces) all.insert(all.end(), piece.begin(), piece.end());
  return all;
}

TEST(Avc, SplitsByteStreamsAtStartCodes) {
  const struct {
    Bytes stream;
    std::vector<Bytes> units;
  } cases[] = {
      {{}, {}},
      {{0, 0}, {}},
      {{9, 9, 0, 0, 2, 0x67}, {}},
      {{0, 0, 1}, {{}}},
      {{7, 0, 0, 1, 0x67, 1, 0, 0, 0, 1, 0x68}, {{0x67, 1}, {0x68}}},
      {{0, 0, 0, 1, 0x65, 0, 0, 3, 1, 0, 0}, {{0x65, 0, 0, 3, 1}}},
      {{0, 0, 1, 0, 0, 1, 0x41}, {{}, {0x41}}},
  };
  for (const auto& c : cases) {
    std::vector<Bytes> found;
    for (const zeva::NalUnit& unit : zeva::split_byte_stream(c.stream.data(), c.stream.size())) {
      found.emplace_back(unit.data, unit.data + unit.size_bytes);
    }
    EXPECT_EQ(found, c.units);
  }
}

TEST(Avc, RecordsHoldOneSpsAndAtMostOnePps) {
  Bytes sps(25, 0xAB);
  const uint8_t begin[] = {0x67, 0x64, 0x00, 0x1F};
  std::copy(std::begin(begin), std::end(begin), sps.begin());
  const Bytes pps = {0x68, 0xEE, 0x3C, 0x80};
  const Bytes before_sps = {1, 0x64, 0x00, 0x1F, 0xFF, 0xE1, 0, 25};
  const Bytes with_pps = zeva::avc_configuration_record({sps.data(), 25}, {pps.data(), 4});
  EXPECT_EQ(with_pps, join({before_sps, sps, {1, 0, 4}, pps}));
  EXPECT_EQ(with_pps.size(), 40U);
  EXPECT_EQ(zeva::avc_configuration_record({sps.data(), 25}, {}), join({before_sps, sps, {0}}));

  const Bytes longest(0xFFFF);
  const struct {
    zeva::NalUnit unit;
    bool sps, pps;
  } sets[] = {
      {{nullptr, 9}, false, false},           {{sps.data(), 0}, false, false},
      {{sps.data(), 3}, false, true},         {{sps.data(), 4}, true, true},
      {{longest.data(), 0xFFFF}, true, true}, {{longest.data(), 0x10000}, false, false},
  };
  for (const auto& s : sets) {
    EXPECT_EQ(zeva::is_avc_sps(s.unit), s.sps) << s.unit.size_bytes;
    EXPECT_EQ(zeva::is_avc_pps(s.unit), s.pps) << s.unit.size_bytes;
  }
}

}  // namespace
