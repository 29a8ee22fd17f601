#include "encoder_opening.h"

#include "ZV_AVWriter.h"
#include "av_error.h"
#include "codec_by_name.h"
#include "stream_pictures.h"

namespace zeva {

Status refused(const std::string& fault) {
  return Status::failure(AVERROR(EINVAL), av_error_text(AVERROR(EINVAL)) + (": " + fault));
}

Status no_encoder(AVCodecID codec) {
  return Status::failure(kOpeningFailedCode,
                         std::string("Could not find encoder for '") + avcodec_get_name(codec) +
                             "'; disable the stream or choose another kind of file");
}

Status not_opened(const Status& opened, const std::string& option) {
  if (option.empty()) return Status::failure(kOpeningFailedCode, opened.message);
  return refused(option + ": " + opened.message);
}

Status choose_named_codecs(const MovieInfo& info, const Options& options, ZV::ZV_AVWriter& writer,
                           CodecChoice& codecs) {
  const struct {
    const char* field;
    const std::string& name;
    AVMediaType type;
    bool disabled;
    AVCodecID& codec;
  } streams[] = {
      {"video_codec", options.video_codec, AVMEDIA_TYPE_VIDEO, info.disable_video, codecs.video},
      {"audio_codec", options.audio_codec, AVMEDIA_TYPE_AUDIO, info.disable_audio, codecs.audio},
  };
  for (const auto& stream : streams) {
    if (stream.disabled || stream.name.empty()) continue;
    std::string fault;
    const AVCodec* codec = find_named_encoder(stream.field, stream.name, stream.type, fault);
    if (codec == nullptr) return refused(fault);
    const bool of_files = stream.type == AVMEDIA_TYPE_VIDEO && has_two_renditions(info, options);
    fault = writer.codec_fault(codec->id, of_files ? ZV::Audience::kFiles : ZV::Audience::kAll);
    if (!fault.empty()) {
      return refused(std::string(stream.field) + " '" + stream.name + "': " + fault);
    }
    stream.codec = codec->id;
  }
  return Status::success();
}

}  // namespace zeva
