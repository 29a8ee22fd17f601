// What went wrong with the outputs of a recording.
#pragma once

#include <string>
#include <vector>

#include "recorder.h"

namespace zeva_tool {

// A sentence for every output that is not what it should be; empty when all were finished. Of
// frames the reports do not say which output they are about; the files do. Of packets they name it,
// but the others end with it, and packets may be dropped: each file must reach the recording's end.
std::vector<std::string> recording_faults(const std::vector<std::string>& urls,
                                          const RecordingResult& result, bool of_packets);

}  // namespace zeva_tool
