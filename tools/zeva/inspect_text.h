// The words and lines of `zeva inspect`.
#pragma once

#include <string>

#include "index_facts.h"

namespace zeva_tool {

std::string facts_text(const IndexFacts& facts);

// "video h264 1280x720", "audio aac 48000 Hz, 2 channels"
std::string stream_name(const StreamFacts& stream);

// Where the index is damaged, a sentence each; the last one counts those that are not told.
std::vector<std::string> damage_sentences(const IndexFacts& facts);

}  // namespace zeva_tool
