#include "stream_setup.h"

#include <gtest/gtest.h>

#include "enc_base.h"
#include "log_capture.h"
#include "media.h"
#include "output_opening.h"

namespace {

std::string option(const AVCodecContext* enc, const char* name) {
  uint8_t* value = nullptr;
  if (av_opt_get(enc->priv_data, name, 0, &value) < 0) return "none";
  const std::string text(reinterpret_cast<char*>(value));
  av_free(value);
  return text;
}

// One stream set up for a container, with what it printed.
struct StreamUnderTest {
  StreamUnderTest(AVCodecID codec_id, const MovieInfo& wanted, const char* format = "mp4")
      : info(wanted) {
    AVFormatContext* made = nullptr;
    avformat_alloc_output_context2(&made, nullptr, format, info.url);
    oc.reset(made);
    testing::internal::CaptureStderr();
    codec = zeva::add_stream(oc.get(), codec_id, ost, info);
    printed = testing::internal::GetCapturedStderr();
  }
  const AVCodecContext& enc() const { return *ost.enc; }

  const LogCapture log;
  MovieInfo info;
  zeva::FormatContextPtr oc;
  zeva::OutputStream ost;
  const AVCodec* codec = nullptr;
  std::string printed;
};

TEST(StreamSetup, RateControl) {
  const std::string unset_crf = "-1.000000";
  const struct {
    int rc_mode, kbit, crf, qp;
    std::string printed;
    int64_t bit_rate, max_rate, min_rate;
    int buffer, occupancy;
    bool qscale;
    std::string crf_option, qp_option;
  } cases[] = {
      {0, 801, 23, 20, "ABR\n", 801000, 0, 0, 0, 0, false, unset_crf, "-1"},
      {1, 801, 23, 20, "CBR\nCBR,  crf=23\n", 801000, 801000, 801000, 801000, 600750, false,
       "23.000000", "-1"},
      {1, 801, 0, 20, "CBR\n", 801000, 801000, 801000, 801000, 600750, false, unset_crf, "-1"},
      {1, 801, 52, 20, "CBR\n", 801000, 801000, 801000, 801000, 600750, false, unset_crf, "-1"},
      {1, 801, 51, 20, "CBR\nCBR,  crf=51\n", 801000, 801000, 801000, 801000, 600750, false,
       "51.000000", "-1"},
      {3, 801, 23, 1, "CQP\nCQP,  qp=1\n", 0, 0, 0, 0, 0, false, unset_crf, "1"},
      {3, 801, 23, 0, "CQP\n", 0, 0, 0, 0, 0, false, unset_crf, "-1"},
      {3, 801, 23, 52, "CQP\n", 0, 0, 0, 0, 0, false, unset_crf, "-1"},
      {2, 801, 23, 20, "VBR\n", 801000, 811000, 601000, 0, 0, true, unset_crf, "-1"},
      {-7, 205, 23, 20, "VBR\n", 205000, 215000, 10000, 0, 0, true, unset_crf, "-1"},
      {0, 0, 23, 20, "ABR\n", 0, 0, 0, 0, 0, false, unset_crf, "-1"},  // the encoder's own choice
      {0, 2000000, 23, 20, "ABR\n", 2000000000, 0, 0, 0, 0, false, unset_crf, "-1"},
  };
  const zeva::CodecContextPtr fresh(
      avcodec_alloc_context3(avcodec_find_encoder_by_name("libx264")));
  for (const auto& c : cases) {
    SCOPED_TRACE(c.printed + std::to_string(c.kbit));
    MovieInfo info = small_movie("a.mp4");
    info.rc_mode = c.rc_mode;
    info.video_bitrate = c.kbit;
    info.crf = c.crf;
    info.qp = c.qp;
    const StreamUnderTest s(AV_CODEC_ID_H264, info);
    EXPECT_EQ(s.printed, c.printed);
    EXPECT_EQ(s.enc().bit_rate, c.rc_mode == 3 ? fresh->bit_rate : c.bit_rate);
    EXPECT_EQ(s.enc().rc_max_rate, c.max_rate);
    EXPECT_EQ(s.enc().rc_min_rate, c.min_rate);
    EXPECT_EQ(s.enc().rc_buffer_size, c.buffer != 0 ? c.buffer : fresh->rc_buffer_size);
    EXPECT_EQ(s.enc().bit_rate_tolerance, c.buffer != 0 ? c.buffer : fresh->bit_rate_tolerance);
    EXPECT_EQ(s.enc().rc_initial_buffer_occupancy,
              c.buffer != 0 ? c.occupancy : fresh->rc_initial_buffer_occupancy);
    EXPECT_EQ((s.enc().flags & AV_CODEC_FLAG_QSCALE) != 0, c.qscale);
    EXPECT_EQ(option(s.ost.enc.get(), "crf"), c.crf_option);
    EXPECT_EQ(option(s.ost.enc.get(), "qp"), c.qp_option);
  }
}

TEST(StreamSetup, ZeroBitrateOfOtherCodecsIsCalculated) {
  MovieInfo info = small_movie("a.mp4");
  info.video_bitrate = 0;
  const StreamUnderTest s(AV_CODEC_ID_MPEG4, info);
  EXPECT_EQ(s.enc().bit_rate, 7372);  // 25 * 48 * 64 * 32 * 0.003
  EXPECT_EQ(s.log.count("[auto] zero bitrate, force bitrate=7 kBps"), 1);
  EXPECT_EQ(s.info.rc_mode, 0);
}

TEST(StreamSetup, SettingsTheEncoderCannotTakeAreReplacedAndWrittenBack) {
  MovieInfo info = small_movie("a.mpg");
  info.fps = 26;
  info.pix_fmt = AV_PIX_FMT_BGRA;
  const StreamUnderTest video(AV_CODEC_ID_MPEG2VIDEO, info, "mpeg");
  EXPECT_EQ(video.info.fps, 25);
  EXPECT_EQ(av_cmp_q(video.enc().time_base, {1, 25}), 0);
  EXPECT_EQ(video.log.count("-->reset fps: 26 --> 25"), 1);
  EXPECT_EQ(video.info.pix_fmt, AV_PIX_FMT_YUV420P);
  EXPECT_EQ(video.enc().pix_fmt, AV_PIX_FMT_YUV420P);

  const struct {
    const char* url;
    AVCodecID codec;
    int wanted, taken;
  } rates[] = {
      {"a.mp4", AV_CODEC_ID_AAC, 44100, 44100},       {"a.mp4", AV_CODEC_ID_AAC, 12345, 96000},
      {"a.mp4", AV_CODEC_ID_MP3, 48000, 48000},       {"a.FLV", AV_CODEC_ID_MP3, 48000, 44100},
      {"a.flv", AV_CODEC_ID_PCM_S16LE, 12345, 12345},
  };
  for (const auto& r : rates) {
    MovieInfo wanted = small_movie(r.url);
    wanted.sample_rate = r.wanted;
    const StreamUnderTest s(r.codec, wanted, "mov");
    EXPECT_EQ(s.enc().sample_rate, r.taken) << r.url;
    EXPECT_EQ(s.info.sample_rate, r.taken);
    EXPECT_EQ(av_cmp_q(s.ost.st->time_base, {1, r.taken}), 0);
    EXPECT_EQ(av_cmp_q(s.enc().time_base, {1, r.taken}), 0);
    EXPECT_EQ(s.enc().bit_rate, 64000);
    EXPECT_EQ(s.printed, "layout = 3\n");
    EXPECT_EQ(s.enc().channels, 2);
    EXPECT_EQ(s.log.count("-->reset sample_rate_dst: "), r.wanted == r.taken ? 0 : 1);
    EXPECT_EQ(s.log.count("win,mp3, find codec: 'libmp3lame': ok"),
              r.codec == AV_CODEC_ID_MP3 ? 1 : 0);
    EXPECT_EQ(s.log.count("--> codec('pcm_s16le') supported_samplerates is null array."),
              r.codec == AV_CODEC_ID_PCM_S16LE ? 1 : 0);
  }
  MovieInfo mono = small_movie("a.mp4");
  mono.channels = 1;  // the host's, not the encoder's
  const StreamUnderTest aac(AV_CODEC_ID_AAC, mono);
  EXPECT_EQ(aac.enc().sample_fmt, AV_SAMPLE_FMT_FLTP);
  EXPECT_EQ(aac.enc().channels, 2);
  EXPECT_EQ(StreamUnderTest(AV_CODEC_ID_PCM_S16LE, mono, "mov").enc().sample_fmt,
            AV_SAMPLE_FMT_S16);
}

TEST(OutputOpening, ContainerAndCodecsFollowTheUrl) {
  const struct {
    const char* url;
    const char* format;
    AVCodecID video, audio;
  } cases[] = {
      {"a.mp4", "mp4", AV_CODEC_ID_H264, AV_CODEC_ID_AAC},
      {"a.flv", "flv", AV_CODEC_ID_FLV1, AV_CODEC_ID_MP3},
      {"no extension", "mp4", AV_CODEC_ID_H264, AV_CODEC_ID_AAC},
      {"rtmp://h/a.mp4", "flv", AV_CODEC_ID_H264, AV_CODEC_ID_AAC},
      {"rtsp://h/a", "rtsp", AV_CODEC_ID_H264, AV_CODEC_ID_OPUS},
  };
  for (const auto& c : cases) {
    MovieInfo info = small_movie(c.url);
    info.timeout_sec = 3;
    const zeva::FormatContextPtr oc = zeva::create_output_context(c.url);
    EXPECT_STREQ(oc->oformat->name, c.format);
    const zeva::CodecChoice both = zeva::choose_codecs(oc.get(), info);
    EXPECT_EQ(both.video, c.video) << c.url;
    EXPECT_EQ(both.audio, c.audio) << c.url;
    info.disable_video = info.disable_audio = true;
    const zeva::CodecChoice neither = zeva::choose_codecs(oc.get(), info);
    EXPECT_EQ(neither.video, AV_CODEC_ID_NONE);
    EXPECT_EQ(neither.audio, AV_CODEC_ID_NONE);
    if (strcmp(c.format, "rtsp") == 0) {
      int64_t tcp = 0;
      EXPECT_GE(av_opt_get_int(oc->priv_data, "rtsp_transport", 0, &tcp), 0);
      EXPECT_EQ(tcp, 2);  // the bit of TCP
      EXPECT_EQ(oc->max_interleave_delta, 1000000);
    }
  }
}

}  // namespace
