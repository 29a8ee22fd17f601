#include "disk_room.h"

#include "clock.h"

namespace zeva {
namespace {

constexpr int64_t kPeriodUs = 1000000;
constexpr int64_t kStepBytes = 4 * 1024 * 1024;

}  // namespace

void DiskRoom::watch(const std::string& of_path, FreeBytes by) {
  path = of_path;
  free_bytes_of = by;
}

bool DiskRoom::is_due() const { return !path.empty() && steady_us() >= next_us; }

int64_t DiskRoom::left(int64_t end_bytes, int64_t own_bytes) {
  if (path.empty()) return INT64_MAX;
  // A limit is believed to be reached only when the disk has just said so.
  const bool far = end_bytes - asked_bytes >= kStepBytes || end_bytes > whole_bytes - kept_bytes;
  if (is_due() || (kept_bytes > 0 && far)) ask(end_bytes, own_bytes);
  if (kept_bytes <= 0 || answer_bytes < 0) return INT64_MAX;
  return whole_bytes - kept_bytes - end_bytes;
}

void DiskRoom::ask(int64_t end_bytes, int64_t own_bytes) {
  if (path.empty()) return;
  answer_bytes = free_bytes_of(path);
  next_us = steady_us() + kPeriodUs;
  asked_bytes = end_bytes;
  whole_bytes = answer_bytes < 0 ? INT64_MAX : answer_bytes + own_bytes;
}

}  // namespace zeva
