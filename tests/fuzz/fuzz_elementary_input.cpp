// Any bytes as the H.264 and AAC packets of a host, to the end.
#include <cstdlib>

#include "access_unit_assembler.h"
#include "saturating.h"
#include "zeva/log.h"
#include "zv2_input_context.h"

namespace {

// The first four bytes choose; the rest is the stream, so that any elementary stream is a seed.
struct Choices {
  uint8_t inputs;        // bit 0: video, bit 1: audio; none: both
  uint8_t packet_bytes;  // length of the packets, in steps of 16
  uint8_t stamps;
  uint8_t video_share;  // of 256, with two inputs
};

int64_t stamp(uint8_t mode, int64_t n) {
  switch (mode % 4) {
    case 0:
      return n * 33333;
    case 1:
      return 1000;
    case 2:
      return n % 2 == 0 ? INT64_MIN + n : INT64_MAX - n;
    default:
      return -n * 1000;
  }
}

void push_picture(zeva::InputQueue* queue, zeva::AccessUnitAssembler* assembler,
                  const uint8_t* data, size_t size, int64_t usec) {
  zeva::AccessUnitAssembler::Parts parts;
  if (!assembler->take(data, size, &parts)) return;
  if (parts.slices.size_bytes + parts.pictures.size_bytes > size + (size_t{1} << 20)) abort();
  if (parts.slices.size_bytes > 0) {
    (void)queue->append_to_newest(parts.slices.data, parts.slices.size_bytes);
  }
  queue->push_data(parts.pictures.data, static_cast<int32_t>(parts.pictures.size_bytes), usec);
}

void push(zeva::InputQueue* queue, bool video, const Choices& choices, const uint8_t* data,
          size_t size) {
  zeva::AccessUnitAssembler assembler;
  // Fewer packets than the queue takes: nobody reads yet.
  const size_t step = size / 1000 + 1 + size_t{choices.packet_bytes} * 16;
  for (size_t at = 0, n = 0; at < size; at += step, ++n) {
    const auto bytes = static_cast<int32_t>(at + step < size ? step : size - at);
    const int64_t usec = stamp(choices.stamps, static_cast<int64_t>(n));
    if (video && choices.stamps % 8 < 4) {
      push_picture(queue, &assembler, data + at, static_cast<size_t>(bytes), usec);
    } else {
      queue->push_data(data + at, bytes, usec);
    }
  }
  queue->push_data(nullptr, 0, 0);
}

int check(AVPacket* packet, AVRational, const char*, void*) {
  const bool stamped = packet == nullptr || (packet->pts >= zeva::kMinStamp && packet->size > 0);
  if (!stamped) abort();
  return 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  ZEVA_Log_Level(-1);
  av_log_set_level(AV_LOG_QUIET);
  if (size < sizeof(Choices)) return 0;
  const Choices choices{data[0], data[1], data[2], data[3]};
  data += sizeof choices;
  size -= sizeof choices;
  const bool video = choices.inputs % 4 != 2;
  const bool audio = choices.inputs % 4 != 1;
  size_t video_bytes = video ? size : 0;
  if (video && audio) video_bytes = size * choices.video_share / 256;

  zeva::InputContext input;
  push(&input.video, true, choices, data, video_bytes);
  push(&input.audio, false, choices, data + video_bytes, size - video_bytes);
  input.que_abort();
  if (input.open_inputs(audio ? "aac" : nullptr, video ? "h264" : nullptr).ok)
    input.run_demux(check, nullptr);
  return 0;
}
