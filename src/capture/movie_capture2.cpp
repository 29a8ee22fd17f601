#include "movie_capture2.h"

#include <utility>

#include "av_error.h"
#include "clock.h"
#include "host_call.h"
#include "logger.h"
#include "versioned_record.h"

using zeva::kLogDebug;
using zeva::kLogError;
using zeva::kLogInfo;
using zeva::kMicroseconds;

MovieCapture2::MovieCapture2(std::unique_ptr<ZV::ZV_AVWriter> writer)
    : MovieMuxer(std::move(writer)) {}

MovieCapture2::~MovieCapture2() {
  stop();
  ZEVA_LOG(kLogInfo, "before delete iocvt");
  iocvt.reset();
  ZEVA_LOG(kLogInfo, "delete iocvt OK");
}

int64_t MovieCapture2::sys_usec() {
  // Calendar seconds when the steady clock was 0, less what 31 bits of its seconds do not hold.
  static const int64_t base_seconds =
      zeva::calendar_seconds() - ((zeva::steady_us() / 1000000) & 0x7FFFFFFF);
  return base_seconds * 1000000 + zeva::steady_us();
}

// ---- start, stop and status

void MovieCapture2::start(const MovieInfo* info, const zeva::Options& options,
                          zeva::StatusCallback cb, void* user, bool async) {
  ZEVA_LOG(kLogDebug, "m_start_pts=%lld", static_cast<long long>(start_pts));
  start_ok = false;
  last_audio_pts = 0;
  last_video_pts = 0;
  host = {cb, user};
  const auto format = static_cast<AVSampleFormat>(info->sample_fmt);
  sound_bytes_per_second =
      int64_t{info->src_sample_rate} * info->channels * av_get_bytes_per_sample(format);
  writer->error_callback = on_status;
  writer->error_user = this;
  MovieMuxer::start(*info, options, on_status, this, async);
}

void MovieCapture2::stop() {
  start_ok = false;
  if (running() && iocvt) iocvt->finish();
  MovieMuxer::stop();
  start_ok = false;  // an opening that stop waited for may have confirmed the start meanwhile
}

void MovieCapture2::on_status(int code, const char* message, void* capture) {
  auto& self = *static_cast<MovieCapture2*>(capture);
  ZEVA_LOG(kLogError, "### statu cb [id=%d]: %s", code, message);
  if (code == 0) self.start_ok = true;
  if (self.host.callback == nullptr) return;
  const zeva::HostCall call(&self);
  self.host.callback(code, message, self.host.user);
}

bool MovieCapture2::in_status_callback() const { return zeva::HostCall::is_inside(this); }

// ---- frames

std::optional<int64_t> MovieCapture2::accept(int64_t pts_us) {
  {
    const std::lock_guard<std::mutex> lock(time_mutex);
    // The first time stamp offered anchors the time line, also when its frame is refused.
    if (start_pts < 0) start_pts = pts_us;
    if (start_ok) {
      return pause_time > 0 ? std::nullopt : std::optional(pts_us - drift - start_pts);
    }
  }
  ZEVA_LOG(kLogInfo, "--start_ok == false");
  return std::nullopt;
}

// Made on the first input: the encoders' formats are known by then.
IOCvt& MovieCapture2::converter() {
  std::call_once(converter_made, [this] { iocvt = std::make_unique<IOCvt>(this); });
  return *iocvt;
}

// Counts a picture, whatever becomes of it.
template <typename Write>
bool MovieCapture2::count_picture(Write write) {
  const int64_t begin_us = zeva::steady_us();
  figures().begin_picture();
  const bool taken = write();
  figures().end_picture(taken, zeva::steady_us() - begin_us);
  return taken;
}

bool MovieCapture2::write_pcm(const uint8_t* data, int bytes, int64_t pts_us) {
  if (data != nullptr && bytes > 0 && sound_bytes_per_second > 0) {
    figures().give_sound(av_rescale(bytes, kMicroseconds.den, sound_bytes_per_second));
  }
  if (audio_disabled()) {
    zeva::err_print(stderr, "--- disable audio, ignore pcm frame\n");
    return false;
  }
  const std::optional<int64_t> time = accept(pts_us);
  if (!time) return false;
  ZEVA_LOG(kLogDebug, "nb=%d, pts=%lld", bytes, static_cast<long long>(pts_us));
  last_audio_pts = *time;
  return data != nullptr ? converter().write_pcm(data, bytes, *time)
                         : converter().write_silence(*time);
}

