// Any bytes as the parameter sets of length-prefixed H.264 and as its packets. The first byte tells
// how the sets are given, the next two how long they are.
#include <algorithm>
#include <cstdlib>

#include "annexb_filter.h"
#include "zeva/log.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  ZEVA_Log_Level(-1);
  av_log_set_level(AV_LOG_QUIET);
  if (size < 4) return 0;
  const uint8_t* sets_begin = data + 3;
  size -= 3;
  const auto sets_bytes = static_cast<int32_t>(std::min<size_t>(size, data[1]));
  const int32_t sps_bytes = std::min<int32_t>(sets_bytes, data[2]);
  h264::ParameterSets sets;
  if (data[0] % 2 == 0) {
    sets.extradata = sets_begin;
    sets.extradata_len = sets_bytes;
  } else {
    sets.sps = sets_begin;
    sets.sps_len = sps_bytes;
    sets.pps = sets_begin + sps_bytes;
    sets.pps_len = sets_bytes - sps_bytes;
  }
  const auto filter = h264::AnnexBFilter::create(sets);
  if (filter == nullptr) return 0;

  const size_t step = size_t{data[0]} * 4 + 1;
  for (auto at = static_cast<size_t>(sets_bytes); at < size; at += step) {
    const auto bytes = static_cast<int>(std::min(step, size - at));
    int64_t last = -1;
    filter->filter(sets_begin + at, bytes, 0, [&last](const uint8_t* out, int nbytes, int64_t pts) {
      if (out == nullptr || nbytes <= 0 || pts != last + 1) abort();
      last = pts;
    });
  }
  return 0;
}
