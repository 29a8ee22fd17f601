#include "output_opening.h"

#include "logger.h"
#include "output_url.h"

namespace zeva {

FormatContextPtr create_output_context(const char* url) {
  AVOutputFormat* format = guess_output_format(url);
  if (format == nullptr) throw ZVException(kNoFormatCode, "@ av_guess_format(...) is NULL");
  AVFormatContext* oc = nullptr;
  if (avformat_alloc_output_context2(&oc, format, nullptr, url) < 0) {
    throw ZVException(kNoContextCode, "@ alloc context failed ...");
  }
  if (oc == nullptr) {
    ZEVA_LOG(kLogError, "Could not alloc output context ...");
    avformat_alloc_output_context2(&oc, nullptr, "mpeg", url);
  }
  return FormatContextPtr(oc);
}

CodecChoice choose_codecs(AVFormatContext* oc, const MovieInfo& info) {
  const bool rtmp = is_rtmp_url(info.url);
  const bool rtsp = is_rtsp_url(info.url);
  CodecChoice choice{oc->oformat->video_codec, oc->oformat->audio_codec};
  if (rtmp) choice = {AV_CODEC_ID_H264, AV_CODEC_ID_AAC};
  if (rtsp) {
    choice = {AV_CODEC_ID_H264, AV_CODEC_ID_OPUS};
    av_opt_set(oc->priv_data, "rtsp_transport", "tcp", 0);
    oc->max_interleave_delta = 1000000;
  }
  if ((rtmp || rtsp) && info.timeout_sec > 0) {
    av_opt_set_int(oc->priv_data, "stimeout", int64_t{info.timeout_sec} * 1000000, 0);
  }
  if (info.disable_video) choice.video = AV_CODEC_ID_NONE;
  if (info.disable_audio) choice.audio = AV_CODEC_ID_NONE;
  return choice;
}

}  // namespace zeva
