// Length-prefixed H.264 as the byte stream format.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "av_handles.h"

namespace h264 {

// Far more than any parameter set: a pointer with an absurd length is not followed.
inline constexpr int32_t kMaxParameterSetBytes = 1 << 20;

// What is known of a stream beforehand; nothing is owned.
struct ParameterSets {
  const uint8_t* pps = nullptr;  // single NAL units
  const uint8_t* sps = nullptr;
  int32_t pps_len = 0;
  int32_t sps_len = 0;
  const uint8_t* extradata = nullptr;  // AVCDecoderConfigurationRecord; wins over the two
  int32_t extradata_len = 0;
};

// Turns packets of length-prefixed NAL units into such with start codes, and puts the parameter
// sets before key pictures. Used by the one thread that writes video.
class AnnexBFilter {
 public:
  // Gets each filtered packet with its time: that of the host's packet, one more for each further.
  using Sink = std::function<void(const uint8_t* data, int nbytes, int64_t pts)>;

  // Null, with a log line, without usable parameter sets.
  static std::unique_ptr<AnnexBFilter> create(const ParameterSets& sets);
  virtual ~AnnexBFilter();
  AnnexBFilter(const AnnexBFilter&) = delete;
  AnnexBFilter& operator=(const AnnexBFilter&) = delete;

  // False, with a log line, when the bytes are no such packet; the next one is filtered again.
  bool filter(const void* data, int nbytes, int64_t usec, const Sink& sink);

 private:
  AnnexBFilter() = default;
  bool open(const std::vector<uint8_t>& extradata);

  zeva::BsfPtr bsf;
  zeva::PacketPtr packet;
};

}  // namespace h264
