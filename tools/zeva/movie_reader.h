// Reads one movie file once from its start to its end, and hands out the decoded frames of its
// best video and best audio stream in the order of their times.
//
// Owns the open file and the decoders. One thread.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "av.h"
#include "status.h"
#include "stream_decoder.h"

namespace zeva_tool {

class MovieReader {
 public:
  // Opens the file (UTF-8 path) and those of its streams that are wanted and there.
  Status open(const std::string& path, bool want_video, bool want_audio);

  // The first picture, before the first call of next(), which still hands it out. Null when there
  // is none near the beginning.
  const AVFrame* first_picture();

  // Null for a stream that is absent or not wanted.
  const AVStream* video_stream() const { return video_stream_info; }
  const AVStream* audio_stream() const { return audio_stream_info; }

  enum class Next { kVideo, kAudio, kEnd };

  // Moves on to the frame with the smallest time.
  Next next();
  const StreamDecoder& current() const { return *chosen; }

  int64_t damaged_count() const;
  const std::string& read_error() const { return read_error_text; }

 private:
  Status open_stream(AVMediaType type, std::unique_ptr<StreamDecoder>& decoder,
                     const AVStream*& stream);
  bool read_packet();
  size_t waiting_bytes() const;
  void end_input();

  InputPtr input;
  std::unique_ptr<StreamDecoder> video;
  std::unique_ptr<StreamDecoder> audio;
  const AVStream* video_stream_info = nullptr;
  const AVStream* audio_stream_info = nullptr;
  StreamDecoder* chosen = nullptr;
  bool input_ended = false;
  std::string read_error_text;
};

}  // namespace zeva_tool
