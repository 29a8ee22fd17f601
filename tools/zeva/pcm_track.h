// Interleaved sound on standard input, which the library encodes.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "packet_track.h"
#include "status.h"
#include "terminal.h"

namespace zeva_tool {

struct PcmFormat {
  std::string sample_format;  // "s16" or "flt32"
  int sample_rate = 0;
  int channels = 0;
  int bitrate_kbps = 0;
};

class PcmTrack : public PacketTrack {
 public:
  // The references must outlive the track.
  PcmTrack(const PcmFormat& format, Terminal& terminal);

  Status check() const;

  void describe(MovieInfo2& info) const override;
  std::optional<int64_t> time_us() override;
  bool write(void* recording, int64_t shift_us) override;
  void pop() override;
  std::string warning() const override;

 private:
  void read();

  const PcmFormat& format;
  Terminal& terminal;
  size_t frame_bytes;  // of one sample of all channels
  std::vector<uint8_t> block;
  bool block_ready = false;
  bool input_ended = false;
  bool tail_given = false;
  int64_t samples = 0;
  size_t rest_bytes = 0;
};

}  // namespace zeva_tool
