#include "movie_search.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <system_error>
#include <thread>

#include "file_check.h"
#include "output_url.h"

namespace fs = std::filesystem;

namespace zeva_tool {
namespace {

constexpr auto kFresh = std::chrono::seconds(5);
// A recorder of an ordinary movie writes to the movie or its index more often than that.
constexpr auto kWatch = std::chrono::milliseconds(1200);

// Whether the name is one of recovered_path().
bool is_recovery_name(const fs::path& movie) {
  std::string ending = movie.stem().extension().u8string();
  constexpr const char* kEnding = ".recovered";
  if (ending == kEnding) return true;
  size_t length = std::char_traits<char>::length(kEnding);
  return ending.compare(0, length + 1, std::string(kEnding) + "-") == 0 &&
         ending.find_first_not_of("0123456789", length + 1) == std::string::npos;
}

// Asked of the opened file: on Windows a folder's entries may tell an old size until the writer
// closes the file.
std::streamoff size_of(const std::string& path) {
  std::ifstream file(fs::u8path(path), std::ios::binary | std::ios::ate);
  return file ? std::streamoff(file.tellg()) : 0;
}

bool is_fresh(const std::string& path) {
  // On Windows the time of the last write may be told late as well.
  if (fs::path::preferred_separator != '/') return true;
  std::error_code error;
  auto changed = fs::last_write_time(fs::u8path(path), error);
  auto age = fs::file_time_type::clock::now() - changed;
  return !error && age < kFresh && age > -kFresh;
}

// A recorder that locks nothing differs from one that has just died only in that its movie grows.
void find_growing(std::vector<UnfinishedMovie>& movies) {
  struct Watched {
    UnfinishedMovie* movie;
    std::streamoff bytes;
  };
  auto bytes = [](const UnfinishedMovie& movie) {
    return size_of(movie.path) + (movie.index.empty() ? 0 : size_of(movie.index));
  };
  std::vector<Watched> watched;
  for (UnfinishedMovie& movie : movies) {
    movie.is_growing =
        is_being_written(movie.path) || (!movie.index.empty() && is_being_written(movie.index));
    if (movie.is_growing) continue;
    bool fresh = is_fresh(movie.path) || (!movie.index.empty() && is_fresh(movie.index));
    if (fresh) watched.push_back({&movie, bytes(movie)});
  }
  if (watched.empty()) return;
  std::this_thread::sleep_for(kWatch);
  for (const Watched& entry : watched) entry.movie->is_growing = bytes(*entry.movie) != entry.bytes;
}

// An MP4 begins with the box that tells its kind (ISO/IEC 14496-12, 4.3).
bool begins_like_mp4(const std::string& path) {
  std::ifstream file(fs::u8path(path), std::ios::binary);
  char head[8] = {};
  return file.read(head, sizeof head) && memcmp(head + 4, "ftyp", 4) == 0;
}

// Nothing when the file is no movie, or a finished one.
std::optional<UnfinishedMovie> look_at(const std::string& path) {
  std::string index = find_index(path);
  bool known = !has_unknown_ending(path);
  if (!takes_index(path) || regular_file_bytes(path) < 0) return std::nullopt;
  UnfinishedMovie movie{path, index, is_recovery_name(fs::u8path(path)), false, ""};
  Mp4Layout layout;
  Status status = read_mp4_layout(path, layout);
  if (!status.ok()) {
    movie.unreadable = status.sentence();
    return known || !index.empty() ? std::optional(movie) : std::nullopt;
  }
  bool movie_by_content = layout.media_begin > 0 && begins_like_mp4(path);
  if (layout.has_trailer || (!known && !movie_by_content)) return std::nullopt;
  return movie;
}

}  // namespace

std::string find_index(const std::string& movie) {
  fs::path name = fs::u8path(movie);
  for (const fs::path& path :
       {fs::path(name).concat(".index"), fs::path(name).replace_extension(".index")}) {
    std::string index = path.u8string();
    if (path != name && regular_file_bytes(index) >= 0) return index;
  }
  return {};
}

Status find_unfinished(const std::string& folder, std::vector<UnfinishedMovie>& movies) {
  std::error_code error;
  fs::path root = fs::u8path(folder);
  if (!fs::exists(root, error)) return Status(folder + " does not exist");
  if (!fs::is_directory(root, error)) return Status(folder + " is not a folder");
  fs::directory_iterator entry(root, error);
  for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
    fs::path path = folder == "." ? entry->path().filename() : entry->path();
    if (std::optional<UnfinishedMovie> movie = look_at(path.u8string())) movies.push_back(*movie);
  }
  if (error) return Status(folder + " cannot be read: " + error.message());
  std::sort(movies.begin(), movies.end(),
            [](const auto& a, const auto& b) { return a.path < b.path; });
  find_growing(movies);
  return {};
}

std::string recovered_path(const std::string& movie, int number) {
  fs::path path = fs::u8path(movie);
  std::string ending = number < 2 ? ".recovered" : ".recovered-" + std::to_string(number);
  // The name decides the kind of movie that the repair makes.
  bool unknown = has_unknown_ending(movie);
  fs::path stem = unknown ? path.filename() : path.stem();
  fs::path extension = unknown ? fs::path(".mp4") : path.extension();
  path.replace_filename(fs::u8path(stem.u8string() + ending + extension.u8string()));
  return path.u8string();
}

}  // namespace zeva_tool
