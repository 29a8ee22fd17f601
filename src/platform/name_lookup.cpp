#include "name_lookup.h"

#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <thread>

#include "immortal.h"

#ifdef _WIN32
#include <winsock2.h>
#include <ws2tcpip.h>
// After winsock2.h.
#include <windows.h>
#else
#include <dlfcn.h>
#include <netdb.h>
#endif

namespace zeva {
namespace {

constexpr std::chrono::milliseconds kBetweenQuestions{20};

struct LookUp {
  std::mutex mutex;
  std::condition_variable changed;
  bool done = false;  // guarded by mutex
  std::thread thread;
};
using LookUpPtr = std::shared_ptr<LookUp>;

// Those that nobody waits for any more, by the name.
struct Abandoned {
  std::mutex mutex;
  std::map<std::string, LookUpPtr> by_host;
};
Immortal<Abandoned> abandoned;

void keep_library_loaded() {
#ifdef _WIN32
  HMODULE module = nullptr;
  GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_PIN | GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS,
                     reinterpret_cast<LPCWSTR>(&keep_library_loaded), &module);
#else
  Dl_info info{};
  if (dladdr(reinterpret_cast<void*>(&keep_library_loaded), &info) != 0) {
    (void)dlopen(info.dli_fname, RTLD_LAZY | RTLD_NOLOAD | RTLD_NODELETE);
  }
#endif
}

void resolve(const std::string& host, LookUp& look_up) {
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  if (getaddrinfo(host.c_str(), nullptr, &hints, &found) == 0) freeaddrinfo(found);
  const std::lock_guard<std::mutex> lock(look_up.mutex);
  look_up.done = true;
  look_up.changed.notify_all();
}

LookUpPtr take_or_start(const std::string& host) {
  {
    const std::lock_guard<std::mutex> lock(abandoned.value.mutex);
    const auto found = abandoned.value.by_host.find(host);
    if (found != abandoned.value.by_host.end()) {
      LookUpPtr look_up = std::move(found->second);
      abandoned.value.by_host.erase(found);
      return look_up;
    }
  }
  auto look_up = std::make_shared<LookUp>();
  look_up->thread = std::thread([host, look_up] { resolve(host, *look_up); });
  return look_up;
}

void abandon(const std::string& host, LookUpPtr look_up) {
  keep_library_loaded();
  const std::lock_guard<std::mutex> lock(abandoned.value.mutex);
  LookUpPtr& place = abandoned.value.by_host[host];
  if (place != nullptr) {  // another output waited for the same name
    if (place->thread.joinable()) place->thread.detach();
  }
  place = std::move(look_up);
}

}  // namespace

bool wait_for_name(const std::string& host, const std::function<bool()>& give_up) {
  LookUpPtr look_up = take_or_start(host);
  {
    std::unique_lock<std::mutex> lock(look_up->mutex);
    while (!look_up->changed.wait_for(lock, kBetweenQuestions, [&] { return look_up->done; })) {
      lock.unlock();
      const bool gives_up = give_up();
      if (gives_up) {
        abandon(host, std::move(look_up));
        return false;
      }
      lock.lock();
    }
  }
  look_up->thread.join();
  return true;
}

}  // namespace zeva
