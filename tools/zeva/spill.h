// The second place of a recording whose file ends before it, since its disk is full.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "recording.h"
#include "source.h"
#include "terminal.h"

namespace zeva_tool {

// Records the same source into a file of another folder, from the moment that one of the outputs
// has ended. Its movie begins at time 0 with the next key picture. One thread.
class Spill {
 public:
  // A recording of the same source into that file alone.
  using Make = std::function<std::unique_ptr<Recording>(const std::string& path)>;

  // Without a folder there is no second place.
  Spill(std::string into_folder, Make how) : folder(std::move(into_folder)), make(std::move(how)) {}

  // There is a second place, and nothing has gone there yet.
  bool is_free() const { return !folder.empty() && second_path.empty(); }
  // True when a file ended for which there is a second place.
  bool is_wanted(const std::vector<std::string>& urls, const std::vector<ZevaOutputState>& states);
  // Opens it for the piece with that stamp; blocks until it is open or has failed. Once.
  void begin(int64_t stamp_us, Terminal& terminal, StatusLine& line);
  bool is_running() const { return running; }

  // False when it was refused.
  bool write(Source& source, int64_t stamp_us);
  Recording* place() const { return is_running() ? recording.get() : nullptr; }
  // Ends it; blocks until its file is finished.
  void stop();

  // The output that ended, the file it goes on in (empty for none), and why that failed, if it did.
  const std::string& ended() const { return ended_url; }
  const std::string& path() const { return second_path; }
  std::string fault() const;

 private:
  std::string free_name(const std::string& url) const;

  std::string folder;
  Make make;
  std::string ended_url;
  std::string second_path;
  std::string refusal;
  StatusInbox inbox;
  std::unique_ptr<Recording> recording;  // after the inbox that it reports to
  bool running = false;
  int64_t from_us = 0;
};

}  // namespace zeva_tool
