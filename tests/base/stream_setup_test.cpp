#include "stream_setup.h"

#include <gtest/gtest.h>

#include "enc_base.h"
#include "media.h"
#include "output_opening.h"
#include "output_url.h"

namespace {

// The settings of a stream's encoder: average, highest and lowest rate, and what else was set of
// its buffer and how full that starts, of crf and qp, and whether it may vary its quantiser.
std::string rate_control(const AVCodecContext& enc) {
  std::string told = std::to_string(enc.bit_rate) + " " + std::to_string(enc.rc_max_rate) + " " +
                     std::to_string(enc.rc_min_rate);
  if (enc.rc_buffer_size != 0) {
    told += " " + std::to_string(enc.rc_buffer_size) + "/" +
            std::to_string(enc.rc_initial_buffer_occupancy);
  }
  for (const char* name : {"crf", "qp"}) {
    double value = -1;
    if (av_opt_get_double(enc.priv_data, name, 0, &value) < 0 || value < 0) continue;
    told += std::string(" ") + name + "=" + std::to_string(static_cast<int>(value));
  }
  return told + ((enc.flags & AV_CODEC_FLAG_QSCALE) != 0 ? " qscale" : "");
}

TEST(StreamSetup, RateControl) {
  const struct {
    int rc_mode, kbit, crf, qp;
    const char* told;
    AVCodecID codec = AV_CODEC_ID_H264;
  } cases[] = {
      {0, 801, 23, 20, "801000 0 0"},
      {0, 2000000, 23, 20, "2000000000 0 0"},
      {0, 0, 23, 20, "0 0 0"},                        // the encoder's own choice
      {0, 0, 23, 20, "7372 0 0", AV_CODEC_ID_MPEG4},  // 25 * 48 * 64 * 32 * 0.003
      {1, 801, 0, 20, "801000 801000 801000 801000/600750"},
      {1, 801, 51, 20, "801000 801000 801000 801000/600750 crf=51"},
      {1, 801, 52, 20, "801000 801000 801000 801000/600750"},
      {3, 801, 23, 0, "0 0 0"},
      {3, 801, 23, 1, "0 0 0 qp=1"},
      {3, 801, 23, 52, "0 0 0"},
      {2, 801, 23, 20, "801000 811000 601000 qscale"},
      {-7, 205, 23, 20, "205000 215000 10000 qscale"},
  };
  for (const auto& c : cases) {
    MovieInfo info = small_movie("a.mp4");
    info.rc_mode = c.rc_mode;
    info.video_bitrate = c.kbit;
    info.crf = c.crf;
    info.qp = c.qp;
    const zeva::FormatContextPtr oc = make_output(info.url, false);
    const zeva::NewStream stream = zeva::add_stream(oc.get(), c.codec, info);
    ASSERT_TRUE(stream.encoder);
    EXPECT_EQ(rate_control(*stream.encoder), c.told);
  }
}

TEST(OutputOpening, LiveStreamsHaveContainersAndCodecsOfTheirOwn) {
  const struct {
    const char *url, *container;
    AVCodecID sound;
  } streams[] = {{"rtmp://h/a.mp4", "flv", AV_CODEC_ID_AAC},
                 {"RTMPS://h/a", "flv", AV_CODEC_ID_AAC},
                 {"rtsp://h/a", "rtsp", AV_CODEC_ID_OPUS},
                 {"srt://h:1?streamid=a.mp4", "mpegts", AV_CODEC_ID_AAC}};
  for (const auto& s : streams) {
    EXPECT_TRUE(zeva::is_live_url(s.url)) << s.url;
    EXPECT_TRUE(zeva::is_network_url(s.url)) << s.url;
    const AVOutputFormat* format = zeva::guess_output_format(s.url);
    EXPECT_STREQ(format->name, s.container) << s.url;
    const zeva::CodecChoice chosen = zeva::choose_codecs(*format, small_movie(s.url));
    EXPECT_EQ(chosen.video, AV_CODEC_ID_H264) << s.url;
    EXPECT_EQ(chosen.audio, s.sound) << s.url;
  }
  for (const char* url : {"rtmp.mp4", "rtmpx://h/a", "srt:/h", "file:srt", "http://h/rtmp://"})
    EXPECT_FALSE(zeva::is_live_url(url)) << url;
}

}  // namespace
