// The plain form of the chroma kernels, which is their definition, and the tables around them.
#include "cnr/kernels/chroma_kernels.h"

#include "cnr/kernels/chroma_rule.h"

namespace vorn {
namespace {

void filter_scalar(const chroma_span& s, const chroma_weights& w) {
  for (int x = 0; x < s.count; ++x) {
    const int radial = (s.radial[x] + 1) >> 8;  // 32767 stands for 128 * 256
    const auto sums = filter_sums<int>({s.guide + x, s.src_a + x, s.src_b + x}, kDitherCentreWeight,
                                       w, radial, [&](const auto& visit) {
                                         for (int k = 0; k < s.tap_count; ++k) visit(s.taps[k]);
                                       });
    const int quarters = s.dither[x] + s.quarters;
    s.dst_a[x] = dithered_quotient(sums.a, sums.weight, quarters);
    s.dst_b[x] = dithered_quotient(sums.b, sums.weight, quarters);
  }
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
  if (edge_a < 0 || edge_a > kMaxSmallerEdge || edge_b < edge_a || edge_b > kMaxChromaDistance)
    return false;
  return 255 + (255 * edge_a >> 3) + (255 * edge_b >> 3) <= kMaxChromaDistance;
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
      return kChromaNeon;
#if defined(__aarch64__)
    case kernel_form::neon_dot:
      return kChromaNeonDot;
#endif
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
