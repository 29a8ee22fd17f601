#include "host_lookup.h"

#include <algorithm>
#include <cctype>

#include "name_lookup.h"

namespace zeva {
namespace {

bool is_numeric(const std::string& host) {
  const bool v6 = host.find(':') != std::string::npos;
  return v6 || std::all_of(host.begin(), host.end(),
                           [](unsigned char c) { return std::isdigit(c) != 0 || c == '.'; });
}

}  // namespace

std::string host_of(const std::string& url) {
  const size_t scheme = url.find("://");
  if (scheme == std::string::npos) return {};
  std::string host = url.substr(scheme + 3);
  host = host.substr(0, host.find_first_of("/?#"));
  const size_t user = host.rfind('@');
  if (user != std::string::npos) host = host.substr(user + 1);
  if (!host.empty() && host.front() == '[') return host.substr(1, host.find(']') - 1);
  return host.substr(0, host.find(':'));
}

bool find_host(const std::string& url, IoInterrupt& io) {
  const std::string host = host_of(url);
  if (host.empty() || is_numeric(host)) return true;
  const AVIOInterruptCB callback = io.callback();
  return wait_for_name(host, [&] { return callback.callback(callback.opaque) != 0; });
}

}  // namespace zeva
