#include "disk_sync.h"

#include <cerrno>
#include <chrono>
#include <system_error>
#include <utility>

#include "logger.h"

namespace zeva {
namespace {

// Short enough for a loss that hurts little, long enough that disks do other things as well.
constexpr std::chrono::milliseconds kPeriod{1000};

}  // namespace

void DiskSync::start(const std::vector<std::string>& paths, bool sync_now) {
  if (!files.empty()) return;
  for (const std::string& path : paths) {
    if (file_size(path) < 0) continue;
    // A handle of its own that reads and writes: some systems need the right to write.
    errno = 0;
    FilePtr handle(open_file(path.c_str(), "r+b"));
    if (handle == nullptr) {
      fail(path, errno);
    } else {
      files.push_back({path, std::move(handle)});
    }
  }
  if (files.empty()) return;
  if (sync_now) sync_files(0);
  try {
    thread = std::thread(&DiskSync::run, this);
  } catch (const std::system_error& e) {
    report("no thread to keep " + files.front().path + " on the disk: " + e.what());
  }
}

void DiskSync::request(int64_t mark) {
  const std::lock_guard<std::mutex> lock(mutex);
  requested = true;
  requested_mark = mark;
  changed.notify_one();
}

bool DiskSync::end() {
  if (thread.joinable()) {
    {
      const std::lock_guard<std::mutex> lock(mutex);
      ending = true;
    }
    changed.notify_one();
    thread.join();
  }
  sync_files(requested_mark);
  files.clear();
  return !failed;
}

void DiskSync::run() {
  sync_folders();
  std::unique_lock<std::mutex> lock(mutex);
  while (!ending) {
    changed.wait(lock, [this] { return requested || ending; });
    requested = false;
    if (ending) return;
    const int64_t mark = requested_mark;
    lock.unlock();
    sync_files(mark);
    lock.lock();
    changed.wait_for(lock, kPeriod, [this] { return ending; });
  }
}

// Some file systems have no way to sync a folder; that is no failure.
void DiskSync::sync_folders() {
  for (const File& file : files) {
    errno = 0;
    if (!sync_folder_of(file.path) && errno != EINVAL && errno != ENOTSUP) fail(file.path, errno);
  }
}

void DiskSync::sync_files(int64_t mark) {
  for (const File& file : files) {
    if (failed) return;
    errno = 0;
    if (!sync(file.handle.get())) fail(file.path, errno);
  }
  if (!failed && !files.empty()) synced_mark = mark;
}

void DiskSync::fail(const std::string& path, int error) {
  failed = true;
  report("the disk may not keep " + path + ": " +
         std::generic_category().message(error != 0 ? error : EIO));
}

void DiskSync::report(const std::string& text) {
  if (std::exchange(reported, true)) return;
  ZEVA_LOG(kLogError, "%s", text.c_str());
  if (failed_callback) failed_callback(text);
}

}  // namespace zeva
