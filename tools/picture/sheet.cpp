#include "tools/picture/sheet.h"

#include <algorithm>
#include <cctype>
#include <cstring>

namespace vorn::tool {
namespace {

struct glyph {
  char code;
  const char* rows[7];
};

// clang-format off
constexpr glyph kGlyphs[] = {
    {'0', {" ### ", "#   #", "#  ##", "# # #", "##  #", "#   #", " ### "}},
    {'1', {"  #  ", " ##  ", "  #  ", "  #  ", "  #  ", "  #  ", " ### "}},
    {'2', {" ### ", "#   #", "    #", "  ## ", " #   ", "#    ", "#####"}},
    {'3', {" ### ", "#   #", "    #", "  ## ", "    #", "#   #", " ### "}},
    {'4', {"   # ", "  ## ", " # # ", "#  # ", "#####", "   # ", "   # "}},
    {'5', {"#####", "#    ", "#### ", "    #", "    #", "#   #", " ### "}},
    {'6', {" ### ", "#    ", "#    ", "#### ", "#   #", "#   #", " ### "}},
    {'7', {"#####", "    #", "   # ", "  #  ", "  #  ", "  #  ", "  #  "}},
    {'8', {" ### ", "#   #", "#   #", " ### ", "#   #", "#   #", " ### "}},
    {'9', {" ### ", "#   #", "#   #", " ####", "    #", "    #", " ### "}},
    {'A', {" ### ", "#   #", "#   #", "#####", "#   #", "#   #", "#   #"}},
    {'B', {"#### ", "#   #", "#   #", "#### ", "#   #", "#   #", "#### "}},
    {'C', {" ### ", "#   #", "#    ", "#    ", "#    ", "#   #", " ### "}},
    {'D', {"#### ", "#   #", "#   #", "#   #", "#   #", "#   #", "#### "}},
    {'E', {"#####", "#    ", "#    ", "#### ", "#    ", "#    ", "#####"}},
    {'F', {"#####", "#    ", "#    ", "#### ", "#    ", "#    ", "#    "}},
    {'G', {" ### ", "#   #", "#    ", "# ###", "#   #", "#   #", " ####"}},
    {'H', {"#   #", "#   #", "#   #", "#####", "#   #", "#   #", "#   #"}},
    {'I', {" ### ", "  #  ", "  #  ", "  #  ", "  #  ", "  #  ", " ### "}},
    {'J', {"  ###", "   # ", "   # ", "   # ", "   # ", "#  # ", " ##  "}},
    {'K', {"#   #", "#  # ", "# #  ", "##   ", "# #  ", "#  # ", "#   #"}},
    {'L', {"#    ", "#    ", "#    ", "#    ", "#    ", "#    ", "#####"}},
    {'M', {"#   #", "## ##", "# # #", "# # #", "#   #", "#   #", "#   #"}},
    {'N', {"#   #", "##  #", "# # #", "#  ##", "#   #", "#   #", "#   #"}},
    {'O', {" ### ", "#   #", "#   #", "#   #", "#   #", "#   #", " ### "}},
    {'P', {"#### ", "#   #", "#   #", "#### ", "#    ", "#    ", "#    "}},
    {'Q', {" ### ", "#   #", "#   #", "#   #", "# # #", "#  # ", " ## #"}},
    {'R', {"#### ", "#   #", "#   #", "#### ", "# #  ", "#  # ", "#   #"}},
    {'S', {" ####", "#    ", "#    ", " ### ", "    #", "    #", "#### "}},
    {'T', {"#####", "  #  ", "  #  ", "  #  ", "  #  ", "  #  ", "  #  "}},
    {'U', {"#   #", "#   #", "#   #", "#   #", "#   #", "#   #", " ### "}},
    {'V', {"#   #", "#   #", "#   #", "#   #", "#   #", " # # ", "  #  "}},
    {'W', {"#   #", "#   #", "#   #", "# # #", "# # #", "## ##", "#   #"}},
    {'X', {"#   #", "#   #", " # # ", "  #  ", " # # ", "#   #", "#   #"}},
    {'Y', {"#   #", "#   #", " # # ", "  #  ", "  #  ", "  #  ", "  #  "}},
    {'Z', {"#####", "    #", "   # ", "  #  ", " #   ", "#    ", "#####"}},
    {'.', {"     ", "     ", "     ", "     ", "     ", " ##  ", " ##  "}},
    {',', {"     ", "     ", "     ", "     ", " ##  ", "  #  ", " #   "}},
    {':', {"     ", " ##  ", " ##  ", "     ", " ##  ", " ##  ", "     "}},
    {'-', {"     ", "     ", "     ", "#####", "     ", "     ", "     "}},
    {'+', {"     ", "  #  ", "  #  ", "#####", "  #  ", "  #  ", "     "}},
    {'_', {"     ", "     ", "     ", "     ", "     ", "     ", "#####"}},
    {'/', {"    #", "    #", "   # ", "  #  ", " #   ", "#    ", "#    "}},
    {'=', {"     ", "     ", "#####", "     ", "#####", "     ", "     "}},
    {'(', {"   # ", "  #  ", " #   ", " #   ", " #   ", "  #  ", "   # "}},
    {')', {" #   ", "  #  ", "   # ", "   # ", "   # ", "  #  ", " #   "}},
    {'%', {"##  #", "##  #", "   # ", "  #  ", " #   ", "#  ##", "#  ##"}},
};
// clang-format on
constexpr int kGlyphWidth = 6;  // with the gap

}  // namespace

void draw_text(rgb_image& image, int x, int y, const std::string& text, int scale) {
  for (const char c : text) {
    if (x + kGlyphWidth * scale > image.width || y + 7 * scale > image.height) return;
    for (const glyph& g : kGlyphs) {
      if (g.code != std::toupper(uint8_t(c))) continue;
      for (int row = 0; row < 7 * scale; row++) {
        for (int column = 0; column < 5 * scale; column++) {
          if (g.rows[row / scale][column / scale] != '#') continue;
          std::memset(&image.data[(size_t(y + row) * image.width + x + column) * 3], 255, 3);
        }
      }
    }
    x += kGlyphWidth * scale;
  }
}

void draw_crop(rgb_image& out, int to_x, int to_y, const rgb_image& picture, int x, int y, int side,
               int zoom) {
  // Only what both pictures have: sides may be a million pixels long and one high.
  const int first_row = std::max(0, -y) * zoom, first_column = std::max(0, -x) * zoom;
  const int rows = std::min({side, picture.height - y, (out.height - to_y + zoom - 1) / zoom});
  const int columns = std::min({side, picture.width - x, (out.width - to_x + zoom - 1) / zoom});
  for (int row = first_row; row < rows * zoom; row++) {
    for (int column = first_column; column < columns * zoom; column++) {
      const int from_x = x + column / zoom, from_y = y + row / zoom;
      const int at_x = to_x + column, at_y = to_y + row;
      if (at_x >= out.width || at_y >= out.height) continue;
      std::memcpy(&out.data[(size_t(at_y) * out.width + at_x) * 3],
                  &picture.data[(size_t(from_y) * picture.width + from_x) * 3], 3);
    }
  }
}

frame amplified_difference(const frame& f, const frame& reference, int factor) {
  frame out = make_frame(f.width, f.height);
  for (size_t i = 0; i < out.data.size(); i++) {
    out.data[i] =
        uint8_t(std::clamp(128 + factor * (int(f.data[i]) - int(reference.data[i])), 0, 255));
  }
  return out;
}

rgb_image crop_sheet(const std::vector<labelled_picture>& pictures, int centre_x, int centre_y) {
  constexpr int kGap = 8, kLabel = 24;
  rgb_image out;
  out.width = int(pictures.size()) * (kSheetSide + kGap) + kGap;
  out.height = kLabel + 2 * (kSheetSide + kGap);
  out.data.assign(size_t(out.width) * out.height * 3, 40);
  for (size_t i = 0; i < pictures.size(); i++) {
    const rgb_image& image = pictures[i].image;
    const auto begin = [](int centre, int side, int size) {
      return std::clamp(centre - side / 2, 0, std::max(size - side, 0));
    };
    const int left = kGap + int(i) * (kSheetSide + kGap);
    rgb_image label;  // of its own, so that it ends with the column
    label.width = kSheetSide;
    label.height = 16;
    label.data.assign(size_t(label.width) * label.height * 3, 40);
    draw_text(label, 0, 4, pictures[i].label);
    draw_crop(out, left, 4, label, 0, 0, kSheetSide, 1);
    const int x = begin(centre_x, kSheetSide, image.width);
    const int y = begin(centre_y, kSheetSide, image.height);
    draw_crop(out, left, kLabel, image, x, y, kSheetSide, 1);
    constexpr int kQuarter = kSheetSide / 4;
    draw_crop(out, left, kLabel + kSheetSide + kGap, image, begin(centre_x, kQuarter, image.width),
              begin(centre_y, kQuarter, image.height), kQuarter, 4);
  }
  return out;
}

}  // namespace vorn::tool
