// Looks at what is at a path. All paths are UTF-8.
#pragma once

#include <cstdint>
#include <string>

#include "status.h"

namespace zeva_tool {

// Fails unless there is a regular file at the path.
Status check_is_file(const std::string& path);

// The size of the regular file that the path leads to; -1 when there is none.
int64_t regular_file_bytes(const std::string& path);

// A FIFO, a socket or a device: opening it could wait for ever or take data from a reader.
bool is_special_file(const std::string& path);

// True when a program that is alive keeps the file for its writing: on Windows by having it open
// for writing, elsewhere by an exclusive flock(). Both end with the program, however it ends.
bool is_being_written(const std::string& path);

// True when two paths name the same file, existing or not.
bool same_file(const std::string& a, const std::string& b);

}  // namespace zeva_tool
