// The results of the encoders, and their reports to the host.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>

#include "audio_enc.h"
#include "media.h"
#include "stream_setup.h"
#include "temp_dir.h"
#include "video_enc.h"
#include "zeva/status.h"

namespace {

class CountingWriter : public zeva::BaseWriter {
 public:
  int write_packet(AVRational /*time_base*/, AVPacket* /*packet*/, bool /*interleave*/) override {
    ++packets;
    return takes && packets != lost_packet ? 0 : -1;
  }
  int packets = 0;
  int lost_packet = 0;
  bool takes = true;
};

// An encoder of MPEG-1 pictures, which holds one back, or of MP2 sound.
template <typename Encoder>
class EncoderOf {
 public:
  explicit EncoderOf(AVCodecID codec) {
    MovieInfo info = small_movie("a.mpg");
    info.preset = kQualityNone;
    info.profile = kProfileNone;
    info.tune = kTuneNone;
    AVFormatContext* made = nullptr;
    avformat_alloc_output_context2(&made, nullptr, nullptr, info.url);
    oc.reset(made);
    encoder = std::make_unique<Encoder>(
        zeva::add_stream(oc.get(), codec, info), &writer,
        [this](int code, const std::string& text) { told.emplace_back(code, text); });
    EXPECT_TRUE(encoder->open(info).ok);
    const AVFrame* frame = encoder->dst_frame();
    if (frame->nb_samples > 0) {
      av_samples_set_silence(frame->extended_data, 0, frame->nb_samples, frame->channels,
                             static_cast<AVSampleFormat>(frame->format));
    }
  }
  int encode() {
    AVFrame* frame = encoder->dst_frame();
    frame->pts = pts;
    pts += frame->nb_samples > 0 ? frame->nb_samples : 1;
    return encoder->encode(frame);
  }
  int encode_short_of_memory(AVFrame* frame) {
    av_max_alloc(64);
    if (frame != nullptr) frame->pts = pts++;
    const int result = encoder->encode(frame);
    av_max_alloc(INT32_MAX);
    return result;
  }

  zeva::FormatContextPtr oc;
  CountingWriter writer;
  std::vector<std::pair<int, std::string>> told;
  std::unique_ptr<Encoder> encoder;
  int64_t pts = 0;
};

template <typename Encoder>
void expect_refusals_told_once_a_run(AVCodecID codec, int code, const std::string& frame) {
  EncoderOf<Encoder> e(codec);
  EXPECT_GE(e.encode(), 0);
  for (int run = 1; run <= 2; ++run) {
    for (int i = 0; i < 3; ++i) {
      EXPECT_EQ(e.encode_short_of_memory(e.encoder->dst_frame()), zeva::kRefusedByCodec);
    }
    ASSERT_EQ(e.told.size(), static_cast<size_t>(run));
    EXPECT_EQ(e.told.back().first, code);
    EXPECT_NE(e.told.back().second.find(" encoder refused " + frame + ": "), std::string::npos);
    EXPECT_GE(e.encode(), 0);
  }
}

TEST(Encoders, TellOfRefusalsOnceARun) {
  expect_refusals_told_once_a_run<zeva::VideoEnc>(AV_CODEC_ID_MPEG1VIDEO, kZevaStatusPictureRefused,
                                                  "a picture");
  expect_refusals_told_once_a_run<zeva::AudioEnc>(AV_CODEC_ID_MP2, kZevaStatusSoundRefused,
                                                  "sound");
}

TEST(Encoders, TellOfWhatIsLostAtTheEnd) {
  EncoderOf<zeva::VideoEnc> e(AV_CODEC_ID_MPEG1VIDEO);
  EXPECT_EQ(e.encode(), 0) << "held back";
  EXPECT_EQ(e.encode(), 1);
  EXPECT_EQ(e.encode_short_of_memory(nullptr), zeva::kRefusedByCodec);
  ASSERT_EQ(e.told.size(), 1U);
  EXPECT_EQ(e.told[0].first, kZevaStatusPictureRefused);
  EXPECT_NE(e.told[0].second.find("lost what it held back: Cannot allocate memory"),
            std::string::npos);
  e.encoder->close();
  EXPECT_EQ(e.encode_short_of_memory(nullptr), zeva::kNotOpen);
}

TEST(Encoders, AnswerForTheWriter) {
  EncoderOf<zeva::VideoEnc> e(AV_CODEC_ID_MPEG1VIDEO);
  EXPECT_EQ(e.encode(), 0);
  e.writer.takes = false;
  EXPECT_EQ(e.encode(), zeva::kRefusedByWriter);
  e.writer.takes = true;
  EXPECT_EQ(e.encode(), 1);
  e.writer.takes = false;
  EXPECT_EQ(e.encoder->encode(nullptr), zeva::kRefusedByWriter);
  EXPECT_EQ(e.writer.packets, 3);
  EXPECT_TRUE(e.told.empty()) << "the writer tells itself";

  EncoderOf<zeva::AudioEnc> two_at_the_end(AV_CODEC_ID_AAC);
  EXPECT_EQ(two_at_the_end.encode(), 0);
  two_at_the_end.writer.lost_packet = 1;
  EXPECT_EQ(two_at_the_end.encoder->encode(nullptr), zeva::kRefusedByWriter);
  EXPECT_EQ(two_at_the_end.writer.packets, 2);
}

}  // namespace
