// Pictures for people: labels, crops enlarged without smoothing, amplified differences.
#pragma once

#include <string>
#include <vector>

#include "tools/picture/frame.h"
#include "tools/picture/picture_io.h"

namespace vorn::tool {

// Writes text with its top left corner at x, y, white on what is there; 6x8 pixels per character
// times scale. Lower case is written as upper case; what does not fit is left out.
void draw_text(rgb_image& image, int x, int y, const std::string& text, int scale = 1);

// The square of `side` pixels at x, y of a picture, each pixel `zoom` wide, put into `out` at to_x,
// to_y. What lies outside the picture stays as it is.
void draw_crop(rgb_image& out, int to_x, int to_y, const rgb_image& picture, int x, int y, int side,
               int zoom);

// 128 + factor * (f - reference) in every channel: grey where they agree.
frame amplified_difference(const frame& f, const frame& reference, int factor);

struct labelled_picture {
  std::string label;
  rgb_image image;
};
// One column per picture: label, the square of kSheetSide pixels around x, y at 1:1, and the
// quarter in its middle at 4:1.
constexpr int kSheetSide = 320;
rgb_image crop_sheet(const std::vector<labelled_picture>& pictures, int centre_x, int centre_y);

}  // namespace vorn::tool
