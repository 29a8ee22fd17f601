// H.264 as byte streams and files carry it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace zeva {

// A NAL unit without start code or length (ISO/IEC 14496-10, 7.3.1). Owns nothing.
struct NalUnit {
  const uint8_t* data = nullptr;
  size_t size_bytes = 0;

  int type() const { return size_bytes > 0 ? data[0] & 0x1F : 0; }
};

inline constexpr int kNalSps = 7;
inline constexpr int kNalPps = 8;
inline constexpr int kNalSpsExtension = 13;
inline constexpr int kNalSubsetSps = 15;

// A parameter set that a configuration record can hold: not empty, an SPS down to its level, and
// not longer than a length of 16 bits tells.
bool is_avc_sps(NalUnit unit);
bool is_avc_pps(NalUnit unit);

// The NAL units between the start codes of a byte stream (ISO/IEC 14496-10, annex B). Zero bytes in
// front of a start code belong to no unit. The units point into the stream.
std::vector<NalUnit> split_byte_stream(const uint8_t* stream, size_t size_bytes);

// A part of a byte stream that belongs to one access unit.
struct AccessUnitPart {
  const uint8_t* data = nullptr;  // from the zero bytes in front of the first start code on
  size_t size_bytes = 0;
  bool has_picture = false;  // it holds a slice; otherwise parameter sets, SEI and the like alone
  bool continues = false;    // its slices belong to the picture of the part before
};

// Divides a byte stream into such parts, which cover all of it. The two fields of a picture are two
// parts. None for bytes without any NAL unit. Only the first part can continue a picture, one
// before the stream; only the last can be without one. The parts point into the stream.
std::vector<AccessUnitPart> split_access_units(const uint8_t* stream, size_t size_bytes);

// The AVCDecoderConfigurationRecord (ISO/IEC 14496-15, 5.3.3.1) of one SPS and at most one PPS, for
// 4-byte lengths. Both are usable as above; no PPS is an empty unit.
std::vector<uint8_t> avc_configuration_record(NalUnit sps, NalUnit pps);

}  // namespace zeva
