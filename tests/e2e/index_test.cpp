// The index beside a finished movie, read line by line, against the packets of that movie.
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "judge.h"
#include "recording.h"

namespace {
using namespace zeva_test;  // NOLINT: a test reads better without the prefix
namespace fs = std::filesystem;

struct IndexedPacket {
  int stream;
  int64_t position, size, pts, dts, duration;
  bool key;
};

std::ostream& operator<<(std::ostream& out, const IndexedPacket& p) {
  return out << "stream " << p.stream << " at " << p.position << "+" << p.size << " pts " << p.pts
             << " dts " << p.dts << " duration " << p.duration << (p.key ? " key" : "");
}

bool operator==(const IndexedPacket& a, const IndexedPacket& b) {
  return a.stream == b.stream && a.position == b.position && a.size == b.size && a.pts == b.pts &&
         a.dts == b.dts && a.duration == b.duration && a.key == b.key;
}

struct Index {
  std::string header;
  std::vector<std::string> stream_lines;
  std::vector<IndexedPacket> packets;
};

int64_t member(const std::string& json, const std::string& key) {
  const size_t at = json.find("\"" + key + "\":");
  return at == std::string::npos ? -1 : std::stoll(json.substr(at + key.size() + 3));
}

Index read_index(const fs::path& path) {
  Index index;
  std::istringstream lines(read_file(path));
  std::string records;
  for (std::string line; std::getline(lines, line);) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line[0] == '#') {
      index.header = line;
    } else if (line[0] == '{') {
      index.stream_lines.push_back(line);
    } else {
      records += line;
    }
  }
  int64_t audio = -1;
  int64_t frame_size = 0;
  for (const std::string& line : index.stream_lines) {
    if (line.find("\"type\":\"audio\"") == std::string::npos) continue;
    audio = member(line, "index");
    frame_size = member(line, "frame_size");
  }
  struct Times {
    int64_t pts = 0, dts = 0;
  } last[2];
  int64_t position = 0;
  std::istringstream list(records);
  for (std::string record; std::getline(list, record, ';');) {
    int64_t field[7] = {};
    std::istringstream fields(record);
    std::string text;
    for (int i = 0; i < 7 && std::getline(fields, text, ','); ++i) {
      field[i] = text.empty() ? 0 : std::stoll(text);
    }
    const bool of_audio = field[0] == audio;
    Times& previous = last[of_audio ? 1 : 0];
    if (field[1] != 0) position = field[1];
    previous.pts += field[3];
    previous.dts = field[4] != 0 ? previous.dts + field[4] : previous.pts;
    if (of_audio && field[5] == 0) field[5] = frame_size;
    index.packets.push_back({static_cast<int>(field[0]), position, field[2], previous.pts,
                             previous.dts, field[5], field[6] != 0});
    position += field[2];
  }
  return index;
}

std::vector<IndexedPacket> packets_in_file_order(const fs::path& file) {
  std::vector<IndexedPacket> found;
  for (const Row& p : probe(file, "-show_packets")) {
    const auto at = [&](const char* field) { return static_cast<int64_t>(number(p, field)); };
    found.push_back({static_cast<int>(at("stream_index")), at("pos"), at("size"), at("pts"),
                     at("dts"), at("duration"), p.at("flags")[0] == 'K'});
  }
  std::sort(found.begin(), found.end(),
            [](const IndexedPacket& a, const IndexedPacket& b) { return a.position < b.position; });
  return found;
}

struct Case {
  const char* name;
  bool audio, video;
  const char* movie;
  const char* index;
};

void PrintTo(const Case& c, std::ostream* out) { *out << c.name; }

class TheIndex : public testing::TestWithParam<Case> {};

TEST_P(TheIndex, TellsWhereEveryPacketOfTheMovieLies) {
  const Case& c = GetParam();
  const fs::path file = work_file(c.movie);
  const fs::path path = work_file(c.index);
  fs::create_directories(file.parent_path());
  fs::create_directories(path.parent_path());
  MovieInfo info = settings(file);
  set_text(info.moov_url, utf8(path));
  info.disable_audio = !c.audio;
  info.disable_video = !c.video;
  Recording recording(info);
  ASSERT_TRUE(recording.open());
  recording.feed(0, 3 * kFps);
  recording.stop();

  ASSERT_TRUE(fs::exists(file));
  ASSERT_TRUE(fs::exists(path));
  const Index index = read_index(path);
  EXPECT_EQ(index.header.rfind("## version=2, ", 0), 0U) << index.header;
  ASSERT_EQ(index.stream_lines.size(), (c.audio ? 1U : 0U) + (c.video ? 1U : 0U));
  const std::vector<Row> found = streams(file);
  for (size_t i = 0; i < found.size(); ++i) {
    const std::string& line = index.stream_lines[i];
    SCOPED_TRACE(line);
    EXPECT_EQ(member(line, "index"), static_cast<int64_t>(i));
    EXPECT_NE(line.find("\"codec\":\"" + found[i].at("codec_name") + "\""), std::string::npos);
    EXPECT_EQ(std::to_string(member(line, "tb.num")) + "/" + std::to_string(member(line, "tb.den")),
              found[i].at("time_base"));
    EXPECT_EQ(line.find("\"ev\":\"\""), std::string::npos) << "no decoder can start without it";
  }
  // The last packet's size is not known before a next one comes, so it has no record.
  std::vector<IndexedPacket> expected = packets_in_file_order(file);
  expected.pop_back();
  ASSERT_EQ(index.packets.size(), expected.size());
  for (size_t i = 0; i < expected.size(); ++i) ASSERT_EQ(index.packets[i], expected[i]) << i;
  const auto key_pictures = std::count_if(expected.begin(), expected.end(),
                                          [](const auto& p) { return p.stream == 0 && p.key; });
  EXPECT_GE(key_pictures, 3);
}

INSTANTIATE_TEST_SUITE_P(
    All, TheIndex,
    testing::Values(Case{"SoundAndPictures", true, true, "movie.mp4", "movie.index"},
                    Case{"PicturesOnly", false, true, "movie.mp4", "movie.index"},
                    Case{"SoundOnly", true, false, "movie.MP4", "movie.index"},
                    Case{"ChinesePaths", true, true, "录像 一/电影.mp4", "索引/电影 一.索引"}),
    [](const auto& param) { return param.param.name; });

TEST(NoIndex, BesideOtherContainersOrInAMissingFolder) {
  const fs::path index = work_file("movie.index");
  MovieInfo info = settings(work_file("movie.mkv"));
  set_text(info.moov_url, utf8(index));
  Recording other(info);
  other.feed(0, 5);
  other.stop();
  EXPECT_FALSE(fs::exists(index));

  // The movie matters more than its index.
  const fs::path file = work_file("movie.mp4");
  info = settings(file);
  set_text(info.moov_url, utf8(work_file("no such folder") / "movie.index"));
  LogCapture log;
  Recording recording(info);
  ASSERT_TRUE(recording.open());
  recording.feed(0, kFps);
  recording.stop();
  EXPECT_GE(log.count("movie.index"), 1);
  EXPECT_EQ(decode_faults(file), "");
}

}  // namespace
