// Outputs that must not be touched, containers, indexes, and sessions that must end.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <fstream>
#include <future>
#include <mutex>
#include <set>
#include <thread>

#include "elementary.h"
#include "ffmpeg.h"
#include "judge.h"
#include "recording.h"
#include "sockets.h"

namespace {
using namespace zeva_test;  // NOLINT: a test reads better without the prefix
namespace fs = std::filesystem;
using testing::HasSubstr;

void write_text(const fs::path& file, const std::string& text) {
  std::ofstream(file, std::ios::binary) << text;
}

std::set<std::string> names_beside(const fs::path& file) {
  std::set<std::string> names;
  for (const auto& entry : fs::directory_iterator(file.parent_path())) {
    names.insert(entry.path().filename().u8string());
  }
  return names;
}

// One recording through either interface: its outputs and the reports about it.
struct Take {
  bool packets;
  std::string url, index;
  std::vector<std::string> others;
  std::vector<Status> told;

  void record() { packets ? record_packets() : record_frames(); }
  Status first_failure() const {
    for (const Status& status : told) {
      if (status.code != 0 && status.code < 100) return status;
    }
    return {0, ""};
  }

 private:
  void record_frames() {
    MovieInfo info = settings(url);
    set_text(info.moov_url, index);
    for (size_t i = 0; i < others.size(); ++i) info.other_urls[i] = others[i].c_str();
    Recording recording(info);
    recording.feed(0, kFps);
    recording.stop();
    told = recording.statuses();
  }
  void record_packets() {
    MovieInfo2 info{};
    set_text(info.url, url);
    set_text(info.moov, index);
    for (size_t i = 0; i < others.size(); ++i) info.others[i] = others[i].c_str();
    info.vcodec = kPacketVideoH264;
    info.acodec = kPacketAudioAac;
    void* handle = ZEVA2_start(info, on_status, this);
    int64_t time = 0;
    for (std::string& bytes : pictures) {
      ZEVA2_write_video_packet(handle, bytes.data(), static_cast<int>(bytes.size()),
                               time += 200000);
    }
    time = 0;
    for (std::string& bytes : sounds) {
      ZEVA2_write_audio_packet(handle, bytes.data(), static_cast<int>(bytes.size()), time += 21333);
    }
    ZEVA2_stop(&handle);
  }
  static void on_status(int code, const char* message, void* user) {
    static_cast<Take*>(user)->told.push_back({code, message});
  }
  static inline std::vector<std::string> pictures = h264_packets(15), sounds = aac_packets(140);
};

// ---- what was there before

TEST(FailedStart, LeavesWhatWasThereAndNothingElse) {
  for (const bool packets : {false, true}) {
    for (const bool precious : {false, true}) {
      SCOPED_TRACE(std::string(packets ? "packets" : "frames") +
                   (precious ? ", over a movie" : ""));
      const fs::path file = work_file("precious.mp4");
      const std::string index = utf8(file) + ".index";
      if (precious) write_text(file, "a movie"), write_text(index, "its index");
      const auto before = names_beside(file);
      const Listener gone;
      const std::string dead = "rtmp://127.0.0.1:" + std::to_string(gone.port()) + "/live/x";
      const_cast<Listener&>(gone).close();
      Take take{packets, utf8(file), index, {dead}, {}};
      take.record();
      EXPECT_NE(take.first_failure().code, 0);
      EXPECT_EQ(names_beside(file), before);
      if (precious) {
        EXPECT_EQ(read_file(file), "a movie");
        EXPECT_EQ(read_file(index), "its index");
      }
    }
  }
}

// Also while a host keeps the handle, and when it stops without having written anything.
TEST(FailedStart, IsCleanedUpBeforeTheStop) {
  const fs::path file = work_file("movie.mp4");
  MovieInfo info = settings(file);
  set_text(info.moov_url, utf8(file) + ".index");
  info.other_urls[0] = "no such folder/b.mp4";
  Recording failed(info);
  EXPECT_FALSE(failed.open());
  EXPECT_EQ(names_beside(file), std::set<std::string>{});
  info.other_urls[0] = nullptr;
  Recording empty(info);
  EXPECT_TRUE(empty.open());
  empty.stop();
  EXPECT_EQ(names_beside(file), std::set<std::string>{});
}

TEST(FailedRepair, LeavesWhatWasThere) {
  const fs::path output = work_file("precious.wav");  // a container that holds no pictures
  const fs::path broken = output.parent_path() / "broken.mp4", index = broken.u8string() + ".index";
  Take take{false, utf8(broken), utf8(index), {}, {}};
  take.record();
  ASSERT_EQ(take.first_failure().code, 0);
  write_text(output, "a sound");
  EXPECT_FALSE(ZEVA_StartRepair_sync(utf8(broken).c_str(), utf8(index).c_str(),
                                     utf8(output).c_str(), nullptr, nullptr));
  EXPECT_EQ(read_file(output), "a sound");
}

TEST(Outputs, ThatShareAFileAreRefused) {
  for (const bool packets : {false, true}) {
    const fs::path file = work_file("precious.mp4");
    const std::string url = utf8(file), other = utf8(file.parent_path() / "b.mkv");
    const std::string spelled = utf8(file.parent_path() / "." / "precious.mp4");
    for (const Take& made :
         {Take{packets, url, spelled, {}, {}}, Take{packets, url, other, {other}, {}},
          Take{packets, url, "", {spelled}, {}}}) {
      write_text(file, "a movie");
      Take take = made;
      take.record();
      EXPECT_THAT(take.first_failure().text, HasSubstr("is a file of this recording already"));
      EXPECT_EQ(read_file(file), "a movie");
    }
  }
}

// ---- containers and indexes

TEST(Outputs, HaveTheContainerOfTheirName) {
  const fs::path folder = work_file("x").parent_path();
  const struct {
    const char *main, *further, *format;
  } cases[] = {{"a.mkv", "b.ts", "mpegts"}, {"a.avi", "b.mkv", "matroska,webm"}};
  for (const auto& c : cases) {
    Take take{false, utf8(folder / c.main), "", {utf8(folder / c.further)}, {}};
    take.record();
    EXPECT_EQ(take.first_failure().text, "");
    EXPECT_EQ(probe(folder / c.further, "-show_entries format=format_name").at(0)["format_name"],
              c.format);
  }
}

TEST(Outputs, ThatNoEncoderIsThereForAreRefusedByName) {
  const fs::path file = work_file("movie.webm");
  Take take{false, utf8(file), "", {}, {}};
  take.record();
  EXPECT_THAT(take.first_failure().text, HasSubstr("Could not find encoder for 'vp"));
  EXPECT_EQ(names_beside(file), std::set<std::string>{});
}

TEST(Index, StandsBesideEveryKindOfMp4) {
  for (const bool packets : {false, true}) {
    for (const char* name : {"a.mov", "b.m4v", "c.3gp", "no ending", "d.MP4"}) {
      if (!packets && strcmp(name, "c.3gp") == 0) continue;  // its encoder knows few sizes
      SCOPED_TRACE(name);
      const fs::path file = work_file(name);
      const std::string index = utf8(file) + ".index";
      Take take{packets, utf8(file), index, {}, {}};
      take.record();
      EXPECT_EQ(take.first_failure().text, "");
      EXPECT_THAT(read_file(index), HasSubstr(";")) << "no record";
      EXPECT_EQ(decode_faults(file), "");
    }
  }
}

TEST(Index, GoesToTheFirstMovieOnly) {
  const fs::path file = work_file("a.mp4");
  const std::string index = utf8(file) + ".index", copy = utf8(file.parent_path() / "b.mov");
  for (const bool packets : {false, true}) {
    Take take{packets, utf8(file), index, {copy}, {}};
    take.record();
    EXPECT_EQ(take.first_failure().text, "");
    const std::string whole = utf8(file.parent_path() / "whole.mp4");
    EXPECT_TRUE(
        ZEVA_StartRepair_sync(utf8(file).c_str(), index.c_str(), whole.c_str(), nullptr, nullptr));
    EXPECT_GE(zeva_test::packets(whole).size() + 2, zeva_test::packets(file).size());
    EXPECT_EQ(decode_faults(whole), "");
  }
}

// ---- a stream that falls silent

int64_t records_in(const std::string& index) {
  const std::string text = read_file(index);
  return std::count(text.begin(), text.end(), ';');
}

// A crash must take nothing along that waits for the silent stream, neither for one that never
// spoke nor for one that stopped, by the clock of the host or by the movie's.
TEST(SilentStream, HoldsNothingBack) {
  const struct {
    const char* what;
    int pictures_until, sound_until;
  } cases[] = {{"sound never comes", 75, 0},
               {"sound stops", 75, 25},
               {"pictures never come", 0, 75},
               {"pictures stop", 25, 75}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    MovieInfo info = settings(work_file("movie.mp4"));
    const std::string index = utf8(work_file("movie.mp4.index"));
    set_text(info.moov_url, index);
    Recording recording(info);
    for (int frame = 0; frame < 75; ++frame) {
      if (frame < c.pictures_until) recording.picture(gradients(frame), time_us(frame));
      if (frame < c.sound_until) recording.sound(tone(frame), time_us(frame));
    }
    // The last packet of a movie has no record, and sound waits for a whole encoder frame.
    const int64_t sounds = c.sound_until * 1920 / 1024;
    const int64_t expected = c.pictures_until + std::max<int64_t>(sounds - 3, 0) - 1;
    const auto begin = std::chrono::steady_clock::now();
    while (records_in(index) < expected &&
           std::chrono::steady_clock::now() - begin < std::chrono::milliseconds(3 * 500)) {
      std::this_thread::yield();
    }
    EXPECT_GE(records_in(index), expected);
    const fs::path broken = work_file("broken.mp4"), whole = work_file("whole.mp4");
    write_text(broken, read_file(work_file("movie.mp4")));
    EXPECT_TRUE(ZEVA_StartRepair_sync(utf8(broken).c_str(), index.c_str(), utf8(whole).c_str(),
                                      nullptr, nullptr));
    EXPECT_GE(static_cast<int64_t>(packets(whole).size()), expected);
    EXPECT_EQ(decode_faults(whole), "");
  }
}

// An encoder's sound begins a little before 0, which some containers cannot say. All of a movie is
// moved there, also the pictures that were written before the first sound came.
TEST(LateSound, IsInStepInEveryContainer) {
  const fs::path movie = work_file("movie.mp4"), folder = movie.parent_path();
  constexpr size_t kSounds = 95;  // packets; the first lies before 0, the last is a part
  const std::string flv = utf8(folder / "a.flv"), mkv = utf8(folder / "b.mkv"),
                    ts = utf8(folder / "c.ts");
  MovieInfo info = settings(movie);
  const std::string index = utf8(movie) + ".index";
  set_text(info.moov_url, index);
  info.other_urls[0] = flv.c_str();
  info.other_urls[1] = mkv.c_str();
  info.other_urls[2] = ts.c_str();
  Recording recording(info);
  for (int frame = 0; frame < 50; ++frame) recording.picture(gradients(frame), time_us(frame));
  while (records_in(index) < 30) std::this_thread::yield();
  for (int frame = 0; frame < 50; ++frame) recording.sound(tone(frame), time_us(frame));
  recording.stop();
  for (const std::string& file : {utf8(movie), flv, mkv, ts}) {
    SCOPED_TRACE(file);
    std::vector<double> pictures, sounds;
    for (const Row& packet : packets(file)) {
      const bool picture = packet.at("codec_type") == "video";
      (picture ? pictures : sounds).push_back(number(packet, "pts_time"));
    }
    ASSERT_EQ(pictures.size(), 50u);
    for (size_t i = 0; i < 50; ++i) EXPECT_NEAR(pictures[i], pictures[0] + i * 0.04, 0.0015);
    // From the end, since a container may have no place for what lies before the first picture.
    const double last = (kSounds - 2) * 1024.0 / kSampleRate;
    ASSERT_GE(sounds.size(), kSounds - 1u);
    for (size_t i = 0; i < kSounds - 1; ++i) {
      const double expected = pictures[0] + last - i * 1024.0 / kSampleRate;
      EXPECT_NEAR(sounds[sounds.size() - 1 - i], expected, 0.0015);
    }
  }
}

// A muxer refuses a packet; the packets around it, and their index, are what they were.
TEST(RefusedPacket, CostsNothingElse) {
  const fs::path movie = work_file("movie.mp4");
  const std::string index = utf8(movie) + ".index";
  MovieInfo info = settings(movie);
  set_text(info.moov_url, index);
  struct Spoiler : FilterBase {
    void filter(AVPacket* packet) override {
      // Shown before it is decoded; the container cannot say that.
      if (++count == 20) packet->dts = packet->pts + 1;
    }
    int count = 0;
  } spoiler;
  Recording recording(info);
  ZEVA_add_audio_filter(recording.handle, &spoiler);
  recording.feed(0, 50);
  recording.stop();
  ASSERT_EQ(recording.failures().size(), 1u);
  EXPECT_EQ(recording.failures()[0].code, kZevaStatusPacketsLeftOut);
  const fs::path whole = work_file("whole.mp4");
  EXPECT_TRUE(ZEVA_StartRepair_sync(utf8(movie).c_str(), index.c_str(), utf8(whole).c_str(),
                                    nullptr, nullptr));
  EXPECT_EQ(decode_faults(movie), "");
  std::vector<Row> recorded = packets(movie), repaired = packets(whole);
  EXPECT_EQ(recorded.size() + 1, static_cast<size_t>(50 + spoiler.count));
  recorded.pop_back();
  const auto essence = [](const Row& p) {
    return std::tuple(p.at("codec_type"), p.at("pts"), p.at("dts"), p.at("size"));
  };
  ASSERT_EQ(repaired.size(), recorded.size());
  for (size_t i = 0; i < repaired.size(); ++i)
    EXPECT_EQ(essence(repaired[i]), essence(recorded[i]));
}

// ---- the library's own manners

TEST(Library, WritesNothingToStandardOutput) {
  testing::internal::CaptureStdout();
  for (const bool packets : {false, true}) {
    const fs::path file = work_file("a.mp4");
    Take take{packets, utf8(file), utf8(file) + ".index", {}, {}};
    take.record();
    ZEVA_StartRepair_sync(take.url.c_str(), take.index.c_str(),
                          utf8(file.parent_path() / "whole.mp4").c_str(), nullptr, nullptr);
    ZEVA_StartRepair_sync(take.url.c_str(), take.url.c_str(), "never.mp4", nullptr, nullptr);
  }
  fflush(stdout);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

// ---- RTSP sessions

// Answers every request with "200 OK" and counts what it was asked.
class RtspServer {
 public:
  RtspServer() : thread([this] { serve(); }) {}
  ~RtspServer() {
    ending = true;
    if (client >= 0) shutdown(static_cast<Socket>(client.load()), 2);
    listener.close();
    thread.join();
  }
  std::string url() const {
    return "rtsp://127.0.0.1:" + std::to_string(listener.port()) + "/live";
  }
  // Waits for the end of the connection.
  std::string requests() {
    ended.wait();
    const std::lock_guard<std::mutex> lock(mutex);
    return seen;
  }
  std::atomic<bool> hang_up_on_record{false};

 private:
  void serve() {
    const Socket peer = listener.accept();
    client = static_cast<int64_t>(peer);
    std::string text;
    char bytes[4096];
    for (int count; (count = static_cast<int>(recv(peer, bytes, sizeof bytes, 0))) > 0;) {
      text.append(bytes, static_cast<size_t>(count));
      for (size_t end; (end = text.find("\r\n\r\n")) != std::string::npos;) answer(peer, text, end);
      if (hung_up) break;
    }
    client = -1;
    close_socket(peer);
    has_ended.set_value();
  }
  void answer(Socket peer, std::string& text, size_t end) {
    const size_t begin = text.rfind("RTSP/1.0", end);
    const size_t line = begin == std::string::npos ? 0 : text.rfind('\n', begin) + 1;
    const std::string request = text.substr(line, end - line);
    const std::string method = request.substr(0, request.find(' '));
    {
      const std::lock_guard<std::mutex> lock(mutex);
      seen += method + ";" + (request.find("RTP/AVP/TCP") != std::string::npos ? "tcp;" : "");
    }
    const auto field = [&](const std::string& name) {
      const size_t at = request.find(name);
      return at == std::string::npos ? ""
                                     : request.substr(at, request.find('\r', at) - at) + "\r\n";
    };
    const std::string length = field("Content-Length: ");
    text.erase(0, end + 4);
    const size_t body = length.empty() ? 0 : std::stoul(length.substr(16));
    text.erase(0, std::min(body, text.size()));
    const std::string reply = "RTSP/1.0 200 OK\r\n" + field("CSeq: ") + field("Transport: ") +
                              "Session: 12345678\r\n\r\n";
    send(peer, reply.data(), static_cast<int>(reply.size()), 0);
    hung_up = method == "RECORD" && hang_up_on_record;
  }

  Listener listener;
  std::atomic<int64_t> client{-1};
  std::atomic<bool> ending{false};
  bool hung_up = false;
  std::promise<void> has_ended;
  const std::shared_future<void> ended = has_ended.get_future().share();
  std::mutex mutex;
  std::string seen;  // guarded by mutex
  std::thread thread;
};

MovieInfo rtsp_settings(const RtspServer& server) {
  MovieInfo info = settings(server.url());
  info.timeout_sec = 5;
  return info;
}

TEST(RtspSession, IsTornDownWhenAFurtherOutputCannotBeOpened) {
  RtspServer server;
  MovieInfo info = rtsp_settings(server);
  info.other_urls[0] = "no such folder/b.mkv";
  Recording recording(info);
  EXPECT_FALSE(recording.open());
  EXPECT_THAT(server.requests(), HasSubstr("RECORD;TEARDOWN;"));  // before the handle is stopped
}

TEST(RtspSession, IsTornDownByAStopWithoutAnyPacket) {
  RtspServer server;
  Recording recording(rtsp_settings(server));
  EXPECT_TRUE(recording.open());
  recording.stop();
  EXPECT_THAT(server.requests(), HasSubstr("RECORD;TEARDOWN;"));
}

TEST(RtspSession, LeavesNothingOpenAfterAWriteError) {
  int before = 0;
  for (int round = 0; round < 4; ++round) {
    if (round == 1) before = open_handles();
    RtspServer server;
    server.hang_up_on_record = true;
    MovieInfo info = rtsp_settings(server);
    info.video_bitrate = 20000;
    Recording recording(info);
    EXPECT_TRUE(recording.open());
    for (int n = 0; recording.failures().empty() && n < 100 * kFps; ++n) recording.feed(n, n + 1);
    recording.stop();
    EXPECT_GE(recording.failures().size(), 1U);
  }
  EXPECT_EQ(open_handles(), before);
}

TEST(RtspSession, OfAFurtherOutputGoesOverTcpToo) {
  RtspServer first, second;
  const std::string other = second.url();
  MovieInfo info = rtsp_settings(first);
  info.other_urls[0] = other.c_str();
  Recording recording(info);
  EXPECT_TRUE(recording.open());
  recording.stop();
  EXPECT_EQ(second.requests(), first.requests());
  EXPECT_THAT(first.requests(), HasSubstr("SETUP;tcp;"));
}

}  // namespace
