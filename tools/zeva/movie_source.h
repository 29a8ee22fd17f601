// A movie file as a source, once or over and over.
//
// Gaps in the file's sound are filled with silence, so that sound stays together with the pictures:
// the encoder counts samples and would close the gaps.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "frame_source.h"
#include "movie_reader.h"
#include "picture_converter.h"
#include "sound_converter.h"

namespace zeva_tool {

class MovieSource : public FrameSource {
 public:
  MovieSource(std::string path, bool loop, bool want_video, bool want_audio);

  Status open() override;
  const SourceFormat& format() const override { return source_format; }
  Piece next() override;
  bool write(void* recording, int64_t stamp_us) override;
  std::vector<std::string> warnings() const override;

 private:
  enum class Data { kNone, kPicture, kSound, kSilence };

  void describe_video(const AVStream& stream);
  void describe_audio(const AVStream& stream);
  bool advance();
  bool start_over();
  int64_t sound_end_us() const;

  std::string path;
  bool loop;
  bool want_video;
  bool want_audio;
  SourceFormat source_format;
  PictureConverter pictures;
  SoundConverter sound;

  std::unique_ptr<MovieReader> reader;
  MovieReader::Next unit = MovieReader::Next::kEnd;
  bool unit_pending = false;  // advance() has been called and the frame was not handed out yet
  int64_t pass_zero_us = AV_NOPTS_VALUE;  // time of the pass's first frame in the file's time line
  int64_t pass_start_us = 0;              // its time in the recording
  int64_t end_us = 0;                     // where the next pass will start
  Data data = Data::kNone;
  int64_t silence_samples = 0;
  int64_t sound_samples = 0;  // handed out so far, silence included
  int64_t damaged_before = 0;
  int64_t unconvertible = 0;
  std::string read_error;
};

}  // namespace zeva_tool
