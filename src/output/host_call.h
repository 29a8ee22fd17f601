// A call of the host's status callback, while it runs.
#pragma once

namespace zeva {

// Marks that this thread is telling the host something of the recording behind `handle`, until the
// object goes. A callback may start another recording, which reports at once, so they nest.
class HostCall {
 public:
  explicit HostCall(const void* handle) : handle(handle), outer(innermost) { innermost = this; }
  ~HostCall() { innermost = outer; }
  HostCall(const HostCall&) = delete;
  HostCall& operator=(const HostCall&) = delete;

  // True when the calling thread is inside such a call: it cannot wait for itself to end.
  static bool is_inside(const void* handle) {
    for (const HostCall* call = innermost; call != nullptr; call = call->outer) {
      if (call->handle == handle) return true;
    }
    return false;
  }

 private:
  const void* const handle;
  const HostCall* const outer;
  static thread_local const HostCall* innermost;
};

}  // namespace zeva
