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
  return write_kept();
}

bool FileIo::ensure_room(int64_t end_bytes, int64_t spare_bytes) {
  if (!can_reserve || end_bytes <= reserved || !is_committed()) return true;
  int64_t wanted = end_bytes + std::clamp<int64_t>(spare_bytes, 0, kReserveStepBytes);
  int error = calls.reserve(file.get(), reserved, wanted);
  if (error == ENOSPC) {
    wanted = end_bytes;
    error = calls.reserve(file.get(), reserved, wanted);
  }
  if (error == 0) reserved = wanted;
  if (error == ENOTSUP) can_reserve = false;
  return error != ENOSPC;
}

int64_t FileIo::own_bytes() const {
  if (is_committed()) return std::max(reserved, written);
  return file.replaces() ? std::max<int64_t>(file_size(file.path()), 0) : 0;
}

int FileIo::error() const { return failure == 0 && pb != nullptr ? pb->error : failure; }

int FileIo::retry() {
  if (failure == 0) return error();
  failure = 0;
  return write_kept();
}

bool FileIo::read(int64_t offset_bytes, uint8_t* data, size_t count) {
  const bool done =
      seek_file(file.get(), offset_bytes) && fread(data, 1, count, file.get()) == count;
  clearerr(file.get());
  return seek_file(file.get(), position) && done;
}

int FileIo::close() {
  if (!file.is_open()) return 0;
  if (pb != nullptr) avio_flush(pb.get());
  int result = error();
  pb.reset();
  const int given_back = give_back_space();
  if (result >= 0) result = given_back;
  const int closed = file.close();
  return result < 0 ? result : AVERROR(closed);
}

// Only the file itself knows how much a failed write has left.
int FileIo::give_back_space() {
  if (!is_committed() || reserved <= written) return 0;
  if (failure == 0) return AVERROR(truncate_file(file.get(), written));
  if (fseek(file.get(), 0, SEEK_END) != 0) return 0;
  const int64_t end = tell_file(file.get());
  if (end >= written) (void)truncate_file(file.get(), end);
  return 0;
}

// ---- for FFmpeg

int FileIo::write_packet(void* self, uint8_t* data, int size) {
  const int result = static_cast<FileIo*>(self)->write_or_keep(data, static_cast<size_t>(size));
  return result < 0 ? result : size;
}

int64_t FileIo::seek(void* self, int64_t offset, int whence) {
  auto& io = *static_cast<FileIo*>(self);
  if ((whence & AVSEEK_SIZE) != 0) return io.size;
  if (whence == SEEK_CUR) offset += io.position;
  if (whence == SEEK_END) offset += io.size;
  if (offset < 0) return AVERROR(EINVAL);
  io.move_to(offset);
  return offset;
}

// ---- the file

void FileIo::move_to(int64_t to) {
  position = to;
  if (!is_committed() || failure != 0) return;
  errno = 0;
  if (!seek_file(file.get(), to)) failure = AVERROR(errno != 0 ? errno : EIO);
}

int FileIo::write_or_keep(const uint8_t* data, size_t count) {
  const bool writable = is_committed() && failure == 0;
  const size_t taken = writable ? write_at_position(data, count) : 0;
  return taken == count ? 0 : keep(data + taken, count - taken);
}

// Returns how much the file took, with `failure` set when that is not all.
size_t FileIo::write_at_position(const uint8_t* data, size_t count) {
  if (count == 0) return 0;
  errno = 0;
  const size_t taken = calls.write(data, 1, count, file.get());
  position += static_cast<int64_t>(taken);
  written = std::max(written, position);
  size = std::max(size, position);
  if (taken == count) return taken;
  failure = AVERROR(errno != 0 ? errno : EIO);
  clearerr(file.get());
  return taken;
}

int FileIo::keep(const uint8_t* data, size_t count) try {
  Piece& last = kept.emplace_back();
  last.position = position;
  last.bytes.assign(data, data + count);
  position += static_cast<int64_t>(count);
  size = std::max(size, position);
  return 0;
} catch (const std::bad_alloc&) {
  return AVERROR(ENOMEM);
}

// Afterwards the next byte goes where FFmpeg believes it goes.
int FileIo::write_kept() {
  const int64_t goes_on_at = position;
  std::vector<Piece> pieces;
  pieces.swap(kept);
  int result = 0;
  for (const Piece& piece : pieces) {
    move_to(piece.position);
    result = std::min(result, write_or_keep(piece.bytes.data(), piece.bytes.size()));
  }
  move_to(goes_on_at);
  return result < 0 ? result : failure;
}

}  // namespace zeva
