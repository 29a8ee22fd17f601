// The exported functions of classic recording: a guard each, no logic.
#include <exception>
#include <memory>

#include "ZV_AVWriter.h"
#include "logger.h"
#include "movie_capture2.h"
#include "output_opening.h"
#include "zeva/record.h"

namespace {

// An output's queue limit in packets, and how many more while packets wait to be interleaved.
constexpr uint32_t kQueuePackets = 60;
constexpr uint32_t kInterleavePackets = 1000;

// Runs `call` on the capture behind a handle. A null handle, and an exception, give `neutral`.
template <typename Result, typename Call>
Result with_capture(void* handle, Result neutral, Call call) noexcept {
  if (handle == nullptr) return neutral;
  try {
    return call(*static_cast<MovieCapture2*>(handle));
  } catch (const std::exception& e) {
    ZEVA_LOG(zeva::kLogError, "call refused: %s", e.what());
  } catch (...) {
    ZEVA_LOG(zeva::kLogError, "call refused");
  }
  return neutral;
}

template <typename Encoder>
AVFrame* test_frame(Encoder* encoder, AVRational tb) {
  return encoder != nullptr ? encoder->generate_test_frame(tb) : nullptr;
}

}  // namespace

extern "C" {

void* ZEVA_start(const MovieInfo& info, ZEVA_status_callback cb, void* user, MovieInfo* effective,
                 bool async) {
  return ZEVA_start_with(&info, nullptr, cb, user, effective, async);
}

void* ZEVA_start_with(const MovieInfo* info, const ZevaOptions* options, ZEVA_status_callback cb,
                      void* user, MovieInfo* effective, bool async) {
  if (info == nullptr) return nullptr;
  try {
    const zeva::Options chosen(options);
    auto writer =
        std::make_unique<ZV::ZV_AVWriter>(kQueuePackets, kInterleavePackets, info->url, chosen);
    auto capture = std::make_unique<MovieCapture2>(std::move(writer));
    const MovieInfo settings = *info;
    capture->start(&settings, chosen, cb, user, async);
    if (effective != nullptr) *effective = capture->get_mInfo(nullptr);
    return capture.release();
  } catch (const std::exception& e) {
    ZEVA_LOG(zeva::kLogError, "start refused: %s", e.what());
    if (cb != nullptr) cb(zeva::kOpeningFailedCode, e.what(), user);
    return nullptr;
  }
}

void ZEVA_stop(void** handle) {
  ZEVA_LOG(zeva::kLogInfo, "--- before stop");
  if (handle == nullptr || *handle == nullptr) return;
  if (static_cast<MovieCapture2*>(*handle)->in_status_callback()) {
    ZEVA_LOG(zeva::kLogError, "stop refused: called by the status callback");
    return;
  }
  std::unique_ptr<MovieCapture2> capture(static_cast<MovieCapture2*>(*handle));
  *handle = nullptr;
  with_capture(capture.get(), false, [](MovieCapture2& c) {
    c.stop();
    return true;
  });
  capture.reset();
  ZEVA_LOG(zeva::kLogInfo, "--- stop OK");
}

bool ZEVA_pause(void* h) {
  return with_capture(h, false, [](MovieCapture2& c) { return c.pause(); });
}

bool ZEVA_resume(void* h) {
  return with_capture(h, false, [](MovieCapture2& c) { return c.resume(); });
}

bool ZEVA_is_paused(void* h) {
  return with_capture(h, false, [](MovieCapture2& c) { return c.is_paused(); });
}

int64_t ZEVA_movie_time(void* h) {
  return with_capture(h, int64_t{0}, [](MovieCapture2& c) { return c.movie_time(); });
}

int64_t ZEVA_last_usec_pts(void* h) {
  return with_capture(h, int64_t{0}, [](MovieCapture2& c) { return c.last_usec_pts(); });
}

int64_t ZEVA_current_sys_usec() { return MovieCapture2::sys_usec(); }

bool ZEVA_write_video_bgra(void* h, void* data, int size, int64_t pts_us, int stride) {
  return with_capture(h, false, [&](MovieCapture2& c) {
    return c.write_bgra(static_cast<const uint8_t*>(data), size, pts_us, stride);
  });
}

bool ZEVA_write_audio_pcm(void* h, void* data, int bytes, int64_t pts_us) {
  return with_capture(h, false, [&](MovieCapture2& c) {
    return c.write_pcm(static_cast<const uint8_t*>(data), bytes, pts_us);
  });
}

bool ZEVA_write_video_frame(void* h, AVFrame* frame, const AVRational& tb) {
  return with_capture(h, false, [&](MovieCapture2& c) {
    return frame != nullptr && c.write_video_frame(frame, &tb);
  });
}

bool ZEVA_write_audio_frame(void* h, AVFrame* frame, const AVRational& tb) {
  return with_capture(h, false, [&](MovieCapture2& c) {
    return frame != nullptr && c.write_audio_frame(frame, &tb);
  });
}

AVFrame* ZEVA_video_dst_frame(void* h) {
  return with_capture<AVFrame*>(h, nullptr, [](MovieCapture2& c) { return c.video_dst_frame(); });
}

AVFrame* ZEVA_audio_dst_frame(void* h) {
  return with_capture<AVFrame*>(h, nullptr, [](MovieCapture2& c) { return c.audio_dst_frame(); });
}

bool ZEVA_add_video_filter(void* h, FilterBase* f) {
  return with_capture(h, false, [f](MovieCapture2& c) {
    if (c.video_encoder() != nullptr) c.video_encoder()->filter = f;
    return true;
  });
}

bool ZEVA_add_audio_filter(void* h, FilterBase* f) {
  return with_capture(h, false, [f](MovieCapture2& c) {
    if (c.audio_encoder() != nullptr) c.audio_encoder()->filter = f;
    return true;
  });
}

AVFrame* ZEVA_generate_testing_vFrame(void* h, const AVRational& tb) {
  return with_capture<AVFrame*>(
      h, nullptr, [&](MovieCapture2& c) { return test_frame(c.video_encoder(), tb); });
}

AVFrame* ZEVA_generate_testing_aFrame(void* h, const AVRational& tb) {
  return with_capture<AVFrame*>(
      h, nullptr, [&](MovieCapture2& c) { return test_frame(c.audio_encoder(), tb); });
}

bool ZEVA_get_mInfo(void* h, MovieInfo* out) {
  return with_capture(h, false, [out](MovieCapture2& c) {
    bool started = false;
    *out = c.get_mInfo(&started);
    return started;
  });
}

bool ZEVA_output_state(void* handle, int32_t output, ZevaOutputState* state) {
  return with_capture(handle, false, [&](MovieCapture2& c) {
    return state != nullptr && c.output_state(output, *state);
  });
}

bool ZEVA_statistics(void* handle, ZevaStatistics* statistics) {
  return with_capture(handle, false, [&](MovieCapture2& c) {
    return statistics != nullptr && c.statistics(*statistics);
  });
}

}  // extern "C"
