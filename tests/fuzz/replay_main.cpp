// Feeds every file of a folder to a fuzz target, where no fuzzer is built in.
#include <cstdint>
#include <cstdio>
#include <filesystem>

#include "temp_dir.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
  int files = 0;
  for (const auto& entry : std::filesystem::directory_iterator(argc > 1 ? argv[1] : ".")) {
    const std::string bytes = read_file(entry.path().u8string());
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    ++files;
  }
  printf("%d files\n", files);
  return files > 0 ? 0 : 1;
}
