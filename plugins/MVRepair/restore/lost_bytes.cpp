#include "lost_bytes.h"

#include <algorithm>
#include <cstring>

#include "ffmpeg.h"

extern "C" {
#include <libavutil/crc.h>
}

namespace zeva {
namespace {

bool has_three_zeros(const uint8_t* bytes, int64_t count) {
  while (count > 0 && bytes[count - 1] == 0) --count;
  // The last of three bytes decides how far the next three can begin from here.
  for (int64_t i = 2; i < count;) {
    if (bytes[i] != 0) {
      i += 3;
    } else if (bytes[i - 1] != 0) {
      i += 2;
    } else if (bytes[i - 2] != 0) {
      i += 1;
    } else {
      return true;
    }
  }
  return false;
}

}  // namespace

bool is_all_zero(const uint8_t* bytes, int64_t count) {
  return count <= 0 ||
         (bytes[0] == 0 && memcmp(bytes, bytes + 1, static_cast<size_t>(count - 1)) == 0);
}

ZeroRule zero_rule(const std::string& codec) {
  // AAC: the longest element of free bytes has 510 (ISO/IEC 14496-3, data_stream_element).
  for (const char* name : {"aac", "h264", "hevc", "mpeg4"}) {
    if (codec == name) return ZeroRule::kNotABlock;
  }
  // A frame begins with a sync word, but silence at a constant bit rate is padded.
  for (const char* name : {"ac3", "eac3", "mp2", "mp3"}) {
    if (codec == name) return ZeroRule::kNotWhole;
  }
  return ZeroRule::kNone;
}

bool is_plausible(const std::string& codec, int channels, const uint8_t* bytes, int64_t count) {
  if (count < 4) return true;
  // Stereo begins with a channel pair, whose id is not zero; one channel that is silent begins with
  // a few zeros (ISO/IEC 14496-3, raw_data_block).
  if (codec == "aac") return channels == 2 ? bytes[0] != 0 : !is_all_zero(bytes, 4);
  if (codec == "mp2" || codec == "mp3") return bytes[0] == 0xFF;
  if (codec == "mpeg4") return !is_all_zero(bytes, 4);
  if (codec != "ac3" && codec != "eac3") return true;
  // A sync word, and a check sum over all that follows (ATSC A/52, 5.4.1 and 7.10.1).
  return bytes[0] == 0x0B && bytes[1] == 0x77 &&
         av_crc(av_crc_get_table(AV_CRC_16_ANSI), 0, bytes + 2, static_cast<size_t>(count - 2)) ==
             0;
}

bool is_whole_avc(const uint8_t* bytes, int64_t count, int length_bytes) {
  while (count > length_bytes) {
    int64_t length = 0;
    for (int i = 0; i < length_bytes; ++i) length = length << 8 | bytes[i];
    bytes += length_bytes;
    count -= length_bytes;
    if (length == 0 || length > count || has_three_zeros(bytes, length)) return false;
    bytes += length;
    count -= length;
  }
  return count == 0;
}

}  // namespace zeva
