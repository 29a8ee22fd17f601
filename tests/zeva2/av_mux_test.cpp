#include "av_mux.h"

#include <gtest/gtest.h>

#include "elementary.h"
#include "media.h"
#include "temp_dir.h"

namespace {

// A stop may be cut short, for example without memory: the worker must end all the
// same, and finish the movie.
TEST(AVMux, EndsItsWorkerWithoutAStop) {
  const TempDir dir;
  const std::string path = dir.path("a.mp4");
  MovieInfo2 info{};
  path.copy(info.url, sizeof info.url - 1);
  info.vcodec = kPacketVideoH264;
  info.acodec = kPacketAudioAac;
  {
    zeva::AVMux muxer(info, {}, nullptr, nullptr);
    ASSERT_TRUE(muxer.start());
    int64_t time = 0;
    for (const std::string& bytes : h264_packets(15)) {
      muxer.write_video_packet(bytes.data(), static_cast<int>(bytes.size()), time += 200000);
    }
    time = 0;
    for (const std::string& bytes : aac_packets(140)) {
      muxer.write_audio_packet(bytes.data(), static_cast<int>(bytes.size()), time += 21333);
    }
  }
  EXPECT_NE(read_file(path).find("moov"), std::string::npos);
}

}  // namespace
