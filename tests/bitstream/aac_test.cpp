#include "aac.h"

#include <gtest/gtest.h>

namespace {
using Bytes = std::vector<uint8_t>;

TEST(Aac, HeadersAndConfigurationsNameRateChannelsAndLength) {
  const struct {
    int rate, channels, payload_bytes;
    Bytes header, configuration;
  } cases[] = {
      {22050, 2, 1000, {0xFF, 0xF1, 0x5C, 0x80, 0x7D, 0xFF, 0xFC}, {0x13, 0x90}},
      {48000, 2, 0, {0xFF, 0xF1, 0x4C, 0x80, 0x00, 0xFF, 0xFC}, {0x11, 0x90}},
      {44100, 1, 8184, {0xFF, 0xF1, 0x50, 0x43, 0xFF, 0xFF, 0xFC}, {0x12, 0x08}},
      {50000, 6, 1, {0xFF, 0xF1, 0x51, 0x80, 0x01, 0x1F, 0xFC}, {0x12, 0x30}},  // as 44100 Hz
      {96000, 8, 1, {0xFF, 0xF1, 0x41, 0xC0, 0x01, 0x1F, 0xFC}, {0x10, 0x40}},
      {7350, 2, 1, {0xFF, 0xF1, 0x70, 0x80, 0x01, 0x1F, 0xFC}, {0x16, 0x10}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.rate);
    const auto header = zeva::adts_header(1, c.rate, c.channels, c.payload_bytes);
    EXPECT_EQ(Bytes(header.begin(), header.end()), c.header);
    EXPECT_EQ(zeva::aac_lc_configuration(zeva::aac_rate_index(c.rate), c.channels),
              c.configuration);
  }
}

}  // namespace
