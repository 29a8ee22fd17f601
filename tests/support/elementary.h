// Elementary streams as a host with its own encoder hands them over, one access unit an entry.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// Annex B with parameter sets before every key picture, no B-frames, 5 pictures a second; some
// kilobytes a picture. `x264` is further options, "key=value:key=value".
std::vector<std::string> h264_packets(int count, const char* x264 = "");

struct TimedPacket {
  std::string bytes;
  int64_t pts, dts;  // in pictures
};

// The same with B-frames, in decoding order.
constexpr char kBFrames[] = "bframes=2:b-adapt=0";
std::vector<TimedPacket> timed_h264_packets(int count, const char* x264);

// 48 kHz stereo noise, each with its ADTS header; some hundred bytes a packet.
std::vector<std::string> aac_packets(int count);

// For such a packet without one.
std::string adts_header(int packet_bytes);
