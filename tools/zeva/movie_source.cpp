#include "movie_source.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace zeva_tool {
namespace {

constexpr int64_t kSmallestGapUs = 40000;  // less is the wavering of time stamps
constexpr int64_t kLongestSilenceUs = 1000000;
constexpr int kMaxChannels = 8;
constexpr double kMaxFps = 240;
constexpr double kUnknownFps = 30;

// The average rate suffers from pictures that a camera left out and from the last one's length, so
// the rate that the time stamps suggest is better, as long as it is near the average. Rounding up
// loses no picture; what is just above a whole number is meant to be that number.
int frame_rate_of(const AVStream& stream) {
  double average = stream.avg_frame_rate.num > 0 ? av_q2d(stream.avg_frame_rate) : 0;
  double suggested = stream.r_frame_rate.num > 0 ? av_q2d(stream.r_frame_rate) : 0;
  bool near = suggested >= average * 0.95 && suggested <= average * 1.5;
  double rate = near || average <= 0 ? suggested : average;
  if (!(rate > 0 && rate <= kMaxFps)) rate = kUnknownFps;
  return std::max(1, static_cast<int>(std::ceil(rate - 0.1)));
}

}  // namespace

MovieSource::MovieSource(std::string movie_path, bool over_and_over, bool video, bool audio)
    : path(std::move(movie_path)), loop(over_and_over), want_video(video), want_audio(audio) {}

Status MovieSource::open() {
  reader = std::make_unique<MovieReader>();
  Status status = reader->open(path, want_video, want_audio);
  if (!status.ok()) return status;
  if (!reader->video_stream() && !reader->audio_stream()) {
    return Status("the input " + path + " has nothing to record: " +
                  (want_video && want_audio ? "neither pictures nor sound"
                   : want_video             ? "no pictures"
                                            : "no sound"));
  }
  if (reader->video_stream()) describe_video(*reader->video_stream());
  if (reader->audio_stream()) describe_audio(*reader->audio_stream());
  return {};
}

void MovieSource::describe_video(const AVStream& stream) {
  const AVCodecParameters& parameters = *stream.codecpar;
  int turns = PictureConverter::turns_of(stream);
  double shape = 1;
  AVRational aspect =
      av_guess_sample_aspect_ratio(nullptr, const_cast<AVStream*>(&stream), nullptr);
  if (aspect.num > 0 && aspect.den > 0) shape = av_q2d(aspect);
  SourceFormat& f = source_format;
  f.has_pictures = true;
  f.width = parameters.width;
  f.height = parameters.height;
  if (turns & 1) {
    std::swap(f.width, f.height);
    shape = 1 / shape;
  }
  f.display_width = static_cast<int>(std::lround(f.width * shape));
  f.fps = frame_rate_of(stream);
  f.pix_fmt = AV_PIX_FMT_BGRA;
  f.color_primaries = parameters.color_primaries;
  f.color_trc = parameters.color_trc;
  // Pictures that are RGB in the movie become luma and chroma by the default matrix.
  const AVPixFmtDescriptor* pixels =
      av_pix_fmt_desc_get(static_cast<AVPixelFormat>(parameters.format));
  bool rgb = pixels && (pixels->flags & AV_PIX_FMT_FLAG_RGB);
  f.colorspace = rgb ? AVCOL_SPC_SMPTE170M : parameters.color_space;
  pictures.configure(f.width, f.height, turns);
}

void MovieSource::describe_audio(const AVStream& stream) {
  int channels = stream.codecpar->channels;
  source_format.has_sound = true;
  source_format.sample_rate = stream.codecpar->sample_rate;
  source_format.channels = channels <= kMaxChannels ? std::max(1, channels) : 2;
  sound.configure(source_format.sample_rate, source_format.channels);
}

int64_t MovieSource::sound_end_us() const {
  return av_rescale(sound_samples, 1000000, source_format.sample_rate);
}

// Moves the reader on, into the next pass if there is one.
bool MovieSource::advance() {
  unit = reader->next();
  if (unit == MovieReader::Next::kEnd) {
    bool empty_pass = pass_zero_us == AV_NOPTS_VALUE;
    if (empty_pass || !loop || !start_over()) return false;
    unit = reader->next();
    if (unit == MovieReader::Next::kEnd) return false;
  }
  if (pass_zero_us == AV_NOPTS_VALUE) pass_zero_us = reader->current().time_us();
  unit_pending = true;
  return true;
}

bool MovieSource::start_over() {
  damaged_before += reader->damaged_count();
  if (!reader->read_error().empty()) read_error = reader->read_error();
  auto fresh = std::make_unique<MovieReader>();
  if (!fresh->open(path, want_video, want_audio).ok()) {
    read_error = "it could not be opened again";
    return false;
  }
  reader = std::move(fresh);
  pass_zero_us = AV_NOPTS_VALUE;
  pass_start_us = end_us;
  return true;
}

Piece MovieSource::next() {
  data = Data::kNone;
  if (!unit_pending && !advance()) return {};
  const StreamDecoder& decoder = reader->current();
  int64_t time_us = std::max<int64_t>(0, decoder.time_us() - pass_zero_us) + pass_start_us;
  if (unit == MovieReader::Next::kAudio && time_us - sound_end_us() >= kSmallestGapUs) {
    data = Data::kSilence;
    int64_t gap_us = std::min(time_us - sound_end_us(), kLongestSilenceUs);
    silence_samples = av_rescale(gap_us, source_format.sample_rate, 1000000);
    Piece piece{Piece::Kind::kSound, sound_end_us()};
    sound_samples += silence_samples;
    return piece;
  }
  unit_pending = false;
  end_us = std::max(end_us, time_us + decoder.duration_us());
  if (unit == MovieReader::Next::kVideo) {
    data = Data::kPicture;
    return {Piece::Kind::kPicture, time_us};
  }
  data = Data::kSound;
  if (!sound.convert(decoder.frame())) ++unconvertible;
  sound_samples += sound.samples();
  return {Piece::Kind::kSound, time_us};
}

bool MovieSource::write(void* recording, int64_t stamp_us) {
  if (data == Data::kPicture) {
    if (!pictures.convert(reader->current().frame())) {
      ++unconvertible;
      return false;
    }
    return ZEVA_write_video_bgra(recording, pictures.data(), pictures.size_bytes(), stamp_us,
                                 pictures.stride());
  }
  if (data == Data::kSilence) sound.make_silence(silence_samples);
  if (sound.size_bytes() > 0) {
    ZEVA_write_audio_pcm(recording, sound.data(), sound.size_bytes(), stamp_us);
  }
  return true;
}

std::vector<std::string> MovieSource::warnings() const {
  std::vector<std::string> result;
  int64_t damaged = damaged_before + (reader ? reader->damaged_count() : 0) + unconvertible;
  if (damaged > 0) {
    result.push_back(std::to_string(damaged) + " damaged pieces of the input " + path +
                     " were left out or concealed");
  }
  std::string error = reader && !reader->read_error().empty() ? reader->read_error() : read_error;
  if (!error.empty()) result.push_back("reading the input " + path + " ended early: " + error);
  return result;
}

}  // namespace zeva_tool
