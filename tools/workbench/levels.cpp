#include "tools/workbench/levels.h"

#include <algorithm>
#include <vector>

#include "pyramid/exported/down.h"
#include "ynr/block_sums.h"
#include "ynr/pre_mask.h"

namespace vorn::tool {
namespace {

constexpr int kMapSize = 800;
constexpr int kNeutralMask = 64;
constexpr int kCentreWeight = 256;

std::vector<uint8_t> mask_of(const frame& f, const tuning& values) {
  _tag_uni_image mask = {};
  mask.width = f.padded_width / 4;
  mask.height = f.padded_height / 4;
  // One row more than there are blocks: frames below four rows have none.
  std::vector<uint8_t> bytes(size_t(std::max(mask.width, 1)) * (mask.height + 1), kNeutralMask);
  mask.stride[0] = mask.width;
  mask.plane[0] = bytes.data();
  pre_mask(nullptr, &mask, f.padded_width, f.padded_height, values.luma.param0);
  return bytes;
}

}  // namespace

frame luma_level(const frame& f, int level) {
  frame from = f;
  for (int i = 0; i < level; ++i) {
    frame to = make_frame(std::max(from.padded_width / 2, 1), std::max(from.padded_height / 2, 1));
    gaussin3x3_down2(from.luma(), from.padded_width, from.padded_height, from.padded_width,
                     to.luma(), to.width, to.height, to.padded_width);
    pad_edges(to);
    from = std::move(to);
  }
  from.gray = level > 0 || f.gray;
  return from;
}

tuning level_tuning(const tuning& values, int level) {
  tuning t = values;
  t.chroma.enable = 0;
  for (int i = 0; i < 5; ++i) {
    const bool used = i + level < values.luma.layer;
    t.luma.pIntensity[i] = used ? values.luma.pIntensity[i + level] : 0;
    t.luma.pRadius[i] = used ? values.luma.pRadius[i + level] : 7;
  }
  t.luma.layer = std::max(2, values.luma.layer - level);
  return t;
}

tuning only_level(const tuning& values, int level) {
  tuning t = values;
  t.chroma.enable = 0;
  for (int i = 0; i < 5; ++i)
    if (i != level) t.luma.pIntensity[i] = 0;
  return t;
}

tuning without_level(const tuning& values, int level) {
  tuning t = values;
  t.chroma.enable = 0;
  t.luma.pIntensity[level] = 0;
  return t;
}

frame mask_picture(const frame& f, const tuning& values) {
  const std::vector<uint8_t> mask = mask_of(f, values);
  const int blocks = f.padded_width / 4;
  frame out = make_frame(f.width, f.height);
  for (int y = 0; y < out.padded_height; ++y) {
    const int row = std::max(0, std::min(y / 4, f.padded_height / 4 - 1));
    for (int x = 0; x < out.padded_width; ++x) {
      const int column = std::max(0, std::min(x / 4, blocks - 1));
      const int factor = mask[size_t(row) * blocks + column] - kNeutralMask;
      out.luma()[size_t(y) * out.padded_width + x] =
          uint8_t(std::clamp(factor * 255 / (3 * kNeutralMask), 0, 255));
    }
  }
  return out;
}

block_weights weigh_block(const frame& f, const tuning& values, int level, int x, int y) {
  block_weights out;
  const bool used = values.luma.enable == 1 && level < values.luma.layer;
  const int intensity = used ? values.luma.pIntensity[level] : 0;
  const int radius = values.luma.pRadius[level];
  out.x = std::clamp(x, 0, f.padded_width - 1) / 4 * 4;
  out.y = std::clamp(y, 0, f.padded_height - 1) / 4 * 4;
  if (intensity < 1 || (radius != 3 && radius != 5 && radius != 7)) return out;
  out.window = radius;
  const std::vector<uint8_t> mask = mask_of(f, values);
  const int blocks = std::max(f.padded_width / 4, 1);
  const size_t at = size_t(out.y / 4) * blocks + std::min(out.x / 4, blocks - 1);
  if (at < mask.size()) out.mask = mask[at];

  // The block and three pixels around it, edges repeated.
  constexpr int kReach = 3, kSide = 4 + 2 * kReach;
  uint8_t around[kSide * kSide];
  for (int dy = 0; dy < kSide; ++dy)
    for (int dx = 0; dx < kSide; ++dx)
      around[dy * kSide + dx] =
          f.luma()[size_t(std::clamp(out.y + dy - kReach, 0, f.padded_height - 1)) *
                       f.padded_width +
                   std::clamp(out.x + dx - kReach, 0, f.padded_width - 1)];
  int map[kMapSize];
  MakeWeightMap(map, float(intensity), kMapSize);
  uint8_t* const block = around + kReach * kSide + kReach;
  const int reach = radius / 2;
  for (int dy = -reach; dy <= reach; ++dy) {
    for (int dx = -reach; dx <= reach; ++dx) {
      if (dx == 0 && dy == 0) {
        out.distance.push_back(0);
        out.weight.push_back(kCentreWeight);
        continue;
      }
      // Neighbours lie in rings: straight or diagonal, others are not looked at.
      const bool on_ring = dx == 0 || dy == 0 || dx == dy || dx == -dy;
      int sums[17] = {};
      const unsigned distance =
          AddBlockSumByNei(block, block + dy * kSide + dx, kSide, sums, map, out.mask);
      out.distance.push_back(on_ring ? int(distance) : -1);
      out.weight.push_back(on_ring ? sums[0] : 0);
    }
  }
  return out;
}

}  // namespace vorn::tool
