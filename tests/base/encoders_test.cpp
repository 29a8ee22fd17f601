// The encoders on their own, with a writer that keeps what it is given.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <vector>

#include "audio_enc.h"
#include "log_capture.h"
#include "media.h"
#include "stream_setup.h"
#include "video_enc.h"

namespace {

class KeepingWriter : public zeva::BaseWriter {
 public:
  int write_packet(AVRational time_base, AVPacket* packet, bool interleave) override {
    EXPECT_TRUE(interleave);
    last_time_base = time_base;
    packets.emplace_back(av_packet_clone(packet));
    return result;
  }
  std::vector<zeva::PacketPtr> packets;
  AVRational last_time_base{0, 1};
  int result = 0;
};

template <typename Encoder>
class EncoderUnderTest {
 public:
  EncoderUnderTest(const char* format, AVCodecID id, MovieInfo wanted,
                   const std::function<void(AVCodecContext*)>& change = {})
      : info(wanted) {
    AVFormatContext* made = nullptr;
    avformat_alloc_output_context2(&made, nullptr, format, "x");
    oc.reset(made);
    avformat_new_stream(made, nullptr);  // so that ours is not the first
    const AVCodec* codec = zeva::add_stream(made, id, ost, info);
    if (change) change(ost.enc.get());
    enc.open(made, codec, ost, nullptr, info);
  }
  int encode(AVFrame* frame) { return enc.encode(oc.get(), ost, frame); }

