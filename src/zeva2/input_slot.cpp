#include "input_slot.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "clock.h"
#include "logger.h"
#include "saturating.h"
#include "zeva/status.h"

namespace zeva {
namespace {

constexpr int64_t kOpenTimeoutMs = 3000;
// Of a stream that is none: ten seconds of sound, or some megabytes.
constexpr int kMaxRefused = 500;
constexpr int64_t kMaxRefusedBytes = 15000000;
constexpr int64_t kLongestIdleMs = 1000;

// The host's bytes with FFmpeg's padding; null without memory.
PacketPtr copy_node(const qel::ZVMemNode& node) {
  PacketPtr packet(av_packet_alloc());
  if (packet == nullptr || av_new_packet(packet.get(), node.size) < 0) return nullptr;
  memcpy(packet->data, node.data, static_cast<size_t>(node.size));
  return packet;
}

}  // namespace

InputSlot::InputSlot(const char* name, InputQueue* queue, Tell tell)
    : tell(std::move(tell)), input_name(name), queue(queue), last_packet_us(steady_us()) {}

// ---- opening

bool InputSlot::try_open() {
  if (!opening.ok) return true;
  while (stream() == nullptr) {
    if (!unpack_next()) break;
    last_packet_us = steady_us();
    if (refused >= kMaxRefused || refused_bytes > kMaxRefusedBytes) {
      ZEVA_LOG(kLogError, "'%s': no stream found in %lld bytes", input_name,
               static_cast<long long>(refused_bytes));
      return give_up(AVERROR_INVALIDDATA);
    }
  }
  if (stream() != nullptr) return true;
  if (ended) return give_up(AVERROR_EOF);
  const int64_t waited_ms = (steady_us() - last_packet_us) / 1000;
  if (waited_ms < kOpenTimeoutMs) return false;
  ZEVA_LOG(kLogError, "warning: ===> '%s' has no input data, wait timeout (time=%lldmsec)",
           input_name, static_cast<long long>(waited_ms));
  return give_up(AVERROR_STREAM_NOT_FOUND);
}

bool InputSlot::give_up(int32_t code) {
  opening = Status::failure(
      code, std::string("could not find stream information for '") + input_name + "'");
  ZEVA_LOG(kLogError, "input '%s' error(%d): %s", input_name, code, opening.message.c_str());
  ended = true;
  queue->leave_out();
  return true;
}

bool InputSlot::learn(const uint8_t* data, size_t size_bytes) {
  return probe.open(input_name, data, size_bytes).ok;
}

void InputSlot::refuse(const AVPacket& packet, const char* what) {
  ZEVA_LOG(kLogError, "[%s] a packet of %d bytes is left out: %s", input_name, packet.size, what);
  ++refused;
  refused_bytes += packet.size;
}

int64_t InputSlot::idle_ms() {
  int64_t idle = kLongestIdleMs;
  if (ended) return idle;
  if (stream() == nullptr) {
    idle = std::clamp<int64_t>(kOpenTimeoutMs - (steady_us() - last_packet_us) / 1000, 0, idle);
  }
  const int64_t due_ms = queue->size() > 0 ? -1 : queue->release_due();
  return due_ms < 0 ? idle : std::min(due_ms, idle);
}

// ---- packets

AVPacket* InputSlot::front() {
  while (ready.empty() && unpack_next()) {
  }
  return ready.empty() ? nullptr : ready.front().get();
}

bool InputSlot::unpack_next() {
  if (ended) return false;
  qel::ZVMemNode* node = nullptr;
  if (queue->size() == 0) (void)queue->release_due();
  const qel::QueueResult popped = queue->pop(node, false, 0, true);
  if (popped == qel::QueueResult::Empty) return false;
  if (node == nullptr) {
    ZEVA_LOG(kLogInfo, "reached EOF for '%s'", input_name);
    ended = true;
    return false;
  }
  const PacketPtr packet = copy_node(*node);
  const PacketTimes times = InputQueue::times_of(*node);
  qel::release_node(node);
  if (packet != nullptr) unpack(*packet, times);
  return true;
}

void InputSlot::give_out(const Part& part, const PacketTimes& times) {
  give_out_at(place(times), part, times);
}

void InputSlot::give_out_behind(const Part& part, const PacketTimes& times) {
  const int64_t next = times.exact ? saturating_add(last_dts.value_or(0), 1) : smoother.next();
  give_out_at(next, part, times);
}

void InputSlot::give_out_at(std::optional<int64_t> dts, const Part& part,
                            const PacketTimes& times) {
  if (!dts && !leaving_out) {
    tell(kZevaStatusPacketsLeftOut, std::string("packets of '") + input_name +
                                        "' are left out: their time goes back behind what is "
                                        "recorded, or they are shown before they are decoded");
  }
  leaving_out = !dts;
  PacketPtr packet(dts ? av_packet_clone(&part.packet) : nullptr);
  if (packet == nullptr) return;
  packet->data = const_cast<uint8_t*>(part.data);
  packet->size = static_cast<int>(part.size_bytes);
  packet->flags = part.key ? AV_PKT_FLAG_KEY : 0;
  packet->dts = *dts;
  packet->pts = saturating_add(*dts, times.delay);
  packet->duration = times.duration;
  // The first packet has none. A picture's is the distance from the one before.
  if (!last_dts) packet->duration = 0;
  if (last_dts && times.duration == 0) packet->duration = saturating_sub(*dts, *last_dts);
  packet->pos = -1;
  packet->stream_index = -1;  // the outputs choose
  last_dts = dts;
  ready.push_back(std::move(packet));
}

std::optional<int64_t> InputSlot::place(const PacketTimes& times) {
  std::optional<int64_t> dts = times.dts;
  if (!times.exact) {
    dts = smoother.smooth(times.dts);
  } else if (times.delay < 0) {
    dts.reset();
  }
  if (dts && last_dts && *dts <= *last_dts) dts.reset();
  if (!dts) {
    ZEVA_LOG(kLogError, "[%s] a packet at %lld us is left out: its time goes back (last=%lld)",
             input_name, static_cast<long long>(times.dts),
             static_cast<long long>(last_dts.value_or(0)));
  }
  return dts;
}

}  // namespace zeva
