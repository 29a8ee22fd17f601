#include "pattern_source.h"

namespace zeva_tool {
namespace {

constexpr int kSampleRate = 48000;

}  // namespace

PatternSource::PatternSource(int width, int height, AVRational rate, bool pictures, bool sound) {
  source_format.has_pictures = pictures;
  source_format.width = source_format.display_width = width;
  source_format.height = height;
  source_format.rate = rate;
  source_format.pix_fmt = AV_PIX_FMT_YUV420P;
  source_format.has_sound = sound;
  source_format.sample_rate = kSampleRate;
  source_format.channels = 2;
}

void PatternSource::begin(void* recording, const MovieInfo& effective) {
  generator = recording;
  source_format.has_pictures = !effective.disable_video;
  source_format.has_sound = !effective.disable_audio;
}

Piece PatternSource::next() {
  int64_t picture_us = av_rescale_q(picture_count, av_inv_q(source_format.rate), kMicroseconds);
  int64_t sound_us = av_rescale(sample_count, 1000000, kSampleRate);
  frame_is_picture =
      source_format.has_pictures && (!source_format.has_sound || picture_us <= sound_us);
  frame = frame_is_picture ? ZEVA_generate_testing_vFrame(generator, kMicroseconds)
                           : ZEVA_generate_testing_aFrame(generator, kMicroseconds);
  if (!frame) return {};
  if (frame_is_picture) {
    ++picture_count;
    return {Piece::Kind::kPicture, picture_us};
  }
  sample_count += frame->nb_samples;
  return {Piece::Kind::kSound, sound_us};
}

bool PatternSource::write(void* recording, int64_t stamp_us) {
  frame->pts = stamp_us;
  return frame_is_picture ? ZEVA_write_video_frame(recording, frame, kMicroseconds)
                          : ZEVA_write_audio_frame(recording, frame, kMicroseconds);
}

}  // namespace zeva_tool
