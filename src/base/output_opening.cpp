#include "output_opening.h"

#include "logger.h"
#include "output_url.h"

namespace zeva {

CodecChoice choose_codecs(const AVOutputFormat& format, const MovieInfo& info) {
  CodecChoice choice{format.video_codec, format.audio_codec};
  if (is_rtmp_url(info.url)) choice = {AV_CODEC_ID_H264, AV_CODEC_ID_AAC};
  if (is_rtsp_url(info.url)) choice = {AV_CODEC_ID_H264, AV_CODEC_ID_OPUS};
  if (info.disable_video) choice.video = AV_CODEC_ID_NONE;
  if (info.disable_audio) choice.audio = AV_CODEC_ID_NONE;
  return choice;
}

}  // namespace zeva
