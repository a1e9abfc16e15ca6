// Frames turned upright.
#include <algorithm>

#include "tools/picture/picture_io.h"

namespace vorn::tool {

frame upright(const frame& f, int orientation) {
  const bool swap = orientation >= 5;
  const bool mirror_x =
      orientation == 2 || orientation == 3 || orientation == 7 || orientation == 8;
  const bool mirror_y =
      orientation == 3 || orientation == 4 || orientation == 6 || orientation == 7;
  frame out = make_frame(swap ? f.height : f.width, swap ? f.width : f.height);
  out.gray = f.gray;
  out.full_range = f.full_range;
  // Where a pixel of the result lies in f.
  const auto source = [&](int x, int y) {
    if (swap) std::swap(x, y);
    return std::pair(mirror_x ? f.width - 1 - x : x, mirror_y ? f.height - 1 - y : y);
  };
  for (int y = 0; y < out.height; y++) {
    for (int x = 0; x < out.width; x++) {
      const auto [from_x, from_y] = source(x, y);
      out.luma()[size_t(y) * out.padded_width + x] =
          f.luma()[size_t(from_y) * f.padded_width + from_x];
    }
  }
  // The mean over a sample's four pixels: the sample itself, unless an odd size moves the pairs.
  for (int y = 0; y < out.chroma_height(); y++) {
    for (int x = 0; x < out.chroma_width(); x++) {
      int u = 2, v = 2;
      for (int k = 0; k < 4; k++) {
        const auto [from_x, from_y] = source(std::min(2 * x + (k & 1), out.width - 1),
                                             std::min(2 * y + (k >> 1), out.height - 1));
        const uint8_t* const pair =
            f.chroma() + size_t(from_y / 2) * f.padded_width + size_t(from_x / 2) * 2;
        u += pair[0];
        v += pair[1];
      }
      uint8_t* const pair = out.chroma() + size_t(y) * out.padded_width + size_t(x) * 2;
      pair[0] = uint8_t(u >> 2);
      pair[1] = uint8_t(v >> 2);
    }
  }
  pad_edges(out);
  return out;
}

}  // namespace vorn::tool
