#include "mv_repair.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <tuple>

#include "display_rotation.h"
#include "log_capture.h"
#include "lost_bytes.h"
#include "media.h"
#include "temp_dir.h"
#include "zeva/record.h"

namespace {

namespace fs = std::filesystem;
using zeva::MvRepair;

// A few cuts of each kind are tried; with ZEVA_EVERY_CUT all of them.
const bool kEveryCut = getenv("ZEVA_EVERY_CUT") != nullptr;

constexpr int kPictures = 0;
using Packet = std::tuple<int, int64_t, int64_t, bool, std::string>;  // stream, pts, dts, key, data

// Sorted by their place in the file; none when it is no finished movie.
std::vector<Packet> packets_of(const std::string& path, std::vector<size_t>* ends = nullptr) {
  std::vector<std::pair<int64_t, Packet>> placed;
  AVFormatContext* movie = nullptr;
  if (avformat_open_input(&movie, path.c_str(), nullptr, nullptr) < 0) return {};
  movie->flags |= AVFMT_FLAG_NOPARSE | AVFMT_FLAG_NOFILLIN;
  for (const zeva::PacketPtr p(av_packet_alloc()); av_read_frame(movie, p.get()) >= 0;) {
    const std::string data(reinterpret_cast<const char*>(p->data), static_cast<size_t>(p->size));
    const bool key = (p->flags & AV_PKT_FLAG_KEY) != 0;
    placed.emplace_back(p->pos, Packet(p->stream_index, p->pts, p->dts, key, data));
    av_packet_unref(p.get());
  }
  avformat_close_input(&movie);
  std::sort(placed.begin(), placed.end());
  std::vector<Packet> packets;
  for (const auto& [position, packet] : placed) {
    packets.push_back(packet);
    if (ends) ends->push_back(static_cast<size_t>(position) + std::get<std::string>(packet).size());
  }
  return packets;
}

// A recording of five seconds, and what is left of it when its trailer was never written.
struct Recorded {
  std::string broken, index;
  std::vector<Packet> packets;  // in file order; the last one has no record
  std::vector<size_t> ends;     // of the packets, in the file

