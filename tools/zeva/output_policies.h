// Policies for outputs that cannot keep up or go away, as the library takes them.
#pragma once

#include <string>
#include <vector>

#include "session_options.h"
#include "zeva/options.h"

namespace zeva_tool {

// A policy for each output. A stream beside a file never hurts the file: it may be absent, drops
// what its server does not take, and comes back. A stream alone must be there at the start, and
// comes back. At more than real speed nothing is dropped: the recording waits for its servers.
class OutputPolicies {
 public:
  explicit OutputPolicies(const SessionOptions& options);
  OutputPolicies(const OutputPolicies&) = delete;
  OutputPolicies& operator=(const OutputPolicies&) = delete;

  // `options` refers to this object then.
  void put_into(ZevaOptions& options) const;

 private:
  std::vector<ZevaOutputPolicy> policies;
  std::vector<const ZevaOutputPolicy*> pointers;
};

}  // namespace zeva_tool
