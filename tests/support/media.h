// Packets, frames, output contexts and finished movies for tests.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "av_handles.h"
#include "zeva/movie_info.h"

// Settings of a small recording: 64x48 at 25 frames/s from BGRA, 48 kHz stereo from signed 16 bit.
MovieInfo small_movie(const std::string& url);

// Every sample of every channel is `value` (signed 16-bit and float formats).
zeva::FramePtr make_sound(AVSampleFormat format, int sample_rate, int nb_samples, int64_t pts,
                          int value);

// A packet of `size` bytes of payload.
zeva::PacketPtr make_packet(int stream_index, int64_t pts, int64_t dts, int64_t duration, int size,
                            bool key);

// An output with an MPEG-4 picture stream (0, in 1/12800 s) and an AAC stream (1, in 1/48000 s). No
// encoder is needed: packets hold any bytes. The I/O is opened unless told otherwise.
zeva::FormatContextPtr make_output(const std::string& url, bool open_io = true);
AVStream* add_picture_stream(AVFormatContext* oc);
AVStream* add_sound_stream(AVFormatContext* oc);

// An I/O context on a function that gets the bytes written and returns how many it took, or a
// negative code. Not seekable.
class WriteIo {
 public:
  using Write = std::function<int(const uint8_t* data, int size)>;
  explicit WriteIo(Write write);
  ~WriteIo();
  WriteIo(const WriteIo&) = delete;
  WriteIo& operator=(const WriteIo&) = delete;

  AVIOContext* pb = nullptr;

 private:
  Write write;
};

// What a demuxer finds in a finished movie.
struct MoviePacket {
  int stream;
  int64_t position, size, pts, dts, duration;
  bool key;
};
struct Movie {
  std::vector<MoviePacket> packets;  // in the order of their position
  std::vector<AVRational> time_bases;
  std::string title, comment;

  int count(int stream) const;
};
// No packets when the file is no finished movie.
Movie read_movie(const std::string& path);
