// Preloaded into a program: a disk that fails under some of its files. In the environment:
//   ZEVA_FAULT_FILES   their paths, joined by colons
//   ZEVA_FAULT_AT      the number of the write that fails, over all of them, from 1 on
//   ZEVA_FAULT_KIND    "full": half of that write still fits, nothing can be set aside
//                      "gone": nothing of it is written, nothing is kept
//   ZEVA_FAULT_MARK    a file that is created when that write comes
// No later write succeeds. The library and FFmpeg write by fwrite without a buffer, or by write.
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <sstream>
#include <string>
#include <vector>

#define EXPORTED extern "C" __attribute__((visibility("default")))

namespace {

std::string setting(const char* name) {
  const char* value = getenv(name);
  return value != nullptr ? value : "";
}

template <typename Function>
Function* next(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

class Disk {
 public:
  Disk() : full(setting("ZEVA_FAULT_KIND") == "full"), at(atoi(setting("ZEVA_FAULT_AT").c_str())) {
    std::istringstream paths(setting("ZEVA_FAULT_FILES"));
    for (std::string path; std::getline(paths, path, ':');) files.push_back(path);
  }

  bool has(int descriptor) const {
    char path[4096];
    const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
    const ssize_t length = readlink(link.c_str(), path, sizeof path);
    const std::string name(path, length > 0 ? static_cast<size_t>(length) : 0);
    for (const std::string& file : files) {
      if (file == name) return true;
    }
    return false;
  }

  // How many of the `count` bytes are written; errno is set when they are not all.
  size_t admit(size_t count) {
    const std::lock_guard<std::mutex> lock(mutex);
    ++writes;
    if (writes < at) return count;
    if (writes == at) creat(setting("ZEVA_FAULT_MARK").c_str(), S_IRUSR | S_IWUSR);
    errno = error();
    return full && writes == at ? count / 2 : 0;
  }

  bool is_broken() const { return writes >= at; }
  int error() const { return full ? ENOSPC : EIO; }

  const bool full;

 private:
  std::vector<std::string> files;
  const int at;
  int writes = 0;  // guarded by mutex
  std::mutex mutex;
};

Disk& disk() {
  static auto* const made = new Disk;  // outlives whatever the program does at its end
  return *made;
}

int set_aside(int descriptor, int mode, off_t begin, off_t bytes) {
  if (disk().has(descriptor) && (disk().full || disk().is_broken())) {
    errno = disk().full ? EOPNOTSUPP : EIO;
    return -1;
  }
  static auto* const call = next<decltype(::fallocate)>("fallocate");
  return call(descriptor, mode, begin, bytes);
}

}  // namespace

EXPORTED size_t fwrite(const void* data, size_t size, size_t count, FILE* file) {
  static auto* const call = next<decltype(::fwrite)>("fwrite");
  if (size * count == 0 || !disk().has(fileno(file))) return call(data, size, count, file);
  const size_t bytes = disk().admit(size * count);
  const int error = errno;
  const size_t written = bytes > 0 ? call(data, 1, bytes, file) : 0;
  if (bytes < size * count) errno = error;
  return written / size;
}

EXPORTED ssize_t write(int descriptor, const void* data, size_t count) {
  static auto* const call = next<decltype(::write)>("write");
  if (count == 0 || !disk().has(descriptor)) return call(descriptor, data, count);
  const size_t bytes = disk().admit(count);
  return bytes > 0 ? call(descriptor, data, bytes) : -1;
}

EXPORTED int fallocate(int descriptor, int mode, off_t begin, off_t bytes) {
  return set_aside(descriptor, mode, begin, bytes);
}

EXPORTED int fallocate64(int descriptor, int mode, off64_t begin, off64_t bytes) {
  return set_aside(descriptor, mode, begin, bytes);
}

EXPORTED int fdatasync(int descriptor) {
  static auto* const call = next<decltype(::fdatasync)>("fdatasync");
  if (disk().full || !disk().has(descriptor) || !disk().is_broken()) return call(descriptor);
  errno = EIO;
  return -1;
}
