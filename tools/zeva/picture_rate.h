// Picture rates as people write them: 25, 12.5, 29.97, 30000/1001.
#pragma once

#include <optional>
#include <string>

#include "av.h"

namespace zeva_tool {

// Nothing for a text that is no rate, or one outside of 1/1000 to `max` pictures a second. 29.97,
// 23.976, 59.94 and their like are meant as 30000/1001, 24000/1001, 60000/1001.
std::optional<AVRational> parse_rate(const std::string& text, int max);

// The whole number of pictures a second that is nearest, and at least 1.
int whole_rate(AVRational rate);

}  // namespace zeva_tool
