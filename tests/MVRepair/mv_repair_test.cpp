#include "mv_repair.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <tuple>

#include "log_capture.h"
#include "media.h"
#include "temp_dir.h"
#include "zeva/record.h"

namespace {

namespace fs = std::filesystem;
using zeva::MvRepair;

// Every how many cuts one is tried; ZEVA_EVERY_CUT tries them all.
const int kCutStep = getenv("ZEVA_EVERY_CUT") != nullptr ? 1 : 37;

void write_file(const std::string& path, const std::string& bytes) {
  FILE* file = zeva::open_file(path.c_str(), "wb");
  ASSERT_NE(file, nullptr);
  fwrite(bytes.data(), 1, bytes.size(), file);
  fclose(file);
}

using Packet = std::tuple<int, int64_t, int64_t, bool, std::string>;  // stream, pts, dts, key, data

std::vector<Packet> packets_of(const std::string& path) {
  std::vector<Packet> packets;
  const std::string bytes = read_file(path);
  for (const MoviePacket& p : read_movie(path).packets) {
    packets.emplace_back(
        p.stream, p.pts, p.dts, p.key,
        bytes.substr(static_cast<size_t>(p.position), static_cast<size_t>(p.size)));
  }
  return packets;
}

// A recording of five seconds, and what is left of it when its trailer was never written.
struct Recorded {
  std::string broken, index;
  std::vector<Packet> packets;      // in file order; the last one has no record
  std::vector<size_t> packet_ends;  // in the file
};

const Recorded& recorded() {
  static const Recorded made = [] {
    av_log_set_level(AV_LOG_QUIET);
    const TempDir dir;
    MovieInfo info = small_movie(dir.path("movie.mp4"));
    snprintf(info.moov_url, sizeof info.moov_url, "%s", dir.path("movie.index").c_str());
    void* recording = ZEVA_start(info, nullptr, nullptr, nullptr, false);
    std::vector<uint8_t> picture(size_t{64} * 48 * 4);
    std::vector<int16_t> sound(size_t{2} * 48000 / 25);
    for (int i = 0; i < 125; ++i) {
      for (size_t k = 0; k < picture.size(); ++k) picture[k] = static_cast<uint8_t>(k * i / 99);
      for (size_t k = 0; k < sound.size(); ++k) sound[k] = static_cast<int16_t>(k * (i + 7) * 31);
      ZEVA_write_video_bgra(recording, picture.data(), 0, i * 40000, 64 * 4);
      ZEVA_write_audio_pcm(recording, sound.data(), static_cast<int>(sound.size() * 2), i * 40000);
    }
    ZEVA_stop(&recording);
    Recorded r;
    r.packets = packets_of(info.url);
    for (const MoviePacket& p : read_movie(info.url).packets) {
      r.packet_ends.push_back(static_cast<size_t>(p.position + p.size));
    }
    r.broken = read_file(info.url).substr(0, r.packet_ends.back());
    r.index = read_file(info.moov_url);
    return r;
  }();
  return made;
}

class Repairing {
 public:
  Repairing(const std::string& broken, const std::string& index)
      : dir(), broken(broken), index(index) {
    write_file(dir.path("broken.mp4"), broken);
    write_file(dir.path("movie.index"), index);
  }
  ~Repairing() {
    EXPECT_TRUE(read_file(dir.path("broken.mp4")) == broken) << "an input was changed";
    EXPECT_TRUE(read_file(dir.path("movie.index")) == index) << "an input was changed";
  }
  bool run(const std::string& output) {
    last_code = 99;
    return MvRepair(on_progress, this)
        .run({dir.path("broken.mp4"), dir.path("movie.index"), output});
  }
  std::vector<Packet> recover() {
    const std::string output = dir.path("whole.mp4");
    fs::remove(fs::u8path(output));
    return run(output) ? packets_of(output) : std::vector<Packet>{};
  }

  const TempDir dir;
  int last_code = 99;
  double last_progress = -1;

