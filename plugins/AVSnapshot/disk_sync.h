// Keeps what is written of some files on the disk while they grow.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
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
//
// After a failed sync the system forgets what it could not write, and later syncs succeed without
// it. So the first failure is final: it is reported, and no sync follows.
class DiskSync {
 public:
  using Failed = std::function<void(const std::string& text)>;
  using Sync = bool (*)(FILE* file);

  // `failed` is called once at most, with the file and the error: on the thread of the syncs, or on
  // that of `start` or `end`, which is the last call that may make it. `sync` is sync_file, unless
  // a test wants syncs to fail.
  explicit DiskSync(Failed failed = {}, Sync sync = sync_file)
      : failed_callback(std::move(failed)), sync(sync) {}
  ~DiskSync() { (void)end(); }
  DiskSync(const DiskSync&) = delete;
  DiskSync& operator=(const DiskSync&) = delete;

  // Begins with the regular files among the UTF-8 paths, which exist by now, and their folders;
  // other paths are left out. Without a thread to be had the files are synced at the end only,
  // which is reported. With `sync_now` the files are on the disk when the call returns.
  void start(const std::vector<std::string>& paths, bool sync_now);

  // What the operating system was given until now, which is all up to `mark`, is to reach the disk
  // within a second or so. Does not block.
  void request(int64_t mark = 0);

  // The mark up to which everything has reached the disk; -1 before anything has. Any thread.
  int64_t synced() const { return synced_mark; }

  // Puts everything on the disk a last time and blocks until it is there. True when all that was
  // written of all files is; later calls give the same answer.
  bool end();

 private:
  struct File {
    std::string path;
    FilePtr handle;
  };

  void run();
  void sync_folders();
  void sync_files(int64_t mark);
  void fail(const std::string& path, int error);
  void report(const std::string& text);

  // Fixed after start.
  const Failed failed_callback;
  const Sync sync;
  std::vector<File> files;
  std::thread thread;
  // Of one thread at a time: the caller's, and between `start` and `end` the own one.
  bool failed = false;
  bool reported = false;
  std::atomic<int64_t> synced_mark{-1};

  std::mutex mutex;
  std::condition_variable changed;
  bool requested = false;      // guarded by mutex
  int64_t requested_mark = 0;  // guarded by mutex
  bool ending = false;         // guarded by mutex
};

}  // namespace zeva
