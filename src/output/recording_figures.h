// Counts and times of a recording that its host may ask for.
#pragma once

#include <atomic>
#include <cstdint>

#include "call_times.h"
#include "zeva/outputs.h"

namespace zeva {

// Picture by picture on the thread that writes them, sound on the other; read by any thread, which
// holds up neither.
class RecordingFigures {
 public:
  // The time that a picture spends on its way, summed up until end_picture. Pictures' thread.
  struct Cost {
    int64_t convert_us = 0;
    int64_t encode_us = 0;
    bool encoded = false;  // it reached an encoder
    void add(int64_t converted_us, int64_t encoded_us) {
      convert_us += converted_us;
      encode_us += encoded_us;
      encoded = true;
    }
  };
  Cost cost;

  // A host's call for a picture begins, and is over after `call_us`. Only pictures that reached the
  // encoder count in the times: a refusal costs nothing, and would hide what the others cost.
  void begin_picture() { ++pictures_given; }
  void end_picture(bool taken, int64_t call_us);
  // The host gave, or asked for, so much sound.
  void give_sound(int64_t us) { sound_us_given += us; }

  // Fills in what it knows: pictures and sound given, pictures refused, and the times.
  void fill(ZevaStatistics& statistics) const;

 private:
  std::atomic<int64_t> pictures_given{0};
  std::atomic<int64_t> pictures_refused{0};
  std::atomic<int64_t> sound_us_given{0};
  CallTimes convert, encode, call;
};

}  // namespace zeva
