// A movie file as a source, once or over and over.
//
// Every picture keeps its time; one that comes at the time of the picture before it, or earlier, is
// put right after that. Holes in the file's sound are filled with silence, so that sound stays
// together with the pictures.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "frame_source.h"
#include "movie_reader.h"
#include "picture_converter.h"
#include "sound_converter.h"
#include "sound_line.h"

namespace zeva_tool {

class MovieSource : public FrameSource {
 public:
  struct Wanted {
    bool over_and_over = false;
    bool video = true;
    bool audio = true;
    ColourLimits limits;
  };
  MovieSource(std::string path, const Wanted& wanted);

  Status open() override;
  const SourceFormat& format() const override { return source_format; }
  Piece next() override;
  bool write(void* recording, int64_t stamp_us) override;
  std::vector<std::string> warnings() const override;

 private:
  enum class Data { kNone, kPicture, kSound, kSilence };

  void describe_video(const AVStream& stream);
  void describe_colours(const AVStream& stream, int turns);
  void describe_audio(const AVStream& stream);
  bool advance();
  bool start_over();
  Piece picture_at(int64_t time_us);
  Piece sound_at(int64_t time_us);
  Piece silence(int64_t samples);

  const std::string path;
  const Wanted wanted;
  SourceFormat source_format;
  PictureConverter pictures;
  SoundConverter sound;
  SoundLine sound_line;

  std::unique_ptr<MovieReader> reader;
  MovieReader::Next unit = MovieReader::Next::kEnd;
  bool unit_pending = false;  // advance() has been called and the frame was not handed out yet
  int64_t pass_zero_us = AV_NOPTS_VALUE;  // time of the pass's first frame in the file's time line
  int64_t pass_start_us = 0;              // its time in the recording
  int64_t end_us = 0;                     // where the next pass will start
  int64_t last_picture_us = -1;
  Data data = Data::kNone;
  int64_t silence_samples = 0;
  int64_t damaged_before = 0;
  int64_t unconvertible = 0;
  std::string read_error;
};

}  // namespace zeva_tool
