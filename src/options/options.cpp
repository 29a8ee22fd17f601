#include "options.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "versioned_record.h"

namespace zeva {
namespace {

constexpr int64_t kMaxRate = 1000;  // pictures a second
constexpr int32_t kMaxChannels = 8;
constexpr int32_t kMostOutputs = 64;  // more than either settings record has places for

std::string number_fault(const char* field, int64_t value, const char* why) {
  return std::string(field) + " " + std::to_string(value) + " " + why;
}

// A newer host's record is longer. It can be honoured when it asks for nothing beyond these fields.
template <typename Record>
std::string size_fault(const Record& given, const std::string& type) {
  const std::string size = "struct_size " + std::to_string(given.struct_size) + " ";
  if (given.struct_size < sizeof given.struct_size || given.struct_size > kAbsurdRecordSize) {
    return size + "is not the size of a " + type + "; " + type + "_init sets it";
  }
  const auto* bytes = reinterpret_cast<const unsigned char*>(&given);
  const uint32_t known = std::min<uint32_t>(given.struct_size, sizeof given);
  const bool asks_for_more = std::any_of(bytes + known, bytes + given.struct_size,
                                         [](unsigned char byte) { return byte != 0; });
  return asks_for_more ? size + "holds settings that this version does not know" : "";
}

// Reads the fields that lie within the host's record; an older host's is shorter.
class FieldReader {
 public:
  explicit FieldReader(const ZevaOptions& given) : given(given) {}

  template <typename Field>
  Field get(Field ZevaOptions::*field) const {
    const auto* begin = reinterpret_cast<const char*>(&given);
    const auto* end = reinterpret_cast<const char*>(&(given.*field) + 1);
    return end - begin <= static_cast<ptrdiff_t>(given.struct_size) ? given.*field : Field{};
  }
  std::string text(const char* ZevaOptions::*field) const {
    const char* found = get(field);
    return found != nullptr ? found : "";
  }

 private:
  const ZevaOptions& given;
};

std::string policy_fault(const ZevaOutputPolicy& policy) {
  if (policy.when_full < kZevaFullDefault || policy.when_full > kZevaFullFail) {
    return number_fault("when_full", policy.when_full, "is none of kZevaFull...");
  }
  if (policy.required < kZevaDefault || policy.required > kZevaNo) {
    return number_fault("required", policy.required, "is none of kZevaDefault, Yes and No");
  }
  const struct {
    const char* field;
    int64_t value;
    int64_t least;
  } numbers[] = {
      {"keep_us", policy.keep_us, 0},
      {"keep_bytes", policy.keep_bytes, 0},
      {"reconnect_first_us", policy.reconnect_first_us, 0},
      {"reconnect_longest_us", policy.reconnect_longest_us, 0},
      {"reconnect_total_us", policy.reconnect_total_us, -1},
      {"keep_free_bytes", policy.keep_free_bytes, 0},
  };
  for (const auto& number : numbers) {
    if (number.value < number.least) {
      return number_fault(number.field, number.value, "is out of range");
    }
  }
  return {};
}

std::string flag_fault(const char* field, int32_t value) {
  return value == 0 || value == 1 ? "" : number_fault(field, value, "is neither 0 nor 1");
}

// The host's policies in full length; those it left out are all defaults.
std::string copy_policies(const FieldReader& record, std::vector<ZevaOutputPolicy>& policies) {
  const int32_t count = record.get(&ZevaOptions::policy_count);
  const ZevaOutputPolicy* const* given = record.get(&ZevaOptions::policies);
  if (count < 0 || count > kMostOutputs) {
    return number_fault("policy_count", count, "is out of range");
  }
  for (int32_t i = 0; given != nullptr && i < count; ++i) {
    policies.emplace_back();
    if (given[i] == nullptr) continue;
    const std::string number = "policy " + std::to_string(i) + ": ";
    std::string fault = size_fault(*given[i], "ZevaOutputPolicy");
    if (!fault.empty()) return number + fault;
    ZevaOutputPolicy& policy = policies.back();
    memcpy(&policy, given[i], std::min<size_t>(given[i]->struct_size, sizeof policy));
    fault = policy_fault(policy);
    if (!fault.empty()) return number + fault;
  }
  return {};
}

}  // namespace

Options::Options(const ZevaOptions* given) {
  if (given == nullptr) return;
  record_fault = size_fault(*given, "ZevaOptions");
  if (!record_fault.empty()) return;
  const FieldReader record(*given);
  rate_num = record.get(&ZevaOptions::rate_num);
  rate_den = record.get(&ZevaOptions::rate_den);
  variable_rate = record.get(&ZevaOptions::variable_rate) == 1;
  channels = record.get(&ZevaOptions::channels);
  rotation_deg = record.get(&ZevaOptions::rotation_deg);
  common_start = record.get(&ZevaOptions::common_start) == 1;
  video_codec = record.text(&ZevaOptions::video_codec);
  audio_codec = record.text(&ZevaOptions::audio_codec);
  encoder_options = record.text(&ZevaOptions::encoder_options);
  source_matrix = record.get(&ZevaOptions::source_matrix);
  source_range = record.get(&ZevaOptions::source_range);
  stream_bitrate_floor = record.get(&ZevaOptions::stream_bitrate_floor);
  stream_bitrate = record.get(&ZevaOptions::stream_bitrate);
  stream_width = record.get(&ZevaOptions::stream_width);
  stream_height = record.get(&ZevaOptions::stream_height);
  record_fault = flag_fault("variable_rate", record.get(&ZevaOptions::variable_rate));
  if (record_fault.empty()) {
    record_fault = flag_fault("common_start", record.get(&ZevaOptions::common_start));
  }
  if (record_fault.empty()) record_fault = copy_policies(record, policies);
}

std::string Options::fault() const {
  if (!record_fault.empty()) return record_fault;
  const bool rate_valid =
      rate_num >= 1 && rate_den >= 1 && int64_t{rate_num} <= kMaxRate * rate_den;
  if (has_rate() && !rate_valid) {
    return "rate_num/rate_den " + std::to_string(rate_num) + "/" + std::to_string(rate_den) +
           " is out of range";
  }
  if (channels < 0 || channels > kMaxChannels) {
    return number_fault("channels", channels, "is out of range");
  }
  if (rotation_deg % 90 != 0 || rotation_deg < 0 || rotation_deg > 270) {
    return number_fault("rotation_deg", rotation_deg, "is not 0, 90, 180 or 270");
  }
  const struct {
    const char* field;
    int32_t value;
  } counts[] = {{"stream_bitrate_floor", stream_bitrate_floor},
                {"stream_bitrate", stream_bitrate},
                {"stream_width", stream_width},
                {"stream_height", stream_height}};
  for (const auto& count : counts) {
    if (count.value < 0) return number_fault(count.field, count.value, "is out of range");
  }
  return {};
}

}  // namespace zeva
