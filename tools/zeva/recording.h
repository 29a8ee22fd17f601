// One recording of the library, through either of its two interfaces, as the recorder sees it.
//
// All calls come from one thread.
#pragma once

#include <cstdint>

#include "av.h"
#include "status.h"
#include "status_inbox.h"
#include "status_line.h"
#include "zeva/outputs.h"

namespace zeva_tool {

// What the recording takes once it is open.
struct RecordingStreams {
  bool pictures = false;
  bool sound = false;
  // The grid that pictures are put on, in pictures a second; 0: every picture is taken.
  AVRational grid_rate{0, 1};
};

class Recording {
 public:
  virtual ~Recording() = default;

  // Makes the settings; the source is open.
  virtual Status prepare() = 0;

  // Starts to open; reports, the opening's outcome too, go to the inbox, which must outlive the
  // recording.
  virtual void start(StatusInbox& inbox) = 0;

  // After the inbox heard of the opening's success. False when it failed after all.
  virtual bool begin(RecordingStreams& streams, StatusLine& line) = 0;

  virtual void* handle() = 0;
  virtual bool pause() = 0;
  virtual bool resume() = 0;
  virtual int64_t movie_time_us() const = 0;

  // Whether the library can be given a piece now without losing one.
  enum class Room { kYes, kNotYet, kNever };
  virtual Room room() { return Room::kYes; }

  // Nothing more will be written; what the library holds back for sorting may go on.
  virtual void flush() {}

  // How many packets have not reached their outputs yet.
  virtual int64_t waiting() { return 0; }

  // Whether the outputs came to be open.
  virtual bool outputs_opened() const { return true; }

  // True when it takes nothing more of any stream.
  virtual bool has_ended() { return false; }

  // Whether one failure ends all outputs, rather than its own only.
  virtual bool one_failure_ends_all() const { return false; }

  // False when it is not known.
  virtual bool output_state(int32_t /*output*/, ZevaOutputState& /*state*/) const { return false; }

  virtual bool statistics(ZevaStatistics& /*statistics*/) const { return false; }

  // Ends the recording; blocks until the outputs are finished.
  virtual void stop() = 0;
};

}  // namespace zeva_tool
