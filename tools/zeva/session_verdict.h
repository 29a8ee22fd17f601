// What went wrong with the outputs of a recording.
#pragma once

#include <string>
#include <vector>

#include "recorder.h"

namespace zeva_tool {

// A sentence for every output that is not what it should be; empty when all were finished. The
// library's reports do not say which output they are about; the files do. Where the library does
// not report every failure either, each file must prove that it reaches the recording's end.
std::vector<std::string> recording_faults(const std::vector<std::string>& urls,
                                          const RecordingResult& result,
                                          bool every_failure_reported);

}  // namespace zeva_tool
