#include "input_queue.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "clock.h"
#include "logger.h"
#include "saturating.h"

namespace zeva {

namespace {

constexpr size_t kSortedPackets = 5;
constexpr int64_t kLongestSortedMs = 500;
constexpr int32_t kQueuedPackets = 2000;
constexpr int64_t kQueuedBytes = INT32_MAX;  // also with packets of many megabytes
constexpr uint32_t kPushTimeoutMs = 50;

// The times travel in front of the packet's bytes.
constexpr int32_t kHeadroom = sizeof(PacketTimes);

}  // namespace

InputQueue::~InputQueue() {
  for (const auto& [key, sorted] : sort_queue) qel::release_node(sorted.node);
}

bool InputQueue::push_data(const void* data, int32_t nbytes, int64_t usec) {
  PacketTimes times;
  times.dts = usec;
  return push_timed(data, nbytes, times);
}

bool InputQueue::push_timed(const void* data, int32_t nbytes, const PacketTimes& times) {
  const bool flush = data == nullptr || nbytes < 1;
  if (flush ? left_out.load() : refuses()) return false;
  const std::lock_guard<std::mutex> lock(sort_mutex);
  size_t keep = 0;
  if (!flush) {
    if (!sort_in_locked(data, nbytes, times)) return false;
    keep = kSortedPackets;
  }
  while (sort_queue.size() > keep) queue_oldest_locked();
  return true;
}

bool InputQueue::sort_in_locked(const void* data, int32_t nbytes, PacketTimes times) {
  qel::ZVMemNode* node = alloc_node(static_cast<uint32_t>(nbytes), kHeadroom);
  if (node == nullptr) {
    ZEVA_LOG(kLogError, "malloc pnode==null, aborted");
    return false;
  }
  // With room to count up past all that are sorted.
  times.dts = std::clamp(times.dts, kMinStamp, kMaxStamp - static_cast<int64_t>(kSortedPackets));
  while (!times.exact && sort_queue.count(times.dts) != 0) ++times.dts;
  memcpy(node->data, data, static_cast<size_t>(nbytes));
  memcpy(node->head, &times, sizeof times);
  node->pts = times.dts;
  newest = sort_queue.insert({times.dts, {node, steady_us()}});
  has_newest = true;
  // The worker waits for the end of the half second from now on.
  if (signal != nullptr && sort_queue.size() == 1) signal->changed(this);
  return true;
}

bool InputQueue::append_to_newest(const void* data, size_t nbytes) {
  const std::lock_guard<std::mutex> lock(sort_mutex);
  if (!has_newest) return false;
  qel::ZVMemNode* const node = newest->second.node;
  const auto before = static_cast<size_t>(node->size);
  if (before + nbytes > INT32_MAX) return false;
  qel::ZVMemNode* const longer = alloc_node(static_cast<uint32_t>(before + nbytes), kHeadroom);
  if (longer == nullptr) return false;
  memcpy(longer->data, node->data, before);
  memcpy(longer->data + before, data, nbytes);
  memcpy(longer->head, node->head, sizeof(PacketTimes));
  longer->pts = node->pts;
  newest->second.node = longer;
  qel::release_node(node);
  return true;
}

void InputQueue::queue_oldest_locked() {
  const auto oldest = sort_queue.begin();
  qel::ZVMemNode* const node = oldest->second.node;
  const bool fits = queued_bytes() + node->size + qel::kNodeHeaderBytes <= kQueuedBytes;
  if (has_newest && oldest == newest) has_newest = false;
  if (fits && push(node, kQueuedPackets, false, kPushTimeoutMs) == qel::QueueResult::Ok) {
    ZEVA_LOG(kLogDebug, "push_data() : %s, pts=%lld  (pkt_q.size=%d)", name().c_str(),
             static_cast<long long>(oldest->first), size());
    sort_queue.erase(oldest);
    return;
  }
  ZEVA_LOG(kLogError,
           "[%s] pb.queue(sz=%d) is full; ---> sort.queue.(sz=%d);  drop front-node.(nbytes=%d, "
           "usec=%lld)",
           name().c_str(), size(), static_cast<int>(sort_queue.size()), node->size,
           static_cast<long long>(node->pts));
  qel::release_node(node);
  sort_queue.erase(oldest);
}

bool InputQueue::refuses() {
  if (!left_out) return false;
  if (!late.exchange(true) && signal != nullptr) signal->changed(this);
  return true;
}

bool InputQueue::came_late() { return late && !std::exchange(late_told, true); }

void InputQueue::leave_out() {
  const std::lock_guard<std::mutex> lock(sort_mutex);
  left_out = true;
  for (const auto& [key, sorted] : sort_queue) qel::release_node(sorted.node);
  sort_queue.clear();
  has_newest = false;
  qel::ZVMemNode* node = nullptr;
  while (pop(node, false, 0, true) == qel::QueueResult::Ok) qel::release_node(node);
}

int64_t InputQueue::release_due() {
  const std::lock_guard<std::mutex> lock(sort_mutex);
  if (sort_queue.empty()) return -1;
  const int64_t now_us = steady_us();
  int64_t oldest_us = INT64_MAX;
  size_t seen = 0, due = 0;  // everything before a due packet in time goes with it
  for (const auto& [key, sorted] : sort_queue) {
    ++seen;
    oldest_us = std::min(oldest_us, sorted.since_us);
    if (now_us - sorted.since_us >= kLongestSortedMs * 1000) due = seen;
  }
  if (due == 0) return std::max<int64_t>(1, kLongestSortedMs - (now_us - oldest_us) / 1000);
  for (; due > 0; --due) queue_oldest_locked();
  return 0;
}

PacketTimes InputQueue::times_of(const qel::ZVMemNode& node) {
  PacketTimes times;
  memcpy(&times, node.head, sizeof times);
  return times;
}

std::string InputQueue::name() {
  const std::lock_guard<std::mutex> lock(name_mutex);
  return format_name;
}

void InputQueue::set_name(const std::string& format) {
  const std::lock_guard<std::mutex> lock(name_mutex);
  format_name = format;
}

void InputQueue::set_signal(InputSignal* told) {
  signal = told;
  set_waiter(told);
}

}  // namespace zeva
