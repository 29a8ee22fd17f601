// Recognises bytes of a packet that were never written.
//
// A power failure may leave a file whose blocks reached the disk out of order: what is missing in
// between reads as zeros. File systems lose whole blocks, 512 bytes at least, which begin at
// multiples of their size.
#pragma once

#include <cstdint>
#include <string>

namespace zeva {

inline constexpr int64_t kLostBlockBytes = 512;

bool is_all_zero(const uint8_t* bytes, int64_t count);

// The zeros that no packet of a codec has. Each rule holds for every valid packet, so that no whole
// one is taken for a lost one.
enum class ZeroRule {
  kNone,       // anything may be zero: silence in PCM, codecs that are not known
  kNotWhole,   // a packet has a byte that is not zero, but padding may be long
  kNotABlock,  // no packet has kLostBlockBytes zeros in a row
};
ZeroRule zero_rule(const std::string& codec);

// True when the codec allows a packet to begin like this, and for AC-3 when the check sum is right.
// A lost block may end inside of a packet whose other bytes came with the next blocks. `channels`
// is the stream's.
bool is_plausible(const std::string& codec, int channels, const uint8_t* bytes, int64_t count);

// True for an H.264 packet that is a row of whole NAL units, each behind its length (ISO/IEC
// 14496-15, 5.3.4.2), none with three zero bytes in a row: emulation prevention keeps them out
// (ISO/IEC 14496-10, 7.4.1). Zeros at the end of a unit are accepted, since some encoders pad their
// units.
bool is_whole_avc(const uint8_t* bytes, int64_t count, int length_bytes);

}  // namespace zeva
