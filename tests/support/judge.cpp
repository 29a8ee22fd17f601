#include "judge.h"

#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>

#include "recording.h"
#include "sockets.h"

#ifdef _WIN32
#include <windows.h>
#else
#include <cstdio>
#endif

namespace zeva_test {
namespace {

constexpr char kExitMark[] = "\nexit code ";

#ifdef _WIN32

// Wine starts a Linux program like any other, but hands over no pipe and does not wait for it. So
// the shell connects to a socket of ours, takes its script from there, and answers there.
std::string run_on_unix(const std::string& script) {
  const Listener listener;
  std::wstring command = L"\\\\?\\unix\\bin\\bash -c \"exec 3<>/dev/tcp/127.0.0.1/" +
                         std::to_wstring(listener.port()) +
                         L" && eval \\\"$(cat <&3)\\\" </dev/null >&3 2>&3\"";
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process{};
  if (!CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                      &startup, &process)) {
    throw std::runtime_error("no Unix shell: these tests run under Wine, not on Windows itself");
  }
  const Socket shell = listener.accept();
  send(shell, script.data(), static_cast<int>(script.size()), 0);
  shutdown(shell, SD_SEND);
  std::string output;
  char buffer[65536];
  int received;
  while ((received = recv(shell, buffer, sizeof buffer, 0)) > 0) {
    output.append(buffer, static_cast<size_t>(received));
  }
  close_socket(shell);
  return output;
}

#else

std::string run_on_unix(const std::string& script) {
  FILE* shell = popen(("{ " + script + "\n} </dev/null 2>&1").c_str(), "r");
  if (shell == nullptr) throw std::runtime_error("no shell");
  std::string output;
  char buffer[65536];
  size_t read;
  while ((read = fread(buffer, 1, sizeof buffer, shell)) > 0) output.append(buffer, read);
  pclose(shell);
  return output;
}

#endif

Row parse_row(const std::string& line) {
  Row row;
  std::istringstream fields(line);
  for (std::string field; std::getline(fields, field, '|');) {
    const size_t equals = field.find('=');
    if (equals != std::string::npos) row[field.substr(0, equals)] = field.substr(equals + 1);
  }
  return row;
}

}  // namespace

Outcome run_shell(const std::string& script) {
  std::string output = run_on_unix(script + "\nprintf '\\nexit code %d' $?");
  const size_t mark = output.rfind(kExitMark);
  if (mark == std::string::npos) return {-1, output};
  const int code = std::stoi(output.substr(mark + sizeof kExitMark - 1));
  output.resize(mark);
  return {code, output};
}

std::string shell_path(const std::filesystem::path& path) {
  std::string text = utf8(std::filesystem::absolute(path));
#ifdef _WIN32
  if (text.rfind("Z:", 0) != 0) throw std::runtime_error(text + " is not on Wine's drive Z");
  text.erase(0, 2);
  for (char& c : text) {
    if (c == '\\') c = '/';
  }
#endif
  return "'" + text + "'";
}

std::vector<Row> probe(const std::filesystem::path& file, const std::string& options) {
  const Outcome outcome =
      run_shell("ffprobe -v error -of compact=p=0 " + options + " " + shell_path(file));
  if (outcome.exit_code != 0) throw std::runtime_error("ffprobe: " + outcome.output);
  std::vector<Row> rows;
  std::istringstream lines(outcome.output);
  for (std::string line; std::getline(lines, line);) {
    if (Row row = parse_row(line); !row.empty()) rows.push_back(std::move(row));
  }
  return rows;
}

std::vector<Row> streams(const std::filesystem::path& file) {
  std::vector<Row> unique;  // a stream that belongs to a program is listed there once more
  for (Row& row : probe(file, "-count_frames -show_streams")) {
    if (std::stoul(row.at("index")) == unique.size()) unique.push_back(std::move(row));
  }
  return unique;
}

std::vector<Row> packets(const std::filesystem::path& file) { return probe(file, "-show_packets"); }

std::string decode_faults(const std::filesystem::path& file) {
  // In the file's own time base: rounding to whole pictures would look like a fault.
  const Outcome outcome = run_shell("ffmpeg -v error -xerror -i " + shell_path(file) +
                                    " -map 0 -enc_time_base -1 -f null -");
  return outcome.exit_code == 0 ? outcome.output : "ffmpeg gave up: " + outcome.output;
}

std::string decode(const std::filesystem::path& file, const std::string& options) {
  const std::filesystem::path raw = std::filesystem::path(file).concat(".raw");
  const Outcome outcome = run_shell("ffmpeg -v error -y -i " + shell_path(file) + " " + options +
                                    " " + shell_path(raw));
  if (outcome.exit_code != 0) throw std::runtime_error("ffmpeg: " + outcome.output);
  return read_file(raw);
}

double number(const Row& row, const std::string& field) {
  const auto found = row.find(field);
  if (found == row.end() || found->second == "N/A") {
    throw std::runtime_error("ffprobe gave no " + field);
  }
  return std::stod(found->second);
}

}  // namespace zeva_test
