#include "movie_source.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "hdr_metadata.h"
#include "picture_turn.h"
#include "pixel_formats.h"
#include "record_options.h"

namespace zeva_tool {
namespace {

constexpr int64_t kLongestSilenceUs = 1000000;
constexpr int kMaxChannels = 8;
constexpr AVRational kUnknownRate{30, 1};
// Every container can tell two pictures apart that are a millisecond from each other.
constexpr int64_t kNextPictureUs = 1000;

double value_of(AVRational rate) { return rate.num > 0 && rate.den > 0 ? av_q2d(rate) : 0; }

AVRational within_limits(AVRational rate) {
  return av_cmp_q(rate, {kMaxRecordedRate, 1}) <= 0 ? rate : AVRational{kMaxRecordedRate, 1};
}

// The average suffers from pictures that a camera left out and from the last one's length, so the
// rate that the time stamps suggest is better when it is near.
AVRational mean_rate_of(const AVStream& stream) {
  double average = value_of(stream.avg_frame_rate);
  double suggested = value_of(stream.r_frame_rate);
  bool near = suggested >= average * 0.95 && suggested <= average * 1.05;
  if (average <= 0 && suggested <= 0) return kUnknownRate;
  return within_limits(near || average <= 0 ? stream.r_frame_rate : stream.avg_frame_rate);
}

// The suggested rate is the least that holds all times that were looked at. It is twice the
// pictures' rate for fields, and meaningless above what anybody records.
AVRational grid_rate_of(const AVStream& stream) {
  double average = value_of(stream.avg_frame_rate);
  double suggested = value_of(stream.r_frame_rate);
  bool fields = suggested > average * 1.9 && suggested < average * 2.1;
  bool usable = suggested >= average * 0.95 && suggested <= kMaxRecordedRate && !fields;
  if (usable && suggested > 0) return stream.r_frame_rate;
  AVRational mean = mean_rate_of(stream);
  double whole = std::ceil(av_q2d(mean) - 0.1);  // rounding up loses no picture
  return fields ? mean : AVRational{std::max(1, static_cast<int>(whole)), 1};
}

// A stream of which no picture could be decoded.
FramePtr announced_picture(const AVCodecParameters& parameters) {
  FramePtr picture(av_frame_alloc());
  bool known = parameters.format != AV_PIX_FMT_NONE;
  picture->width = parameters.width;
  picture->height = parameters.height;
  picture->format = known ? parameters.format : AV_PIX_FMT_YUV420P;
  picture->colorspace = parameters.color_space;
  picture->color_range = parameters.color_range;
  picture->color_primaries = parameters.color_primaries;
  picture->color_trc = parameters.color_trc;
  return picture;
}

// Decoders of codecs made for television tell it of every picture, those of others of none: there
// the container's word counts.
bool only_fields(const AVStream& stream) {
  const AVCodecDescriptor* codec = avcodec_descriptor_get(stream.codecpar->codec_id);
  bool silent = codec &&
                (codec->props & (AV_CODEC_PROP_INTRA_ONLY | AV_CODEC_PROP_LOSSLESS)) != 0 &&
                (codec->props & AV_CODEC_PROP_REORDER) == 0;
  return silent && stream.codecpar->field_order > AV_FIELD_PROGRESSIVE;
}

}  // namespace

MovieSource::MovieSource(std::string movie_path, const Wanted& what)
    : path(std::move(movie_path)), wanted(what) {}

Status MovieSource::open() {
  reader = std::make_unique<MovieReader>();
  Status status = reader->open(path, wanted.video, wanted.audio);
  if (!status.ok()) return status;
  if (!reader->video_stream() && !reader->audio_stream()) {
    return Status("the input " + path + " has nothing to record: " +
                  (wanted.video && wanted.audio ? "neither pictures nor sound"
                   : wanted.video               ? "no pictures"
                                                : "no sound"));
  }
  if (reader->video_stream()) describe_video(*reader->video_stream());
  if (reader->audio_stream()) describe_audio(*reader->audio_stream());
  return {};
}

void MovieSource::describe_video(const AVStream& stream) {
  int turns = turns_of(stream);
  double shape = 1;
  AVRational aspect =
      av_guess_sample_aspect_ratio(nullptr, const_cast<AVStream*>(&stream), nullptr);
  if (aspect.num > 0 && aspect.den > 0) shape = av_q2d(aspect);
  SourceFormat& f = source_format;
  f.has_pictures = true;
  describe_colours(stream, turns);
  if (turns & 1) shape = 1 / shape;
  f.display_width = static_cast<int>(std::lround(f.width * shape));
  f.rate = mean_rate_of(stream);
  f.own_times = true;
  f.grid_rate = grid_rate_of(stream);
}

// As the first picture is: of what a container says, decoders know better.
void MovieSource::describe_colours(const AVStream& stream, int turns) {
  const AVFrame* first = reader->first_picture();
  FramePtr announced = first ? nullptr : announced_picture(*stream.codecpar);
  HdrMetadata light(stream, first);
  PictureConverter::Pictures made = pictures.configure(
      first ? *first : *announced, {turns, only_fields(stream), light.peak_nits(), wanted.limits});
  SourceFormat& f = source_format;
  f.width = made.width;
  f.height = made.height;
  f.pix_fmt = made.pixels;
  f.component_bits = depth_of(made.pixels);
  f.colours = made.colours;
  f.movie = made.movie;
  if (f.movie.is_hdr()) f.light = light.encoder_options();
}

void MovieSource::describe_audio(const AVStream& stream) {
  int channels = stream.codecpar->channels;
  source_format.has_sound = true;
  source_format.sample_rate = stream.codecpar->sample_rate;
  source_format.channels = channels <= kMaxChannels ? std::max(1, channels) : 2;
  sound.configure(source_format.sample_rate, source_format.channels);
  sound_line.set_rate(source_format.sample_rate);
}

// Moves the reader on, into the next pass if there is one.
bool MovieSource::advance() {
  unit = reader->next();
  if (unit == MovieReader::Next::kEnd) {
    bool empty_pass = pass_zero_us == AV_NOPTS_VALUE;
    if (empty_pass || !wanted.over_and_over || !start_over()) return false;
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
  if (!fresh->open(path, wanted.video, wanted.audio).ok()) {
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
  int64_t time_us = reader->current().time_us() - pass_zero_us;
  time_us = std::max<int64_t>(0, time_us) + pass_start_us;
  return unit == MovieReader::Next::kVideo ? picture_at(time_us) : sound_at(time_us);
}

Piece MovieSource::picture_at(int64_t time_us) {
  unit_pending = false;
  data = Data::kPicture;
  if (time_us <= last_picture_us) time_us = last_picture_us + kNextPictureUs;
  last_picture_us = time_us;
  end_us = std::max(end_us, time_us + reader->current().duration_us());
  return {Piece::Kind::kPicture, time_us};
}

Piece MovieSource::sound_at(int64_t time_us) {
  int64_t correction = sound_line.correction(time_us);
  if (correction > 0) return silence(correction);
  unit_pending = false;
  data = Data::kSound;
  end_us = std::max(end_us, time_us + reader->current().duration_us());
  if (!sound.convert(reader->current().frame())) ++unconvertible;
  sound.leave_out(-correction);
  Piece piece{Piece::Kind::kSound, sound_line.end_us()};
  sound_line.add(sound.samples());
  return piece;
}

// A long one comes in parts, so that a recording in real time is not held up.
Piece MovieSource::silence(int64_t samples) {
  data = Data::kSilence;
  silence_samples =
      std::min(samples, av_rescale(kLongestSilenceUs, source_format.sample_rate, 1000000));
  Piece piece{Piece::Kind::kSound, sound_line.end_us()};
  sound_line.add(silence_samples);
  return piece;
}

bool MovieSource::write(void* recording, int64_t stamp_us) {
  if (data == Data::kPicture) {
    AVFrame* picture = pictures.convert(reader->current().frame(), reader->current().next_frame());
    if (!picture) {
      ++unconvertible;
      return false;
    }
    picture->pts = stamp_us;
    picture->pkt_duration = reader->current().duration_us();
    return ZEVA_write_video_frame(recording, picture, kMicroseconds);
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
