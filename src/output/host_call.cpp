#include "host_call.h"

namespace zeva {

thread_local const HostCall* HostCall::innermost = nullptr;

}  // namespace zeva
