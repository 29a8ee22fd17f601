// What is at a path.
#pragma once

#include <string>

#include "status.h"

namespace zeva_tool {

// Fails unless there is a regular file at the UTF-8 path.
Status check_is_file(const std::string& path);

}  // namespace zeva_tool