 private:
  static void on_progress(double progress, int code, const char*, void* self) {
    static_cast<Repairing*>(self)->last_code = code;
    static_cast<Repairing*>(self)->last_progress = progress;
  }
  const std::string broken, index;
};

// A movie of the first few packets has no track for the other stream, and its own start.
bool is_prefix(const std::vector<Packet>& part) {
  const std::vector<Packet>& all = recorded().packets;
  const auto same = [&](const Packet& a, const Packet& b) {
    return part.size() > 8 ? a == b : std::get<std::string>(a) == std::get<std::string>(b);
  };
  return part.size() <= all.size() && std::equal(part.begin(), part.end(), all.begin(), same);
}

size_t line_begin(size_t number) {  // of a record line, from 0; behind the header and two streams
  size_t begin = 0;
  for (size_t i = 0; i < number + 3; ++i) begin = recorded().index.find('\n', begin) + 1;
  return begin;
}

TEST(MvRepair, CutsNeverCostMoreThanTheCut) {
  const Recorded& r = recorded();
  ASSERT_GT(r.packets.size(), 300U);
  const LogCapture quiet;
  size_t before = 0;
  for (size_t cut = 0; cut <= r.index.size();
       cut += cut + kCutStep > r.index.size() ? 1 : kCutStep) {
    const std::vector<Packet> found = Repairing(r.broken, r.index.substr(0, cut)).recover();
    ASSERT_TRUE(is_prefix(found)) << "index cut at " << cut;
    ASSERT_GE(found.size(), before) << "index cut at " << cut;
    before = found.size();
  }
  EXPECT_EQ(before, r.packets.size() - 1);
  before = 0;
  for (size_t i = 0; i<r.packet_ends.size(); i += kCutStep> 1 ? 7 : 1) {
    for (const size_t cut : {r.packet_ends[i] - 1, r.packet_ends[i], r.packet_ends[i] + 1}) {
      const std::vector<Packet> found = Repairing(r.broken.substr(0, cut), r.index).recover();
      ASSERT_TRUE(is_prefix(found)) << "movie cut at " << cut;
      ASSERT_GE(found.size(), before) << "movie cut at " << cut;
      // Whatever has both its record and its bytes.
      const size_t whole = i + (cut >= r.packet_ends[i] ? 1 : 0);
      ASSERT_EQ(found.size(), std::min(whole, r.packets.size() - 1)) << "movie cut at " << cut;
      before = found.size();
    }
  }
}

TEST(MvRepair, DamageCostsAtMostItsLineOrWhatIsBehind) {
  const Recorded& r = recorded();
  const size_t head = line_begin(0), second = line_begin(1), third = line_begin(2);
  const auto replaced = [&](size_t at, size_t length, const std::string& text) {
    return std::string(r.index).replace(at, length, text);
  };
  const auto in_head = [&](const std::string& old, const std::string& text) {
    return replaced(r.index.find(old), old.size(), text);
  };
  const size_t end_of_record = r.index.find(';', second + 100) + 1;
  const auto records = [&](size_t from, size_t to) {
    return static_cast<size_t>(std::count(r.index.begin() + static_cast<long>(from),
                                          r.index.begin() + static_cast<long>(to), ';'));
  };
  const size_t all = r.packets.size() - 1;
  const size_t without_rest = all - records(end_of_record, third);
  const size_t until_there = records(head, end_of_record);
  std::string crlf;
  for (const char c : r.index) crlf += c == '\n' ? "\r\n" : std::string(1, c);
  const std::string megabytes(10000000, ',');
  const std::string video = r.index.substr(
      r.index.find('{'), r.index.find("\n{\"type\":\"audio") + 1 - r.index.find('{'));
  std::string hundred;
  for (int i = 0; i < 100; ++i) hundred += video;
  const struct {
    std::string name, index, message;
    int code;
    size_t packets;  // at least
    bool exact = true;
  } cases[] = {
      {"CR LF", crlf, ">> 执行完成 1.000000, （忽略索引: [0 ~ 0) 共0行）", 0, all},
      {"bad stream", replaced(end_of_record, 0, "9,,,,,,;"),
       "===> stream.idx=9 不合法，moov已处理 5 行(", 0, without_rest},
      {"negative stream", replaced(end_of_record, 0, "-1,,,,,,;"), "===> stream.idx=-1", 0,
       without_rest},
      {"stream without output", replaced(end_of_record, 0, "4,,,,,,;"),
       "write frame err: Invalid argument, next=", 0, without_rest},
      {"time goes back", replaced(end_of_record, 0, ",,,-12800,,,;,,,12800,,,;"),
       "write frame err:", 0, without_rest},
      {"impossible time",
       replaced(end_of_record, 0, ",,,9223372036854775000,,,;,,,-9223372036854775000,,,;"),
       "write frame err:", 0, without_rest},
      {"impossible duration", replaced(end_of_record, 0, "1,,,1,1,99999999999,;1,,,-1,-1,,;"),
       "write frame err:", 0, without_rest},
      {"record cut off", replaced(end_of_record, third - end_of_record, "1,,\n"), "", 0,
       until_there, false},
      {"negative size", replaced(end_of_record, 0, ",,-5,,,,;"),
       "读取packet数据 0 < -5(需求)，该行索引处理结束 (eof=1", 0, until_there},
      {"huge size", replaced(end_of_record, 0, ",,2147483647,,,,;"), "第一个忽略行 ========> ", 0,
       until_there},
      {"position behind the end", replaced(end_of_record, 0, ",9223372036854775807,1,,,,;"),
       "packet数据 seek fpos=9223372036854775807", 0, until_there},
      {"negative position", replaced(end_of_record, 0, ",-4,1,,,,;"), "eof=1", 0, until_there},
      {"zeros", replaced(end_of_record, third - end_of_record - 1, std::string(500, '\0')), "", 0,
       until_there, false},
      {"10 MB line", replaced(second, 0, megabytes + "\n"), "", 0, all},
      {"10 MB header", megabytes + r.index, "未找到有效的音视频流", -2, 0},
      {"two video lines", in_head("{\"type\":\"audio", video + "{\"type\":\"audio"), "", 0, 0,
       false},
      {"100 stream lines", in_head("{\"type\":\"audio", hundred + "{\"type\":\"audio"), "", 0, 0,
       false},
      {"no stream line", r.index.substr(0, 20) + "\n" + r.index.substr(head),
       "未找到有效的音视频流", -2, 0},
      {"no records", r.index.substr(0, head), ">> 执行完成 1.000000", 0, 0},
      {"unknown version", in_head("=2", "=3"), "", 0, 0},
      {"unknown codec", in_head("h264", "h999"), "---> 找不到编码器：h999", -10, 0},
      {"sound as pictures", in_head("h264", "aac"), "---> 找不到编码器：aac", -10, 0},
      {"no time base", in_head("\"tb.den\":", "\"tb.den\":-"), "usable video stream", -10, 0},
      {"no size", in_head("\"w\":64", "\"w\":2147483647"), "usable video stream", -10, 0},
      {"no rate", in_head("_rate\":48000", "_rate\":0"), "usable audio stream", -10, 0},
      {"bad extradata", in_head("\"ev\":\"", "\"ev\":\"!"), "no sps/pps", -2, 0},
      {"the movie as index", r.broken, "未找到有效的音视频流", -2, 0},
      {"empty", "", "未找到有效的音视频流", -2, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const LogCapture log;
    Repairing repair(r.broken, c.index);
    const std::vector<Packet> found = repair.recover();
    EXPECT_EQ(repair.last_code, c.code);
    EXPECT_GE(log.count(c.message), 1);
    EXPECT_GE(found.size(), c.packets);
    if (!c.exact) continue;  // what follows is read from wrong places
    EXPECT_EQ(found.size(), c.packets);
    const auto is_recorded = [&](const Packet& p) {
      return std::count(r.packets.begin(), r.packets.end(), p) > 0;
    };
    EXPECT_TRUE(std::all_of(found.begin(), found.end(), is_recorded));
  }
}

TEST(MvRepair, NeverOverwritesItsInputs) {
  const Recorded& r = recorded();
  const LogCapture log;
  Repairing repair(r.broken, r.index);
  const fs::path root = fs::u8path(repair.dir.path(""));
  fs::create_hard_link(root / "broken.mp4", root / "hard.mp4");
  fs::create_symlink(root / "broken.mp4", root / "soft.mp4");
  fs::create_hard_link(root / "movie.index", root / "index.mp4");
  for (const char* name : {"broken.mp4", "./broken.mp4", "hard.mp4", "soft.mp4", "index.mp4"}) {
    for (const char* prefix : {"", "file:", "crypto:", "md5:", "tee:"}) {
      EXPECT_FALSE(repair.run(prefix + repair.dir.path(name))) << prefix << name;
      EXPECT_EQ(repair.last_code, -10) << prefix << name;
    }
  }
  for (const char* output : {"", "no/such/folder/whole.mp4", "."}) {
    EXPECT_FALSE(repair.run(output)) << output;
    EXPECT_EQ(repair.last_code, -10) << output;
  }
  if (fs::exists("/dev/full")) {
    fs::create_symlink("/dev/full", root / "full.mp4");
    EXPECT_FALSE(repair.run(repair.dir.path("full.mp4")));
    EXPECT_EQ(log.count("No space left on device"), 1);
  }
  MvRepair missing(nullptr, nullptr);
  EXPECT_FALSE(missing.run({repair.dir.path(""), "", ""}));
  EXPECT_EQ(log.count("无法打开mdata文件: "), 1);
}

TEST(MvRepair, StopsBeforeTheNextLine) {
  const Recorded& r = recorded();
  const LogCapture log;
  Repairing repair(r.broken, r.index);
  struct Host {
    MvRepair* repair;
    int code;
  } host{nullptr, 0};
  MvRepair engine(
      [](double, int code, const char*, void* user) { static_cast<Host*>(user)->code = code; },
      &host);
  EXPECT_TRUE(engine.stop());
  EXPECT_FALSE(engine.start({}));
  EXPECT_EQ(host.code, -5);

  // From inside, where it must not wait for itself: at the first packet.
  std::string many_lines;
  for (int i = 0; i < 30; ++i) many_lines += ",,,,,,;\n";
  write_file(repair.dir.path("lines.index"),
             r.index.substr(0, line_begin(0)) + many_lines + r.index.substr(line_begin(0)));
  MvRepair stopping(
      [](double progress, int, const char*, void* user) {
        EXPECT_EQ(static_cast<Host*>(user)->repair->stop(), false) << progress;
      },
      &host);
  host.repair = &stopping;
  const std::string output = repair.dir.path("whole.mp4");
  EXPECT_TRUE(
      stopping.start({repair.dir.path("broken.mp4"), repair.dir.path("lines.index"), output}));
  while (stopping.is_running()) std::this_thread::yield();
  EXPECT_TRUE(stopping.stop());
  EXPECT_EQ(log.count("repair aborted ."), 1);
  EXPECT_EQ(log.count("repair: stop() success."), 1);
  EXPECT_NE(read_file(output).find("moov"), std::string::npos) << "a shorter movie, but finished";
}

}  // namespace
