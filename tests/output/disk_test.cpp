// What is left of a movie whose disk fails, fills up or goes away, and what the host is told.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "clock.h"
#include "disk_room.h"
#include "log_capture.h"
#include "media.h"
#include "output_thread.h"
#include "temp_dir.h"
#include "zeva/repair.h"
#include "zeva/status.h"

namespace {

using zeva::MovieOutput;
namespace fs = std::filesystem;

// ---- a disk that does as it is told

struct Disk {
  int writes = 0;
  int fail_at = 0;       // the first write that fails; 0 for none
  bool for_good = true;  // so do all behind it
  bool torn = false;     // it takes a half
  int code = EIO;
  int64_t free_bytes = INT64_MAX / 4;
  int64_t reserved = 0;
  bool reserves = true;
};
Disk g_movie_disk, g_index_disk;
std::mutex g_mutex;

size_t write_to(Disk& disk, const void* data, size_t count, FILE* file) {
  ++disk.writes;
  const bool fails = disk.fail_at > 0 &&
                     (disk.for_good ? disk.writes >= disk.fail_at : disk.writes == disk.fail_at);
  if (!fails) return fwrite(data, 1, count, file);
  const size_t taken = disk.torn ? fwrite(data, 1, count / 2, file) : 0;
  errno = disk.code;
  return taken;
}
size_t write_movie(const void* data, size_t, size_t count, FILE* file) {
  return write_to(g_movie_disk, data, count, file);
}
size_t write_index(const void* data, size_t, size_t count, FILE* file) {
  return write_to(g_index_disk, data, count, file);
}
int reserve(FILE*, int64_t begin, int64_t end) {
  const std::lock_guard<std::mutex> lock(g_mutex);
  if (!g_movie_disk.reserves) return ENOTSUP;
  if (end - begin > g_movie_disk.free_bytes) return ENOSPC;
  g_movie_disk.free_bytes -= end - begin;
  g_movie_disk.reserved = end;
  return 0;
}
int64_t free_bytes(const std::string&) {
  const std::lock_guard<std::mutex> lock(g_mutex);
  return g_movie_disk.free_bytes;
}
bool sync_at_once(FILE*) { return true; }

MovieOutput::DiskCalls calls() {
  return {{write_movie, reserve, free_bytes}, {write_index, sync_at_once}};
}

// ---- a movie on it

struct Told {
  std::mutex mutex;
  std::vector<std::pair<int, std::string>> all;  // guarded by mutex
  MovieOutput::Report report() {
    return [this](int32_t code, const std::string& text) {
      const std::lock_guard<std::mutex> lock(mutex);
      all.emplace_back(code, text);
    };
  }
  int count(int code) {
    const std::lock_guard<std::mutex> lock(mutex);
    return static_cast<int>(
        std::count_if(all.begin(), all.end(), [&](const auto& t) { return t.first == code; }));
  }
  std::string text(int code) {
    const std::lock_guard<std::mutex> lock(mutex);
    for (const auto& [told, text] : all) {
      if (told == code) return text;
    }
    return {};
  }
};

// Pictures and sound in turn, 20 ms apart, each of a size of its own.
zeva::PacketPtr packet(int i) {
  const int64_t units = i % 2 == 0 ? 256 : 960;
  return make_packet(i % 2, i * units, i * units, 2 * units, 2000 + i, true);
}

struct Movie {
  explicit Movie(const std::string& name = "a.mp4", const char* index_name = "a.index")
      : path(dir.path(name)), index(dir.path(index_name)) {
    open(output);
  }
  void open(MovieOutput& made) {
    ASSERT_GE(made.create(av_guess_format(nullptr, path.c_str(), nullptr)), 0);
    add_picture_stream(made.context());
    add_sound_stream(made.context());
    ASSERT_GE(made.open_io(), 0);
    if (zeva::needs_index(*made.context()->oformat)) {
      ASSERT_EQ(made.start_index(index), MovieOutput::IndexStart::kStarted);
    }
    ASSERT_GE(made.write_header(), 0);
  }
  const TempDir dir;
  const std::string path, index;
  Told told;
  MovieOutput output{path, told.report(), calls()};
};

// Sizes of the packets in the order of the file; none when it is no finished movie.
std::vector<int> sizes_in(const std::string& path) {
  std::vector<std::pair<int64_t, int>> placed;
  AVFormatContext* movie = nullptr;
  AVDictionary* options = nullptr;
  av_dict_set(&options, "ignore_editlist", "1", 0);
  const int opened = avformat_open_input(&movie, path.c_str(), nullptr, &options);
  av_dict_free(&options);
  if (opened < 0) return {};
  movie->flags |= AVFMT_FLAG_NOPARSE | AVFMT_FLAG_NOFILLIN;
  for (const zeva::PacketPtr p(av_packet_alloc()); av_read_frame(movie, p.get()) >= 0;) {
    placed.emplace_back(p->pos, p->size);
    av_packet_unref(p.get());
  }
  avformat_close_input(&movie);
  std::sort(placed.begin(), placed.end());
  std::vector<int> sizes;
  for (const auto& [position, size] : placed) sizes.push_back(size);
  return sizes;
}

std::vector<int> repaired(const Movie& movie) {
  const std::string whole = movie.dir.path("whole.mp4");
  ZEVA_StartRepair_sync(movie.path.c_str(), movie.index.c_str(), whole.c_str(), nullptr, nullptr);
  return sizes_in(whole);
}

// The first `count` packets in their order, or more.
void expect_beginning(const std::vector<int>& sizes, size_t count) {
  ASSERT_GE(sizes.size(), count);
  for (size_t i = 0; i < sizes.size(); ++i) ASSERT_EQ(sizes[i], 2000 + static_cast<int>(i));
}

class DiskTest : public testing::Test {
 protected:
  DiskTest() {
    av_log_set_level(AV_LOG_QUIET);
    g_movie_disk = g_index_disk = {};
  }
  const LogCapture quiet;
};

// ---- writes that fail

TEST_F(DiskTest, AWriteThatFailsCostsNothingThatWasWritten) {
  constexpr int kPackets = 100;
  for (const bool for_good : {false, true}) {
    for (const bool torn : {false, true}) {
      for (const int code : {EIO, ENOSPC}) {
        for (int n = 1; n <= kPackets; n += n < 10 ? 1 : 7) {
          SCOPED_TRACE(testing::Message() << "write " << n << (for_good ? " and on" : "")
                                          << (torn ? ", torn" : "") << ": " << code);
          g_movie_disk = g_index_disk = {};
          Movie movie;
          g_movie_disk.fail_at = n;
          g_movie_disk.for_good = for_good;
          g_movie_disk.torn = torn;
          g_movie_disk.code = code;
          std::vector<int64_t> ends;
          int result = 0;
          for (int i = 0; i < kPackets && result >= 0; ++i) {
            result = movie.output.write(packet(i).get());
            if (result >= 0) result = movie.output.write_held();
            ends.push_back(avio_tell(movie.output.context()->pb));
          }
          ASSERT_EQ(result, AVERROR(code));
          EXPECT_TRUE(movie.output.is_broken());
          const int trailer = movie.output.write_trailer();
          EXPECT_EQ(trailer, for_good ? AVERROR(code) : 0);
          EXPECT_EQ(movie.output.close(), for_good ? AVERROR(code) : 0);
          if (!for_good) {
            const size_t taken = ends.size() - (n == 1 ? 1 : 0);  // the header comes before it
            expect_beginning(sizes_in(movie.path), taken);
            continue;
          }
          const auto size = static_cast<int64_t>(fs::file_size(fs::u8path(movie.path)));
          const auto whole = static_cast<size_t>(
              std::count_if(ends.begin(), ends.end(), [&](int64_t end) { return end <= size; }));
          // The last packet of an index has no record.
          if (whole > 1) expect_beginning(repaired(movie), std::min(whole, ends.size() - 1));
        }
      }
    }
  }
}

TEST_F(DiskTest, AFailureOfTheTrailerLeavesTheIndexToRepairWith) {
  constexpr int kPackets = 50;
  for (int later = 1; later <= 4; ++later) {
    SCOPED_TRACE(later);
    g_movie_disk = {};
    Movie movie;
    for (int i = 0; i < kPackets; ++i) ASSERT_GE(movie.output.write(packet(i).get()), 0);
    ASSERT_GE(movie.output.write_held(), 0);
    g_movie_disk.fail_at = g_movie_disk.writes + later;
    const int result = movie.output.write_trailer();
    EXPECT_EQ(movie.output.close(), result);
    if (result < 0) {
      EXPECT_EQ(result, AVERROR(EIO));
      expect_beginning(repaired(movie), kPackets - 1);
    } else {
      expect_beginning(sizes_in(movie.path), kPackets);
    }
  }
}

TEST_F(DiskTest, AnIndexThatFailsForGoodCostsTheMovieNothing) {
  constexpr int kPackets = 400;
  for (const int n : {1, 2, 3}) {
    SCOPED_TRACE(n);
    g_index_disk = {};
    g_index_disk.fail_at = n;
    g_index_disk.torn = true;
    Movie movie;
    for (int i = 0; i < kPackets; ++i) ASSERT_GE(movie.output.write(packet(i).get()), 0);
    EXPECT_EQ(movie.output.write_trailer(), 0);
    EXPECT_EQ(movie.output.close(), 0);
    EXPECT_EQ(movie.told.count(kZevaStatusIndexFailing), 1);
    expect_beginning(sizes_in(movie.path), kPackets);
  }
}

// ---- room that is to stay free

constexpr int64_t kMiB = 1 << 20;

TEST_F(DiskTest, AFileEndsWhileEnoughIsFree) {
  const struct {
    const char* what;
    bool reserves;
    int64_t free, keep;
  } cases[] = {
      {"space can be set aside", true, 80 * kMiB, 64 * kMiB},
      {"it cannot", false, 80 * kMiB, 64 * kMiB},
      {"it cannot, and the host has no wish", false, 24 * kMiB, 0},
      {"a little room", true, 65 * kMiB, 64 * kMiB},
      {"no room for anything", true, 10 * kMiB, 64 * kMiB},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    g_movie_disk = {};
    Movie movie;
    movie.output.keep_free(c.keep);
    g_movie_disk.free_bytes = c.free;
    g_movie_disk.reserves = c.reserves;
    int written = 0, result = 0;
    int64_t size = 0;
    while ((result = movie.output.write(packet(written).get())) >= 0) {
      ++written;
      const int64_t grown = avio_tell(movie.output.context()->pb) - size;
      size += grown;
      if (!c.reserves) g_movie_disk.free_bytes -= grown;
      EXPECT_GE(g_movie_disk.free_bytes, c.keep);
      ASSERT_LT(written, 1000000);
    }
    EXPECT_EQ(result, AVERROR(ENOSPC));
    EXPECT_EQ(movie.output.is_at_guard(), c.keep > 0);
    EXPECT_TRUE(movie.output.can_be_finished());
    EXPECT_EQ(movie.output.write(packet(written).get()), AVERROR(ENOSPC)) << "for good";
    EXPECT_EQ(movie.output.write_trailer(), 0);
    EXPECT_EQ(movie.output.close(), 0);
    expect_beginning(sizes_in(movie.path), static_cast<size_t>(written));
    if (c.free < c.keep) {
      EXPECT_FALSE(fs::exists(movie.path));
    } else if (c.keep > 0) {
      // What fits: the table is guessed large.
      const int64_t room = c.free - c.keep;
      EXPECT_GE(size, room - room / 10 - 256 * 1024);
      EXPECT_LE(static_cast<int64_t>(fs::file_size(movie.path)), room);
    }
  }
}

TEST_F(DiskTest, AnOlderMovieStaysWhenThereIsNoRoomForANewOne) {
  Movie first;
  ASSERT_GE(first.output.write(packet(0).get()), 0);
  EXPECT_EQ(first.output.write_trailer(), 0);
  EXPECT_EQ(first.output.close(), 0);
  const std::string bytes = read_file(first.path);
  Told told;
  MovieOutput second(first.path, told.report(), calls());
  first.open(second);
  second.keep_free(64 * kMiB);
  g_movie_disk.free_bytes = 10 * kMiB;
  EXPECT_EQ(second.write(packet(0).get()), AVERROR(ENOSPC));
  EXPECT_EQ(second.write_trailer(), 0);
  EXPECT_EQ(second.close(), 0);
  EXPECT_EQ(read_file(first.path), bytes);
}

// A disk that others fill as fast.
int64_t g_left = 0;
int g_asked = 0;
int64_t left_of_disk(const std::string&) { return ++g_asked, g_left; }

TEST(DiskRoom, AsksOftenEnoughAndNotMore) {
  constexpr int64_t kPacket = 10000;
  zeva::DiskRoom room;
  room.watch("a.mp4", left_of_disk);
  room.keep_free(64 * kMiB);
  g_left = 128 * kMiB;
  g_asked = 0;
  int64_t end = 0;
  while (room.left(end, end) >= 0) {
    end += kPacket;
    g_left -= 2 * kPacket;
  }
  EXPECT_GE(g_left, 60 * kMiB) << "a few MiB too far at most";
  EXPECT_LE(g_asked, 32) << "for 32 MiB";
  EXPECT_EQ(room.free_bytes(), g_left);
  g_left = 128 * kMiB;
  EXPECT_GE(room.left(end, end), 0) << "others have made room";

  room.keep_free(INT64_MAX);
  EXPECT_LT(room.left(end, end), 0);
  room.keep_free(0);
  EXPECT_EQ(room.left(end, end), INT64_MAX);
  g_left = -1;
  zeva::DiskRoom unknown;
  unknown.watch("a.mp4", left_of_disk);
  unknown.keep_free(64 * kMiB);
  EXPECT_EQ(unknown.left(INT64_MAX / 4, 0), INT64_MAX) << "the system cannot tell";
}

// ---- the writer thread

struct Listener : zeva::OutputListener {
  void on_write_error(int code) override { write_error = code; }
  void on_trailer_error(int code) override { trailer_error = code; }
  std::atomic<int> write_error{0}, trailer_error{0};
};

// A movie that its thread writes.
struct Written {
  explicit Written(int64_t keep_free = 0)
      : movie(dir.path("a.mp4")),
        index(dir.path("a.index")),
        thread(movie, policy(keep_free), listener, told.report(), calls()) {
    MovieOutput& output = thread.output;
    EXPECT_GE(output.create(av_guess_format("mp4", nullptr, nullptr)), 0);
    add_picture_stream(output.context());
    add_sound_stream(output.context());
    EXPECT_GE(output.open_io(), 0);
    EXPECT_EQ(output.start_index(index), MovieOutput::IndexStart::kStarted);
    EXPECT_GE(output.write_header(), 0);
    thread.note_streams();
    EXPECT_TRUE(thread.start().ok);
  }
  static zeva::OutputPolicy policy(int64_t keep_free) {
    zeva::OutputPolicy made;
    made.limits.packets = 1000;
    made.keep_free_bytes = keep_free;
    return made;
  }
  ZevaOutputState state() const {
    ZevaOutputState filled{};
    thread.fill(filled);
    return filled;
  }
  // The number of the packet that is refused, at most `count`.
  int put(int begin, int count) {
    for (int i = begin; i < count; ++i) {
      if (thread.put(*packet(i)) != 0) return i;
    }
    return count;
  }
  // For 15 s at most.
  bool wait_until(const std::function<bool()>& is_so) const {
    const int64_t end = zeva::steady_us() + 15000000;
    while (!is_so() && zeva::steady_us() < end) std::this_thread::yield();
    return is_so();
  }
  const TempDir dir;
  const std::string movie, index;
  Told told;
  Listener listener;
  zeva::OutputThread thread;
};

TEST_F(DiskTest, AFileFinishedEarlyIsToldOnceAndClosed) {
  g_movie_disk.free_bytes = 68 * kMiB;
  Written written(64 * kMiB);
  const int taken = written.put(0, 1000000);
  EXPECT_LT(taken, 1000000);
  ASSERT_TRUE(
      written.wait_until([&] { return written.told.count(kZevaStatusFileFinishedEarly) == 1; }));
  const ZevaOutputState state = written.state();
  EXPECT_EQ(state.phase, kZevaOutputFinished);
  EXPECT_EQ(state.disk_free_bytes, g_movie_disk.free_bytes);
  EXPECT_GE(state.disk_free_bytes, 64 * kMiB);
  EXPECT_FALSE(written.thread.has_failed());
  EXPECT_FALSE(written.thread.takes_packets());
  const std::string text = written.told.text(kZevaStatusFileFinishedEarly);
  const auto packets = std::to_string(state.packets_written) + " packets";
  EXPECT_NE(text.find("'" + written.movie + "' is finished early: "), std::string::npos) << text;
  EXPECT_NE(text.find(packets), std::string::npos) << text;
  EXPECT_EQ(state.packets_written + state.packets_dropped, taken);
  EXPECT_EQ(state.queued_packets, 0);
  // Before the recording ends.
  expect_beginning(sizes_in(written.movie), static_cast<size_t>(state.packets_written));
  EXPECT_FALSE(zeva::is_locked(written.index));
  EXPECT_EQ(written.thread.put(*packet(taken)), -1);
  written.thread.join();
  EXPECT_EQ(written.thread.output.close(), 0);
  EXPECT_EQ(written.told.all.size(), 1U);
  EXPECT_EQ(written.listener.write_error, 0);
}

// A pause, say: others fill the disk meanwhile.
TEST_F(DiskTest, AFileThatGetsNoPacketsIsFinishedAndItsDiskWatched) {
  g_movie_disk.free_bytes = 1024 * kMiB;
  Written written(64 * kMiB);
  written.put(0, 10);
  ASSERT_TRUE(written.wait_until([&] { return written.state().packets_written == 10; }));
  {
    const std::lock_guard<std::mutex> lock(g_mutex);
    g_movie_disk.free_bytes = 10 * kMiB;
  }
  ASSERT_TRUE(
      written.wait_until([&] { return written.told.count(kZevaStatusFileFinishedEarly) == 1; }));
  EXPECT_EQ(written.state().disk_free_bytes, 10 * kMiB);
  expect_beginning(sizes_in(written.movie), 10);
}

TEST_F(DiskTest, AFailedWriteIsToldOnceAndTheFileIsClosed) {
  for (const bool for_good : {true, false}) {
    g_movie_disk = {};
    g_movie_disk.for_good = for_good;
    Written written;
    g_movie_disk.fail_at = 3;
    EXPECT_LT(written.put(0, 1000000), 1000000);
    ASSERT_TRUE(written.wait_until([&] { return !zeva::is_locked(written.index); }));
    written.thread.join();
    EXPECT_EQ(written.listener.write_error, AVERROR(EIO));
    EXPECT_EQ(written.listener.trailer_error, 0);
    EXPECT_EQ(written.state().phase, kZevaOutputGivenUp);
    if (!for_good) {
      expect_beginning(sizes_in(written.movie),
                       static_cast<size_t>(written.state().packets_written));
    }
  }
}

TEST_F(DiskTest, TellsWhatACrashAndAPowerFailureWouldLeave) {
  Written written;
  EXPECT_EQ(written.thread.output.recorded_us(), 0);
  written.put(0, 50);
  const int64_t but_last_us = 48 * 20000 + 40000;
  const auto is_safe = [&] {
    return written.thread.output.recorded_us() >= but_last_us &&
           written.state().synced_us >= but_last_us;
  };
  EXPECT_TRUE(written.wait_until(is_safe)) << written.state().synced_us;
  EXPECT_EQ(written.thread.output.recorded_us(), but_last_us);
  EXPECT_EQ(written.state().written_us, but_last_us + 20000);
  written.thread.join();
  EXPECT_EQ(written.thread.output.close(), 0);
  EXPECT_EQ(written.thread.output.recorded_us(), -1) << "nothing is recorded any more";
  EXPECT_EQ(written.state().synced_us, but_last_us);
}

// Systems that keep the names of open files refuse both.
bool takes_names(const std::string& path, bool removes) {
  std::error_code refused;
  if (removes) {
    fs::remove(fs::u8path(path), refused);
  } else {
    fs::rename(fs::u8path(path), fs::u8path(path + ".renamed.mp4"), refused);
  }
  return !refused;
}

TEST_F(DiskTest, AFileThatLosesItsNameIsToldOnce) {
  for (const bool index : {false, true}) {
    for (const bool removes : {false, true}) {
      SCOPED_TRACE(testing::Message()
                   << (index ? "index" : "movie") << (removes ? " removed" : ""));
      Written written;
      const std::string& path = index ? written.index : written.movie;
      written.put(0, 50);
      ASSERT_TRUE(written.wait_until([&] { return written.thread.output.recorded_us() > 0; }));
      if (!takes_names(path, removes)) continue;
      ASSERT_TRUE(written.wait_until([&] { return written.told.count(kZevaStatusFileGone) == 1; }));
      const std::string text = written.told.text(kZevaStatusFileGone);
      EXPECT_NE(text.find(removes ? "was deleted" : "was renamed"), std::string::npos) << text;
      EXPECT_NE(text.find("'" + path + "'"), std::string::npos) << text;
      written.put(50, 100);
      written.thread.join();
      EXPECT_EQ(written.thread.output.close(), 0);
      EXPECT_EQ(written.told.all.size(), 1U);
      const std::string movie = index || removes ? written.movie : path + ".renamed.mp4";
      if (index || !removes) expect_beginning(sizes_in(movie), 100);
    }
  }
}

// FFmpeg's length of a movie is corrected in the file that is open, not in one of its name.
TEST_F(DiskTest, ARenamedMovieHasItsTrueLength) {
  std::string bytes[2];
  for (const bool renames : {false, true}) {
    Movie movie;
    movie.output.context()->streams[1]->codecpar->initial_padding = 1024;
    for (int i = 0; i < 50; ++i) ASSERT_GE(movie.output.write(packet(i).get()), 0);
    ASSERT_GE(movie.output.write_held(), 0);
    if (renames && !takes_names(movie.path, false)) return;
    EXPECT_EQ(movie.output.write_trailer(), 0);
    EXPECT_EQ(movie.output.close(), 0);
    bytes[renames ? 1 : 0] = read_file(renames ? movie.path + ".renamed.mp4" : movie.path);
  }
  EXPECT_GT(bytes[0].size(), 100000U);
  EXPECT_TRUE(bytes[0] == bytes[1]);
}

}  // namespace
