#include "file_io.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

namespace zeva {
namespace {

// As much as FFmpeg's own files hold back: few system calls, and a movie of 1 Mbit/s still moves
// every two seconds.
constexpr int kBufferBytes = 256 * 1024;
// Space is set aside in steps: one system call for many packets.
constexpr int64_t kReserveStepBytes = 4 * 1024 * 1024;

}  // namespace

int FileIo::open(const std::string& path) {
  auto* buffer = static_cast<uint8_t*>(av_malloc(kBufferBytes));
  if (buffer == nullptr) return AVERROR(ENOMEM);
  pb.reset(avio_alloc_context(buffer, kBufferBytes, 1, this, nullptr, write_packet, seek));
  if (pb == nullptr) {
    av_free(buffer);
    return AVERROR(ENOMEM);
  }
  pb->min_packet_size = pb->max_packet_size = kBufferBytes;  // FFmpeg would empty it at each packet
  const int error = file.open(path, NewFile::Mode::kBinary);
  if (error != 0) return AVERROR(error);
  setvbuf(file.get(), nullptr, _IONBF, 0);  // FFmpeg's buffer is enough
  return 0;
}

int FileIo::commit() {
  if (is_committed()) return 0;
  const int error = file.commit();
  if (error != 0) return AVERROR(error);
  // An older movie's bytes must not come back under the index of this one after a power failure.
  if (file.replaces()) (void)sync_file(file.get());
  const int64_t continued_at = position;
  position = 0;
  const int result = write_at_position(kept.data(), kept.size());
  kept = {};
  if (result < 0) return result;
  return seek(this, continued_at, SEEK_SET) < 0 ? AVERROR(EIO) : 0;
}

bool FileIo::ensure_room(int64_t end_bytes) {
  if (!can_reserve || end_bytes <= reserved || !is_committed()) return true;
  int64_t wanted = end_bytes + kReserveStepBytes;
  int error = reserve_space(file.get(), reserved, wanted);
  if (error == ENOSPC) {
    wanted = end_bytes;
    error = reserve_space(file.get(), reserved, wanted);
  }
  if (error == 0) reserved = wanted;
  if (error == ENOTSUP) can_reserve = false;
  return error != ENOSPC;
}

int FileIo::close() {
  if (!file.is_open()) return 0;
  if (pb != nullptr) avio_flush(pb.get());
  int result = pb != nullptr && pb->error < 0 ? pb->error : 0;
  pb.reset();
  // Gives back the space that was set aside and not used.
  if (is_committed() && reserved > size && result == 0) {
    result = AVERROR(truncate_file(file.get(), size));
  }
  const int error = file.close();
  return result < 0 ? result : AVERROR(error);
}

int FileIo::write_packet(void* self, uint8_t* data, int size) {
  auto& io = *static_cast<FileIo*>(self);
  const auto count = static_cast<size_t>(size);
  const int result = io.is_committed() ? io.write_at_position(data, count) : io.keep(data, count);
  return result < 0 ? result : size;
}

int FileIo::write_at_position(const uint8_t* data, size_t count) {
  if (count == 0) return 0;
  errno = 0;
  const size_t written = fwrite(data, 1, count, file.get());
  position += static_cast<int64_t>(written);
  size = std::max(size, position);
  if (written == count) return 0;
  const int error = errno != 0 ? errno : EIO;
  clearerr(file.get());
  return AVERROR(error);
}

int FileIo::keep(const uint8_t* data, size_t count) try {
  const size_t end = static_cast<size_t>(position) + count;
  if (kept.size() < end) kept.resize(end);
  std::copy_n(data, count, kept.begin() + position);
  position += static_cast<int64_t>(count);
  size = std::max(size, position);
  return 0;
} catch (const std::bad_alloc&) {
  return AVERROR(ENOMEM);
}

int64_t FileIo::seek(void* self, int64_t offset, int whence) {
  auto& io = *static_cast<FileIo*>(self);
  if ((whence & AVSEEK_SIZE) != 0) return io.size;
  if (whence == SEEK_CUR) offset += io.position;
  if (whence == SEEK_END) offset += io.size;
  if (offset < 0) return AVERROR(EINVAL);
  if (io.is_committed() && !seek_file(io.file.get(), offset)) return AVERROR(errno);
  io.position = offset;
  return offset;
}

}  // namespace zeva
