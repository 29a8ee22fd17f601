// Collects the library's log while it lives.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "zeva/log.h"

class LogCapture {
 public:
  using Hook = std::function<void(const std::string&)>;

  // `hook` sees every message on the thread that logs it: a place to act at an exact moment.
  explicit LogCapture(Hook hook = {}) : state(std::make_shared<State>()) {
    state->hook = std::move(hook);
    ZEVA_Set_Log_Callback([kept = state](const char*, int, const char*, int, const char* message) {
      {
        const std::lock_guard<std::mutex> lock(kept->mutex);
        kept->messages.emplace_back(message);
      }
      if (kept->hook) kept->hook(message);
    });
  }
  ~LogCapture() { ZEVA_Set_Log_Callback({}); }
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  std::vector<std::string> messages() const {
    const std::lock_guard<std::mutex> lock(state->mutex);
    return state->messages;
  }
  // Messages that hold `text`.
  int count(const std::string& text) const {
    int found = 0;
    for (const std::string& m : messages()) found += m.find(text) != std::string::npos ? 1 : 0;
    return found;
  }

 private:
  struct State {
    Hook hook;
    std::mutex mutex;
    std::vector<std::string> messages;
  };
  std::shared_ptr<State> state;
};
