// Looking up the name of a server without being held up by it.
#pragma once

#include <functional>
#include <string>

namespace zeva {

// Has the system's resolver look up `host`, on a thread of its own, since nothing ends a look-up
// that is not answered. True once it has ended, with an address or without; false when `give_up`,
// which is asked every few milliseconds, said so first. Then the thread stays until the resolver
// lets it go, and the library stays loaded with it; the next wait for the same name joins it.
bool wait_for_name(const std::string& host, const std::function<bool()>& give_up);

}  // namespace zeva
