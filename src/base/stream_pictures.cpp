#include "stream_pictures.h"

#include <algorithm>
#include <iterator>
#include <vector>

#include "output_url.h"

namespace zeva {
namespace {

constexpr int64_t kMaxBitRate = 2000000000;
constexpr int32_t kMaxSize = 32768;

std::vector<const char*> urls(const MovieInfo& info) {
  std::vector<const char*> all{info.url};
  const auto* const end =
      std::find(std::begin(info.other_urls), std::end(info.other_urls), nullptr);
  all.insert(all.end(), std::begin(info.other_urls), end);
  return all;
}

std::string named(const char* field, int64_t value) {
  return std::string(field) + " " + std::to_string(value);
}

std::string floor_fault(const MovieInfo& info, const Options& options) {
  const std::string floor = named("stream_bitrate_floor", options.stream_bitrate_floor);
  const std::vector<const char*> all = urls(info);
  const auto file = std::find_if_not(all.begin(), all.end(), is_live_url);
  if (options.stream_bitrate == 0 && file != all.end()) {
    return floor + " would lower '" + *file +
           "', which shares the streams' encoder; stream_bitrate gives them one of their own";
  }
  const int64_t rate = options.stream_bitrate != 0 ? int64_t{options.stream_bitrate}
                                                   : int64_t{info.video_bitrate} * 1000;
  if (rate == 0 || options.stream_bitrate_floor <= rate) return {};
  return floor + " is above the streams' bit rate of " + std::to_string(rate);
}

// The side that makes the shape of `whole`, as encoders of 4:2:0 need it.
int32_t in_proportion(int32_t side, int32_t whole_side, int32_t whole_other) {
  return static_cast<int32_t>(
      std::max<int64_t>(2 * av_rescale(side, whole_other, 2 * int64_t{whole_side}), 2));
}

}  // namespace

bool has_live_output(const MovieInfo& info) {
  const std::vector<const char*> all = urls(info);
  return std::any_of(all.begin(), all.end(), is_live_url);
}

bool has_file_output(const MovieInfo& info) {
  const std::vector<const char*> all = urls(info);
  return !std::all_of(all.begin(), all.end(), is_live_url);
}

bool has_two_renditions(const MovieInfo& info, const Options& options) {
  return options.stream_bitrate != 0 && !info.disable_video && has_live_output(info) &&
         has_file_output(info);
}

std::string streams_fault(const MovieInfo& info, const Options& options) {
  const struct {
    const char* field;
    int32_t value;
    int64_t highest;
  } numbers[] = {{"stream_bitrate", options.stream_bitrate, kMaxBitRate},
                 {"stream_width", options.stream_width, kMaxSize},
                 {"stream_height", options.stream_height, kMaxSize}};
  for (const auto& number : numbers) {
    const std::string told = named(number.field, number.value);
    if (number.value > number.highest) return told + " is out of range";
    if (number.value != 0 && options.stream_bitrate == 0) return told + " needs stream_bitrate";
  }
  const bool follows = options.stream_bitrate_floor != 0 && has_live_output(info);
  return follows ? floor_fault(info, options) : "";
}

MovieInfo stream_settings(const MovieInfo& info, const Options& options) {
  MovieInfo own = info;
  own.rc_mode = 0;  // an average
  own.video_bitrate = (options.stream_bitrate + 999) / 1000;
  if (options.stream_width != 0) own.width = options.stream_width;
  if (options.stream_height != 0) own.height = options.stream_height;
  if (options.stream_height == 0 && options.stream_width != 0) {
    own.height = in_proportion(own.width, info.width, info.height);
  }
  if (options.stream_width == 0 && options.stream_height != 0) {
    own.width = in_proportion(own.height, info.height, info.width);
  }
  return own;
}

Options stream_options(const Options& options) {
  Options own = options;
  own.encoder_options.clear();
  const AVCodec* const named = avcodec_find_encoder_by_name(own.video_codec.c_str());
  if (named == nullptr || named->id != AV_CODEC_ID_H264) own.video_codec.clear();
  return own;
}

void PictureClock::set(NewStream& streams) const {
  streams.timing = timing;
  streams.timing.counted = false;
  streams.encoder->framerate = rate;
  streams.encoder->time_base = timing.units;
  streams.stream->time_base = timing.units;
}

}  // namespace zeva
