#include "codec_by_name.h"

#include <algorithm>
#include <iterator>

namespace zeva {
namespace {

// MPEG's streams, of which FFmpeg cannot tell what they hold: it would store the rest as private
// data, or as sound of another kind (ISO/IEC 13818-1, table 2-34).
constexpr AVCodecID kTransportStreamCodecs[] = {
    AV_CODEC_ID_H264,  AV_CODEC_ID_HEVC, AV_CODEC_ID_MPEG1VIDEO, AV_CODEC_ID_MPEG2VIDEO,
    AV_CODEC_ID_MPEG4, AV_CODEC_ID_AAC,  AV_CODEC_ID_MP2,        AV_CODEC_ID_MP3,
    AV_CODEC_ID_AC3,   AV_CODEC_ID_OPUS,
};
constexpr AVCodecID kProgramStreamCodecs[] = {
    AV_CODEC_ID_MPEG1VIDEO, AV_CODEC_ID_MPEG2VIDEO, AV_CODEC_ID_H264,
    AV_CODEC_ID_MP2,        AV_CODEC_ID_MP3,        AV_CODEC_ID_AC3,
};

template <size_t kSize>
bool holds(const AVCodecID (&codecs)[kSize], AVCodecID codec) {
  return std::find(std::begin(codecs), std::end(codecs), codec) != std::end(codecs);
}

}  // namespace

const AVCodec* find_named_encoder(const char* field, const std::string& name, AVMediaType type,
                                  std::string& fault) {
  const AVCodec* codec = avcodec_find_encoder_by_name(name.c_str());
  if (codec == nullptr) {
    fault = std::string(field) + " '" + name + "': there is no such encoder";
  } else if (codec->type != type) {
    fault = std::string(field) + " '" + name + "' does not encode " +
            (type == AVMEDIA_TYPE_VIDEO ? "pictures" : "sound");
    codec = nullptr;
  }
  return codec;
}

bool can_hold(const AVOutputFormat& format, AVCodecID codec) {
  if (av_match_name(format.name, "mpegts,hls") != 0) return holds(kTransportStreamCodecs, codec);
  if (av_match_name(format.name, "mpeg,svcd,vob") != 0) return holds(kProgramStreamCodecs, codec);
  return avformat_query_codec(&format, codec, FF_COMPLIANCE_NORMAL) != 0;
}

}  // namespace zeva
