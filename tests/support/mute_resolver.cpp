// Preloaded into a program: looking up never.invalid takes ten seconds and then fails, as when the
// name servers are out of reach. All other names are looked up as ever.
#include <dlfcn.h>
#include <netdb.h>
#include <unistd.h>

#include <cstring>

extern "C" __attribute__((visibility("default"))) int getaddrinfo(const char* name,
                                                                  const char* service,
                                                                  const addrinfo* hints,
                                                                  addrinfo** found) {
  constexpr unsigned kPatienceS = 10;
  if (name != nullptr && strcmp(name, "never.invalid") == 0) {
    sleep(kPatienceS);
    return EAI_AGAIN;
  }
  static const auto look_up =
      reinterpret_cast<decltype(&getaddrinfo)>(dlsym(RTLD_NEXT, "getaddrinfo"));
  return look_up(name, service, hints, found);
}
