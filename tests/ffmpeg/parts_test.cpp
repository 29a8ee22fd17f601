// The parts that FFmpeg is built with. Clips of most kinds are read in the tests of the tool; here
// stands what no clip can be made of, and what outputs need.
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "ffmpeg.h"
#include "output_url.h"

namespace {

TEST(FFmpegParts, EndingsGetTheirContainerAndItsEncoders) {
  const struct {
    const char *url, *container, *video, *audio;  // null: none, or no encoder on purpose
  } outputs[] = {
      {"a.mp4", "mp4", "libx264", "aac"},        {"a.mov", "mov", "libx264", "aac"},
      {"a.m4v", "ipod", "libx264", "aac"},       {"a.m4a", "ipod", "libx264", "aac"},
      {"a.f4v", "f4v", "libx264", "aac"},        {"a.3gp", "3gp", "h263", nullptr},
      {"a.3g2", "3g2", "h263", nullptr},         {"a.mkv", "matroska", "libx264", "ac3"},
      {"a.mka", "matroska", nullptr, "ac3"},     {"a.webm", "webm", nullptr, "libopus"},
      {"a.flv", "flv", "flv", "libmp3lame"},     {"rtmp://host/a", "flv", "flv", "libmp3lame"},
      {"rtsp://host/a", "rtsp", "mpeg4", "aac"}, {"a.ts", "mpegts", "mpeg2video", "mp2"},
      {"a.m2ts", "mpegts", "mpeg2video", "mp2"}, {"a.m3u8", "hls", "libx264", "aac"},
      {"a.mpg", "mpeg", "mpeg1video", "mp2"},    {"a.vob", "svcd", "mpeg2video", "mp2"},
      {"a.avi", "avi", "mpeg4", "libmp3lame"},   {"a.wmv", "asf", "msmpeg4", "wmav2"},
      {"a.ogg", "ogg", nullptr, "flac"},         {"a.ogv", "ogv", nullptr, "flac"},
      {"a.mp3", "mp3", "png", "libmp3lame"},     {"a.aac", "adts", nullptr, "aac"},
      {"a.wav", "wav", nullptr, "pcm_s16le"},    {"a.w64", "w64", nullptr, "pcm_s16le"},
      {"a.oga", "oga", nullptr, "flac"},         {"a.opus", "opus", nullptr, "libopus"},
      {"a.flac", "flac", "png", "flac"},         {"a.ac3", "ac3", nullptr, "ac3"},
      {"a.mp2", "mp2", nullptr, "mp2"},          {"a.h264", "h264", "libx264", nullptr},
      {"a.unheard", "mp4", "libx264", "aac"},
  };
  const auto encoder = [](AVCodecID id) {
    const AVCodec* codec = avcodec_find_encoder(id);
    return codec != nullptr ? codec->name : nullptr;
  };
  for (const auto& o : outputs) {
    const AVOutputFormat* format = zeva::guess_output_format(o.url);
    ASSERT_NE(format, nullptr) << o.url;
    EXPECT_STREQ(format->name, o.container) << o.url;
    EXPECT_STREQ(encoder(format->video_codec), o.video) << o.url;
    EXPECT_STREQ(encoder(format->audio_codec), o.audio) << o.url;
  }
}

TEST(FFmpegParts, AskedForByNameAreThere) {
  for (const char* name : {"libx264", "h264_nvenc", "aac", "libmp3lame", "libopus", "mpeg1video"})
    EXPECT_NE(avcodec_find_encoder_by_name(name), nullptr) << name;
  for (const char* name : {"vp6", "vp6a", "vp6f", "vc1", "wmv3", "wmapro", "amrnb", "amrwb",
                           "msmpeg4v1", "nellymoser", "aac_latm", "libopus"})
    EXPECT_NE(avcodec_find_decoder_by_name(name), nullptr) << name;
  for (const char* name : {"h264", "aac", "rtsp", "live_flv", "hls", "asf", "dv"})
    EXPECT_NE(av_find_input_format(name), nullptr) << name;
  for (const char* name : {"h264_mp4toannexb", "aac_adtstoasc", "extract_extradata"})
    EXPECT_NE(av_bsf_get_by_name(name), nullptr) << name;

  for (const int output : {0, 1}) {
    std::set<std::string> protocols;
    void* place = nullptr;
    while (const char* name = avio_enum_protocols(&place, output)) protocols.insert(name);
    for (const char* name :
         {"file", "pipe", "rtmp", "rtmps", "tls", "httpproxy", "srt", "rtp", "tcp", "udp", "http"})
      EXPECT_EQ(protocols.count(name), 1U) << name << " for " << (output != 0 ? "output" : "input");
  }
}

}  // namespace
