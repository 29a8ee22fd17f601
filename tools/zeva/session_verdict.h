// The outcome of a recording.
#pragma once

#include <string>
#include <vector>

#include "recorder.h"

namespace zeva_tool {

// A sentence for every output that is not what it should be; empty when all were finished. A report
// that names its output in quotes is believed; for others the files tell. When packets are recorded
// the other outputs end with one that fails, and packets may be dropped: each file must reach the
// recording's end.
std::vector<std::string> recording_faults(const std::vector<std::string>& urls,
                                          const RecordingResult& result, bool of_packets);

// A sentence for everything that finished outputs lack: pictures or sound that the encoder refused,
// a stream that came too late.
std::vector<std::string> missing_parts(const RecordingResult& result);

// True when the library could make no index, so that a file of its name is not the recording's.
bool lacks_index(const RecordingResult& result);

// A sentence for everything that is wrong with the recording's safety although its outputs are
// whole.
std::vector<std::string> recording_doubts(const RecordingResult& result);

// The files that were finished before the recording's end, since their disks have no more room.
std::vector<std::string> early_ends(const std::vector<std::string>& urls,
                                    const RecordingResult& result);

// A sentence for every stream that did not get everything.
std::vector<std::string> stream_gaps(const std::vector<std::string>& urls,
                                     const RecordingResult& result);

}  // namespace zeva_tool
