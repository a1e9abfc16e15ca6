// The plain form of the leaf kernels, which is their definition, and the filter of the forms that
// work in phases.
#include <algorithm>
#include <cstddef>
#include <cstring>

#include "runtime/reciprocal.h"
#include "ynr/block_rules.h"
#include "ynr/kernels/luma_kernels.h"

namespace vorn {
namespace {

const unsigned char* displaced(const unsigned char* tile, int neighbour) {
  const displacement step = kRing[neighbour % kNeighbours];
  const int d = neighbour / kNeighbours + 1;
  return tile + step.dy * d * kTilePitch + step.dx * d;
}

void distances(const unsigned char* tile, int rings, uint16_t (*distance)[kRunBlocks]) {
  for (int n = 0; n < rings * kNeighbours; ++n) {
    const unsigned char* nei = displaced(tile, n);
    for (int block = 0; block < kRunBlocks; ++block)
      distance[n][block] =
          static_cast<uint16_t>(block_distance(tile + 4 * block, nei + 4 * block, kTilePitch));
  }
}

void look_up(const uint16_t (*distance)[kRunBlocks], int rings, const index_rule* rules,
             const weight_table* table, unsigned char (*weight)[kRunBlocks], uint16_t* total) {
  for (int block = 0; block < kRunBlocks; ++block) {
    unsigned sum = kCentreWeight;
    for (int n = 0; n < rings * kNeighbours; ++n) {
      const unsigned scaled = distance[n][block] * 64u + rules[block].bias;
      const unsigned index = (scaled * rules[block].factor >> 16) >> rules[block].shift;
      weight[n][block] = table->of[std::min<unsigned>(index, kLastIndex)];
      sum += weight[n][block];
    }
    total[block] = static_cast<uint16_t>(sum);
  }
}

template <int Rings>
void blend(const unsigned char* tile, const unsigned char (*weight)[kRunBlocks],
           const float* reciprocal, unsigned char* out, int out_stride) {
  for (int block = 0; block < kRunBlocks; ++block, tile += 4, out += 4) {
    unsigned sum[4][4];
    for (int r = 0; r < 4; ++r)
      for (int c = 0; c < 4; ++c) sum[r][c] = kCentreWeight * tile[r * kTilePitch + c];
    for (int n = 0; n < Rings * kNeighbours; ++n) {
      const unsigned char* nei = displaced(tile, n);
      for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c) sum[r][c] += weight[n][block] * nei[r * kTilePitch + c];
    }
    for (int r = 0; r < 4; ++r)
      for (int c = 0; c < 4; ++c)
        out[r * static_cast<ptrdiff_t>(out_stride) + c] =
            normalised_by(static_cast<int>(sum[r][c]), reciprocal[block]);
  }
}

template <int Rings>
void filter(const unsigned char* tile, const run_rules* rules, int runs, unsigned char* out,
            int out_stride, unsigned char* /*carry*/, bool /*first*/) {
  filter_in_phases({distances, look_up, blend<Rings>}, Rings, tile, rules, runs, out, out_stride);
}

constexpr luma_kernels kLumaScalar = {0, false, fetch_unchanged, {filter<1>, filter<2>, filter<3>}};

}  // namespace

void fetch_unchanged(unsigned char* to, const unsigned char* from, int count) {
  std::memcpy(to, from, static_cast<size_t>(count));
}

static void filter_run(const luma_phases& phases, const unsigned char* tile, int rings,
                       const run_rules& rules, unsigned char* out, int out_stride) {
  alignas(64) uint16_t distance[kMaxNeighbours][kRunBlocks];
  alignas(64) unsigned char weight[kMaxNeighbours][kRunBlocks];
  alignas(64) uint16_t total[kRunBlocks];
  alignas(64) float reciprocal[kRunBlocks];
  phases.distances(tile, rings, distance);
  phases.look_up(distance, rings, rules.masks->of, rules.table, weight, total);
#if defined(__aarch64__)
  for (int i = 0; i < kRunBlocks; i += 4)
    vst1q_f32(reciprocal + i, refined_reciprocal_x4(vcvtq_f32_u32(vmovl_u16(vld1_u16(total + i)))));
#else
  const float* refined = reciprocal_table();
  for (int i = 0; i < kRunBlocks; ++i) reciprocal[i] = refined[total[i]];
#endif
  if (rules.exact) {
    const float* exact = exact_reciprocals();
    for (int i = 0; i < kRunBlocks; ++i)
      if (rules.exact >> i & 1) reciprocal[i] = exact[total[i]];
  }
  phases.blend(tile, weight, reciprocal, out, out_stride);
}

void filter_in_phases(const luma_phases& phases, int rings, const unsigned char* tile,
                      const run_rules* rules, int runs, unsigned char* out, int out_stride) {
  for (int i = 0; i < runs; ++i, tile += kRunPixels, out += kRunPixels)
    filter_run(phases, tile, rings, rules[i], out, out_stride);
}

const luma_kernels& luma_kernels_of(kernel_form form) {
  switch (form) {
    case kernel_form::neon:
      return kLumaNeon;
#if defined(__aarch64__)
    case kernel_form::neon_dot:
      return kLumaNeonDot;
#endif
#if defined(__x86_64__)
    case kernel_form::sse2:
      return kLumaSse2;
    case kernel_form::avx2:
      return kLumaAvx2;
    case kernel_form::avx512:
      return kLumaAvx512;
#endif
    default:
      return kLumaScalar;
  }
}

}  // namespace vorn
