// A folder of a test's own, removed with everything in it.
#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <stdexcept>
#include <string>

class TempDir {
 public:
  TempDir() {
    std::random_device random;
    root = std::filesystem::temp_directory_path() / ("zeva-test-" + std::to_string(random()));
    std::filesystem::create_directories(root);
  }
  ~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(root, ignored);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  // UTF-8 path of `name` (UTF-8) in the folder.
  std::string path(const std::string& name) const {
    return (root / std::filesystem::u8path(name)).u8string();
  }

 private:
  std::filesystem::path root;
};

// The bytes of a file; empty when it cannot be read.
inline std::string read_file(const std::string& path) {
  std::ifstream file(std::filesystem::u8path(path), std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

inline void write_file(const std::string& path, const std::string& bytes) {
  std::ofstream file(std::filesystem::u8path(path), std::ios::binary);
  if (!file.write(bytes.data(), static_cast<std::streamsize>(bytes.size())).flush())
    throw std::runtime_error("cannot write " + path);
}
