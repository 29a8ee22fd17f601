// Collects the reports of a recording, which come on the library's threads.
#pragma once

#include <cstddef>
#include <mutex>
#include <string>
#include <vector>

namespace zeva_tool {

struct Failure {
  int code;
  std::string text;  // the library's, with the code
};

class StatusInbox {
 public:
  // A ZEVA_status_callback; `user` is the inbox. Wakes the terminal.
  static void receive(int code, const char* message, void* user);

  bool opened() const;
  bool opening_decided() const;  // opened or failed

  // All failures reported so far.
  std::vector<Failure> failures() const;
  size_t failure_count() const;

 private:
  mutable std::mutex mutex;
  bool is_open = false;
  std::vector<Failure> reported;
};

}  // namespace zeva_tool
