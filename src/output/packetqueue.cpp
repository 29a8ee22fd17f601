#include "packetqueue.h"

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

PacketQueue::PacketQueue() { tailer(); }

PacketQueue::~PacketQueue() {
  const std::lock_guard<std::mutex> lock(mutex);
  while (first != nullptr) {
    PacketNode* node = first;
    first = node->next;
    drop_node(node);
  }
}

PacketQueue::PacketNode* PacketQueue::make_node(AVPacket* packet) {
  auto* node = static_cast<PacketNode*>(av_mallocz(sizeof(PacketNode)));
  if (node == nullptr) return nullptr;
  if (packet == tailer()) {
    node->packet = *packet;
  } else if (av_packet_ref(&node->packet, packet) < 0) {
    av_free(node);
    return nullptr;
  }
  return node;
}

void PacketQueue::drop_node(PacketNode* node) {
  safe_free(&node->packet);
  av_free(node);
}

int PacketQueue::put(AVPacket* packet) {
  PacketNode* node = make_node(packet);
  if (node == nullptr) return -1;
  const std::lock_guard<std::mutex> lock(mutex);
  append_locked(node);
  return 0;
}

int PacketQueue::put_bounded(AVPacket* packet, uint32_t max_packets, bool block) {
  PacketNode* node = make_node(packet);
  if (node == nullptr) {
    safe_free(packet);
    return -1;
  }
  std::unique_lock<std::mutex> lock(mutex);
  const int result = wait_for_place(lock, max_packets, block);
  if (result == 0) {
    append_locked(node);
    return 0;
  }
  lock.unlock();
  safe_free(packet);
  drop_node(node);
  return result;
}

int PacketQueue::wait_for_place(std::unique_lock<std::mutex>& lock, uint32_t max_packets,
                                bool block) {
  if (abort_request) return -1;
  while (static_cast<uint32_t>(packets) >= max_packets) {
    ZEVA_LOG(kLogDebug, "write full: maxNpkt=%d, have=%d", static_cast<int>(max_packets), packets);
    if (!block) return -2;
    not_full.wait(lock);
    if (abort_request) return -1;
  }
  return 0;
}

void PacketQueue::append_locked(PacketNode* node) {
  (last != nullptr ? last->next : first) = node;
  last = node;
  ++packets;
  size_bytes += node->packet.size + static_cast<int32_t>(sizeof(PacketNode));
  not_empty.notify_one();
}

int PacketQueue::get(AVPacket* packet, bool block) {
  std::unique_lock<std::mutex> lock(mutex);
  if (abort_request) return -1;
  while (first == nullptr) {
    if (!block) return 0;
    not_empty.wait(lock);
    if (abort_request) return -1;
  }
  PacketNode* node = first;
  first = node->next;
  if (first == nullptr) last = nullptr;
  --packets;
  size_bytes -= node->packet.size + static_cast<int32_t>(sizeof(PacketNode));
  *packet = node->packet;
  av_free(node);
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
  return packets;
}

}  // namespace zeva
