// All positions are counted in output samples, and none is kept twice: the sound so far ends at the
// next frame's time stamp, plus what the FIFO holds, plus what the resampler holds. A stamp of the
// host's is compared with that end. So pictures and sound cannot part by rounding, however long the
// movie, nor by what is buffered at the moment of a correction.
#include "resampler.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "av_error.h"
#include "logger.h"

namespace ZV {
namespace {

// A long silence is made of blocks of this many samples.
constexpr int kSilenceBlock = 4096;

// Half a second in the time base of the first resampler that needs it, then shared by all of them
// for the life of the process. Deliberate: hosts tuned their time stamps to it.
std::atomic<int64_t> g_drift_threshold{0};

int64_t drift_threshold(AVRational time_base) {
  if (g_drift_threshold == 0) {
    g_drift_threshold = av_rescale_q(500000, zeva::kMicroseconds, time_base);
  }
  return g_drift_threshold;
}

// The difference is taken in 32 bits, as its threshold always was.
int64_t distance32(int64_t a, int64_t b) {
  const auto difference = static_cast<int32_t>(static_cast<uint32_t>(a) - static_cast<uint32_t>(b));
  return difference < 0 ? static_cast<int32_t>(0U - static_cast<uint32_t>(difference)) : difference;
}

uint64_t layout_of(const AVFrame& frame) {
  return frame.channel_layout != 0
             ? frame.channel_layout
             : static_cast<uint64_t>(av_get_default_channel_layout(frame.channels));
}

bool same_sound(const AVFrame& a, const AVFrame& b) {
  return a.format == b.format && a.sample_rate == b.sample_rate && layout_of(a) == layout_of(b);
}

zeva::FramePtr make_silence(const AVFrame& like, int samples) {
  zeva::FramePtr frame(av_frame_alloc());
  if (!frame) return nullptr;
  frame->format = like.format;
  frame->sample_rate = like.sample_rate;
  frame->channel_layout = layout_of(like);
  frame->channels = av_get_channel_layout_nb_channels(frame->channel_layout);
  frame->nb_samples = samples;
  if (av_frame_get_buffer(frame.get(), 0) < 0) return nullptr;
  av_samples_set_silence(frame->extended_data, 0, samples, frame->channels,
                         static_cast<AVSampleFormat>(frame->format));
  return frame;
}

}  // namespace

NxResample::NxResample() : swr(swr_alloc()) {}

NxResample::~NxResample() {
  swr.reset();
  zeva::err_print(stderr, "delete nxr.s ok!\n");
  out_frame.reset();
  zeva::err_print(stderr, "delete out_frame ok!\n");
}

// ---- configuring

int NxResample::config(AVFrame* dst, AVFrame* src, AVRational tb) {
  out_frame.reset(av_frame_clone(dst));
  source.reset(av_frame_alloc());
  time_base = tb;
  drift = DriftMeter(dst->sample_rate);
  if (!out_frame || !source || set_options(dst, src) < 0) return -1;
  frame_size = dst->nb_samples;
  source->format = src->format;
  source->sample_rate = src->sample_rate;
  source->channels = src->channels;
  source->channel_layout = src->channel_layout;
  const int result = swr_init(swr.get());
  if (result < 0) return result;
  fifo.reset(av_audio_fifo_alloc(static_cast<AVSampleFormat>(dst->format),
                                 av_get_channel_layout_nb_channels(dst->channel_layout), 1));
  if (!fifo) {
    av_log(nullptr, AV_LOG_ERROR, "alloc audio fifo error!,%s\n", strerror(errno));
    return -1;
  }
  return result;
}

int NxResample::set_options(const AVFrame* dst, const AVFrame* src) {
  swr_close(swr.get());
  const struct {
    const char* name;
    int64_t value;
  } options[] = {
      {"icl", static_cast<int64_t>(src->channel_layout)},
      {"isf", src->format},
      {"isr", src->sample_rate},
      {"ocl", static_cast<int64_t>(dst->channel_layout)},
      {"osf", dst->format},
      {"osr", dst->sample_rate},
  };
  for (const auto& option : options) {
    if (av_opt_set_int(swr.get(), option.name, option.value, 0) < 0) {
      av_log(swr.get(), AV_LOG_ERROR, "Failed to set option\n");
      return AVERROR(EINVAL);
    }
  }
  return 0;
}

// ---- in

AVFrame* NxResample::resample(AVFrame* in, const AVRational* in_tb) {
  if (swr_is_initialized(swr.get()) <= 0) {
    zeva::err_print(stderr, "=== resample:  swr_init = false\n");
    return nullptr;
  }
  if (in != nullptr && !buffer(in, *in_tb)) return nullptr;
  return av_audio_fifo_size(fifo.get()) < frame_size ? nullptr : take(frame_size);
}

// Sound in the encoder's own format needs no resampler; what that still holds goes before it.
bool NxResample::buffer(AVFrame* in, const AVRational& in_tb) {
  const bool announced = same_sound(*in, *source);
  if (!announced && !same_sound(*in, *out_frame)) {
    ZEVA_LOG(zeva::kLogError, "refused %d samples of sound: neither as announced nor as encoded",
             in->nb_samples);
    return false;
  }
  if (in->nb_samples <= 0) return true;
  follow_stamps(*in, in_tb);
  if (announced) return buffer_converted(in);
  flush();
  return put(in->extended_data, in->nb_samples);
}

// Null takes out what the resampler holds.
bool NxResample::buffer_converted(const AVFrame* in) {
  zeva::FramePtr scratch(av_frame_alloc());
  if (!scratch) return false;
  scratch->channel_layout = out_frame->channel_layout;
  scratch->format = out_frame->format;
  scratch->sample_rate = out_frame->sample_rate;
  const int result = swr_convert_frame(swr.get(), scratch.get(), in);
  if (result != 0) {
    ZEVA_LOG(zeva::kLogError, "refused %d samples of sound: %s", in != nullptr ? in->nb_samples : 0,
             zeva::av_error_text(result));
    return false;
  }
  return put(scratch->extended_data, scratch->nb_samples);
}

bool NxResample::put(uint8_t** data, int samples) {
  const int wanted = av_audio_fifo_size(fifo.get()) + samples;
  if (av_audio_fifo_realloc(fifo.get(), wanted) < 0) {
    ZEVA_LOG(zeva::kLogError, "--- audio fifo realloc failed: sz = %d", wanted);
    return false;
  }
  av_audio_fifo_write(fifo.get(), reinterpret_cast<void**>(data), samples);
  const auto dropped = static_cast<int>(std::min<int64_t>(left_out, wanted));
  av_audio_fifo_drain(fifo.get(), dropped);
  left_out -= dropped;
  return true;
}

bool NxResample::add_silence(int64_t until) {
  if (silence == nullptr) silence = make_silence(*source, kSilenceBlock);
  if (silence == nullptr) return false;
  anchored = true;
  const int64_t samples =
      av_rescale(until - end(), source->sample_rate, int64_t{out_frame->sample_rate});
  if (samples <= 0) return false;
  silence->nb_samples = static_cast<int>(std::min<int64_t>(samples, kSilenceBlock));
  drift.restart();
  return buffer_converted(silence.get());
}

void NxResample::flush() {
  if (swr_get_delay(swr.get(), out_frame->sample_rate) <= 0) return;
  buffer_converted(nullptr);
  swr_init(swr.get());  // a flushed one would take nothing more
}

// ---- out

AVFrame* NxResample::last() {
  const int samples = std::min(av_audio_fifo_size(fifo.get()), frame_size);
  return samples > 0 ? take(samples) : nullptr;
}

AVFrame* NxResample::take(int samples) {
  out_refs = zeva::release_held_buffers(out_frame.get(), out_refs);
  if (out_refs < 0) {
    ZEVA_LOG(zeva::kLogError, "sound not given out: %s", zeva::av_error_text(out_refs));
    return nullptr;
  }
  out_frame->nb_samples = samples;
  const int read =
      av_audio_fifo_read(fifo.get(), reinterpret_cast<void**>(out_frame->extended_data), samples);
  if (read < 0) {
    av_log(nullptr, AV_LOG_INFO, "@@ audio fifo read error: %s\n", zeva::av_error_text(read));
    return nullptr;
  }
  out_frame->pts = processed;
  processed += samples;
  return out_frame.get();
}

// ---- time

int64_t NxResample::end() const {
  const int64_t held = anchored ? swr_get_delay(swr.get(), out_frame->sample_rate) : 0;
  return processed + av_audio_fifo_size(fifo.get()) + held - left_out;
}

// Moves the count to where the stamp says that `in` begins, if it is too far off.
void NxResample::follow_stamps(const AVFrame& in, const AVRational& in_tb) {
  const int64_t pts = av_rescale_q(in.pts, in_tb, time_base);
  if (!anchored) {
    anchored = true;
    processed = pts;
  } else if (distance32(pts, end()) >= drift_threshold(time_base)) {
    re_anchor(pts, in, in_tb);
  } else {
    const int64_t error = static_cast<int32_t>(pts - end());
    const int64_t length = av_rescale(in.nb_samples, out_frame->sample_rate, in.sample_rate);
    const int64_t moved = drift.measure(error, length);
    if (moved > 0) move_later(moved);
    if (moved < 0) move_earlier(-moved);
  }
}

void NxResample::re_anchor(int64_t pts, const AVFrame& in, const AVRational& in_tb) {
  ZEVA_LOG(zeva::kLogError,
           "@@@ [check] correct au pts ----> processd_samples=%lld(%lfsec), this_pts=%lld(%lfsec)",
           static_cast<long long>(end()),
           static_cast<double>(av_rescale_q(end(), time_base, in_tb)) / 1000000.0,
           static_cast<long long>(pts), static_cast<double>(in.pts) / 1000000.0);
  fflush(stderr);
  processed += pts - end();
  drift.restart();
}

void NxResample::move_later(int64_t samples) {
  ZEVA_LOG(zeva::kLogInfo, "sound is %lld samples early: silence is put in",
           static_cast<long long>(samples));
  const zeva::FramePtr gap = make_silence(*out_frame, static_cast<int>(samples));
  if (gap != nullptr) put(gap->extended_data, gap->nb_samples);
}

void NxResample::move_earlier(int64_t samples) {
  ZEVA_LOG(zeva::kLogInfo, "sound is %lld samples late: they are left out",
           static_cast<long long>(samples));
  left_out += samples;
}

}  // namespace ZV
