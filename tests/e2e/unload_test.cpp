// A host that loads the library only when it records, finds its functions by plain name, and uses
// FFmpeg itself.
#include <gtest/gtest.h>

#ifdef _WIN32
#include <windows.h>
#else
#include <dlfcn.h>
#endif

#include <cstdio>
#include <vector>

#include "media.h"
#include "temp_dir.h"
#include "zeva/zeva.h"

namespace {

#ifdef _WIN32
constexpr wchar_t kName[] = L"ZEVALib.dll";
using Library = HMODULE;
Library load() { return LoadLibraryW(kName); }
bool loaded() { return GetModuleHandleW(kName) != nullptr; }
void unload(Library library) { FreeLibrary(library); }
void* find(Library library, const char* name) {
  return reinterpret_cast<void*>(GetProcAddress(library, name));
}
#else
constexpr char kName[] = "libZEVALib.so";
using Library = void*;
Library load() { return dlopen(kName, RTLD_NOW | RTLD_LOCAL); }
bool loaded() {
  void* again = dlopen(kName, RTLD_NOW | RTLD_NOLOAD);
  if (again != nullptr) dlclose(again);
  return again != nullptr;
}
void unload(Library library) { dlclose(library); }
void* find(Library library, const char* name) { return dlsym(library, name); }
#endif

template <typename Function>
Function* get(Library library, Function* /*declared*/, const char* name) {
  auto* found = reinterpret_cast<Function*>(find(library, name));
  EXPECT_NE(found, nullptr) << name;
  return found;
}
// A pointer of the declared function's type; the function itself is never linked.
#define ZEVA_GET(library, name) get(library, static_cast<decltype(&name)>(nullptr), #name)

void record_with(Library library) {
  MovieInfo info = small_movie("unload.mp4");
  snprintf(info.moov_url, sizeof info.moov_url, "unload.index");
  info.disable_audio = true;
  int lines = 0;
  ZEVA_GET(library, ZEVA_Set_Log_Callback)
  ([&lines](const char*, int, const char*, int, const char*) { ++lines; });
  void* recording = ZEVA_GET(library, ZEVA_start)(info, nullptr, nullptr, nullptr, false);
  std::vector<uint8_t> picture(size_t{4} * 64 * 48, 99);
  for (int frame = 0; frame < 10; ++frame) {
    EXPECT_TRUE(ZEVA_GET(library, ZEVA_write_video_bgra)(recording, picture.data(), 0,
                                                         frame * 40000, 4 * 64));
  }
  ZEVA_GET(library, ZEVA_stop)(&recording);
  ZEVA_GET(library, ZEVA_Set_Log_Callback)({});
  EXPECT_GT(lines, 0);
  EXPECT_NE(read_file("unload.mp4").find("moov"), std::string::npos);
  EXPECT_NE(read_file("unload.index").find("\"video\""), std::string::npos);
}

// The host's own MP4, written with the muxer that the library had hooked while it recorded.
void write_own_mp4(const char* path) {
  const zeva::FormatContextPtr oc = make_output(path);
  ASSERT_TRUE(oc);
  ASSERT_GE(avformat_write_header(oc.get(), nullptr), 0);
  for (int i = 0; i < 5; ++i) {
    const auto packet = make_packet(0, i * 512, i * 512, 512, 1000, true);
    EXPECT_GE(av_interleaved_write_frame(oc.get(), packet.get()), 0);
  }
  EXPECT_GE(av_write_trailer(oc.get()), 0);
  avio_closep(&oc->pb);
  const std::string written = read_file(path);
  EXPECT_GT(written.size(), 5000U);
  EXPECT_NE(written.find("moov"), std::string::npos);
}

TEST(Unloading, LeavesTheHostsOwnFFmpegIntact) {
  ASSERT_FALSE(loaded());
  for (int round = 0; round < 5; ++round) {
    SCOPED_TRACE(round);
    const Library library = load();
    ASSERT_NE(library, nullptr);
    record_with(library);
    write_own_mp4("host.mp4");
    unload(library);
    EXPECT_FALSE(loaded()) << "the library stays in the process";
    write_own_mp4("host.mp4");
  }
}

}  // namespace
