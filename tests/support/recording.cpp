#include "recording.h"

#include <gtest/gtest.h>

#ifdef _WIN32
#include <windows.h>
#endif

#include <cmath>
#include <fstream>
#include <iterator>

#include "media.h"

namespace zeva_test {
namespace fs = std::filesystem;

std::string utf8(const fs::path& path) { return path.u8string(); }

std::string read_file(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

int open_handles() {
#ifdef _WIN32
  DWORD count = 0;
  GetProcessHandleCount(GetCurrentProcess(), &count);
  return static_cast<int>(count);
#else
  int count = 0;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
    count += entry.exists() ? 1 : 0;
  return count;
#endif
}

fs::path work_file(const std::string& name) {
  const auto* test = testing::UnitTest::GetInstance()->current_test_info();
  const std::string folder = std::string(test->test_suite_name()) + "." + test->name();
  const fs::path path = fs::current_path() / "work" / fs::u8path(folder);
  static std::string emptied;
  if (emptied != folder) {
    fs::remove_all(path);
    fs::create_directories(path);
    emptied = folder;
  }
  return path / fs::u8path(name);
}

MovieInfo settings(const std::string& url) {
  MovieInfo info = small_movie(url);
  info.width = info.src_width = kWidth;
  info.height = info.src_height = kHeight;
  info.fps = info.gop_size = kFps;
  info.video_bitrate = 600;
  info.audio_bitrate = 128;
  return info;
}

MovieInfo settings(const fs::path& path) { return settings(utf8(path)); }

ZevaOptions options() {
  ZevaOptions made;
  ZevaOptions_init(&made);
  return made;
}

int64_t time_us(int frame) { return kStartUs + int64_t{1000000} * frame / kFps; }

std::vector<uint8_t> gradients(int frame, int stride) {
  std::vector<uint8_t> bgra(static_cast<size_t>(stride) * kHeight, 0xEE);
  for (int y = 0; y < kHeight; ++y) {
    for (int x = 0; x < kWidth; ++x) {
      uint8_t* pixel = &bgra[static_cast<size_t>(y * stride + 4 * x)];
      pixel[0] = static_cast<uint8_t>(x / 2 + frame);
      pixel[1] = static_cast<uint8_t>(40 + y);
      pixel[2] = static_cast<uint8_t>(200 - x / 2 + frame / 2);
      pixel[3] = 255;
    }
  }
  return bgra;
}

std::vector<uint8_t> one_colour(uint8_t b, uint8_t g, uint8_t r) {
  const uint8_t pixel[] = {b, g, r, 255};
  std::vector<uint8_t> bgra(size_t{4} * kWidth * kHeight);
  for (size_t i = 0; i < bgra.size(); ++i) bgra[i] = pixel[i % 4];
  return bgra;
}

std::vector<int16_t> tone(int frame) {
  constexpr int kSamples = kSampleRate / kFps;
  std::vector<int16_t> pcm(size_t{2} * kSamples);
  for (int i = 0; i < kSamples; ++i) {
    const double t = static_cast<double>(frame * kSamples + i) / kSampleRate;
    pcm[2 * i] = pcm[2 * i + 1] = static_cast<int16_t>(8000 * std::sin(2 * M_PI * 440 * t));
  }
  return pcm;
}

std::vector<int16_t> constant_sound(int16_t value) {
  return std::vector<int16_t>(size_t{2} * kSampleRate / kFps, value);
}

Recording::Recording(const MovieInfo& info, bool async) {
  handle = ZEVA_start(info, on_status, this, &effective, async);
}

Recording::Recording(const MovieInfo& info, const ZevaOptions& options) {
  handle = ZEVA_start_with(&info, &options, on_status, this, &effective, false);
}

Recording::~Recording() { stop(); }

bool Recording::open() {
  MovieInfo info{};
  return ZEVA_get_mInfo(handle, &info);
}

void Recording::stop() {
  ZEVA_stop(&handle);
  EXPECT_EQ(handle, nullptr);
  const std::lock_guard<std::mutex> lock(mutex);
  stopped = true;
}

bool Recording::picture(std::vector<uint8_t> bgra, int64_t pts_us) {
  const auto size = static_cast<int>(bgra.size());
  return ZEVA_write_video_bgra(handle, bgra.data(), size, pts_us, size / kHeight);
}

bool Recording::sound(std::vector<int16_t> pcm, int64_t pts_us) {
  return ZEVA_write_audio_pcm(handle, pcm.data(), static_cast<int>(pcm.size() * sizeof pcm[0]),
                              pts_us);
}

void Recording::feed(int begin, int end) {
  for (int frame = begin; frame < end; ++frame) {
    if (!effective.disable_video) picture(gradients(frame), time_us(frame));
    if (!effective.disable_audio) sound(tone(frame), time_us(frame));
  }
}

std::vector<Status> Recording::statuses() {
  const std::lock_guard<std::mutex> lock(mutex);
  return received;
}

std::vector<Status> Recording::failures() {
  std::vector<Status> found;
  for (const Status& status : statuses()) {
    if (status.code != 0) found.push_back(status);
  }
  return found;
}

void Recording::on_status(int code, const char* message, void* user) {
  auto& self = *static_cast<Recording*>(user);
  const std::lock_guard<std::mutex> lock(self.mutex);
  EXPECT_FALSE(self.stopped) << "told after the stop: " << message;
  self.received.push_back({code, message});
}

ZevaStatistics statistics(const Recording& recording) {
  ZevaStatistics told;
  ZevaStatistics_init(&told);
  EXPECT_TRUE(ZEVA_statistics(recording.handle, &told));
  return told;
}

}  // namespace zeva_test
