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

TEST(Aac, FramesAreTakenOnlyWhole) {
  const auto frame = [](std::initializer_list<std::pair<size_t, int>> changes) {
    const auto header = zeva::adts_header(1, 48000, 2, 3);
    Bytes bytes(header.begin(), header.end());
    bytes.insert(bytes.end(), {0x21, 0x10, 0x04, 0xFF, 0xFF});  // two more than the frame has
    for (const auto& [at, value] : changes) bytes[at] = static_cast<uint8_t>(value);
    return bytes;
  };
  const struct {
    const char* what;
    Bytes bytes;
    size_t size_bytes;
    int samples = 1024;
    bool tells_channels = true;
  } cases[] = {
      {"whole", frame({}), 10},
      {"four blocks", frame({{6, 0xFF}}), 10, 4096},
      {"with a checksum", frame({{1, 0xF0}}), 10},
      {"channels by the payload", frame({{2, 0x4C}, {3, 0}, {7, 0xA1}}), 10},
      {"channels by nothing", frame({{3, 0}}), 10, 1024, false},
      {"no syncword", frame({{0, 0xFE}}), 0},
      {"a layer", frame({{1, 0xF3}}), 0},
      {"a rate that does not exist", frame({{2, 0x74}}), 0},
      {"length 0", frame({{4, 0}, {5, 0x1F}}), 0},
      {"length of a header", frame({{4, 0}, {5, 0xFF}}), 0},
      {"length of a header with a checksum", frame({{1, 0xF0}, {4, 1}, {5, 0x3F}}), 0},
      {"longer than the data", frame({{4, 2}}), 0},
      {"blocks with a checksum", frame({{1, 0xF0}, {6, 0xFD}}), 0},
      {"a header for a payload", frame({{7, 0xFF}, {8, 0xF1}}), 0},
      {"six bytes", Bytes(6, 0xFF), 0},
      {"nothing", {}, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    const zeva::AdtsFrame found = zeva::parse_adts(c.bytes.data(), c.bytes.size());
    EXPECT_EQ(found.size_bytes, c.size_bytes);
    if (found.size_bytes == 0) continue;
    EXPECT_EQ(found.sample_rate, 48000);
    EXPECT_EQ(found.samples, c.samples);
    EXPECT_EQ(found.tells_channels, c.tells_channels);
  }
}

}  // namespace
