#include "tools/frame.h"

#include <cstring>

namespace vorn::tool {

bool frame_size_ok(int64_t width, int64_t height) {
  constexpr int64_t kSide = 1 << 20;  // keeps the product below within 64 bits
  if (width < 1 || height < 1 || width > kSide || height > kSide) return false;
  const int64_t padded = (width + width % 2) * (height + height % 2);
  return padded * 3 < (int64_t(1) << 31);
}

frame make_frame(int width, int height) {
  frame f;
  f.width = width;
  f.height = height;
  f.padded_width = width + width % 2;
  f.padded_height = height + height % 2;
  f.data.resize(f.luma_size() / 2 * 3);
  std::memset(f.chroma(), 128, f.luma_size() / 2);
  return f;
}

void pad_edges(frame& f) {
  uint8_t* const luma = f.luma();
  const size_t stride = f.padded_width;
  if (f.padded_width > f.width) {
    for (int y = 0; y < f.height; y++) luma[y * stride + f.width] = luma[y * stride + f.width - 1];
  }
  if (f.padded_height > f.height) {
    std::memcpy(luma + f.height * stride, luma + (f.height - 1) * stride, stride);
  }
}

plane extract_plane(const frame& f, int index) {
  plane p;
  p.width = index == 0 ? f.width : f.chroma_width();
  p.height = index == 0 ? f.height : f.chroma_height();
  p.data.resize(size_t(p.width) * p.height);
  for (int y = 0; y < p.height; y++) {
    uint8_t* const out = p.data.data() + size_t(y) * p.width;
    if (index == 0) {
      std::memcpy(out, f.luma() + size_t(y) * f.padded_width, p.width);
    } else {
      const uint8_t* const in = f.chroma() + size_t(y) * f.padded_width + (index - 1);
      for (int x = 0; x < p.width; x++) out[x] = in[2 * x];
    }
  }
  return p;
}

}  // namespace vorn::tool
