#include "io_cvt.h"

#include <algorithm>
#include <cstdlib>

#include "av_error.h"
#include "logger.h"

using zeva::kLogError;
using zeva::kLogInfo;
using zeva::kMicroseconds;

namespace {

// So many frames of silence, and neither converter nor encoder knows of the sound before it.
constexpr int64_t kFramesToBeSilent = 48;

MovieInfo settings_of(const zeva::MovieMuxer* muxer) {
  if (muxer == nullptr) exit(1);
  return muxer->settings();
}

}  // namespace

IOCvt::IOCvt(zeva::MovieMuxer* muxer) : muxer(muxer), info(settings_of(muxer)) {
  ensure_audio();
  ensure_video();
}

IOCvt::~IOCvt() {
  ZEVA_LOG(kLogInfo, "Begin ...");
  if (resampler) {
    resampler.reset();
    ZEVA_LOG(kLogInfo, "delete nxr ok!");
  }
  if (rescaler) {
    rescaler.reset();
    ZEVA_LOG(kLogInfo, "delete nxs ok!");
  }
  if (pcm_frame) {
    pcm_frame.reset();
    ZEVA_LOG(kLogInfo, "free pcm");
  }
  if (image_frame) {
    image_frame.reset();
    ZEVA_LOG(kLogInfo, "free bgra");
  }
  ZEVA_LOG(kLogInfo, "OK");
}

// ---- configuring

bool IOCvt::ensure_audio() {
  if (resampler) return true;
  if (!pcm_frame) {
    pcm_frame.reset(av_frame_alloc());
    if (!pcm_frame) return false;
    pcm_frame->format = info.sample_fmt;
    pcm_frame->sample_rate = info.src_sample_rate;
    pcm_frame->channels = info.channels;
    pcm_frame->channel_layout = static_cast<uint64_t>(av_get_default_channel_layout(info.channels));
  }
  AVFrame* dst = muxer->audio_dst_frame();
  if (dst == nullptr) {
    ZEVA_LOG(kLogError, "=== No audio dst_frame ..");
    return false;
  }
  auto made = std::make_unique<ZV::NxResample>();
  if (made->config(dst, pcm_frame.get(), {1, info.sample_rate}) < 0) {
    ZEVA_LOG(kLogError, "=== config NxResample failed ..");
    return false;
  }
  resampler = std::move(made);
  return true;
}

bool IOCvt::ensure_video() {
  if (rescaler) return true;
  AVFrame* dst = muxer->video_dst_frame();
  if (dst == nullptr) {
    ZEVA_LOG(kLogError, "=== No video dst_frame ..");
    return false;
  }
  const zeva::FramePtr description(av_frame_alloc());
  if (!description) return false;
  description->width = info.src_width;
  description->height = info.src_height;
  description->format = info.src_pix_fmt;
  const zeva::PictureFormat& host = muxer->video_encoder()->host_pictures();
  description->colorspace = host.matrix;
  description->color_range = host.range;
  auto made = std::make_unique<ZV::NxRescale>();
  if (made->config(dst, description.get(), muxer->video_encoder()->time_base()) < 0) {
    ZEVA_LOG(kLogError, "=== config NxRescale failed ..");
    return false;
  }
  rescaler = std::move(made);
  return true;
}

// ---- sound

bool IOCvt::write_pcm(const uint8_t* data, int bytes, int64_t pts_us) {
  return ensure_audio() && write_samples(data, bytes, pts_us);
}

bool IOCvt::write_silence(int64_t until_us) {
  if (!ensure_audio()) return false;
  const int64_t until = av_rescale_q(until_us, kMicroseconds, resampler->time_base);
  const int64_t begin = resampler->end();
  if (until <= begin) {
    ZEVA_LOG(kLogError, "refused silence up to %lld us: the sound ends at %lld us",
             static_cast<long long>(until_us),
             static_cast<long long>(av_rescale_q(begin, resampler->time_base, kMicroseconds)));
    return false;
  }
  ZEVA_LOG(zeva::kLogDebug, "[fill silence] ----> pts=%lf(sec), dur=%lf(sec)",
           static_cast<double>(begin) * av_q2d(resampler->time_base),
           static_cast<double>(until - begin) * av_q2d(resampler->time_base));
  muxer->figures().give_sound(av_rescale_q(until - begin, resampler->time_base, kMicroseconds));
  Emitted all;
  while (all.lost == 0 && resampler->add_silence(until)) {
    all += emit_sound(resampler->resample(nullptr, nullptr));
    if (all.taken >= kFramesToBeSilent) all += repeat_silence(until);
  }
  return all.succeeded();
}

