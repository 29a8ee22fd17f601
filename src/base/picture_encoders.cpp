#include "picture_encoders.h"

#include <string>
#include <utility>

#include "clock.h"
#include "encoder_opening.h"
#include "logger.h"
#include "movie_output.h"
#include "output_url.h"
#include "stream_setup.h"

namespace zeva {
namespace {

std::string host_options(const Options& options) {
  return options.encoder_options.empty() ? "" : "encoder_options '" + options.encoder_options + "'";
}

std::string size_option(const MovieInfo& info) {
  return "stream_width " + std::to_string(info.width) + ", stream_height " +
         std::to_string(info.height);
}

std::string option_to_blame(const MovieInfo& info, const Options& options) {
  const bool sized = options.stream_width != 0 || options.stream_height != 0;
  return sized ? size_option(info) : host_options(options);
}

// Pictures for streams keep within a bit rate, one that can be changed where it is to follow the
// network.
NewStream add_for_streams(AVFormatContext* oc, AVCodecID codec, MovieInfo& info,
                          const Options& options) {
  const bool follows = options.stream_bitrate_floor != 0;
  NewStream added = add_stream(oc, codec, info, options, follows || options.stream_bitrate != 0);
  if (!follows || !added.fault.empty() || !added.encoder) return added;
  const std::string fault = fixed_rate_fault(*added.encoder);
  if (!fault.empty()) added.fault = "stream_bitrate_floor: " + fault;
  return added;
}

}  // namespace

PictureEncoders::PictureEncoders(ZV::ZV_AVWriter& writer, EncBase::Tell tell)
    : writer(writer),
      tell(std::move(tell)),
      to_files(writer, ZV::Audience::kFiles),
      to_streams(writer, ZV::Audience::kStreams) {}

// ---- opening

Status PictureEncoders::open(AVCodecID codec, MovieInfo& info, const Options& options) {
  if (codec == AV_CODEC_ID_NONE) return Status::success();
  const bool two = has_two_renditions(info, options);
  Status opened = two ? open_two(codec, info, options) : open_one(codec, info, options);
  if (opened.ok && has_live_output(info) && options.stream_bitrate_floor != 0) {
    follower.emplace(options.stream_bitrate_floor, for_streams()->bit_rate());
  }
  return opened;
}

Status PictureEncoders::open_one(AVCodecID codec, MovieInfo& info, const Options& options) {
  AVFormatContext* const main = writer.main_output().context();
  if (!has_live_output(info)) {
    return open_encoder(add_stream(main, codec, info, options), codec, info, host_options(options),
                        writer, tell, of_files);
  }
  const bool only_streams = options.stream_bitrate != 0;  // there would be two encoders otherwise
  if (only_streams) info = stream_settings(info, options);
  NewStream added = add_for_streams(main, codec, info, options);
  return open_encoder(std::move(added), codec, info, option_to_blame(info, options), writer, tell,
                      of_files);
}

// The main output has the stream of its own pictures. Further outputs of the other kind copy the
// one aside.
Status PictureEncoders::open_two(AVCodecID codec, MovieInfo& info, const Options& options) {
  AVFormatContext* const main = writer.main_output().context();
  aside.reset(avformat_alloc_context());
  if (!aside) return Status::failure(kOpeningFailedCode, av_error_text(AVERROR(ENOMEM)));
  aside->oformat = main->oformat;
  const bool main_is_live = is_live_url(info.url);
  NewStream added = add_stream(main_is_live ? aside.get() : main, codec, info, options);
  const PictureClock clock(added);
  Status opened =
      open_encoder(std::move(added), codec, info, host_options(options), to_files, tell, of_files);
  if (opened.ok) opened = open_for_streams(main_is_live ? main : aside.get(), clock, info, options);
  if (opened.ok) writer.separate_pictures(*aside->streams[0]);
  return opened;
}

Status PictureEncoders::open_for_streams(AVFormatContext* oc, const PictureClock& clock,
                                         const MovieInfo& info, const Options& options) {
  constexpr AVCodecID kCodec = AV_CODEC_ID_H264;
  MovieInfo own = stream_settings(info, options);
  Options own_options = stream_options(options);
  AVStream* stream = nullptr;
  while (true) {
    // A second try takes the stream of the first one.
    NewStream added =
        add_for_streams(stream == nullptr ? oc : aside.get(), kCodec, own, own_options);
    if (stream == nullptr) stream = added.stream;
    added.stream = stream;
    if (added.encoder) clock.set(added);
    Status opened = open_encoder(std::move(added), kCodec, own, option_to_blame(own, own_options),
                                 to_streams, tell, of_streams);
    if (opened.ok || !own.hardware) return opened;
    ZEVA_LOG(kLogError, "the streams' encoder falls back to software: %s", opened.message.c_str());
    own.hardware = false;
    own_options.video_codec.clear();
  }
}

void PictureEncoders::close() {
  for (VideoEnc* enc : {of_files.get(), of_streams.get()}) {
    if (enc != nullptr) enc->close();
  }
}

void PictureEncoders::reset() {
  of_streams.reset();
  of_files.reset();
}

// ---- pictures

int PictureEncoders::encode(AVFrame* picture, RecordingFigures::Cost& cost) {
  follow_network();
  const int64_t duration = picture->pkt_duration;
  AVFrame* const shown = of_files->filtered(picture);
  if (shown == nullptr) return kLeftOut;
  int result = of_files->encode(shown, duration);
  cost.add(of_files->convert_us(), of_files->encode_us());
  if (!of_streams) return result;
  const int streamed = of_streams->encode(shown, duration);
  cost.add(of_streams->convert_us(), of_streams->encode_us());
  return result == kRefusedByWriter ? streamed : result;
}

void PictureEncoders::flush() {
  for (VideoEnc* enc : {of_files.get(), of_streams.get()}) {
    if (enc != nullptr) enc->encode(nullptr);
  }
}

void PictureEncoders::follow_network() {
  if (!follower) return;
  const RateFollower::Load load{writer.slowest_stream_us(), writer.is_stream_dropping()};
  const int64_t wanted = follower->follow(load, steady_us());
  if (std::exchange(followed_rate, wanted) != wanted) for_streams()->set_bit_rate(wanted);
}

void PictureEncoders::request_key_picture() {
  if (VideoEnc* enc = for_streams()) enc->request_key_picture();
}

void PictureEncoders::fill(ZevaStatistics& statistics) const {
  if (!of_files) return;
  statistics.pictures_encoded = of_files->packets();
  statistics.bit_rate = static_cast<int32_t>(of_files->bit_rate());
  if (of_streams) statistics.stream_bit_rate = static_cast<int32_t>(of_streams->bit_rate());
}

}  // namespace zeva
