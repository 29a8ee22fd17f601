#include "packetqueue.h"

#include <algorithm>
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
  for (Entry& entry : entries) safe_free(&entry.packet);
}

int PacketQueue::put(AVPacket* packet, int64_t time_us) {
  const std::lock_guard<std::mutex> lock(mutex);
  return append_locked(packet, time_us);
}

int PacketQueue::put_bounded(AVPacket* packet, const Limits& limits, bool block, int64_t time_us) {
  int result = 0;
  {
    std::unique_lock<std::mutex> lock(mutex);
    result = wait_for_place(lock, limits, block);
    if (result == 0) result = append_locked(packet, time_us);
  }
  if (result < 0) safe_free(packet);
  return result;
}

int PacketQueue::wait_for_place(std::unique_lock<std::mutex>& lock, const Limits& limits,
                                bool block) {
  if (abort_request) return -1;
  while (backlog_locked().reaches(limits) && !never_waits) {
    ZEVA_LOG(kLogDebug, "write full: maxNpkt=%d, have=%d", static_cast<int>(limits.packets),
             static_cast<int>(entries.size()));
    if (!block) return -2;
    not_full.wait(lock);
    if (abort_request) return -1;
  }
  return 0;
}

int PacketQueue::append_locked(AVPacket* packet, int64_t time_us) try {
  Entry& entry = entries.emplace_back();
  entry.time_us = time_us;
  if (is_tailer(*packet)) {
    entry.packet = *packet;
    entry.time_us = entries.size() > 1 ? entries[entries.size() - 2].time_us : 0;
  } else if (av_packet_ref(&entry.packet, packet) < 0) {
    entries.pop_back();
    return -1;
  }
  bytes += entry.packet.size;
  not_empty.notify_one();
  return 0;
} catch (const std::exception&) {
  return -1;
}

int PacketQueue::get_within(AVPacket* packet, int timeout_ms) {
  std::unique_lock<std::mutex> lock(mutex);
  const auto ready = [this] { return abort_request || !entries.empty(); };
  if (timeout_ms == kForever) {
    not_empty.wait(lock, ready);
  } else if (!not_empty.wait_for(lock, std::chrono::milliseconds(timeout_ms), ready)) {
    return 0;
  }
  if (abort_request) return -1;
  *packet = entries.front().packet;
  bytes -= packet->size;
  entries.pop_front();
  not_full.notify_all();  // each of the waiters has limits of its own
  return 1;
}

void PacketQueue::abort() {
  const std::lock_guard<std::mutex> lock(mutex);
  if (abort_request) return;
  abort_request = true;
  not_empty.notify_all();
  not_full.notify_all();
}

void PacketQueue::stop_waiting() {
  const std::lock_guard<std::mutex> lock(mutex);
  never_waits = true;
  not_full.notify_all();
}

void PacketQueue::clear(const std::function<void(const AVPacket&)>& drop) {
  const std::lock_guard<std::mutex> lock(mutex);
  bool ended = false;
  for (Entry& entry : entries) {
    if (is_tailer(entry.packet)) {
      ended = true;
      continue;
    }
    drop(entry.packet);
    safe_free(&entry.packet);
  }
  entries.clear();
  bytes = 0;
  if (ended) (void)append_locked(tailer(), 0);
  not_full.notify_all();
}

PacketQueue::Backlog PacketQueue::backlog() const {
  const std::lock_guard<std::mutex> lock(mutex);
  return backlog_locked();
}

PacketQueue::Backlog PacketQueue::backlog_until(int64_t time_us) const {
  const std::lock_guard<std::mutex> lock(mutex);
  Backlog backlog = backlog_locked();
  if (!entries.empty()) backlog.us = std::max(backlog.us, time_us - entries.front().time_us);
  return backlog;
}

PacketQueue::Backlog PacketQueue::backlog_locked() const {
  if (entries.empty()) return {};
  const int64_t us = entries.back().time_us - entries.front().time_us;
  return {static_cast<int64_t>(entries.size()), std::max<int64_t>(us, 0), bytes};
}

}  // namespace zeva
