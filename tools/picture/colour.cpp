// RGB and back.
#include <algorithm>

#include "tools/picture/picture_io.h"

namespace vorn::tool {
namespace {

// BT.601 in units of 1/65536. Precise enough that what to_rgb() makes of samples, from_rgb() turns
// into the same samples again, wherever the colour exists in RGB at all.
struct from_yuv {
  int black;  // luma code
  int y, v_to_r, u_to_g, v_to_g, u_to_b;
};
constexpr from_yuv kFromFullRange = {0, 65536, 91881, 22554, 46802, 116130};
constexpr from_yuv kFromNarrowRange = {16, 76309, 104597, 25675, 53279, 132201};
constexpr int kRToY = 19595, kGToY = 38470, kBToY = 7471;
constexpr int kRToU = 11058, kGToU = 21710, kBToU = 32768;
constexpr int kRToV = 32768, kGToV = 27439, kBToV = 5329;

// value / 2^bits, rounded, as a byte.
template <int bits>
uint8_t whole(int value) {
  return uint8_t(std::clamp((value + (1 << (bits - 1))) >> bits, 0, 255));
}

}  // namespace

rgb_image to_rgb(const frame& f) {
  rgb_image image;
  image.width = f.width;
  image.height = f.height;
  image.data.resize(size_t(f.width) * f.height * 3);
  const from_yuv& m = f.full_range ? kFromFullRange : kFromNarrowRange;
  uint8_t* out = image.data.data();
  for (int y = 0; y < f.height; y++) {
    const uint8_t* const luma = f.luma() + size_t(y) * f.padded_width;
    const uint8_t* const chroma = f.chroma() + size_t(y / 2) * f.padded_width;
    for (int x = 0; x < f.width; x++, out += 3) {
      const int light = m.y * (luma[x] - m.black);
      const int u = chroma[x & ~1] - 128, v = chroma[x | 1] - 128;
      out[0] = whole<16>(light + m.v_to_r * v);
      out[1] = whole<16>(light - m.u_to_g * u - m.v_to_g * v);
      out[2] = whole<16>(light + m.u_to_b * u);
    }
  }
  return image;
}

frame from_rgb(const rgb_image& image) {
  frame f = make_frame(image.width, image.height);
  const uint8_t* in = image.data.data();
  for (int y = 0; y < f.height; y++) {
    uint8_t* const luma = f.luma() + size_t(y) * f.padded_width;
    for (int x = 0; x < f.width; x++, in += 3)
      luma[x] = whole<16>(kRToY * in[0] + kGToY * in[1] + kBToY * in[2]);
  }
  const size_t stride = size_t(image.width) * 3;
  for (int y = 0; y < f.chroma_height(); y++) {
    // At odd sizes the last pixel counts twice.
    const uint8_t* const top = image.data.data() + size_t(2 * y) * stride;
    const uint8_t* const low = 2 * y + 1 < f.height ? top + stride : top;
    uint8_t* const chroma = f.chroma() + size_t(y) * f.padded_width;
    for (int x = 0; x < f.chroma_width(); x++) {
      const int left = 6 * x, right = 2 * x + 1 < f.width ? left + 3 : left;
      int sum[3];
      for (int c = 0; c < 3; c++)
        sum[c] = top[left + c] + top[right + c] + low[left + c] + low[right + c];
      constexpr int kGrey = 128 << 18;
      chroma[2 * x] = whole<18>(kGrey + (kBToU * sum[2] - kRToU * sum[0] - kGToU * sum[1]));
      chroma[2 * x + 1] = whole<18>(kGrey + (kRToV * sum[0] - kGToV * sum[1] - kBToV * sum[2]));
    }
  }
  pad_edges(f);
  return f;
}

}  // namespace vorn::tool
