// A picture of known colours, drawn by the formulas of ITU-T H.273 and read back by them.
#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/pixfmt.h>
}

namespace zeva_test {

struct Rgb {
  double r, g, b;  // 0..255
};

// Sixteen columns: the eight bars of full colours, and a ramp of greys from black to white.
constexpr int kColours = 16;
using Colours = std::array<Rgb, kColours>;
Colours true_colours();

// The card in a pixel format, whose luma and chroma (if it has them) are of that matrix and range:
// planes without padding, as ZEVA_write_video_bgra takes them.
std::vector<uint8_t> colour_card(int width, int height, AVPixelFormat format, AVColorSpace matrix,
                                 AVColorRange range);
// Draws it into a frame that has its format, size and buffers, which are zero.
void draw_colour_card(AVFrame& frame, AVColorSpace matrix, AVColorRange range);

// A movie's first picture as an independent decoder gives it, taken for what its tags say.
struct ShownCard {
  std::string matrix, range, pixels;  // FFmpeg's names
  Colours colours{};
  // The largest difference of any of them from the true colours.
  double error() const;
};
ShownCard shown_card(const std::filesystem::path& movie);
// By one command: starting it takes longer than its work.
std::vector<ShownCard> shown_cards(const std::vector<std::filesystem::path>& movies);

}  // namespace zeva_test
