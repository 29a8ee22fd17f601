#include "disk_sync.h"

#include <chrono>
#include <system_error>
#include <utility>

#include "files.h"
#include "logger.h"

namespace zeva {
namespace {

// Short enough for a loss that hurts little, long enough that disks do other things as well.
constexpr std::chrono::milliseconds kPeriod{1000};

}  // namespace

void DiskSync::start(const std::vector<std::string>& paths) {
  if (thread.joinable()) return;
  for (const std::string& path : paths) {
    // A handle of its own that reads and writes: some systems need the right to write.
    FilePtr file(file_size(path) >= 0 ? open_file(path.c_str(), "r+b") : nullptr);
    if (file != nullptr) files.push_back(std::move(file));
  }
  if (files.empty()) return;
  try {
    thread = std::thread(&DiskSync::run, this);
  } catch (const std::system_error& e) {
    ZEVA_LOG(kLogError, "no thread to keep the movie on the disk: %s", e.what());
  }
}

void DiskSync::request() {
  const std::lock_guard<std::mutex> lock(mutex);
  requested = true;
  changed.notify_one();
}

void DiskSync::end() {
  if (!thread.joinable()) return;
  {
    const std::lock_guard<std::mutex> lock(mutex);
    ending = true;
  }
  changed.notify_one();
  thread.join();
  files.clear();
}

void DiskSync::run() {
  std::unique_lock<std::mutex> lock(mutex);
  for (bool last = false; !last;) {
    changed.wait(lock, [this] { return requested || ending; });
    requested = false;
    last = ending;
    lock.unlock();
    for (const FilePtr& file : files) sync_file(file.get());
    lock.lock();
    changed.wait_for(lock, kPeriod, [this] { return ending; });
  }
}

}  // namespace zeva
