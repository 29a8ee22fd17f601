// Takes the library's log while it lives.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "zeva/log.h"

struct LogLine {
  int level;
  std::string file;
  std::string message;
};

class LogCapture {
 public:
  using Hook = std::function<void(const std::string&)>;

  // `hook` sees every message on the thread that logs it: a place to act at an exact moment. The
  // state is shared with the callback, which may still be running when this object is gone.
  explicit LogCapture(Hook hook = {}) : state(std::make_shared<State>()) {
    ZEVA_Set_Log_Callback([kept = state, hook = std::move(hook)](
                              const char*, int level, const char* file, int, const char* message) {
      {
        const std::lock_guard<std::mutex> lock(kept->mutex);
        kept->lines.push_back({level, file, message});
      }
      if (hook) hook(message);
    });
  }
  ~LogCapture() { ZEVA_Set_Log_Callback({}); }
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  std::vector<LogLine> take() {
    const std::lock_guard<std::mutex> lock(state->mutex);
    return std::exchange(state->lines, {});
  }
  std::vector<std::string> messages() const {
    const std::lock_guard<std::mutex> lock(state->mutex);
    std::vector<std::string> all;
    for (const LogLine& line : state->lines) all.push_back(line.message);
    return all;
  }
  // Messages that hold `text`.
  int count(const std::string& text) const {
    int found = 0;
    for (const std::string& m : messages()) found += m.find(text) != std::string::npos ? 1 : 0;
    return found;
  }

 private:
  struct State {
    std::mutex mutex;
    std::vector<LogLine> lines;
  };
  std::shared_ptr<State> state;
};
