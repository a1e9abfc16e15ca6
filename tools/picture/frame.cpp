#include "tools/picture/frame.h"

#include <cstring>

namespace vorn::tool {
namespace {

int64_t largest_frame = (int64_t(1) << 31) / 3;  // padded pixels

}  // namespace

void limit_frame_size(int64_t pixels) {
  largest_frame = pixels;
}

bool frame_size_ok(int64_t width, int64_t height) {
  constexpr int64_t kSide = 1 << 20;  // keeps the product below within 64 bits
  if (width < 1 || height < 1 || width > kSide || height > kSide) return false;
  return (width + width % 2) * (height + height % 2) <= largest_frame;
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

}  // namespace vorn::tool
