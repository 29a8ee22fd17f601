// Collects the reports of a recording, which come on the library's threads.
#pragma once

#include <cstddef>
#include <mutex>
#include <string>
#include <vector>

namespace zeva_tool {

struct Report {
  int code;
  std::string text;  // the library's, with the code
  bool operator==(const Report& other) const { return code == other.code && text == other.text; }
};

using Failure = Report;  // one that ended an output, the recording or the repair

// Of what a callback was given.
Report make_report(int code, const char* message) noexcept;

class StatusInbox {
 public:
  StatusInbox();

  // A ZEVA_status_callback; `user` is the inbox. Wakes the terminal.
  static void receive(int code, const char* message, void* user) noexcept;

  bool opened() const;
  bool opening_decided() const;  // opened or failed

  // The reports so far that ended an output or the whole recording.
  std::vector<Report> failures() const;
  size_t failure_count() const;

  // What became of live streams since this was asked last, in the order of the reports.
  std::vector<Report> take_changes();

  // The others that ended nothing, each of them once however often it came.
  std::vector<Report> notices() const;
  size_t notice_count() const;

 private:
  void put(Report report);

  mutable std::mutex mutex;
  // Guarded by mutex:
  bool is_open = false;
  std::vector<Report> reported;
  std::vector<Report> noticed;
  std::vector<Report> changed;
};

}  // namespace zeva_tool
