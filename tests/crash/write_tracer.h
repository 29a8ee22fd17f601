// Runs a program and writes down what it does to the files of a folder.
#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "write_log.h"

namespace zeva_test {

// The system does not let processes be traced.
struct TracingRefused : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// A path that is asked for in this folder is a mark of the log: access("/zeva-mark/stopped").
constexpr char kMarkFolder[] = "/zeva-mark/";

// Follows all threads of the program at its system calls, below every library: standard I/O, FFmpeg
// and direct calls are seen alike. Throws on a call that changes a file of the folder in a way the
// log has no word for, and when the program fails. Blocks until the program has ended.
WriteLog trace_writes(const std::vector<std::string>& command, const std::filesystem::path& folder);

}  // namespace zeva_test
