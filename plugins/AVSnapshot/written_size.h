// How much of a recording's file was really written.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <vector>

namespace zeva {

// A file that a power failure left may be longer than what was written of it: some file systems
// (NTFS) keep the new size before the bytes, and what never came reads as zeros. Packets that lie
// there are lost, although the file seems to hold them.
//
// Returns where a tail of so many zeros begins that no packet ends in them, else `size_bytes`. File
// systems keep blocks of 512 bytes at least, so the block with the last byte counts as written: a
// packet may end in zeros of its own.
// `read_at(position, buffer, count)` fills `buffer`; when it returns false the size is believed.
template <typename ReadAt>
int64_t written_size(int64_t size_bytes, ReadAt read_at) {
  constexpr int64_t kZerosOfNoPacket = 4096;
  constexpr int64_t kStepBytes = 65536;
  std::vector<char> bytes(static_cast<size_t>(std::clamp<int64_t>(size_bytes, 0, kStepBytes)));
  int64_t end = size_bytes;
  while (end > 0) {
    const int64_t count = std::min(end, kStepBytes);
    if (!read_at(end - count, bytes.data(), static_cast<size_t>(count))) return size_bytes;
    const auto last = std::find_if(std::make_reverse_iterator(bytes.begin() + count), bytes.rend(),
                                   [](char byte) { return byte != 0; });
    end -= last - std::make_reverse_iterator(bytes.begin() + count);
    if (last != bytes.rend()) break;
  }
  if (size_bytes - end < kZerosOfNoPacket) return size_bytes;
  constexpr int64_t kBlockBytes = 512;
  return (end + kBlockBytes - 1) / kBlockBytes * kBlockBytes;
}

}  // namespace zeva
