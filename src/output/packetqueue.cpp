#include "packetqueue.h"

#include <chrono>
#include <exception>

#include "logger.h"

namespace zeva {

AVPacket* PacketQueue::tailer() {
  static AVPacket* const packet = [] {
    static AVPacket marker;
    av_init_packet(&marker);
    marker.data = reinterpret_cast<uint8_t*>(&marker);
    marker.size = 0;
    return &marker;
  }();
  return packet;
}

bool PacketQueue::is_tailer(const AVPacket& packet) {
  return packet.data == reinterpret_cast<const uint8_t*>(tailer());
}

void PacketQueue::safe_free(AVPacket* packet) {
  if (is_tailer(*packet)) {
    ZEVA_LOG(kLogDebug, "************ safe-free-packet(): pkt is tailer *****");
    return;
  }
  av_packet_unref(packet);
}

PacketQueue::~PacketQueue() {
  for (AVPacket& packet : packets) safe_free(&packet);
}

int PacketQueue::put(AVPacket* packet) {
  const std::lock_guard<std::mutex> lock(mutex);
  return append_locked(packet);
}

int PacketQueue::put_bounded(AVPacket* packet, uint32_t max_packets, bool block) {
  int result = 0;
  {
    std::unique_lock<std::mutex> lock(mutex);
    result = wait_for_place(lock, max_packets, block);
    if (result == 0) result = append_locked(packet);
  }
  if (result < 0) safe_free(packet);
  return result;
}

int PacketQueue::wait_for_place(std::unique_lock<std::mutex>& lock, uint32_t max_packets,
                                bool block) {
  if (abort_request) return -1;
  while (packets.size() >= max_packets) {
    ZEVA_LOG(kLogDebug, "write full: maxNpkt=%d, have=%d", static_cast<int>(max_packets),
             static_cast<int>(packets.size()));
    if (!block) return -2;
    not_full.wait(lock);
    if (abort_request) return -1;
  }
  return 0;
}

int PacketQueue::append_locked(AVPacket* packet) try {
  AVPacket& place = packets.emplace_back();
  if (is_tailer(*packet)) {
    place = *packet;
  } else if (av_packet_ref(&place, packet) < 0) {
    packets.pop_back();
    return -1;
  }
  not_empty.notify_one();
  return 0;
} catch (const std::exception&) {
  return -1;
}

int PacketQueue::get_within(AVPacket* packet, int timeout_ms) {
  std::unique_lock<std::mutex> lock(mutex);
  const auto ready = [this] { return abort_request || !packets.empty(); };
  if (timeout_ms == kForever) {
    not_empty.wait(lock, ready);
  } else if (!not_empty.wait_for(lock, std::chrono::milliseconds(timeout_ms), ready)) {
    return 0;
  }
  if (abort_request) return -1;
  *packet = packets.front();
  packets.pop_front();
  not_full.notify_one();
  return 1;
}

void PacketQueue::abort() {
  const std::lock_guard<std::mutex> lock(mutex);
  if (abort_request) return;
  abort_request = true;
  not_empty.notify_all();
  not_full.notify_all();
}

int PacketQueue::nb_packets() const {
  const std::lock_guard<std::mutex> lock(mutex);
  return static_cast<int>(packets.size());
}

}  // namespace zeva