// Everything on the way to the encoder is silence here. The last frames are encoded again.
IOCvt::Emitted IOCvt::repeat_silence(int64_t until) {
  const int64_t frames = resampler->frames_until(until) - kFramesToBeSilent;
  if (frames <= 0 || !muxer->is_sound_steady()) return {};
  resampler->skip(frames);
  return muxer->repeat_sound(frames) ? Emitted{frames, 0} : Emitted{0, 1};
}

bool IOCvt::write_samples(const uint8_t* data, int64_t bytes, int64_t pts_us) {
  const auto format = static_cast<AVSampleFormat>(info.sample_fmt);
  if (bytes < 0 || info.channels <= 0) {
    ZEVA_LOG(kLogError, "refused %lld bytes of sound in %d channels", static_cast<long long>(bytes),
             info.channels);
    return false;
  }
  const auto samples = static_cast<int>(bytes / av_get_bytes_per_sample(format) / info.channels);
  pcm_frame->nb_samples = samples;
  pcm_frame->pts = pts_us;
  if (av_samples_fill_arrays(pcm_frame->data, pcm_frame->linesize, data, info.channels, samples,
                             format, 1) < 0) {
    return false;
  }
  return convert(false, pcm_frame.get(), &kMicroseconds);
}

void IOCvt::finish() {
  if (!resampler) return;
  resampler->flush();
  emit_sound(resampler->resample(nullptr, nullptr));
  AVFrame* rest = resampler->last();
  if (rest != nullptr) emit(false, rest, &resampler->time_base);
}

bool IOCvt::write_audio_frame(AVFrame* frame, const AVRational* tb) {
  return ensure_audio() && convert(false, frame, tb);
}

// ---- pictures

bool IOCvt::ensure_image_frame(int stride) {
  if (image_frame && image_frame->linesize[0] == stride) return true;
  const auto format = static_cast<AVPixelFormat>(info.src_pix_fmt);
  int row[4] = {};
  const int result = av_image_fill_linesizes(row, format, info.src_width);
  if (result < 0 || std::abs(stride) < row[0]) {
    ZEVA_LOG(kLogError, "refused a picture: its stride of %d bytes is less than a row of %d",
             stride, row[0]);
    return false;
  }
  image_frame.reset(av_frame_alloc());
  if (!image_frame) return false;
  for (int plane = 0; plane < 4; ++plane) {
    // One stride is all the host gives; the further planes have the padding in proportion.
    image_frame->linesize[plane] =
        static_cast<int>(int64_t{stride} * row[plane] / std::max(row[0], 1));
  }
  image_frame->width = info.src_width;
  image_frame->height = info.src_height;
  image_frame->format = info.src_pix_fmt;
  return true;
}

bool IOCvt::write_image(const uint8_t* data, int /*size*/, int64_t pts_us, int stride) {
  if (!ensure_video() || data == nullptr || !ensure_image_frame(stride)) return false;
  // FFmpeg's frame has no const view; nothing writes through these pointers.
  const int result =
      av_image_fill_pointers(image_frame->data, static_cast<AVPixelFormat>(info.src_pix_fmt),
                             info.src_height, const_cast<uint8_t*>(data), image_frame->linesize);
  if (result < 0) {
    av_log(nullptr, AV_LOG_ERROR, "###---> image fill error: %s\n", zeva::av_error_text(result));
    return false;
  }
  image_frame->pts = pts_us;
  return convert(true, image_frame.get(), &kMicroseconds);
}

bool IOCvt::write_video_frame(AVFrame* frame, const AVRational* tb) {
  return ensure_video() && convert(true, frame, tb);
}

// ---- converting and handing on

bool IOCvt::convert(bool is_video, AVFrame* frame, const AVRational* tb) {
  if (is_video) {
    AVFrame* out = rescale(frame, tb);
    return out != nullptr && emit(true, out, &rescaler->time_base);
  }
  return resampler && emit_sound(resampler->resample(frame, tb)).succeeded();
}

AVFrame* IOCvt::rescale(AVFrame* frame, const AVRational* tb) {
  const zeva::Lap lap(muxer->figures().cost.convert_us);
  return rescaler ? rescaler->rescale(frame, tb) : nullptr;
}

// Hands `out` on, and every further full frame.
IOCvt::Emitted IOCvt::emit_sound(AVFrame* out) {
  Emitted emitted;
  for (; out != nullptr; out = resampler->resample(nullptr, nullptr)) {
    const bool taken = emit(false, out, &resampler->time_base);
    emitted += {taken ? 1 : 0, taken ? 0 : 1};
  }
  return emitted;
}

bool IOCvt::emit(bool is_video, AVFrame* frame, const AVRational* tb) {
  return is_video ? muxer->write_video(frame, *tb) : muxer->write_audio(frame, *tb);
}
