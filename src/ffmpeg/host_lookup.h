// The look-up of a server's name before FFmpeg's own, which nothing can end.
#pragma once

#include <string>

#include "io_interrupt.h"

namespace zeva {

// The host of "scheme://user@host:port/path" without the brackets of an IPv6 address; empty for
// none.
std::string host_of(const std::string& url);

// Waits until the system knows the host of `url`, or knows that there is none such, so that FFmpeg
// learns at once; nothing to do for an address in numbers. False when `io` gave up.
bool find_host(const std::string& url, IoInterrupt& io);

}  // namespace zeva
