#include "ynr/four_grids.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdint>

#include "runtime/stage.h"
#include "ynr/block_rules.h"
#include "ynr/block_sums.h"
#include "ynr/run_walk.h"

namespace {

using vorn::kBlock;

struct grid {
  int dx, dy;  // the grid begins this far left of and above the level
  int radius;
};
constexpr int kGrids = 4;
constexpr grid kGrid[kGrids] = {{0, 0, 7}, {2, 2, 7}, {2, 0, 3}, {0, 2, 3}};

// Rows that a worker filters on all grids before it averages them: few enough for its cache, and
// many against the block row that a grid with dy has more of.
constexpr int kBandRows = 32;
constexpr int kScratchRows = kBandRows + kBlock;

int scratch_stride(int width) {
  return (width + 2 * kBlock + 63) & ~63;
}

// What a window's strength is in tenths of the 7x7 window's at the same effect, measured on
// photographs with noise: fewer neighbours want more weight each.
int relative_strength(int radius) {
  return radius == 3 ? 12 : radius == 5 ? 11 : 10;
}

int strength_for(int window, int intensity, int radius) {
  const int from = relative_strength(radius);
  const int64_t scaled = (int64_t{intensity} * relative_strength(window) + from / 2) / from;
  return static_cast<int>(std::min<int64_t>(scaled, INT_MAX));
}

struct weight_maps {
  int wide[vorn::kMapSize], narrow[vorn::kMapSize];
};

// Rows begin..end - 1 of the level on one grid; scratch row r holds row begin - dy + r.
void filter_rows(const grid& g, const _tag_uni_image& level, const _tag_uni_image& mask,
                 weight_maps* maps, int begin, int end, unsigned char* scratch) {
  const ptrdiff_t stride = level.stride[0];
  _tag_uni_image from = level, to = {}, weights = mask;
  from.plane[0] = level.plane[0] + (begin - g.dy) * stride - g.dx;
  from.width = to.width = level.width + g.dx;
  from.height = to.height = end - begin + g.dy;
  to.plane[0] = scratch;
  to.stride[0] = scratch_stride(level.width);
  const bool wide = g.radius == 7;
  vorn::walk_rows({&from, &to, &weights, wide ? maps->wide : maps->narrow, wide ? 3 : 1}, 0,
                  from.height);
}

void average_row(const unsigned char* a, const unsigned char* b, const unsigned char* c,
                 const unsigned char* d, unsigned char* out, int width) {
  for (int x = 0; x < width; ++x)
    out[x] = static_cast<unsigned char>((a[x] + b[x] + c[x] + d[x] + 1) >> 2);
}

}  // namespace

size_t vorn::four_grids_scratch(int width) {
  return size_t{kSlices} * kGrids * kScratchRows * static_cast<size_t>(scratch_stride(width));
}

int vorn::filter_on_four_grids(pool* workers, const _tag_uni_image& level,
                               const _tag_uni_image& dst, const _tag_uni_image& mask, int intensity,
                               int radius, unsigned char* scratch) {
  weight_maps maps;
  MakeWeightMap(maps.wide, static_cast<float>(strength_for(7, intensity, radius)), kMapSize);
  MakeWeightMap(maps.narrow, static_cast<float>(strength_for(3, intensity, radius)), kMapSize);
  const ptrdiff_t stride = scratch_stride(level.width);
  const ptrdiff_t grid_bytes = kScratchRows * stride;
  row_queue rows(level.height, 2 * kBlock * kBlock);
  std::atomic<int> jobs{0};
  return run_shared(workers, [&] {
    unsigned char* const own = scratch + jobs.fetch_add(1) * kGrids * grid_bytes;
    for (int chunk, chunk_end; rows.next(&chunk, &chunk_end);) {
      for (int begin = chunk; begin < chunk_end; begin += kBandRows) {
        const int end = std::min(begin + kBandRows, chunk_end);
        const unsigned char* result[kGrids];
        for (int i = 0; i < kGrids; ++i) {
          filter_rows(kGrid[i], level, mask, &maps, begin, end, own + i * grid_bytes);
          result[i] = own + i * grid_bytes + kGrid[i].dy * stride + kGrid[i].dx;
        }
        for (int y = begin; y < end; ++y) {
          const ptrdiff_t at = (y - begin) * stride;
          average_row(result[0] + at, result[1] + at, result[2] + at, result[3] + at,
                      dst.plane[0] + static_cast<ptrdiff_t>(y) * dst.stride[0], dst.width);
        }
      }
    }
  });
}
