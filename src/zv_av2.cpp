// The exported functions of packet recording: a guard each, no logic.
#include <exception>
#include <memory>

#include "av_mux.h"
#include "ffmpeg.h"
#include "logger.h"
#include "zeva/packet.h"

namespace {

using zeva::AVMux;

// Runs `call` on the muxer behind a handle. A null handle, and an exception, give `neutral`.
template <typename Result, typename Call>
Result with_muxer(void* handle, Result neutral, Call call) noexcept {
  if (handle == nullptr) return neutral;
  try {
    return call(*static_cast<AVMux*>(handle));
  } catch (const std::exception& e) {
    ZEVA_LOG(zeva::kLogError, "call refused: %s", e.what());
  } catch (...) {
    ZEVA_LOG(zeva::kLogError, "call refused");
  }
  return neutral;
}

// Runs a write on a muxer that still takes packets. `what` begins the log line of a refused one.
template <typename Call>
bool write(void* handle, const char* what, int size, int64_t usec, Call call) noexcept {
  const auto* muxer = static_cast<AVMux*>(handle);
  if (muxer != nullptr && !muxer->is_aborted()) return with_muxer(handle, false, call);
  ZEVA_LOG(zeva::kLogDebug, "%s=%d, usec=%lld  (%s)", what, size, static_cast<long long>(usec),
           muxer == nullptr ? "muxer is null" : "aborted");
  return false;
}

}  // namespace

extern "C" {

void* ZEVA2_start(const MovieInfo2& info, ZEVA2_status_callback status_cb, void* user) {
  return ZEVA2_start_with(&info, nullptr, status_cb, user);
}

void* ZEVA2_start_with(const MovieInfo2* info, const ZevaOptions* options,
                       ZEVA2_status_callback status_cb, void* user) {
  if (info == nullptr) return nullptr;
  try {
    auto muxer = std::make_unique<AVMux>(*info, zeva::Options(options), status_cb, user);
    return muxer->start() ? muxer.release() : nullptr;
  } catch (const std::exception& e) {
    ZEVA_LOG(zeva::kLogError, "start refused: %s", e.what());
    if (status_cb != nullptr) status_cb(AVERROR(ENOMEM), e.what(), user);
    return nullptr;
  }
}

void ZEVA2_stop(void** handle) {
  if (handle == nullptr || *handle == nullptr) {
    ZEVA_LOG(zeva::kLogInfo, "Muxer already Stopped.");
    return;
  }
  if (static_cast<AVMux*>(*handle)->in_status_callback()) {
    ZEVA_LOG(zeva::kLogError, "stop refused: called by the status callback");
    return;
  }
  std::unique_ptr<AVMux> muxer(static_cast<AVMux*>(*handle));
  *handle = nullptr;
  with_muxer(muxer.get(), false, [](AVMux& m) {
    m.stop();
    return true;
  });
  muxer.reset();
  ZEVA_LOG(zeva::kLogInfo, "delete muxer finished");
}

bool ZEVA2_pause(void* handle) {
  return with_muxer(handle, false, [](AVMux& m) { return m.pause(); });
}

bool ZEVA2_resume(void* handle) {
  return with_muxer(handle, false, [](AVMux& m) { return m.resume(); });
}

bool ZEVA2_is_paused(void* handle) {
  return with_muxer(handle, false, [](AVMux& m) { return m.is_paused(); });
}

int64_t ZEVA2_movie_time(void* handle) {
  return with_muxer(handle, int64_t{-1}, [](AVMux& m) { return m.movie_time(); });
}

bool ZEVA2_write_video_packet(void* handle, void* data, int nbytes, int64_t usec) {
  return write(handle, "[write h264] nbytes", nbytes, usec,
               [&](AVMux& m) { return m.write_video_packet(data, nbytes, usec); });
}

bool ZEVA2_write_video_packet2(void* handle, const void* data, int32_t nbytes, int64_t pts_us,
                               int64_t dts_us) {
  return write(handle, "[write h264] nbytes", nbytes, pts_us,
               [&](AVMux& m) { return m.write_video_packet2(data, nbytes, pts_us, dts_us); });
}

bool ZEVA2_write_audio_packet(void* handle, void* data, int nbytes, int64_t usec) {
  return write(handle, "[write aac] nbytes", nbytes, usec,
               [&](AVMux& m) { return m.write_audio_packet(data, nbytes, usec); });
}

bool ZEVA2_write_audio_pcm(void* handle, uint8_t* const* planes, int nb_samples, int64_t usec) {
  return write(handle, "[write pcm] nbytenb_sampless", nb_samples, usec,
               [&](AVMux& m) { return m.write_audio_pcm(planes, nb_samples, usec); });
}

bool ZEVA2_backlog(void* handle, int32_t* video, int32_t* audio, int32_t* outputs) {
  return with_muxer(handle, false, [&](AVMux& m) {
    AVMux::Backlog backlog;
    if (!m.backlog(&backlog)) return false;
    if (video != nullptr) *video = backlog.video;
    if (audio != nullptr) *audio = backlog.audio;
    if (outputs != nullptr) *outputs = backlog.outputs;
    return true;
  });
}

bool ZEVA2_output_state(void* handle, int32_t output, ZevaOutputState* state) {
  return with_muxer(handle, false,
                    [&](AVMux& m) { return state != nullptr && m.output_state(output, *state); });
}

bool ZEVA2_statistics(void* handle, ZevaStatistics* statistics) {
  return with_muxer(handle, false,
                    [&](AVMux& m) { return statistics != nullptr && m.statistics(*statistics); });
}

}  // extern "C"
