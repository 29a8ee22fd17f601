#include "access_unit_assembler.h"

#include "logger.h"

namespace zeva {
namespace {

// Far more than the parameter sets of any picture. A host that writes nothing else fills no memory.
constexpr size_t kMaxKeptBytes = size_t{1} << 20;

}  // namespace

bool AccessUnitAssembler::take(const uint8_t* packet, size_t size_bytes, Parts* parts) {
  *parts = {};
  const std::vector<AccessUnitPart> found = split_access_units(packet, size_bytes);
  if (found.empty()) {
    ZEVA_LOG(kLogError, "a packet of %zu bytes is left out: no H.264 with start codes", size_bytes);
    return false;
  }
  const AccessUnitPart& first = found.front();
  const AccessUnitPart& last = found.back();
  const uint8_t* begin = packet;
  const uint8_t* end = last.has_picture ? packet + size_bytes : last.data;
  if (first.continues) {
    parts->slices = {first.data, first.size_bytes};
    begin += first.size_bytes;
  }
  if (begin != end) {
    joined = std::move(kept);
    kept.clear();
    const bool alone = joined.empty();
    if (!alone) joined.insert(joined.end(), begin, end);
    parts->pictures = alone ? Bytes{begin, static_cast<size_t>(end - begin)}
                            : Bytes{joined.data(), joined.size()};
  }
  if (!last.has_picture) keep(last);
  return true;
}

void AccessUnitAssembler::keep(const AccessUnitPart& part) {
  if (kept.size() + part.size_bytes > kMaxKeptBytes) {
    ZEVA_LOG(kLogError, "%zu bytes of parameter sets without a picture are left out", kept.size());
    kept.clear();
  }
  if (part.size_bytes <= kMaxKeptBytes)
    kept.insert(kept.end(), part.data, part.data + part.size_bytes);
}

}  // namespace zeva
