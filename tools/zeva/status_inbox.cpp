#include "status_inbox.h"

#include <algorithm>
#include <new>
#include <utility>

#include "terminal.h"
#include "zeva/status.h"

namespace zeva_tool {
namespace {

constexpr int kFirstNoticeCode = 100;  // codes from here on end nothing (zeva/status.h)
constexpr int kLastStreamCode = kZevaStatusOutputGivenUp;
constexpr size_t kMostReports = 32;  // every output's, and one of each kind

}  // namespace

Report make_report(int code, const char* message) noexcept {
  try {
    std::string text = message && *message ? message : "no reason given";
    return {code, text + " (code " + std::to_string(code) + ")"};
  } catch (const std::bad_alloc&) {
    return {code, "no memory left"};  // short enough to need none
  }
}

// Room is made beforehand, so that a report of missing memory needs none.
StatusInbox::StatusInbox() {
  reported.reserve(kMostReports);
  noticed.reserve(kMostReports);
  changed.reserve(kMostReports);
}

void StatusInbox::receive(int code, const char* message, void* user) noexcept {
  static_cast<StatusInbox*>(user)->put(make_report(code, message));
  Terminal::wake();
}

void StatusInbox::put(Report report) {
  std::lock_guard<std::mutex> lock(mutex);
  if (report.code == 0) {
    is_open = true;
    return;
  }
  if (report.code >= kFirstNoticeCode && report.code <= kLastStreamCode) {
    if (changed.size() < kMostReports) changed.push_back(std::move(report));
    return;
  }
  std::vector<Report>& list = report.code < kFirstNoticeCode ? reported : noticed;
  bool known = &list == &noticed && std::find(list.begin(), list.end(), report) != list.end();
  if (!known && list.size() < kMostReports) list.push_back(std::move(report));
}

std::vector<Report> StatusInbox::take_changes() {
  std::vector<Report> taken;
  taken.reserve(kMostReports);
  std::lock_guard<std::mutex> lock(mutex);
  taken.swap(changed);
  return taken;
}

bool StatusInbox::opened() const {
  std::lock_guard<std::mutex> lock(mutex);
  return is_open;
}

bool StatusInbox::opening_decided() const {
  std::lock_guard<std::mutex> lock(mutex);
  return is_open || !reported.empty();
}

std::vector<Report> StatusInbox::failures() const {
  std::lock_guard<std::mutex> lock(mutex);
  return reported;
}

size_t StatusInbox::failure_count() const {
  std::lock_guard<std::mutex> lock(mutex);
  return reported.size();
}

std::vector<Report> StatusInbox::notices() const {
  std::lock_guard<std::mutex> lock(mutex);
  return noticed;
}

size_t StatusInbox::notice_count() const {
  std::lock_guard<std::mutex> lock(mutex);
  return noticed.size();
}

}  // namespace zeva_tool
