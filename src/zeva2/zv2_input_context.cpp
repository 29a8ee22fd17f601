#include "zv2_input_context.h"

#include <new>
#include <string>

#include "av_error.h"
#include "input_slot.h"
#include "logger.h"

namespace zeva {

namespace {

constexpr int kIoBytes = 8192;
constexpr int32_t kNoMemory = -12;
constexpr int32_t kNoInput = -23;

CustomIoPtr make_io(InputQueue* queue) {
  auto* buffer = static_cast<uint8_t*>(av_malloc(kIoBytes));
  if (buffer == nullptr) return nullptr;
  AVIOContext* pb =
      avio_alloc_context(buffer, kIoBytes, 0, queue, InputQueue::read_packet, nullptr, nullptr);
  if (pb == nullptr) av_free(buffer);
  return CustomIoPtr(pb);
}

// The input with more data waiting is read first.
InputSlot& choose_slot(InputSlot* video, InputSlot* audio) {
  if (video->queue->size() < audio->queue->size()) return audio->eof ? *video : *audio;
  return video->eof ? *audio : *video;
}

bool is_named(const char* format) { return format != nullptr && format[0] != '\0'; }

AVStream* first_stream(const CustomInputPtr& ic) {
  return ic != nullptr && ic->nb_streams > 0 ? ic->streams[0] : nullptr;
}

}  // namespace

Status InputContext::open_inputs(const char* audio_format, const char* video_format) {
  if (is_named(audio_format)) {
    ZEVA_LOG(kLogInfo, "==> open audio input: %s", audio_format);
    const Status status = open_input(&audio, audio_format, &audio_ic);
    if (!status.ok)
      ZEVA_LOG(kLogError, "input 'aac' error(%d): %s", status.code, status.message.c_str());
  }
  if (is_named(video_format)) {
    ZEVA_LOG(kLogInfo, "==> open video input: %s", video_format);
    const Status status = open_input(&video, video_format, &video_ic);
    if (!status.ok)
      ZEVA_LOG(kLogError, "input 'h264' error(%d): %s", status.code, status.message.c_str());
  }
  if (audio_ic == nullptr && video_ic == nullptr)
    return Status::failure(kNoInput, "no aac, no h264");
  return Status::success();
}

Status InputContext::open_input(InputQueue* queue, const char* format, CustomInputPtr* opened) {
  queue->set_name(format);
  const std::string quoted = std::string("'") + format + "'";
  CustomIoPtr io = make_io(queue);
  if (io == nullptr) return Status::failure(kNoMemory, "failed to allocate io for " + quoted);

  auto* input_format = av_find_input_format(format);
  if (input_format == nullptr) {
    // The muxer's code, not the demuxer's: hosts know it as it is.
    return Status::failure(AVERROR_MUXER_NOT_FOUND, "could not find input format " + quoted);
  }

  AVFormatContext* ic = avformat_alloc_context();
  if (ic == nullptr) return Status::failure(kNoMemory, "failed to allocate io for " + quoted);
  ic->pb = io.get();
  ic->flags = AVFMT_FLAG_CUSTOM_IO;
  // The host stamps the pictures. Looking for the frame rate would hold a live stream back for 5 s,
  // looking for time stamps, which a bare stream has not, for 50 pictures.
  ic->fps_probe_size = 0;
  ic->max_ts_probe = 0;
  int result = avformat_open_input(&ic, nullptr, input_format, nullptr);
  if (result < 0) {
    return Status::failure(result, "Could not open input " + quoted + ": " + av_error_text(result));
  }
  CustomInputPtr input(ic);
  // Bare H.264 is read by 1 KiB otherwise, a buffer for each; "aac" does not know it.
  av_opt_set_int(ic, "raw_packet_size", kIoBytes, AV_OPT_SEARCH_CHILDREN);
  (void)io.release();  // owned by the input now

  result = avformat_find_stream_info(ic, nullptr);
  if (result < 0) return Status::failure(result, "could not find stream information for " + quoted);

  queue->probed = true;
  ZEVA_LOG(kLogError, "===> find input stream '%s' success.", queue->name().c_str());
  av_dump_format(ic, 0, format, 0);
  *opened = std::move(input);
  return Status::success();
}

int InputContext::run_demux(DeliverPacket deliver, void* user) {
  InputSlot video_slot("h264", video_ic.get(), &video);
  InputSlot audio_slot("aac", audio_ic.get(), &audio);
  const PacketPtr packet(av_packet_alloc());
  int ended = packet != nullptr ? 0 : AVERROR(ENOMEM);
  while (ended == 0 && !(video_slot.eof && audio_slot.eof)) {
    InputSlot& slot = choose_slot(&video_slot, &audio_slot);
    int result = av_read_frame(slot.ic, packet.get());
    if (result == AVERROR_EOF) {
      ZEVA_LOG(kLogInfo, "reached EOF for '%s'", slot.name);
      slot.eof = true;
      continue;
    }
    if (result < 0) {
      ZEVA_LOG(kLogError, "[%s] error reading frame: %s", slot.name, av_error_text(result));
      ended = result;
      break;
    }
    const bool placed = slot.stamp(packet.get());
    if (!placed && !slot.leaving_out && on_left_out) on_left_out(slot.name);
    slot.leaving_out = !placed;
    if (!placed) {
      av_packet_unref(packet.get());
      continue;
    }
    result = deliver(packet.get(), kMicroseconds, slot.name, user);
    av_packet_unref(packet.get());
    if (result < 0) {
      ZEVA_LOG(kLogError, "[%s] error muxing packet: %s", slot.name, av_error_text(result));
      ended = result;
    }
  }
  const int result = deliver(nullptr, kMicroseconds, "tailer", user);
  if (result < 0) ZEVA_LOG(kLogError, "error writing trailer: %s", av_error_text(result));
  return ended;
}

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
  if (video_ic != nullptr) {
    ZEVA_LOG(kLogInfo, "close ic: h264");
    video_ic.reset();
  }
  if (audio_ic != nullptr) {
    ZEVA_LOG(kLogInfo, "close ic: aac");
    audio_ic.reset();
  }
}

AVStream* InputContext::video_stream() const { return first_stream(video_ic); }

AVStream* InputContext::audio_stream() const { return first_stream(audio_ic); }

}  // namespace zeva
