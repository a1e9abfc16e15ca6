// The plain form of the chroma kernels, which is their definition, and the tables around them.
#include "cnr/kernels/chroma_kernels.h"

#include "cnr/kernels/chroma_rule.h"

namespace vorn {
namespace {

void filter_scalar(const chroma_span& s, const chroma_weights& weights) {
  for (int x = 0; x < s.count; ++x) {
    const chroma_pixel centre = {s.guide[x], s.src_a[x], s.src_b[x]};
    const int grey_sq = grey_distance_sq(centre.u, centre.v);
    const int radial = (s.radial[x] + 1) >> 8;  // 32767 stands for 128 * 256
    int sum = 256;
    int sum_a = 256 * centre.u;
    int sum_b = 256 * centre.v;
    for (int k = 0; k < s.tap_count; ++k) {
      const ptrdiff_t from = x + s.taps[k];
      const chroma_pixel tap = {s.guide[from], s.src_a[from], s.src_b[from]};
      const int w =
          weights.weight[range_index(centre, tap, weights.edge_a, weights.edge_b, grey_sq, radial)];
      sum += w;
      sum_a += w * tap.u;
      sum_b += w * tap.v;
    }
    const int bias = sum / 4 * (s.dither[x] + s.quarters);
    s.dst_a[x] = static_cast<uint8_t>((sum_a + bias) / sum);
    s.dst_b[x] = static_cast<uint8_t>((sum_b + bias) / sum);
  }
}

uint8_t with_gain(uint8_t x, int8_t gain) {
  const int y = x + (((x - 128) * gain + 8) >> 4);
  return static_cast<uint8_t>(y < 0 ? 0 : y > 255 ? 255 : y);
}

void split_gain_scalar(const uint8_t* src_uv, uint8_t* dst_u, uint8_t* dst_v, size_t pairs,
                       int8_t gain) {
  for (size_t i = 0; i < pairs; ++i) {
    dst_u[i] = with_gain(src_uv[2 * i], gain);
    dst_v[i] = with_gain(src_uv[2 * i + 1], gain);
  }
}

constexpr chroma_kernels kChromaScalar = {filter_scalar, split_gain_scalar};

}  // namespace

bool edges_fit_kernels(int edge_a, int edge_b) {
  if (edge_a < 0 || edge_a > kMaxSmallerEdge || edge_b < edge_a || edge_b > kMaxDistance)
    return false;
  return 255 + (255 * edge_a >> 3) + (255 * edge_b >> 3) <= kMaxDistance;
}

void make_chroma_weights(float coef, int edge_a, int edge_b, chroma_weights* weights) {
  weights->edge_a = edge_a;
  weights->edge_b = edge_b;
  weights->support = make_range_weights(coef, weights->weight);
  for (int i = 0; i < 8 * kWeightGroup; ++i)
    weights->folded[i] = weights->weight[i] ^ weights->weight[i + kWeightGroup];
}

const chroma_kernels& chroma_kernels_of(kernel_form form) {
  switch (form) {
    case kernel_form::neon:
    case kernel_form::neon_dot:  // no dot products here: gathering four taps costs what they save
      return kChromaNeon;
#if defined(__x86_64__)
    case kernel_form::sse2:
      return kChromaSse2;
    case kernel_form::avx2:
      return kChromaAvx2;
    case kernel_form::avx512:
      return kChromaAvx512;
#endif
    default:
      return kChromaScalar;
  }
}

}  // namespace vorn
