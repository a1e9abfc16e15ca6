// How a camera was held: read from EXIF data, and frames turned upright by it.
#include <algorithm>
#include <cstring>

#include "tools/picture/formats.h"

namespace vorn::tool {
namespace {

// The orientation entry of an EXIF segment's first directory; 1 where there is none or its bytes
// make no sense.
int exif_orientation(const uint8_t* bytes, size_t size) {
  constexpr uint8_t kExif[] = {'E', 'x', 'i', 'f', 0, 0};
  if (size < sizeof kExif || std::memcmp(bytes, kExif, sizeof kExif) != 0) return 1;
  const uint8_t* const tiff = bytes + sizeof kExif;
  const size_t length = size - sizeof kExif;
  if (length < 8) return 1;
  const bool little = tiff[0] == 'I';
  const auto number = [&](size_t at, int count) {
    uint32_t value = 0;
    for (int i = 0; i < count; i++)
      value = value << 8 | tiff[at + size_t(little ? count - 1 - i : i)];
    return value;
  };
  const size_t directory = number(4, 4);
  if (directory > length - 2) return 1;
  constexpr size_t kEntry = 12;
  constexpr uint32_t kOrientation = 0x0112, kShort = 3;
  for (uint32_t i = 0; i < number(directory, 2); i++) {
    const size_t entry = directory + 2 + i * kEntry;
    if (entry + kEntry > length) return 1;
    if (number(entry, 2) != kOrientation || number(entry + 2, 2) != kShort) continue;
    const int orientation = int(number(entry + 8, 2));
    return orientation >= 1 && orientation <= 8 ? orientation : 1;
  }
  return 1;
}

}  // namespace

int orientation_of(const std::vector<uint8_t>& markers) {
  for (size_t at = 0; at + 4 <= markers.size();) {
    const size_t length = size_t(markers[at + 2]) << 8 | markers[at + 3];
    if (markers[at + 1] == 0xe1) {
      const int orientation = exif_orientation(&markers[at + 4], length - 2);
      if (orientation != 1) return orientation;
    }
    at += 2 + length;
  }
  return 1;
}

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
