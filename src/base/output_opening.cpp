#include "output_opening.h"

#include "logger.h"
#include "output_url.h"

namespace zeva {

CodecChoice choose_codecs(const AVOutputFormat& format, const MovieInfo& info) {
  CodecChoice choice{format.video_codec, format.audio_codec};
  const LiveStream* const live = live_stream(info.url);
  if (live != nullptr) choice = {live->video, live->audio};
  if (info.disable_video) choice.video = AV_CODEC_ID_NONE;
  if (info.disable_audio) choice.audio = AV_CODEC_ID_NONE;
  return choice;
}

}  // namespace zeva
