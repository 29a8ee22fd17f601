#include "colour_card.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <regex>
#include <sstream>
#include <stdexcept>

extern "C" {
#include <libavutil/imgutils.h>
#include <libavutil/pixdesc.h>
}

#include "judge.h"
#include "recording.h"

namespace zeva_test {
namespace {

struct Weights {
  double red, blue;
};

Weights weights_of(AVColorSpace matrix) {
  switch (matrix) {
    case AVCOL_SPC_BT709:
      return {0.2126, 0.0722};
    case AVCOL_SPC_BT2020_NCL:
      return {0.2627, 0.0593};
    case AVCOL_SPC_SMPTE240M:
      return {0.212, 0.087};
    case AVCOL_SPC_SMPTE170M:
    case AVCOL_SPC_BT470BG:
      return {0.299, 0.114};
    default:
      throw std::runtime_error("no matrix " + std::to_string(matrix));
  }
}

// The numbers that a component's 0 and 1 (of chroma: -0.5 and 0.5) are written as.
struct Scale {
  double offset, size;
};

Scale scale_of(int component, AVColorRange range, int depth) {
  const double unit = 1 << (depth - 8);
  if (range == AVCOL_RANGE_JPEG) return {component == 0 ? 0 : 128 * unit, (1 << depth) - 1.0};
  return {(component == 0 ? 16 : 128) * unit, (component == 0 ? 219 : 224) * unit};
}

bool is_rgb(const AVPixFmtDescriptor& format) { return (format.flags & AV_PIX_FMT_FLAG_RGB) != 0; }

// The three numbers of a colour in a format.
std::array<uint16_t, 3> numbers_of(const Rgb& colour, const AVPixFmtDescriptor& format,
                                   AVColorSpace matrix, AVColorRange range) {
  const int depth = format.comp[0].depth;
  const double r = colour.r / 255;
  const double g = colour.g / 255;
  const double b = colour.b / 255;
  std::array<double, 3> value = {r, g, b};
  if (is_rgb(format)) {
    for (double& v : value) v *= (1 << depth) - 1;
  } else {
    const Weights k = weights_of(matrix);
    const double y = k.red * r + (1 - k.red - k.blue) * g + k.blue * b;
    value = {y, (b - y) / 2 / (1 - k.blue), (r - y) / 2 / (1 - k.red)};
    for (int c = 0; c < 3; ++c) {
      const Scale scale = scale_of(c, range, depth);
      value[c] = std::min(scale.offset + value[c] * scale.size, (1 << depth) - 1.0);
    }
  }
  std::array<uint16_t, 3> result{};
  for (int c = 0; c < 3; ++c) result[c] = static_cast<uint16_t>(std::lround(value[c]));
  return result;
}

Rgb colour_of(const std::array<double, 3>& numbers, const AVPixFmtDescriptor& format,
              AVColorSpace matrix, AVColorRange range) {
  std::array<double, 3> v{};
  for (int c = 0; c < 3; ++c) {
    const Scale scale = scale_of(c, range, format.comp[0].depth);
    v[c] = (numbers[c] - scale.offset) / scale.size;
  }
  const Weights k = weights_of(matrix);
  const double r = v[0] + 2 * (1 - k.red) * v[2];
  const double b = v[0] + 2 * (1 - k.blue) * v[1];
  const double g = (v[0] - k.red * r - k.blue * b) / (1 - k.red - k.blue);
  return {255 * r, 255 * g, 255 * b};
}

int shifted_up(int value, int shift) { return -((-value) >> shift); }

}  // namespace

Colours true_colours() {
  Colours all{};
  for (int i = 0; i < 8; ++i) {
    const int bits = 7 - i;  // white, yellow, cyan, green, magenta, red, blue, black
    all[i] = {(bits & 2) * 127.5, (bits & 4) * 63.75, (bits & 1) * 255.0};
    all[8 + i] = {i * 255 / 7.0, i * 255 / 7.0, i * 255 / 7.0};
  }
  return all;
}

void draw_colour_card(AVFrame& frame, AVColorSpace matrix, AVColorRange range) {
  const AVPixFmtDescriptor& format = *av_pix_fmt_desc_get(static_cast<AVPixelFormat>(frame.format));
  const Colours colours = true_colours();
  for (int c = 0; c < 3; ++c) {
    const bool chroma = c > 0 && !is_rgb(format);
    const int width = chroma ? shifted_up(frame.width, format.log2_chroma_w) : frame.width;
    const int height = chroma ? shifted_up(frame.height, format.log2_chroma_h) : frame.height;
    std::vector<uint16_t> line(static_cast<size_t>(width));
    for (int x = 0; x < width; ++x) {
      line[x] = numbers_of(colours[x * kColours / width], format, matrix, range)[c];
    }
    for (int y = 0; y < height; ++y) {
      av_write_image_line2(line.data(), frame.data, frame.linesize, &format, 0, y, c, width, 2);
    }
  }
}

std::vector<uint8_t> colour_card(int width, int height, AVPixelFormat format, AVColorSpace matrix,
                                 AVColorRange range) {
  AVFrame frame{};
  frame.width = width;
  frame.height = height;
  frame.format = format;
  std::vector<uint8_t> bytes(
      static_cast<size_t>(av_image_get_buffer_size(format, width, height, 1)), 0);
  av_image_fill_arrays(frame.data, frame.linesize, bytes.data(), format, width, height, 1);
  draw_colour_card(frame, matrix, range);
  return bytes;
}

double ShownCard::error() const {
  const Colours truth = true_colours();
  double worst = 0;
  for (int i = 0; i < kColours; ++i) {
    worst = std::max({worst, std::abs(colours[i].r - truth[i].r),
                      std::abs(colours[i].g - truth[i].g), std::abs(colours[i].b - truth[i].b)});
  }
  return worst;
}

namespace {

// As ffmpeg describes a stream that it reads: "yuv420p(tv, bt2020nc/bt2020/smpte2084), 320x64". One
// name stands for all three where they are the same.
struct Described {
  ShownCard card;
  int width = 0;
  int height = 0;
};

std::vector<Described> described_streams(const std::string& text) {
  static const std::regex stream(
      "Stream #[0-9]+:0.*: Video: .*?, (\\w+)(\\([^()]*\\))?, ([0-9]+)x([0-9]+)");
  static const std::regex range("[(, ](tv|pc)[,)]");
  static const std::regex matrix("(bt709|smpte170m|bt470bg|smpte240m|bt2020nc)[/,)]");
  std::vector<Described> found;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    std::smatch words;
    if (!std::regex_search(line, words, stream)) continue;
    const std::string told = words[2];
    std::smatch of_range;
    std::smatch of_matrix;
    std::regex_search(told, of_range, range);
    std::regex_search(told, of_matrix, matrix);
    found.push_back({{of_matrix.str(1), of_range.str(1), words[1], {}},
                     std::stoi(words[3]),
                     std::stoi(words[4])});
  }
  return found;
}

// `raw` is one picture.
Colours read_card(const std::string& raw, const Described& stream) {
  const std::map<std::string, AVColorSpace> matrices{{"bt709", AVCOL_SPC_BT709},
                                                     {"smpte170m", AVCOL_SPC_SMPTE170M},
                                                     {"bt470bg", AVCOL_SPC_BT470BG},
                                                     {"smpte240m", AVCOL_SPC_SMPTE240M},
                                                     {"bt2020nc", AVCOL_SPC_BT2020_NCL}};
  Colours colours{};
  if (matrices.count(stream.card.matrix) == 0) return colours;
  const AVPixelFormat pixels = av_get_pix_fmt(stream.card.pixels.c_str());
  const AVPixFmtDescriptor& format = *av_pix_fmt_desc_get(pixels);
  uint8_t* planes[4] = {};
  int linesize[4] = {};
  av_image_fill_arrays(planes, linesize, reinterpret_cast<const uint8_t*>(raw.data()), pixels,
                       stream.width, stream.height, 1);
  const uint8_t* data[4] = {planes[0], planes[1], planes[2], planes[3]};
  for (int i = 0; i < kColours; ++i) {
    std::array<double, 3> numbers{};
    for (int c = 0; c < 3; ++c) {
      const int x =
          (2 * i + 1) * stream.width / (2 * kColours) >> (c > 0 ? format.log2_chroma_w : 0);
      const int y = stream.height / 2 >> (c > 0 ? format.log2_chroma_h : 0);
      uint16_t number = 0;
      av_read_image_line2(&number, data, linesize, &format, x, y, c, 1, 0, 2);
      numbers[c] = number;
    }
    colours[i] = colour_of(numbers, format, matrices.at(stream.card.matrix),
                           stream.card.range == "pc" ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG);
  }
  return colours;
}

}  // namespace

std::vector<ShownCard> shown_cards(const std::vector<std::filesystem::path>& movies) {
  std::string inputs;
  std::string outputs;
  for (size_t i = 0; i < movies.size(); ++i) {
    inputs += " -i " + shell_path(movies[i]);
    outputs += " -map " + std::to_string(i) + ":v -frames:v 1 -f rawvideo " +
               shell_path(std::filesystem::path(movies[i]).concat(".raw"));
  }
  const Outcome outcome = run_shell("ffmpeg -nostdin -hide_banner -y" + inputs + outputs);
  const std::vector<Described> streams = described_streams(outcome.output);
  if (outcome.exit_code != 0 || streams.size() < movies.size()) {
    throw std::runtime_error("ffmpeg: " + outcome.output);
  }
  std::vector<ShownCard> cards;
  for (size_t i = 0; i < movies.size(); ++i) {
    cards.push_back(streams[i].card);
    cards[i].colours =
        read_card(read_file(std::filesystem::path(movies[i]).concat(".raw")), streams[i]);
  }
  return cards;
}

ShownCard shown_card(const std::filesystem::path& movie) { return shown_cards({movie})[0]; }

}  // namespace zeva_test
