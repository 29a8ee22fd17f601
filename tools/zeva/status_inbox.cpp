#include "status_inbox.h"

#include "terminal.h"

namespace zeva_tool {

void StatusInbox::receive(int code, const char* message, void* user) {
  auto* inbox = static_cast<StatusInbox*>(user);
  {
    std::lock_guard<std::mutex> lock(inbox->mutex);
    if (code == 0) {
      inbox->is_open = true;
    } else {
      std::string text = message && *message ? message : "no reason given";
      inbox->reported.push_back({code, text + " (code " + std::to_string(code) + ")"});
    }
  }
  Terminal::wake();
}

bool StatusInbox::opened() const {
  std::lock_guard<std::mutex> lock(mutex);
  return is_open;
}

bool StatusInbox::opening_decided() const {
  std::lock_guard<std::mutex> lock(mutex);
  return is_open || !reported.empty();
}

std::vector<Failure> StatusInbox::failures() const {
  std::lock_guard<std::mutex> lock(mutex);
  return reported;
}

size_t StatusInbox::failure_count() const {
  std::lock_guard<std::mutex> lock(mutex);
  return reported.size();
}

}  // namespace zeva_tool
