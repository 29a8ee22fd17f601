// A packet recording's settings, kept after the host has freed its own.
#pragma once

#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "aac_encoder.h"
#include "annexb_filter.h"
#include "zeva/packet.h"

namespace zeva {

// The record with everything it points to. Read only after construction.
class MuxSettings {
 public:
  explicit MuxSettings(const MovieInfo2& info);

  void log() const;

  bool has_video() const { return vcodec == kPacketVideoH264; }
  bool has_audio() const { return acodec == kPacketAudioAac || encodes_pcm(); }
  bool encodes_pcm() const { return acodec == kPacketAudioPcm; }
  size_t output_count() const {
    const auto named = std::count_if(others.begin(), others.end(),
                                     [](const std::string& other) { return !other.empty(); });
    return static_cast<size_t>(named) + (url.empty() ? 0 : 1);
  }
  // Packets are length-prefixed, also when what was given turns out to be unusable.
  bool declares_parameter_sets() const { return sets.extradata_len != 0 || sets.sps_len != 0; }

  std::string url;
  std::string moov;
  std::string meta;
  std::array<std::string, 4> others;  // empty for none
  AudioSettings audio;
  h264::ParameterSets sets;

 private:
  int32_t vcodec;
  int32_t acodec;
  std::vector<uint8_t> pps;
  std::vector<uint8_t> sps;
  std::vector<uint8_t> extradata;
};

}  // namespace zeva