  MovieInfo info;
  KeepingWriter writer;
  zeva::FormatContextPtr oc;
  zeva::OutputStream ost;
  Encoder enc{&writer};
};
using Video = EncoderUnderTest<zeva::VideoEnc>;
using Audio = EncoderUnderTest<zeva::AudioEnc>;

zeva::FramePtr yuv(int64_t pts, int value = 100) {
  return make_picture(AV_PIX_FMT_YUV420P, 64, 48, pts, value);
}

TEST(VideoEnc, HandsOnEveryPacketAndFlushes) {
  MovieInfo info = small_movie("x");
  info.tune = kTuneFilm;
  Video v("mp4", AV_CODEC_ID_H264, info,
          [](AVCodecContext* c) { av_opt_set(c->priv_data, "rc-lookahead", "4", 0); });
  ASSERT_TRUE(v.ost.frame);
  EXPECT_EQ(v.ost.frame->width, 64);
  EXPECT_GT(v.ost.st->codecpar->extradata_size, 0);
  int given = 0;
  for (int64_t i = 0; i < 30; ++i) {
    const int n = v.encode(yuv(i).get());
    if (i == 0) {
      EXPECT_EQ(n, 0);  // kept back
    }
    given += n;
  }
  const int delayed = v.encode(nullptr);
  EXPECT_GT(delayed, 0);
  EXPECT_EQ(given + delayed, 30);
  ASSERT_EQ(v.writer.packets.size(), 30U);
  EXPECT_EQ(v.writer.packets[7]->stream_index, 1);
  EXPECT_EQ(av_cmp_q(v.writer.last_time_base, {1, 25}), 0);

  const LogCapture log;
  EXPECT_EQ(v.encode(yuv(30).get()), -2);  // the codec is at its end
  EXPECT_EQ(log.count("[video] enc frame failed: End of file"), 1);
}

TEST(VideoEnc, WithoutAnOutputTheCodecIsLeftAlone) {
  Video v("mp4", AV_CODEC_ID_MPEG4, small_movie("x"));
  EXPECT_EQ(v.enc.encode(nullptr, v.ost, nullptr), -1);
  EXPECT_EQ(v.encode(yuv(0).get()), 1);  // it was not flushed
}

TEST(VideoEnc, RefusedPacketIsReported) {
  const LogCapture log;
  Video v("mp4", AV_CODEC_ID_MPEG4, small_movie("x"));
  v.writer.result = AVERROR(EIO);
  EXPECT_EQ(v.encode(yuv(0).get()), -3);
  EXPECT_EQ(log.count("[write-packet] error while writing video frame: ret=" +
                      std::to_string(AVERROR(EIO)) + ", "),
            1);
  v.writer.result = 0;
  EXPECT_EQ(v.encode(yuv(1).get()), 1);
}

TEST(VideoEnc, ConvertsOtherPixelFormatsOnly) {
  Video v("nut", AV_CODEC_ID_WRAPPED_AVFRAME, small_movie("x"));
  testing::internal::CaptureStderr();
  EXPECT_EQ(v.encode(yuv(3).get()), 1);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  for (const int value : {0, 255}) {
    const zeva::FramePtr grey = make_picture(AV_PIX_FMT_GRAY8, 64, 48, 4 + value, value);
    grey->colorspace = AVCOL_SPC_BT709;
    grey->color_range = AVCOL_RANGE_MPEG;
    testing::internal::CaptureStderr();
    EXPECT_EQ(v.encode(grey.get()), 1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "---------- V pts: " + std::to_string(4 + value) + "\n");
  }
  // These packets hold the frames themselves, as a codec with delay does.
  ASSERT_EQ(v.writer.packets.size(), 3U);
  const auto* dark = reinterpret_cast<const AVFrame*>(v.writer.packets[1]->data);
  const auto* light = reinterpret_cast<const AVFrame*>(v.writer.packets[2]->data);
  EXPECT_LT(dark->data[0][0], 32);
  EXPECT_GT(light->data[0][0], 200);
  EXPECT_EQ(dark->pts, 4);
  EXPECT_EQ(dark->colorspace, AVCOL_SPC_BT709);
  EXPECT_EQ(dark->color_range, AVCOL_RANGE_MPEG);
}

struct HostFilter : FilterBase {
  explicit HostFilter(bool* deleted) : deleted(deleted) {}
  ~HostFilter() override { *deleted = true; }
  AVFrame* filter(AVFrame* frame) override {
    replacement = yuv(frame->pts, 250);
    return replacement.get();
  }
  void filter(AVPacket* packet) override {
    EXPECT_EQ(packet->stream_index, 0);  // not yet set
    packet->duration = 77;
  }
  zeva::FramePtr replacement;
  bool* deleted;
};

TEST(Filters, VideoOwnsItsFilterAndAudioDoesNot) {
  bool deleted = false;
  {
    Video v("nut", AV_CODEC_ID_WRAPPED_AVFRAME, small_movie("x"));
    v.enc.filter = new HostFilter(&deleted);
    EXPECT_EQ(v.encode(yuv(0, 0).get()), 1);
    EXPECT_EQ(reinterpret_cast<const AVFrame*>(v.writer.packets[0]->data)->data[0][0], 250);
  }
  EXPECT_TRUE(deleted);

  deleted = false;
  HostFilter filter(&deleted);
  {
    Audio a("mov", AV_CODEC_ID_PCM_S16LE, small_movie("x"));
    a.enc.filter = &filter;
    EXPECT_EQ(a.encode(make_sound(AV_SAMPLE_FMT_S16, 48000, 100, 0, 1).get()), 1);
    EXPECT_EQ(a.writer.packets[0]->duration, 77);
    EXPECT_EQ(a.writer.packets[0]->stream_index, 1);
  }
  EXPECT_FALSE(deleted);
}

TEST(AudioEnc, FrameSizes) {
  const Audio fixed("mp4", AV_CODEC_ID_AAC, small_movie("x"));
  EXPECT_EQ(fixed.ost.frame->nb_samples, 1024);
  EXPECT_EQ(fixed.ost.frame->format, AV_SAMPLE_FMT_FLTP);
  const Audio variable("mov", AV_CODEC_ID_PCM_S16LE, small_movie("x"));
  EXPECT_EQ(variable.ost.frame->nb_samples, 10000);
}

TEST(AudioEnc, ReportsWhatFails) {
  const LogCapture log;
  Audio a("mp4", AV_CODEC_ID_AAC, small_movie("x"));
  const zeva::FramePtr sound = make_sound(AV_SAMPLE_FMT_FLTP, 48000, 1024, 0, 0);
  EXPECT_EQ(a.enc.encode(nullptr, a.ost, sound.get()), -1);
  EXPECT_EQ(a.encode(sound.get()), 0);
  a.writer.result = -1;
  EXPECT_EQ(a.encode(nullptr), -3);
  EXPECT_GE(a.writer.packets.size(), 2U);  // a further output may still take the others
  EXPECT_EQ(log.count("[write-packet] error while writing audio frame: ret=-1, "), 1);
  EXPECT_EQ(a.encode(sound.get()), -2);
  EXPECT_EQ(log.count("[audio] enc frame failed: End of file"), 1);
}

TEST(Encoders, RefusedSettingsThrowTheReason) {
  const LogCapture log;
  MovieInfo info = small_movie("x");
  info.width = 65;
  try {
    const Video odd("mp4", AV_CODEC_ID_H264, info);
    ADD_FAILURE() << "an odd width was taken";
  } catch (const std::string& text) {
    EXPECT_EQ(text.rfind("Could not open video codec: ", 0), 0U);
    EXPECT_EQ(log.count(text), 1);
  }
  EXPECT_THROW(Audio("mp4", AV_CODEC_ID_AAC, small_movie("x"),
                     [](AVCodecContext* c) { c->sample_rate = 1; }),
               std::string);
  EXPECT_EQ(log.count("Could not open audio codec: "), 1);
}

TEST(TestSignals, Tone) {
  MovieInfo info = small_movie("x");
  info.src_sample_rate = 24000;
  Audio a("mp4", AV_CODEC_ID_AAC, info);
  const double kTurn = 2 * std::acos(-1.0);
  float t = 0;
  auto tincr = static_cast<float>(kTurn * 110 / 48000);
  const auto tincr2 = static_cast<float>(kTurn * 110 / 48000 / 48000);
  for (int64_t n = 0; n < 940; ++n) {
    const AVFrame* frame = a.enc.generate_test_frame(a.ost, {1, 1000000});
    ASSERT_NE(frame, nullptr);
    ASSERT_EQ(frame->nb_samples, 512);
    EXPECT_EQ(frame->pts, av_rescale(n * 512, 1000000, 24000));
    if (n * 512 >= 480000 && (n - 1) * 512 < 480000) {  // ten seconds of the codec's time
      t = 0;
      tincr = static_cast<float>(kTurn * 110 / 48000);
    }
    const auto* samples = reinterpret_cast<const int16_t*>(frame->data[0]);
    for (int i = 0; i < 512; ++i) {
      const auto value = static_cast<int16_t>(std::sin(double{t}) * 10000);
      ASSERT_EQ(samples[2 * i], value) << n << " " << i;
      ASSERT_EQ(samples[2 * i + 1], value);
      t += tincr;
      tincr += tincr2;
    }
  }
  info.sample_fmt = AV_SAMPLE_FMT_U8;  // cannot hold it
  Audio narrow("mp4", AV_CODEC_ID_AAC, info);
  EXPECT_EQ(narrow.enc.generate_test_frame(narrow.ost, {1, 1}), nullptr);
}

TEST(TestSignals, Pattern) {
  MovieInfo info = small_movie("x");
  info.src_pix_fmt = AV_PIX_FMT_YUV420P;
  Video v("mp4", AV_CODEC_ID_MPEG4, info);
  for (int n = 0; n <= 250; ++n) {
    const AVFrame* frame = v.enc.generate_test_frame(v.ost, {1, 1000});
    ASSERT_NE(frame, nullptr);
    EXPECT_EQ(frame->pts, n * 40);
    const int i = n < 250 ? n : 0;  // starts again after ten seconds
    EXPECT_EQ(frame->data[0][47 * frame->linesize[0] + 63], (63 + 47 + 3 * i) % 256);
    EXPECT_EQ(frame->data[1][23 * frame->linesize[1] + 31], (128 + 23 + 2 * i) % 256);
    EXPECT_EQ(frame->data[2][23 * frame->linesize[2] + 31], (64 + 31 + 5 * i) % 256);
  }
  info.src_pix_fmt = AV_PIX_FMT_GRAY8;
  info.src_width = 32;
  Video scaled("mp4", AV_CODEC_ID_MPEG4, info);
  const AVFrame* frame = scaled.enc.generate_test_frame(scaled.ost, {1, 1000});
  ASSERT_NE(frame, nullptr);
  EXPECT_EQ(frame->format, AV_PIX_FMT_GRAY8);
  EXPECT_EQ(frame->width, 32);
}

}  // namespace
