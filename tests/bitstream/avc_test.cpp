#include "avc.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <string>

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

// At every place of streams of every length, in memory of exactly that length.
TEST(Avc, FindsStartCodesWhereverTheyAre) {
  for (size_t length = 0; length <= 70; ++length) {
    EXPECT_EQ(zeva::split_byte_stream(Bytes(length, 0).data(), length).size(), 0U);
    EXPECT_EQ(zeva::split_byte_stream(Bytes(length, 1).data(), length).size(), 0U);
    for (const Bytes& code : {Bytes{0, 0, 1}, Bytes{0, 0, 0, 1}, Bytes{2, 0, 0, 1}}) {
      for (const uint8_t filler : {0x22, 0, 1, 0xFF}) {
        for (size_t at = 0; at + code.size() <= length; ++at) {
          Bytes stream(length, filler);
          std::copy(code.begin(), code.end(), stream.begin() + static_cast<ptrdiff_t>(at));
          const auto units = zeva::split_byte_stream(stream.data(), length);
          ASSERT_EQ(units.size(), 1U) << length << " " << at << " " << int{filler};
          EXPECT_EQ(units[0].data, stream.data() + at + code.size());
          EXPECT_EQ(units[0].size_bytes, filler == 0 ? 0 : length - at - code.size());
        }
      }
    }
  }
}

// As letters: S, s a first and a further slice, P parameter sets, A a delimiter, X a prefix unit, E
// an end of a sequence.
Bytes stream_of(const std::string& units) {
  const std::map<char, Bytes> known = {
      {'S', {0x65, 0x88}}, {'s', {0x65, 0x12}}, {'P', {0x67, 1}}, {'A', {9, 0x10}},
      {'X', {0x6E, 1}},    {'E', {0x0A}},       {'-', {}}};
  Bytes stream;
  for (const char unit : units) {
    const Bytes start_code = stream.size() % 2 == 0 ? Bytes{0, 0, 0, 1} : Bytes{0, 0, 1};
    stream = join({stream, start_code, known.at(unit)});
  }
  return stream;
}

TEST(Avc, DividesStreamsIntoAccessUnits) {
  const struct {
    const char* units;
    const char* parts;  // with a space between two; ~ continues a picture, _ has none
  } cases[] = {
      {"", ""},
      {"-", ""},
      {"S", "S"},
      {"PPS", "PPS"},
      {"PP", "_PP"},
      {"A", "_A"},
      {"E", "_E"},
      {"Sss", "Sss"},
      {"ss", "~ss"},
      {"sPS", "~s PS"},
      {"SS", "S S"},
      {"SsAPSs", "Ss APSs"},
      {"SPP", "S _PP"},
      {"SESE", "SE SE"},
      {"XSXs", "XSXs"},
      {"XSXsXS", "XSXs XS"},
      {"SAPSA", "S APS _A"},
      {"S-s", "S-s"},
  };
  for (const auto& c : cases) {
    const Bytes stream = stream_of(c.units);
    std::string found;
    const uint8_t* at = stream.data();
    size_t unit = 0;
    for (const zeva::AccessUnitPart& part : zeva::split_access_units(at, stream.size())) {
      if (!found.empty()) found += ' ';
      if (!part.has_picture) found += '_';
      if (part.continues) found += '~';
      EXPECT_EQ(part.data, at) << c.units;
      at += part.size_bytes;
      const size_t count = zeva::split_byte_stream(part.data, part.size_bytes).size();
      found += std::string(c.units).substr(unit, count);
      unit += count;
    }
    EXPECT_EQ(found, c.parts);
    EXPECT_TRUE(found.empty() || at == stream.data() + stream.size()) << c.units;
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
