// The words and lines of `zeva inspect`.
#pragma once

#include <string>

#include "index_facts.h"

namespace zeva_tool {

std::string facts_text(const IndexFacts& facts);

// "video h264 1280x720", "audio aac 48000 Hz, 2 channels"
std::string stream_name(const StreamFacts& stream);

// The losses in the middle of the recording, a sentence each: lines of the index that are
// damaged, packets without a record, packets without their bytes. The first ones of each kind stand
// alone, the others are counted.
std::vector<std::string> damage_sentences(const IndexFacts& facts);

}  // namespace zeva_tool