bool MovieCapture2::write_bgra(const uint8_t* data, int size, int64_t pts_us, int stride) {
  return count_picture([&] { return write_picture(data, size, pts_us, stride); });
}

bool MovieCapture2::write_picture(const uint8_t* data, int size, int64_t pts_us, int stride) {
  if (video_disabled()) {
    zeva::err_print(stderr, "--- disable video, ignore bgra frame\n");
    return false;
  }
  const std::optional<int64_t> time = accept(pts_us);
  if (!time) return false;
  ZEVA_LOG(kLogDebug, "nb=%d, pts=%lld", size, static_cast<long long>(pts_us));
  last_video_pts = *time;
  return converter().write_image(data, size, *time, stride);
}

bool MovieCapture2::write_audio_frame(AVFrame* frame, const AVRational* tb) {
  if (frame->nb_samples > 0 && frame->sample_rate > 0) {
    figures().give_sound(av_rescale(frame->nb_samples, kMicroseconds.den, frame->sample_rate));
  }
  const std::optional<int64_t> time = accept(av_rescale_q(frame->pts, *tb, kMicroseconds));
  if (!time) return false;
  frame->pts = *time;
  last_audio_pts = *time;
  return converter().write_audio_frame(frame, &kMicroseconds);
}

bool MovieCapture2::write_video_frame(AVFrame* frame, const AVRational* tb) {
  return count_picture([&] { return write_picture(frame, tb); });
}

bool MovieCapture2::write_picture(AVFrame* frame, const AVRational* tb) {
  const std::optional<int64_t> time = accept(av_rescale_q(frame->pts, *tb, kMicroseconds));
  if (!time) return false;
  frame->pts = *time;
  last_video_pts = *time;
  const int64_t host_duration = frame->pkt_duration;
  frame->pkt_duration = av_rescale_q(host_duration, *tb, kMicroseconds);
  const bool written = converter().write_video_frame(frame, &kMicroseconds);
  frame->pkt_duration = host_duration;
  return written;
}

// ---- the time line

bool MovieCapture2::pause() {
  if (!start_ok) return false;
  const std::lock_guard<std::mutex> lock(time_mutex);
  // Pausing while paused starts the pause anew: hosts count on the earlier part staying in.
  pause_time = sys_usec();
  return true;
}

bool MovieCapture2::resume() {
  int64_t paused_at = 0;
  int64_t now = 0;
  {
    const std::lock_guard<std::mutex> lock(time_mutex);
    if (!start_ok || pause_time < 1) return false;
    paused_at = std::exchange(pause_time, 0);
    now = sys_usec();
    drift += now - paused_at;
  }
  zeva::err_print(stderr, "*** pause_time=%lld,  resume_time=%lld,  drift=%lld\n",
                  static_cast<long long>(paused_at), static_cast<long long>(now),
                  static_cast<long long>(now - paused_at));
  return true;
}

bool MovieCapture2::is_paused() const {
  const std::lock_guard<std::mutex> lock(time_mutex);
  return pause_time > 0;
}

int64_t MovieCapture2::movie_time() const {
  const int64_t video = last_video_pts;
  if (video > 0) return video;
  const int64_t audio = last_audio_pts;
  return audio < 0 ? 0 : audio;
}

MovieInfo MovieCapture2::get_mInfo(bool* started) const {
  if (started != nullptr) *started = start_ok;
  return settings();
}

bool MovieCapture2::output_state(int32_t output, ZevaOutputState& state) const {
  ZevaOutputState full{};
  return writer->output_state(output, full) && zeva::fill_record(full, state);
}

bool MovieCapture2::statistics(ZevaStatistics& statistics) const {
  ZevaStatistics full{};
  fill(full);
  return zeva::fill_record(full, statistics);
}
