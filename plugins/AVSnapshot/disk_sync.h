// Keeps what is written of some files on the disk while they grow.
#pragma once

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "files.h"

namespace zeva {

// The operating system keeps what it is given in memory, for half a minute and more; a power
// failure takes that along. So a thread asks it, about once a second while there is something new,
// to put the files on the disk. Writers never wait for it. One thread at a time calls the
// functions.
class DiskSync {
 public:
  DiskSync() = default;
  ~DiskSync() { end(); }
  DiskSync(const DiskSync&) = delete;
  DiskSync& operator=(const DiskSync&) = delete;

  // Begins with the regular files among the UTF-8 paths; others are left out. Without a thread to
  // be had, nothing is kept.
  void start(const std::vector<std::string>& paths);

  // What the operating system was given until now is to reach the disk within a second or so. Does
  // not block.
  void request();

  // Puts everything on the disk a last time and blocks until it is there.
  void end();

 private:
  void run();

  std::vector<FilePtr> files;
  std::thread thread;
  std::mutex mutex;
  std::condition_variable changed;
  bool requested = false;  // guarded by mutex
  bool ending = false;     // guarded by mutex
};

}  // namespace zeva
