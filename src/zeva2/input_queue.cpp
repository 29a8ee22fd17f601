#include "input_queue.h"

#include <algorithm>
#include <cstring>

#include "elapsed.h"
#include "ffmpeg.h"
#include "logger.h"
#include "saturating.h"

namespace zeva {

namespace {

constexpr size_t kSortedPackets = 5;
constexpr int32_t kQueuedPackets = 2000;
constexpr int64_t kQueuedBytes = INT32_MAX;  // also with packets of many megabytes
constexpr uint32_t kPushTimeoutMs = 50;
constexpr uint32_t kPollMs = 10;
constexpr int64_t kProbeTimeoutMs = 3000;
// Three times what FFmpeg looks at. It counts pictures only; the bytes before the first one, which
// in garbage never comes, it would collect until there is no memory.
constexpr int64_t kProbeBytes = 15000000;

}  // namespace

InputQueue::~InputQueue() {
  for (const auto& [key, node] : sort_queue) qel::release_node(node);
}

bool InputQueue::push_data(const void* data, int32_t nbytes, int64_t usec) {
  const std::lock_guard<std::mutex> lock(sort_mutex);
  size_t keep = 0;
  if (data != nullptr && nbytes >= 1) {
    if (!sort_in_locked(data, nbytes, usec)) return false;
    keep = kSortedPackets;
  }
  while (sort_queue.size() > keep) queue_oldest_locked();
  return true;
}

bool InputQueue::sort_in_locked(const void* data, int32_t nbytes, int64_t usec) {
  qel::ZVMemNode* node = alloc_node(static_cast<uint32_t>(nbytes));
  if (node == nullptr) {
    ZEVA_LOG(kLogError, "malloc pnode==null, aborted");
    return false;
  }
  if (nbytes > largest_packet) largest_packet = nbytes;
  // With room to count up past all that are sorted.
  int64_t key = std::clamp(usec, kMinStamp, kMaxStamp - static_cast<int64_t>(kSortedPackets));
  while (sort_queue.count(key) != 0) ++key;
  memcpy(node->data, data, static_cast<size_t>(nbytes));
  node->pts = key;
  sort_queue.emplace(key, node);
  return true;
}

void InputQueue::queue_oldest_locked() {
  const auto oldest = sort_queue.begin();
  const auto [key, node] = *oldest;
  const bool fits = queued_bytes() + node->size + qel::kNodeHeaderBytes <= kQueuedBytes;
  if (fits && push(node, kQueuedPackets, false, kPushTimeoutMs) == qel::QueueResult::Ok) {
    sort_queue.erase(oldest);
    ZEVA_LOG(kLogDebug, "push_data() : %s, pts=%lld  (pkt_q.size=%d, pts_q.size=%d)",
             name().c_str(), static_cast<long long>(key), size(), pts_queue.size());
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

// Called before anybody can pop the node, so that no packet is demuxed before its stamp is there.
void InputQueue::on_pushed(qel::ZVMemNode*& node) {
  ZVPacketQueue::on_pushed(node);
  if (node != nullptr) (void)pts_queue.push(node->pts, qel::kUnbounded, false, 0);
}

int InputQueue::read_packet(void* opaque, uint8_t* buffer, int size) {
  auto& queue = *static_cast<InputQueue*>(opaque);
  const Elapsed elapsed;
  // FFmpeg asks again after an error; only the first time may take 3 s.
  while (queue.given_up == 0) {
    if (queue.is_aborted()) {
      ZEVA_LOG(kLogError, "read-buffer,EOF: ===> '%s'", queue.name().c_str());
      return AVERROR_EOF;
    }
    const int taken = queue.read_some(buffer, size);
    if (taken != 0) return taken;
    queue.give_up_probing(elapsed.ms());
  }
  return queue.given_up;
}

// What there is within a short wait: all of `size`, a part of it, or nothing.
int InputQueue::read_some(uint8_t* buffer, int size) {
  if (!probed && read_bytes > kProbeBytes + 2 * int64_t{largest_packet}) {
    ZEVA_LOG(kLogError, "'%s': no stream found in %lld bytes", name().c_str(),
             static_cast<long long>(read_bytes));
    return given_up = AVERROR_INVALIDDATA;
  }
  const qel::QueueResult result = read(buffer, size, false, kPollMs);
  if (result == qel::QueueResult::Invalid) return AVERROR(EINVAL);
  int taken = 0;
  if (result == qel::QueueResult::Ok) taken = size;
  if (result == qel::QueueResult::Empty) taken = take_pending(buffer, size);
  read_bytes += taken;
  return taken;
}

void InputQueue::give_up_probing(int64_t waited_ms) {
  if (probed || waited_ms < kProbeTimeoutMs) return;
  ZEVA_LOG(kLogError, "warning: ===> '%s' has no input data, wait timeout (time=%lldmsec)",
           name().c_str(), static_cast<long long>(waited_ms));
  given_up = AVERROR_STREAM_NOT_FOUND;
}

std::string InputQueue::name() {
  const std::lock_guard<std::mutex> lock(name_mutex);
  return format_name;
}

void InputQueue::set_name(const std::string& format) {
  const std::lock_guard<std::mutex> lock(name_mutex);
  format_name = format;
}

}  // namespace zeva
