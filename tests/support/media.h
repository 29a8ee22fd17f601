// Packets, frames, output contexts and finished movies for tests.
#pragma once

#include <cstdint>
#include <string>

#include "av_handles.h"
#include "zeva/movie_info.h"

// Settings of a small recording: 64x48 at 25 frames/s from BGRA, 48 kHz stereo from signed 16 bit.
MovieInfo small_movie(const std::string& url);

// Every sample of every channel is `value` (signed 16 bit), or silence (other formats).
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
