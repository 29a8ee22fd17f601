// The colours that the host gave are those that a player shows, and the movie's tags say so.
#include <gtest/gtest.h>

#include <cstring>

extern "C" {
#include <libavutil/imgutils.h>
#include <libavutil/pixdesc.h>
}

#include "colour_card.h"
#include "judge.h"
#include "recording.h"

namespace {
using namespace zeva_test;  // NOLINT: a test reads better without the prefix
namespace fs = std::filesystem;

constexpr double kMostError = 3;  // of 255

constexpr AVPixelFormat kHostFormats[] = {
    AV_PIX_FMT_BGRA, AV_PIX_FMT_RGBA,    AV_PIX_FMT_BGR24,   AV_PIX_FMT_RGB24,
    AV_PIX_FMT_NV12, AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUYV422, AV_PIX_FMT_P010LE,
};
constexpr AVColorSpace kMatrices[] = {AVCOL_SPC_SMPTE170M, AVCOL_SPC_BT709, AVCOL_SPC_BT2020_NCL};
constexpr AVColorRange kRanges[] = {AVCOL_RANGE_MPEG, AVCOL_RANGE_JPEG};

// A recording that adds next to no loss of its own.
MovieInfo card_settings(const fs::path& file, AVPixelFormat format) {
  MovieInfo info = settings(file);
  info.disable_audio = true;
  info.height = info.src_height = 64;
  info.src_pix_fmt = format;
  info.profile = kProfileNone;
  info.rc_mode = 3;
  info.qp = 4;
  return info;
}

int row_bytes(AVPixelFormat format, int width) { return av_image_get_linesize(format, width, 0); }

// Three pictures of the card, in luma and chroma of `matrix` and `range` where the format has any.
void record_card(const MovieInfo& info, const ZevaOptions& options, AVColorSpace matrix,
                 AVColorRange range) {
  const auto format = static_cast<AVPixelFormat>(info.src_pix_fmt);
  Recording recording(info, options);
  std::vector<uint8_t> card = colour_card(info.src_width, info.src_height, format, matrix, range);
  for (int n = 0; n < 3; ++n) {
    EXPECT_TRUE(ZEVA_write_video_bgra(recording.handle, card.data(), 0, time_us(n),
                                      row_bytes(format, info.src_width)));
  }
}

bool is_rgb(AVPixelFormat format) {
  return (av_pix_fmt_desc_get(format)->flags & AV_PIX_FMT_FLAG_RGB) != 0;
}

// A recording of the card, and what it must be shown as.
struct Expected {
  std::string text;
  fs::path file;
  AVColorSpace matrix;
  AVColorRange range;
};

Expected record_from(AVPixelFormat format, AVColorSpace matrix, AVColorRange range, bool same) {
  const std::string text = std::string(av_get_pix_fmt_name(format)) + "-" +
                           av_color_space_name(matrix) + "-" + av_color_range_name(range) +
                           (same ? "" : "-from-others");
  const fs::path file = work_file(text + ".mp4");
  MovieInfo info = card_settings(file, format);
  info.colorspace = matrix;
  info.color_range = range;
  ZevaOptions given = options();
  if (!same) {
    given.source_matrix = matrix == AVCOL_SPC_BT709 ? AVCOL_SPC_BT470BG : AVCOL_SPC_BT709;
    given.source_range = range == AVCOL_RANGE_MPEG ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG;
  }
  record_card(info, given, same ? matrix : static_cast<AVColorSpace>(given.source_matrix),
              same ? range : static_cast<AVColorRange>(given.source_range));
  return {text, file, matrix, range};
}

TEST(Colours, AreShownAsGivenInEveryFormatMatrixAndRange) {
  for (const AVPixelFormat format : kHostFormats) {
    std::vector<Expected> all;
    for (const AVColorSpace matrix : kMatrices) {
      for (const AVColorRange range : kRanges) {
        all.push_back(record_from(format, matrix, range, true));
        if (!is_rgb(format)) all.push_back(record_from(format, matrix, range, false));
      }
    }
    std::vector<fs::path> files;
    for (const Expected& expected : all) files.push_back(expected.file);
    const std::vector<ShownCard> shown = shown_cards(files);
    for (size_t i = 0; i < all.size(); ++i) {
      SCOPED_TRACE(all[i].text);
      EXPECT_EQ(shown[i].matrix, av_color_space_name(all[i].matrix));
      EXPECT_EQ(shown[i].range, av_color_range_name(all[i].range));
      EXPECT_LE(shown[i].error(), kMostError);
    }
  }
}

TEST(Colours, OfUntaggedMoviesAreTagged) {
  const fs::path file = work_file("card.mkv");
  const struct {
    AVPixelFormat format;
    int width, height, movie_width, colorspace;
    AVPixelFormat movie_format;
    const char *matrix, *range;
  } cases[] = {
      {AV_PIX_FMT_BGRA, 320, 64, 320, 2, AV_PIX_FMT_YUV420P, "smpte170m", "tv"},
      {AV_PIX_FMT_BGRA, 1280, 64, 320, 2, AV_PIX_FMT_YUV420P, "bt709", "tv"},
      {AV_PIX_FMT_NV12, 1280, 64, 320, 2, AV_PIX_FMT_YUV420P, "bt709", "tv"},
      {AV_PIX_FMT_RGB24, 320, 64, 1280, 2, AV_PIX_FMT_YUV444P, "smpte170m", "tv"},
      // A record that is zero where the host filled in nothing.
      {AV_PIX_FMT_BGRA, 1280, 720, 1280, 0, AV_PIX_FMT_YUV420P, "bt709", "tv"},
      {AV_PIX_FMT_YUVJ420P, 320, 64, 320, 2, AV_PIX_FMT_YUV420P, "smpte170m", "tv"},
      {AV_PIX_FMT_P010LE, 320, 64, 320, 2, AV_PIX_FMT_YUV420P10, "smpte170m", "tv"},
      {AV_PIX_FMT_BGRA, 320, 64, 320, 2, AV_PIX_FMT_YUVJ420P, "smpte170m", "pc"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(av_get_pix_fmt_name(c.format)) + " " + std::to_string(c.width));
    MovieInfo info = card_settings(file, c.format);
    info.src_width = c.width;
    info.height = info.src_height = c.height;
    info.width = c.movie_width;
    info.colorspace = c.colorspace;
    info.pix_fmt = c.movie_format;
    record_card(info, options(), c.width < 1280 ? AVCOL_SPC_SMPTE170M : AVCOL_SPC_BT709,
                c.format == AV_PIX_FMT_YUVJ420P ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG);
    const ShownCard shown = shown_card(file);
    EXPECT_EQ(shown.matrix, c.matrix);
    EXPECT_EQ(shown.range, c.range);
    EXPECT_EQ(shown.pixels, av_get_pix_fmt_name(c.movie_format));
    EXPECT_LE(shown.error(), kMostError);
  }
}

// The encoder converts the pictures that a host's filter gives out.
class CardFilter : public FilterBase {
 public:
  CardFilter(AVPixelFormat format, AVColorSpace matrix, AVColorRange range, bool tagged)
      : frame(av_frame_alloc()) {
    frame->width = kWidth;
    frame->height = 64;
    frame->format = format;
    av_frame_get_buffer(frame, 0);
    for (const AVBufferRef* buffer : frame->buf) {
      if (buffer != nullptr) memset(buffer->data, 0, static_cast<size_t>(buffer->size));
    }
    draw_colour_card(*frame, matrix, range);
    if (!tagged) return;
    frame->colorspace = matrix;
    frame->color_range = range;
  }
  ~CardFilter() override { av_frame_free(&frame); }
  CardFilter(const CardFilter&) = delete;
  CardFilter& operator=(const CardFilter&) = delete;
  AVFrame* filter(AVFrame* given) override {
    frame->pts = given->pts;
    return frame;
  }
  AVFrame* frame;
};

TEST(Colours, OfFramesAreTheirOwn) {
  const fs::path file = work_file("card.mp4");
  const struct {
    AVPixelFormat format;
    AVColorSpace matrix;
    AVColorRange range;
    bool tagged;
  } cases[] = {
      {AV_PIX_FMT_YUV420P, AVCOL_SPC_BT709, AVCOL_RANGE_MPEG, false},
      {AV_PIX_FMT_YUV420P, AVCOL_SPC_SMPTE170M, AVCOL_RANGE_JPEG, true},
      {AV_PIX_FMT_YUV444P10, AVCOL_SPC_BT2020_NCL, AVCOL_RANGE_MPEG, true},
      {AV_PIX_FMT_RGBA, AVCOL_SPC_RGB, AVCOL_RANGE_JPEG, false},
      {AV_PIX_FMT_GBRP, AVCOL_SPC_RGB, AVCOL_RANGE_JPEG, true},
  };
  for (const auto& c : cases) {
    for (const bool by_filter : {false, true}) {
      SCOPED_TRACE(std::string(av_get_pix_fmt_name(c.format)) + (by_filter ? " filtered" : ""));
      MovieInfo info = card_settings(file, by_filter ? AV_PIX_FMT_BGRA : c.format);
      info.colorspace = AVCOL_SPC_BT709;
      Recording recording(info);
      auto* card = new CardFilter(c.format, c.matrix, c.range, c.tagged);
      const AVFrame* const dst = ZEVA_video_dst_frame(recording.handle);
      EXPECT_EQ(dst->colorspace, AVCOL_SPC_BT709);
      EXPECT_EQ(dst->color_range, AVCOL_RANGE_MPEG);
      if (by_filter) ZEVA_add_video_filter(recording.handle, card);
      std::vector<uint8_t> grey(size_t{4} * kWidth * 64, 128);
      for (int n = 0; n < 3; ++n) {
        card->frame->pts = time_us(n);
        EXPECT_TRUE(
            by_filter
                ? ZEVA_write_video_bgra(recording.handle, grey.data(), 0, time_us(n), 4 * kWidth)
                : ZEVA_write_video_frame(recording.handle, card->frame, {1, 1000000}));
      }
      recording.stop();
      if (!by_filter) delete card;
      const ShownCard shown = shown_card(file);
      EXPECT_EQ(shown.matrix + shown.range, "bt709tv");
      EXPECT_LE(shown.error(), kMostError);
    }
  }
}

// One place of the pattern that RGB can hold: luma 192, chroma 144 and 144.
TEST(Colours, OfTheTestPatternAreTheMovies) {
  for (const AVPixelFormat format : {AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUV444P, AV_PIX_FMT_BGRA}) {
    SCOPED_TRACE(av_get_pix_fmt_name(format));
    const fs::path file = work_file("pattern.mp4");
    MovieInfo info = card_settings(file, format);
    info.colorspace = AVCOL_SPC_BT709;
    info.color_range = AVCOL_RANGE_JPEG;
    Recording recording(info);
    AVFrame* frame = ZEVA_generate_testing_vFrame(recording.handle, {1, 1000000});
    EXPECT_TRUE(ZEVA_write_video_frame(recording.handle, frame, {1, 1000000}));
    recording.stop();
    const std::string raw = decode(file, "-frames:v 1 -f rawvideo");
    const size_t luma = size_t{kWidth} * 64;
    const size_t chroma = luma + size_t{kWidth} / 2 * 16 + 80;
    EXPECT_NEAR(static_cast<uint8_t>(raw.at(size_t{kWidth} * 32 + 160)), 192, kMostError);
    EXPECT_NEAR(static_cast<uint8_t>(raw.at(chroma)), 144, kMostError);
    EXPECT_NEAR(static_cast<uint8_t>(raw.at(chroma + luma / 4)), 144, kMostError);
  }
}

TEST(Colours, ThatCannotBeAreRefusedByName) {
  const struct {
    int colorspace, color_range, source_matrix, source_range;
    AVPixelFormat format;
    const char* names;  // null: recorded
  } cases[] = {
      {99, 0, 0, 0, AV_PIX_FMT_BGRA, "colorspace 99"},
      {2, -1, 0, 0, AV_PIX_FMT_BGRA, "color_range -1"},
      {2, 0, -3, 0, AV_PIX_FMT_BGRA, "source_matrix -3"},
      {2, 0, 0, 3, AV_PIX_FMT_BGRA, "source_range 3"},
      {AVCOL_SPC_ICTCP, 0, 0, 0, AV_PIX_FMT_BGRA, "colorspace 14"},
      {2, 0, 0, 0, AV_PIX_FMT_VAAPI, "src_pix_fmt"},
      {AVCOL_SPC_BT709, 0, AVCOL_SPC_YCGCO, 0, AV_PIX_FMT_NV12, "source_matrix 8"},
      {AVCOL_SPC_ICTCP, 0, 0, 0, AV_PIX_FMT_NV12, nullptr},  // nothing but the layout changes
  };
  for (const auto& c : cases) {
    MovieInfo info = card_settings(work_file("card.mp4"), c.format);
    info.colorspace = c.colorspace;
    info.color_range = c.color_range;
    ZevaOptions given = options();
    given.source_matrix = c.source_matrix;
    given.source_range = c.source_range;
    Recording recording(info, given);
    EXPECT_EQ(recording.open(), c.names == nullptr);
    if (c.names == nullptr) continue;
    ASSERT_EQ(recording.failures().size(), 1U);
    EXPECT_EQ(recording.failures()[0].code, AVERROR(EINVAL));
    EXPECT_NE(recording.failures()[0].text.find(c.names), std::string::npos)
        << recording.failures()[0].text;
  }
}

}  // namespace
