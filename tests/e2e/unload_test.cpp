// A host that loads the library only when it records, finds its functions by plain name, and uses
// FFmpeg itself.
#include <gtest/gtest.h>

#ifdef _WIN32
#include <windows.h>
#else
#include <dlfcn.h>
#endif

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>

extern "C" {
#include <libavformat/avformat.h>
}

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

std::string bytes_of(const char* path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

MovieInfo settings() {
  MovieInfo info{};
  snprintf(info.url, sizeof info.url, "unload.mp4");
  snprintf(info.moov_url, sizeof info.moov_url, "unload.index");
  info.width = info.src_width = 64;
  info.height = info.src_height = 48;
  info.fps = info.gop_size = 25;
  info.src_pix_fmt = AV_PIX_FMT_BGRA;
  info.pix_fmt = AV_PIX_FMT_YUV420P;
  info.colorspace = AVCOL_SPC_UNSPECIFIED;
  info.disable_audio = true;
  info.video_bitrate = 100;
  return info;
}

void record_with(Library library) {
  int lines = 0;
  ZEVA_GET(library, ZEVA_Set_Log_Callback)
  ([&lines](const char*, int, const char*, int, const char*) { ++lines; });
  void* recording = ZEVA_GET(library, ZEVA_start)(settings(), nullptr, nullptr, nullptr, false);
  std::vector<uint8_t> picture(size_t{4} * 64 * 48, 99);
  for (int frame = 0; frame < 10; ++frame) {
    EXPECT_TRUE(ZEVA_GET(library, ZEVA_write_video_bgra)(recording, picture.data(), 0,
                                                         frame * 40000, 4 * 64));
  }
  ZEVA_GET(library, ZEVA_stop)(&recording);
  ZEVA_GET(library, ZEVA_Set_Log_Callback)({});
  EXPECT_GT(lines, 0);
  EXPECT_NE(bytes_of("unload.mp4").find("moov"), std::string::npos);
  EXPECT_NE(bytes_of("unload.index").find("\"video\""), std::string::npos);
}

// The host's own MP4, written with the muxer that the library had hooked while it recorded.
void write_own_mp4(const char* path) {
  AVFormatContext* oc = nullptr;
  ASSERT_GE(avformat_alloc_output_context2(&oc, nullptr, "mp4", path), 0);
  AVStream* stream = avformat_new_stream(oc, nullptr);
  stream->codecpar->codec_type = AVMEDIA_TYPE_VIDEO;
  stream->codecpar->codec_id = AV_CODEC_ID_MPEG4;
  stream->codecpar->width = 64;
  stream->codecpar->height = 48;
  stream->time_base = {1, 25};
  ASSERT_GE(avio_open(&oc->pb, path, AVIO_FLAG_WRITE), 0);
  ASSERT_GE(avformat_write_header(oc, nullptr), 0);
  for (int i = 0; i < 5; ++i) {
    AVPacket packet;
    ASSERT_EQ(av_new_packet(&packet, 1000), 0);
    memset(packet.data, i, 1000);
    packet.flags = AV_PKT_FLAG_KEY;
    packet.pts = packet.dts = av_rescale_q(i, {1, 25}, stream->time_base);
    EXPECT_GE(av_interleaved_write_frame(oc, &packet), 0);
  }
  EXPECT_GE(av_write_trailer(oc), 0);
  avio_closep(&oc->pb);
  avformat_free_context(oc);
  const std::string written = bytes_of(path);
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
