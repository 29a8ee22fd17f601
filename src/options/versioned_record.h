// Records that a host's older or newer version of the headers made longer or shorter.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace zeva {

// No version of a record comes near it: the host left the size uninitialised.
inline constexpr uint32_t kAbsurdRecordSize = 4096;

// Fills in as much of the host's record as it has room for; the rest of a longer one stays. False,
// and nothing is filled in, when its `struct_size` cannot be.
template <typename Record>
bool fill_record(Record full, Record& given) {
  const uint32_t size = given.struct_size;
  if (size < sizeof size || size > kAbsurdRecordSize) return false;
  full.struct_size = size;
  memcpy(static_cast<void*>(&given), &full, std::min<size_t>(size, sizeof full));
  return true;
}

}  // namespace zeva
