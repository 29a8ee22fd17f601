// The slow drift between the stamps of sound and its samples.
#pragma once

#include <cstdint>

namespace ZV {

// Tells when counted sound has to be moved. Stamps are often the time at which a buffer arrived:
// each is late by some jitter, and no single one says where the sound belongs. But when all of
// them have been on the same side of the count, by more than 20 ms, for a whole second, samples
// were lost, or the sound card's clock is not the host's. The smallest error of that second is what
// jitter cannot explain; by so much the sound is moved. Used by the one thread that writes sound.
class DriftMeter {
 public:
  explicit DriftMeter(int sample_rate) : one_second(sample_rate), tolerance(sample_rate / 50) {}

  // `error` is a stamp less the count, `length` how much sound it stands for, both in samples. The
  // samples by which the sound has to be moved now: later when positive, 0 for not at all.
  int64_t measure(int64_t error, int64_t length);

  void restart() { watched = 0; }

 private:
  int64_t one_second;
  int64_t tolerance;
  int64_t smallest = 0;  // error of the time watched; its sign is the side
  int64_t watched = 0;   // samples; 0 for none on a side
};

}  // namespace ZV
