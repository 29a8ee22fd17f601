// A host for tests: settings, pictures and sound whose content is known, and what the library said.
#pragma once

#include <cstdint>
#include <filesystem>
#include <mutex>
#include <string>
#include <vector>

#include "log_capture.h"
#include "zeva/zeva.h"

namespace zeva_test {

constexpr int kWidth = 320;
constexpr int kHeight = 180;
constexpr int kFps = 25;
constexpr int kSampleRate = 48000;
constexpr int64_t kStartUs = 5000000;  // host time of the first frame

std::string utf8(const std::filesystem::path& path);
std::string read_file(const std::filesystem::path& path);

// Files, sockets and the like that the process has open.
int open_handles();

// A path in an empty folder of the running test.
std::filesystem::path work_file(const std::string& name);

// Copies with its terminator, cut to what the field holds.
template <size_t kSize>
void set_text(char (&field)[kSize], const std::string& text) {
  field[text.copy(field, kSize - 1)] = '\0';
}

// 320x180 BGRA at 25 frames/s, 48 kHz stereo S16.
MovieInfo settings(const std::string& url);
MovieInfo settings(const std::filesystem::path& path);

// Options that change nothing.
ZevaOptions options();

// Host time of picture `frame` and of the sound beside it.
int64_t time_us(int frame);

// Moving gradients without sharp edges, which every codec keeps well.
std::vector<uint8_t> gradients(int frame, int stride = 4 * kWidth);
std::vector<uint8_t> one_colour(uint8_t b, uint8_t g, uint8_t r);
// What lasts as long as one picture: 440 Hz, or a constant.
std::vector<int16_t> tone(int frame);
std::vector<int16_t> constant_sound(int16_t value);

struct Status {
  int code;
  std::string text;
};

// One recording; stopped by its destructor at the latest.
class Recording {
 public:
  explicit Recording(const MovieInfo& info, bool async = false);
  Recording(const MovieInfo& info, const ZevaOptions& options);
  ~Recording();

  bool open();
  void stop();
  bool picture(std::vector<uint8_t> bgra, int64_t pts_us);
  bool sound(std::vector<int16_t> pcm, int64_t pts_us);
  // Gradients and the tone, from picture `begin` up to picture `end`.
  void feed(int begin, int end);

  std::vector<Status> statuses();
  std::vector<Status> failures();
  void* handle = nullptr;
  MovieInfo effective{};

 private:
  static void on_status(int code, const char* message, void* user);
  std::mutex mutex;
  std::vector<Status> received;  // guarded by mutex
  bool stopped = false;          // guarded by mutex
};

// Figures of a recording that has not ended.
ZevaStatistics statistics(const Recording& recording);

}  // namespace zeva_test
