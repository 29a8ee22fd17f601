#include "io_cvt.h"

#include <algorithm>
#include <cstdlib>

#include "av_error.h"
#include "logger.h"

using zeva::kLogError;
using zeva::kLogInfo;
using zeva::kMicroseconds;

namespace {

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

bool IOCvt::write_silence(int64_t duration_us, int64_t pts_us) {
  if (!ensure_audio()) return false;
  const int64_t bytes =
      resampler->in_bytes_per_second() * static_cast<int32_t>(duration_us) / 1000000;
  if (bytes > static_cast<int64_t>(silence.size())) silence.resize(static_cast<size_t>(bytes));
  return write_samples(silence.data(), bytes, pts_us);
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
    AVFrame* out = rescaler ? rescaler->rescale(frame, tb) : nullptr;
    return out != nullptr && emit(true, out, &rescaler->time_base);
  }
  AVFrame* out = resampler ? resampler->resample(frame, tb) : nullptr;
  bool all_emitted = out != nullptr;
  for (; out != nullptr; out = resampler->resample(nullptr, tb)) {
    all_emitted = emit(false, out, &resampler->time_base) && all_emitted;
  }
  return all_emitted;
}

bool IOCvt::emit(bool is_video, AVFrame* frame, const AVRational* tb) {
  return is_video ? muxer->write_video(frame, *tb) : muxer->write_audio(frame, *tb);
}
