#include "output_policies.h"

#include <algorithm>
#include <cmath>

#include "output_url.h"

namespace zeva_tool {
namespace {

constexpr int64_t kFirstReconnectUs = 250000;
constexpr int64_t kLongestReconnectUs = 2000000;
constexpr int64_t kForever = -1;
constexpr double kMega = 1024 * 1024;

ZevaOutputPolicy file_policy(const SessionOptions& options) {
  ZevaOutputPolicy policy;
  ZevaOutputPolicy_init(&policy);
  policy.keep_free_bytes = std::llround(options.keep_free_mb * kMega);
  return policy;
}

ZevaOutputPolicy stream_policy(const SessionOptions& options, bool beside_file) {
  ZevaOutputPolicy policy;
  ZevaOutputPolicy_init(&policy);
  if (options.require_streams) policy.required = kZevaYes;
  if (options.fast) return policy;
  policy.when_full = kZevaFullDrop;
  policy.keep_us = std::llround(options.stream_keep_s * 1e6);
  if (options.require_streams) return policy;
  if (beside_file) policy.required = kZevaNo;
  policy.reconnect_first_us = kFirstReconnectUs;
  policy.reconnect_longest_us = kLongestReconnectUs;
  policy.reconnect_total_us = kForever;
  return policy;
}

}  // namespace

OutputPolicies::OutputPolicies(const SessionOptions& options) {
  const std::vector<std::string> urls = output_urls(options);
  const bool has_file = std::any_of(urls.begin(), urls.end(), is_local_file);
  for (const std::string& url : urls) {
    policies.push_back(is_local_file(url) ? file_policy(options)
                                          : stream_policy(options, has_file));
  }
  for (const ZevaOutputPolicy& policy : policies) pointers.push_back(&policy);
}

void OutputPolicies::put_into(ZevaOptions& options) const {
  options.policies = pointers.data();
  options.policy_count = static_cast<int32_t>(pointers.size());
}

}  // namespace zeva_tool