  Recorded() {
    av_log_set_level(AV_LOG_QUIET);
    const TempDir dir;
    MovieInfo info = small_movie(dir.path("movie.mp4"));
    dir.path("movie.index").copy(info.moov_url, sizeof info.moov_url - 1);
    void* recording = ZEVA_start(info, nullptr, nullptr, nullptr, false);
    std::vector<uint8_t> bgra(size_t{64} * 48 * 4), pcm(size_t{4} * 48000 / 25);
    for (int i = 0; i < 125; ++i) {
      for (size_t k = 0; k < bgra.size(); ++k)
        bgra[k] = pcm[k / 4] = static_cast<uint8_t>(k * i / 9);
      ZEVA_write_video_bgra(recording, bgra.data(), 0, i * 40000, 64 * 4);
      ZEVA_write_audio_pcm(recording, pcm.data(), static_cast<int>(pcm.size()), i * 40000);
    }
    ZEVA_stop(&recording);
    packets = packets_of(info.url, &ends);
    broken = read_file(info.url).substr(0, ends.back());
    index = read_file(info.moov_url);
  }
};

const Recorded& recorded() {
  static const Recorded made;
  return made;
}

// Inputs that must be the same afterwards, and the last report.
struct Repairing {
  Repairing(std::string broken_bytes, std::string index_text)
      : broken(std::move(broken_bytes)), index(std::move(index_text)) {
    write_file(dir.path("broken.mp4"), broken);
    write_file(dir.path("movie.index"), index);
  }
  ~Repairing() {
    EXPECT_TRUE(read_file(dir.path("broken.mp4")) == broken) << "an input was changed";
    EXPECT_TRUE(read_file(dir.path("movie.index")) == index) << "an input was changed";
  }
  bool run(const std::string& output) {
    const auto on_progress = [](double, int code, const char*, void* last) {
      *static_cast<int*>(last) = code;
    };
    return MvRepair(on_progress, &code)
        .run({dir.path("broken.mp4"), dir.path("movie.index"), output});
  }
  std::vector<Packet> recover() {
    return run(dir.path("whole.mp4")) ? packets_of(dir.path("whole.mp4")) : std::vector<Packet>{};
  }
  const TempDir dir;
  const std::string broken, index;
  int code = 99;
};

// A movie of the first few packets has no track for the other stream, and its own start.
bool is_prefix(const std::vector<Packet>& part) {
  const auto same = [&](const Packet& a, const Packet& b) {
    return part.size() > 8 ? a == b : std::get<std::string>(a) == std::get<std::string>(b);
  };
  const std::vector<Packet>& all = recorded().packets;
  return part.size() <= all.size() && std::equal(part.begin(), part.end(), all.begin(), same);
}

TEST(MvRepair, CutsNeverCostMoreThanTheCut) {
  const Recorded& r = recorded();
  const LogCapture quiet;
  const size_t all = r.packets.size() - 1;
  size_t before = 0;
  for (size_t cut = r.index.size() % 37; cut <= r.index.size(); cut += kEveryCut ? 1 : 37) {
    const std::vector<Packet> found = Repairing(r.broken, r.index.substr(0, cut)).recover();
    ASSERT_TRUE(is_prefix(found) && found.size() >= before) << "index cut at " << cut;
    before = found.size();
  }
  EXPECT_EQ(before, all);
  for (size_t i = 0; i < r.ends.size(); i += kEveryCut ? 1 : 7) {
    for (const size_t cut : {r.ends[i] - 1, r.ends[i], r.ends[i] + 1}) {
      const std::vector<Packet> found = Repairing(r.broken.substr(0, cut), r.index).recover();
      ASSERT_TRUE(is_prefix(found)) << "movie cut at " << cut;
      ASSERT_EQ(found.size(), std::min(cut < r.ends[i] ? i : i + 1, all)) << "movie cut at " << cut;
    }
  }
}

TEST(MvRepair, TurnedPicturesStayTurned) {
  const LogCapture quiet;
  const Recorded& r = recorded();
  const size_t end_of_video = r.index.find('}');
  for (const auto& [rotate, turned] :
       {std::pair(90, 90), {180, 180}, {270, 270}, {17, 0}, {-90, 0}}) {
    const std::string member = ",\"rotate\":" + std::to_string(rotate);
    Repairing repair(r.broken, std::string(r.index).insert(end_of_video, member));
    EXPECT_EQ(repair.recover().size(), r.packets.size() - 1);
    AVFormatContext* movie = nullptr;
    ASSERT_EQ(avformat_open_input(&movie, repair.dir.path("whole.mp4").c_str(), nullptr, nullptr),
              0);
    EXPECT_EQ(zeva::display_rotation(*movie->streams[kPictures]), turned) << rotate;
    avformat_close_input(&movie);
  }
}

TEST(MvRepair, DamageCostsItsLineOrWhatIsBehind) {
  const Recorded& r = recorded();
  const std::string& index = r.index;
  const size_t head = index.find("\n1,48,") + 1, second = index.find('\n', head) + 1;
  const size_t third = index.find('\n', second) + 1, here = index.find(';', second + 100) + 1;
  const auto insert = [&](const std::string& text) {
    return std::string(index).insert(here, text);
  };
  const auto swap = [&](const std::string& old, const std::string& text) {
    return std::string(index).replace(index.find(old), old.size(), text);
  };
  const auto count = [&](size_t from, size_t to) {
    return static_cast<size_t>(std::count(&index[from], &index[to], ';'));
  };
  const size_t all = r.packets.size() - 1;
  const size_t to_here = count(head, here), but_rest = all - count(here, third);
  std::string crlf, hundred;
  for (const char c : index) crlf += c == '\n' ? "\r\n" : std::string(1, c);
  for (int i = 0; i < 100; ++i)
    hundred += index.substr(index.find('{'), index.find("\n{\"type\":\"a") + 1 - index.find('{'));
  const std::string megabytes(10000000, ','), sound = "{\"type\":\"audio";
  const struct {
    std::string index, message;
    int code;
    size_t packets;     // at least,
    bool exact = true;  // unless what follows is read from wrong places
  } cases[] = {
      {crlf, ">> 执行完成 1.000000, （忽略索引: [0 ~ 0) 共0行）", 0, all},
      {insert("9,,,,,,;"), "===> stream.idx=9 不合法，moov已处理 5 行(", 0, but_rest},
      {insert("-1,,,,,,;"), "===> stream.idx=-1", 0, but_rest},
      {insert("4,,,,,,;"), "write frame err: Invalid argument, next=", 0, but_rest},
      {insert(",,,-9999,,,;,,,9999,,,;"), "write frame err:", 0, but_rest},
      {insert(",,,9223372036854775000,,,;,,,-9223372036854775000,,,;"), "", 0, but_rest},
      {insert("1,,,1,1,99999999999,;1,,,-1,-1,,;"), "write frame err:", 0, but_rest},
      {insert(",,-5,,,,;"), "数据 0 < -5(需求)，该行索引处理结束 (eof=1", 0, to_here},
      {insert(",,2147483647,,,,;"), "第一个忽略行 ========> ", 0, to_here},
      {insert(",9223372036854775807,1,,,,;"), "seek fpos=9223372036854775807", 0, to_here},
      {insert(",-4,,,,,;"), "eof=1", 0, to_here},
      {insert("1,,\n"), "", 0, to_here, false},
      {insert(std::string(500, '\0')), "", 0, to_here, false},
      {std::string(index).insert(second, megabytes + "\n"), "", 0, all},
      {megabytes + index, "未找到有效的音视频流", -2, 0},
      {swap(sound, hundred + sound), "", 0, 0, false},
      {index.substr(0, head), ">> 执行完成 1.000000", 0, 0},
      {swap("=2", "=3"), "", 0, 0},
      {swap("h264", "h999"), "---> 找不到编码器：h999", -10, 0},
      {swap("h264", "aac"), "---> 找不到编码器：aac", -10, 0},
      {swap("\"tb.den\":", "\"tb.den\":-"), "usable video stream", -10, 0},
      {swap("\"w\":64", "\"w\":2147483647"), "usable video stream", -10, 0},
      {swap("_rate\":48000", "_rate\":0"), "usable audio stream", -10, 0},
      {r.broken, "未找到有效的音视频流", -2, 0},
      {"", "未找到有效的音视频流", -2, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(&c - cases);
    const LogCapture log;
    Repairing repair(r.broken, c.index);
    const std::vector<Packet> found = repair.recover();
    EXPECT_EQ(repair.code, c.code);
    EXPECT_GE(log.count(c.message), 1);
    EXPECT_GE(found.size(), c.packets);
    if (!c.exact) continue;
    EXPECT_EQ(found.size(), c.packets);
    for (const Packet& p : found) EXPECT_EQ(std::count(r.packets.begin(), r.packets.end(), p), 1);
  }
}

// The packets that must come back when some are missing: no picture up to the next key picture.
template <typename IsMissing>
std::vector<Packet> without(IsMissing is_missing, bool hides_pictures) {
  const std::vector<Packet>& all = recorded().packets;
  std::vector<Packet> left;
  bool awaits_key = false, was_missing = false;
  for (size_t i = 0; i + 1 < all.size(); ++i) {  // the last one has no record
    const auto& [stream, pts, dts, key, data] = all[i];
    const bool missing = is_missing(i);
    // The packets without a record may have been pictures.
    if (was_missing && !missing && hides_pictures) awaits_key = true;
    was_missing = missing;
    if (missing && stream == kPictures) awaits_key = true;
    if (missing) continue;
    if (stream == kPictures) awaits_key = awaits_key && !key;
    if (stream != kPictures || !awaits_key) left.push_back(all[i]);
  }
  return left;
}

TEST(MvRepair, ZerosInTheMiddleAreNotHandedOut) {
  const Recorded& r = recorded();
  const LogCapture log;
  const auto begin_of = [&](size_t i) {
    return r.ends[i] - std::get<std::string>(r.packets[i]).size();
  };
  int cases = 0;
  for (const size_t block : {size_t{512}, size_t{4096}}) {
    for (size_t at = block; at + block < r.broken.size(); at += (kEveryCut ? 1 : 9) * block) {
      const std::string zeros(block, '\0');
      const std::vector<Packet> expected =
          without([&](size_t i) { return begin_of(i) < at + block && r.ends[i] > at; }, false);
      EXPECT_TRUE(Repairing(std::string(r.broken).replace(at, block, zeros), r.index).recover() ==
                  expected)
          << block << " bytes at " << at;
      ++cases;
    }
  }
  EXPECT_EQ(log.count("packets with zeros in place of their bytes"), cases);
  // Within a picture no run of zeros can be, wherever it begins.
  for (size_t i = 0; i + 1 < r.packets.size(); i += 20) {
    const size_t size = std::get<std::string>(r.packets[i]).size();
    if (std::get<0>(r.packets[i]) != kPictures || size < 60) continue;
    const std::string broken = std::string(r.broken).replace(r.ends[i] - 20, 10, 10, '\0');
    EXPECT_TRUE(Repairing(broken, r.index).recover() ==
                without([&](size_t k) { return k == i; }, false));
  }
}

TEST(MvRepair, AHoleInTheIndexCostsItsPacketsAndThePicturesThatBuildOnThem) {
  const Recorded& r = recorded();
  const LogCapture log;
  const TempDir dir;
  write_file(dir.path("whole.index"), r.index);
  for (const auto& [first, count] : {std::pair<size_t, size_t>{1, 1}, {50, 3}, {60, 200}}) {
    zeva::IndexReader reader;
    ASSERT_TRUE(reader.open(dir.path("whole.index")));
    const auto& audio = reader.streams().audio;
    zeva::RecordEncoder encoder(audio.index, audio.frame_size);
    std::string index = r.index.substr(0, r.index.find("\n1,48,") + 1);
    char text[zeva::kIndexRecordMaxBytes];
    zeva::IndexRecord record;
    size_t i = 0;
    zeva::IndexedPacket end;
    while (reader.next_line()) {
      for (zeva::IndexedPacket packet; reader.next_packet(packet); ++i) {
        end = packet;
        end.position += packet.size;
        if (i > first && i <= first + count) {
          encoder.push_unrecorded(packet);
        } else if (encoder.push(packet, record)) {
          index.append(text, static_cast<size_t>(zeva::format_index_record(record, text)));
        }
      }
    }
    ASSERT_TRUE(encoder.push(end, record));
    index.append(text, static_cast<size_t>(zeva::format_index_record(record, text)));
    const std::vector<Packet> expected =
        without([&](size_t k) { return k >= first && k < first + count; }, true);
    EXPECT_TRUE(Repairing(r.broken, index).recover() == expected) << first;
  }
  EXPECT_EQ(log.count("the index has no record of "), 3);
  EXPECT_EQ(log.count(" have no record"), 3);
}

TEST(LostBytes, ZerosThatAPacketMayHaveAreNoLoss) {
  using Bytes = std::vector<uint8_t>;
  const struct {
    Bytes packet;
    bool whole;
  } cases[] = {
      {{0, 0, 0, 2, 0x65, 0x80}, true},
      {{0, 0, 0, 2, 0x65, 0x80, 0, 0, 0, 1, 0x06}, true},
      {{0, 0, 0, 7, 0x65, 0, 0, 3, 0, 0, 3}, true},
      {{0, 0, 0, 7, 0x65, 0x80, 0, 0, 0, 0, 0}, true},   // padded
      {{0, 0, 0, 7, 0x65, 0x80, 0, 0, 0, 0, 1}, false},  // no encoder lets these through
      {{0, 0, 0, 7, 0x65, 0, 0, 0, 1, 1, 1}, false},
      {{0, 0, 0, 3, 0x65, 0x80}, false},
      {{0, 0, 0, 1, 0x65, 0x80}, false},
      {{0, 0, 0, 0, 0, 0}, false},
      {{0, 0, 0, 2}, false},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(zeva::is_whole_avc(c.packet.data(), static_cast<int64_t>(c.packet.size()), 4),
              c.whole)
        << &c - cases;
  }
  // Silence: PCM is all zeros, MP3 and AC-3 are padded with them, AAC has up to 510 free bytes.
  EXPECT_EQ(zeva::zero_rule("pcm_s16le"), zeva::ZeroRule::kNone);
  EXPECT_EQ(zeva::zero_rule("mp3"), zeva::ZeroRule::kNotWhole);
  EXPECT_GT(zeva::kLostBlockBytes, 510);
}

TEST(MvRepair, NeverOverwritesItsInputs) {
  const LogCapture log;
  Repairing repair(recorded().broken, recorded().index);
  const fs::path root = fs::u8path(repair.dir.path(""));
  fs::create_hard_link(root / "broken.mp4", root / "hard.mp4");
  fs::create_hard_link(root / "movie.index", root / "index.mp4");
  for (const char* name :
       {"broken.mp4", "./broken.mp4", "hard.mp4", "index.mp4", "none/x.mp4", ""}) {
    for (const char* prefix : {"", "file:", "crypto:", "md5:", "tee:"}) {
      EXPECT_FALSE(repair.run(prefix + repair.dir.path(name))) << prefix << name;
      EXPECT_EQ(repair.code, -10) << prefix << name;
    }
  }
  if (fs::exists("/dev/full")) {
    fs::create_symlink("/dev/full", root / "full.mp4");
    EXPECT_FALSE(repair.run(repair.dir.path("full.mp4")));
    EXPECT_EQ(log.count("No space left on device"), 1);
  }
  EXPECT_FALSE(MvRepair(nullptr, nullptr).run({repair.dir.path(""), "", ""}));
  EXPECT_EQ(log.count("无法打开mdata文件: "), 1);
}

TEST(MvRepair, StopsBeforeTheNextLine) {
  const LogCapture log;
  const std::string ten_lines(10, '\n'), &index = recorded().index;
  const size_t head = index.find("\n1,48,") + 1;
  Repairing repair(recorded().broken, std::string(index).insert(head, ten_lines));
  MvRepair* engine = nullptr;
  const auto stop_it = [](double, int, const char*, void* user) {
    EXPECT_FALSE((*static_cast<MvRepair**>(user))->stop()) << "it cannot wait for itself";
  };
  MvRepair stopping(stop_it, &engine);
  engine = &stopping;
  const MvRepair::Paths paths{repair.dir.path("broken.mp4"), repair.dir.path("movie.index"),
                              repair.dir.path("whole.mp4")};
  EXPECT_TRUE(stopping.start(paths));
  while (stopping.is_running()) std::this_thread::yield();
  EXPECT_TRUE(stopping.stop());
  EXPECT_EQ(log.count("repair aborted ."), 1);
  EXPECT_NE(read_file(paths.output).find("moov"), std::string::npos) << "short, but finished";

  int code = 0;
  MvRepair stopped([](double, int c, const char*, void* last) { *static_cast<int*>(last) = c; },
                   &code);
  EXPECT_TRUE(stopped.stop());
  EXPECT_FALSE(stopped.start(paths));
  EXPECT_EQ(code, -5);
}

}  // namespace
