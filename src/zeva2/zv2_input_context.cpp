#include "zv2_input_context.h"

#include <algorithm>
#include <new>
#include <string>

#include "audio_slot.h"
#include "av_error.h"
#include "logger.h"
#include "video_slot.h"
#include "zeva/status.h"

namespace zeva {

namespace {

constexpr int32_t kNoInput = -23;

bool is_named(const char* format) { return format != nullptr && format[0] != '\0'; }

}  // namespace

InputContext::InputContext() {
  video.set_signal(&signal);
  audio.set_signal(&signal);
}

// ---- opening

Status InputContext::open_inputs(const char* audio_format, const char* video_format) {
  const auto told = [this](int32_t code, const std::string& text) {
    if (tell) tell(code, text);
  };
  if (is_named(audio_format)) {
    ZEVA_LOG(kLogInfo, "==> open audio input: %s", audio_format);
    audio.set_name(audio_format);
    audio_slot = std::make_unique<AudioSlot>(&audio, told);
  }
  if (is_named(video_format)) {
    ZEVA_LOG(kLogInfo, "==> open video input: %s", video_format);
    video.set_name(video_format);
    video_slot = std::make_unique<VideoSlot>(&video, told);
  }
  wait_for_streams();
  if (audio_stream() == nullptr && video_stream() == nullptr) {
    return Status::failure(kNoInput, "no aac, no h264");
  }
  tell_left_out();
  return Status::success();
}

void InputContext::wait_for_streams() {
  const auto open = [](const SlotPtr& slot) { return slot == nullptr || slot->try_open(); };
  while (true) {
    const bool audio_open = open(audio_slot);
    const bool video_open = open(video_slot);
    if (audio_open && video_open) return;
    wait();
  }
}

void InputContext::tell_left_out() {
  for (const SlotPtr& slot : {std::cref(audio_slot), std::cref(video_slot)}) {
    if (slot == nullptr || slot->stream() != nullptr || !tell) continue;
    tell(kZevaStatusInputLeftOut, std::string("the recording goes on without '") + slot->name() +
                                      "': " + slot->failure().message);
  }
}

AVStream* InputContext::stream_of(const SlotPtr& slot) {
  return slot != nullptr ? slot->stream() : nullptr;
}

// ---- packets

int InputContext::run_demux(DeliverPacket deliver, void* user) {
  int ended = 0;
  while (ended == 0) {
    tell_late();
    InputSlot* const slot = choose_slot();
    if (slot == nullptr) {
      if (have_ended()) break;
      wait();
      continue;
    }
    ended = std::min(deliver(slot->front(), kMicroseconds, slot->name(), user), 0);
    slot->pop();
    if (ended < 0) {
      ZEVA_LOG(kLogError, "[%s] error muxing packet: %s", slot->name(), av_error_text(ended));
    }
  }
  tell_late();
  const int result = deliver(nullptr, kMicroseconds, "tailer", user);
  if (result < 0) ZEVA_LOG(kLogError, "error writing trailer: %s", av_error_text(result));
  return ended;
}

// The one whose next packet is the earlier; null when neither has one.
InputSlot* InputContext::choose_slot() {
  const AVPacket* picture = video_slot != nullptr ? video_slot->front() : nullptr;
  const AVPacket* sound = audio_slot != nullptr ? audio_slot->front() : nullptr;
  if (picture == nullptr && sound == nullptr) return nullptr;
  if (picture == nullptr) return audio_slot.get();
  if (sound == nullptr) return video_slot.get();
  return sound->dts < picture->dts ? audio_slot.get() : video_slot.get();
}

bool InputContext::have_ended() const {
  const auto ended = [](const SlotPtr& slot) { return slot == nullptr || slot->has_ended(); };
  return ended(video_slot) && ended(audio_slot);
}

void InputContext::wait() {
  const auto idle_ms = [](const SlotPtr& slot) {
    return slot != nullptr ? slot->idle_ms() : INT64_MAX;
  };
  signal.wait(std::min(idle_ms(video_slot), idle_ms(audio_slot)));
}

void InputContext::tell_late() {
  for (InputQueue* queue : {&video, &audio}) {
    if (!queue->came_late() || !tell) continue;
    tell(kZevaStatusInputLate, "packets of '" + queue->name() +
                                   "' came after the outputs had been opened without it; they are "
                                   "not recorded");
  }
}

// ---- the end

void InputContext::que_abort() {
  ZEVA_LOG(kLogInfo, "que abort");
  for (InputQueue* queue : {&audio, &video}) {
    try {
      (void)queue->push(nullptr, qel::kUnbounded, false, 0);
    } catch (const std::bad_alloc&) {
      queue->abort();  // loses what is queued, but nobody waits for ever
    }
  }
}

void InputContext::clear() {
  ZEVA_LOG(kLogInfo, "clear");
  que_abort();
  if (video_slot != nullptr) {
    ZEVA_LOG(kLogInfo, "close ic: h264");
    video_slot.reset();
  }
  if (audio_slot != nullptr) {
    ZEVA_LOG(kLogInfo, "close ic: aac");
    audio_slot.reset();
  }
}

}  // namespace zeva
