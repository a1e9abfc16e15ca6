// Cuts a plane into blocks of 8x8 samples and takes each block's cosine spectrum apart into bands.
//
// Shape:  planes of any size; blocks start every `pitch` samples in both directions and lie inside.
// Reads:  the samples of the plane. A block that touches black or white (within kClipMargin) or
// that
//         is one value all over is not usable: its noise is clipped, or it has none to show.
// Errors: a plane smaller than a block has no blocks.
//
// The bands are rings of r^2 = i^2 + j^2 around the block's mean, coefficient (i, j) having i half
// waves across the block:
//     band   0: 2..5   1: 8..13   2: 16..25   3: 26..45   4: 49..98
//     coefficients 5, 7, 11, 17, 21
// The mean and the two coefficients of one half wave (0,1), (1,0) belong to no band: shading is
// there. White noise of variance v has the mean square v in every coefficient.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace vorn::noise {

constexpr int kSide = 8;
constexpr int kBands = 5;
constexpr std::array<int, kBands> kCoefficients = {5, 7, 11, 17, 21};
// Of these so many of the smallest count in `calm`: edges and fine lines fill few coefficients of a
// block, noise fills all.
constexpr std::array<int, kBands> kCalmest = {5, 7, 8, 10, 13};

struct plane {
  int width, height;
  std::vector<float> samples;
  const float* row(int y) const { return samples.data() + size_t(y) * size_t(width); }
};

plane plane_of(const uint8_t* data, ptrdiff_t stride, int step, int width, int height);

struct block {
  float brightness = 0;              // mean luma of the place, 0..255
  std::array<float, kBands> calm{};  // mean square of the band's smallest coefficients
  std::array<float, kBands> all{};   // mean square of all of them
  bool usable = false;
  bool constant = false;  // one value all over, and neither black nor white
};

struct block_grid {
  int pitch = kSide;
  int columns = 0, rows = 0;
  std::vector<block> blocks;  // row by row
  int left(size_t index) const { return int(index % size_t(columns)) * pitch; }
  int top(size_t index) const { return int(index / size_t(columns)) * pitch; }
};

// Distance of blocks that keeps their number near `most`: never below half a block, never between
// two samples.
int pitch_for(int width, int height, int most);

block_grid cut(const plane& p, int pitch);

// Brightness of a chroma plane's blocks: the luma mean over the same 16x16 pixels.
void take_brightness(const plane& luma, block_grid* chroma);

}  // namespace vorn::noise
