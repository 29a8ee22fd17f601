#include "movie_search.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <system_error>
#include <thread>

#include "output_url.h"

namespace fs = std::filesystem;

namespace zeva_tool {
namespace {

constexpr auto kFresh = std::chrono::seconds(5);
// A recorder of an ordinary movie writes to the movie or its index more often than that.
constexpr auto kWatch = std::chrono::milliseconds(1200);

bool is_file(const fs::path& path) {
  std::error_code error;
  return fs::is_regular_file(path, error);
}

// The default of `zeva record`, or the movie's name with another ending.
std::string find_index(const fs::path& movie) {
  for (const fs::path& index :
       {fs::path(movie).concat(".index"), fs::path(movie).replace_extension(".index")}) {
    if (is_file(index)) return index.u8string();
  }
  return {};
}

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

// Only time tells a recording that runs from one whose recorder has just died.
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
    bool fresh = is_fresh(movie.path) || (!movie.index.empty() && is_fresh(movie.index));
    if (fresh) watched.push_back({&movie, bytes(movie)});
  }
  if (watched.empty()) return;
  std::this_thread::sleep_for(kWatch);
  for (const Watched& entry : watched) entry.movie->is_growing = bytes(*entry.movie) != entry.bytes;
}

}  // namespace

Status find_unfinished(const std::string& folder, std::vector<UnfinishedMovie>& movies) {
  std::error_code error;
  fs::path root = fs::u8path(folder);
  if (!fs::exists(root, error)) return Status(folder + " does not exist");
  if (!fs::is_directory(root, error)) return Status(folder + " is not a folder");
  fs::directory_iterator entry(root, error);
  for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
    fs::path path = folder == "." ? entry->path().filename() : entry->path();
    if (!has_ending(path.u8string(), ".mp4") || !is_file(path)) continue;
    Mp4Layout layout;
    if (!read_mp4_layout(path.u8string(), layout).ok()) continue;
    if (layout.has_trailer) continue;
    movies.push_back({path.u8string(), find_index(path), is_recovery_name(path)});
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
  path.replace_filename(fs::u8path(path.stem().u8string() + ending + path.extension().u8string()));
  return path.u8string();
}

}  // namespace zeva_tool
