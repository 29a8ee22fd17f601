// Makes the extradata that a decoder needs before the first packet from what the index kept of it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace zeva {

using Bytes = std::vector<uint8_t>;

// Empty for an empty text; false for one that is no base64.
[[nodiscard]] bool base64_decode(const std::string& text, Bytes& out);
std::string base64_encode(const Bytes& bytes);

// "%02x," for each byte.
std::string hex_list(const Bytes& bytes);

// The AVC decoder configuration record (ISO/IEC 14496-15, 5.2.4.1) with the first sequence and the
// first picture parameter set of an H.264 byte stream (ISO/IEC 14496-10, annex B). Empty when one
// is missing.
Bytes avc_configuration(const Bytes& byte_stream);

// The AudioSpecificConfig (ISO/IEC 14496-3, 1.6.2.1) of AAC LC. Sampling rates outside the table
// count as 44100 Hz.
Bytes aac_configuration(int sample_rate, int channels);

}  // namespace zeva
