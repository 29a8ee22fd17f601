#include "output_codecs.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "output_url.h"
#include "session_options.h"

namespace zeva_tool {
namespace {

// Muxers, by name, whose files players expect H.264 and AAC in. FFmpeg's own choice for some of
// them is that of 2004.
constexpr std::array<const char*, 11> kMovieContainers{
    "mp4", "mov", "ipod", "f4v", "3gp", "3g2", "matroska", "flv", "mpegts", "hls", "avi"};

bool is_one_of_movies(const AVOutputFormat& format) {
  return std::any_of(kMovieContainers.begin(), kMovieContainers.end(),
                     [&](const char* name) { return strcmp(format.name, name) == 0; });
}

// A container of sound that may carry a cover has no pictures.
bool has_cover_only(const AVOutputFormat& format) {
  return format.video_codec == AV_CODEC_ID_PNG && format.audio_codec != AV_CODEC_ID_NONE;
}

// The library's own choice, from which only a name makes it depart.
AVCodecID usual_video(const std::string& url) {
  if (live_stream(url)) return AV_CODEC_ID_H264;
  const AVOutputFormat* format = main_container(url);
  return !format || has_cover_only(*format) ? AV_CODEC_ID_NONE : format->video_codec;
}

AVCodecID usual_audio(const std::string& url) {
  if (const LiveStream* live = live_stream(url)) return live->audio;
  const AVOutputFormat* format = main_container(url);
  return format ? format->audio_codec : AV_CODEC_ID_NONE;
}

StreamCodec choose(AVCodecID usual, AVCodecID preferred, const std::string& name,
                   AVMediaType type) {
  StreamCodec codec;
  if (usual == AV_CODEC_ID_NONE) return codec;
  codec.encoder = name.empty() ? avcodec_find_encoder(preferred) : find_encoder(name, type);
  codec.id = codec.encoder ? codec.encoder->id : preferred;
  codec.by_name = !name.empty() || codec.id != usual;
  return codec;
}

bool lists(const AVPixelFormat* formats, AVPixelFormat wanted) {
  while (formats && *formats != AV_PIX_FMT_NONE && *formats != wanted) ++formats;
  return formats && *formats == wanted;
}

}  // namespace

OutputCodecs main_codecs(const RecordOptions& o) {
  AVCodecID video = usual_video(o.output);
  AVCodecID audio = usual_audio(o.output);
  const AVOutputFormat* format = main_container(o.output);
  bool of_movies = is_local_file(o.output) && format && is_one_of_movies(*format);
  return {choose(video, of_movies ? AV_CODEC_ID_H264 : video, o.video_codec, AVMEDIA_TYPE_VIDEO),
          choose(audio, of_movies ? AV_CODEC_ID_AAC : audio, o.audio_codec, AVMEDIA_TYPE_AUDIO)};
}

const AVCodec* find_encoder(const std::string& name, AVMediaType type) {
  const AVCodec* encoder = avcodec_find_encoder_by_name(name.c_str());
  if (!encoder) {
    const AVCodecDescriptor* codec = avcodec_descriptor_get_by_name(name.c_str());
    encoder = codec ? avcodec_find_encoder(codec->id) : nullptr;
  }
  return encoder && encoder->type == type ? encoder : nullptr;
}

bool needs_depth(const std::string& profile) {
  return profile == "high10" || profile == "high422" || profile == "high444";
}

AVPixelFormat profile_format(const AVCodec& encoder, const std::string& profile, int source_bits) {
  bool deep = source_bits > 8;
  AVPixelFormat format = AV_PIX_FMT_YUV420P;
  if (profile == "high10") format = AV_PIX_FMT_YUV420P10;
  if (profile == "high422") format = deep ? AV_PIX_FMT_YUV422P10 : AV_PIX_FMT_YUV422P;
  if (profile == "high444") format = deep ? AV_PIX_FMT_YUV444P10 : AV_PIX_FMT_YUV444P;
  bool usual = format == AV_PIX_FMT_YUV420P;  // what the library replaces by what there is
  return usual || lists(encoder.pix_fmts, format) ? format : AV_PIX_FMT_NONE;
}

bool is_x264(const StreamCodec& codec) {
  return codec.encoder && strcmp(codec.encoder->name, "libx264") == 0;
}

ColourLimits colour_limits(const RecordOptions& o) {
  const StreamCodec codec = main_codecs(o).video;
  ColourLimits limits;
  limits.tags = codec.id == AV_CODEC_ID_H264         ? ColourLimits::Tags::kAll
                : codec.id == AV_CODEC_ID_MPEG2VIDEO ? ColourLimits::Tags::kTelevision
                                                     : ColourLimits::Tags::kNone;
  bool profile_allows = o.profile.empty() || needs_depth(o.profile);
  limits.ten_bits = is_x264(codec) && !o.hardware && profile_allows &&
                    profile_format(*codec.encoder, "high10", 10) != AV_PIX_FMT_NONE;
  if (auto size = parse_size(o.size)) {
    limits.width = size->width;
    limits.height = size->height;
  }
  return limits;
}

int encoded_channels(const AVCodec& encoder, const std::string& url, int source_channels) {
  constexpr int kUsual = 2;
  // RTP carries Opus as stereo (RFC 7587).
  if (has_scheme(url, "rtsp")) return std::min(source_channels, kUsual);
  if (encoder.id == AV_CODEC_ID_WMAV2) return std::min(source_channels, kUsual);
  const uint64_t* layouts = encoder.channel_layouts;
  if (!layouts) return source_channels;
  auto wanted = static_cast<uint64_t>(av_get_default_channel_layout(source_channels));
  while (*layouts && *layouts != wanted) ++layouts;
  return *layouts ? source_channels : kUsual;
}

// AVI counts pictures instead of timing them.
bool times_are_free(const RecordOptions& o) {
  std::vector<std::string> urls = output_urls(o);
  return std::none_of(urls.begin(), urls.end(), [](const std::string& url) {
    const AVOutputFormat* format = is_local_file(url) ? main_container(url) : nullptr;
    return format && strcmp(format->name, "avi") == 0;
  });
}

}  // namespace zeva_tool
