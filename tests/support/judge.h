// What an FFmpeg that is not ours makes of a recording. The judge is the build machine's own
// ffprobe and ffmpeg, also for recordings made by Windows programs under Wine.
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace zeva_test {

struct Outcome {
  int exit_code = -1;
  std::string output;  // standard output and error together
};

// Runs a script of the Unix shell and waits for its end. Bytes of the output come unchanged.
Outcome run_shell(const std::string& script);

// `path` as a quoted word of that shell.
std::string shell_path(const std::filesystem::path& path);

// One line of ffprobe's answer, by field name.
using Row = std::map<std::string, std::string>;

// `ffprobe <options> <file>`: one row per stream, packet or frame asked for.
std::vector<Row> probe(const std::filesystem::path& file, const std::string& options);
std::vector<Row> streams(const std::filesystem::path& file);  // frames counted by decoding
std::vector<Row> packets(const std::filesystem::path& file);  // in the order of the file

// Everything ffmpeg complains about while it decodes the whole file; empty is flawless.
std::string decode_faults(const std::filesystem::path& file);

// Decodes with these options behind the input, as raw bytes.
std::string decode(const std::filesystem::path& file, const std::string& options);

double number(const Row& row, const std::string& field);

}  // namespace zeva_test
