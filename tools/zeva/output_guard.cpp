#include "output_guard.h"

#include <filesystem>
#include <fstream>

#include "file_check.h"
#include "index_analysis.h"
#include "movie_search.h"
#include "output_url.h"
#include "repair_outcome.h"

namespace fs = std::filesystem;

namespace zeva_tool {
namespace {

// An older index goes with its movie; another file that was named by mistake does not.
bool begins_like_index(const std::string& path) {
  std::ifstream file(fs::u8path(path), std::ios::binary);
  char head[3] = {};
  return file.read(head, sizeof head) && std::string(head, sizeof head) == "## ";
}

bool can_be_brought_back(const std::string& movie, const std::string& index) {
  Mp4Layout layout;
  if (!read_mp4_layout(movie, layout).ok() || layout.has_trailer) return false;
  IndexFacts facts;
  return analyse_index(index, movie, facts).ok() && why_hopeless(facts).empty();
}

// A recording that runs may not have written anything to its movie yet.
Status check_running(const std::string& movie, const std::string& planned_index) {
  for (const std::string& index : {planned_index, find_index(movie)}) {
    if (index.empty() || !is_being_written(index)) continue;
    return Status("the index " + index + " belongs to a recording that is still running");
  }
  return {};
}

// The index beside an unfinished movie is all that can bring that movie back.
Status check_unfinished(const std::string& movie, const std::string& planned_index) {
  if (!takes_index(movie)) return {};
  for (const std::string& index : {planned_index, find_index(movie)}) {
    if (regular_file_bytes(index) < 0 || !can_be_brought_back(movie, index)) continue;
    return Status(movie + " is an unfinished recording that its index " + index +
                  " can still bring back: let `zeva recover` do so, then move both away");
  }
  return {};
}

Status check_replacing(const std::string& path, const GuardedOutputs& outputs, Terminal& terminal) {
  if (outputs.replace) return {};
  if (!outputs.may_ask || !terminal.can_ask()) {
    return Status(path + " exists already; -y replaces it");
  }
  if (terminal.ask(path + " exists already. Replace it? [y/N]")) return {};
  return Status(path + " stays as it is");
}

}  // namespace

Status guard_outputs(const GuardedOutputs& outputs, Terminal& terminal) {
  std::vector<std::string> there;
  for (const std::string& path : outputs.paths) {
    Status status = check_running(path, outputs.index);
    if (!status.ok()) return status;
    if (regular_file_bytes(path) <= 0) continue;
    status = check_unfinished(path, outputs.index);
    if (!status.ok()) return status;
    there.push_back(path);
  }
  if (regular_file_bytes(outputs.index) > 0 && !begins_like_index(outputs.index)) {
    there.push_back(outputs.index);
  }
  for (const std::string& path : there) {
    Status status = check_replacing(path, outputs, terminal);
    if (!status.ok()) return status;
  }
  return {};
}

}  // namespace zeva_tool
