// The leaf kernels of the chroma denoiser, one table per kernel form. Walks, borders, tails and
// factor rows are shared and stand in chroma_spans.cpp, chroma_pass.cpp and uv_split.cpp, the
// tables in cnr_tables.cpp.
//
// The filter kernel computes the rule of chroma_rule.h in 16-bit lanes, exactly, for spans of
// pixels that share one list of taps:
//
//     d    = |Y0 - Y| + (|A0 - A| * edge_a >> 3) + (|B0 - B| * edge_b >> 3)          <= 1926
//     d2   = d + (d * grey >> 11), grey = (U0 - 128)^2 + (V0 - 128)^2 <= 32768       <= 32742
//     i    = (d2 * radial + 64) >> 7
//     w    = weights[i]; sum += w; sum_a += w * A; sum_b += w * B
//     out  = (sum_a + (sum >> 2) * quarters) / sum
//
// A and B are U and V, in the order that puts the smaller edge first: the rule does not care.
// Division: n * ((1 + 2^-23) / sum) in single precision, truncated, is the integer quotient for
// every n that occurs and every sum up to 20946 (HorVer.ReciprocalDivisionIsExact).
#pragma once

#include <cstddef>
#include <cstdint>

#include "cnr/cnr_tables.h"
#include "runtime/kernel_form.h"

namespace vorn {

constexpr int kPairsPerStep = 16;         // a whole step of split_gain: 32 bytes
constexpr int kMinSpan = 16;              // shortest span of the filter kernel
constexpr int kMaxFastTaps = 80;          // 256 + 80 * 255 stays below the division's limit
constexpr int kMaxChromaDistance = 1926;  // so that d2 fits 16 signed bits
constexpr int kMaxSmallerEdge = 24;       // so that edge_a * 4 * 255 + 255 * 32 fits 16 signed bits
constexpr int kWeightGroup = 16;

constexpr float kQuotientScale = 1.0f + 0x1p-23f;

// What a span's pixels share with the whole pass. Filled by make_chroma_weights.
struct chroma_weights {
  int edge_a;   // 0..kMaxSmallerEdge
  int edge_b;   // edge_a.., bounded by kMaxChromaDistance
  int support;  // weights from here on are 0
  alignas(64) uint8_t weight[kRangeWeights];
  // For 16-entry look-ups: group g holds weight[16g + j] ^ weight[16g + 16 + j]. The exclusive or
  // of groups g, g + 1, ... 7 is group g again when support is at most 128.
  alignas(16) uint8_t folded[8 * kWeightGroup];
};

// Whether the kernels' 16-bit arithmetic holds for these colour edges, the smaller one first.
bool edges_fit_kernels(int edge_a, int edge_b);

// Fills in the weights of a tuning. The kernels take them when its edges fit.
void make_chroma_weights(float coef, int edge_a, int edge_b, chroma_weights* weights);

struct chroma_span {
  const uint8_t* guide;  // all planes: at the first pixel
  const uint8_t* src_a;
  const uint8_t* src_b;
  uint8_t* dst_a;
  uint8_t* dst_b;
  const ptrdiff_t* taps;  // byte offsets from a pixel to its taps
  int tap_count;          // 0..kMaxFastTaps
  const int16_t* radial;  // per pixel: radial factor * 256, at most 32767
  const int8_t* dither;   // per pixel: -1, 0, 1
  int quarters;           // added to the dither: 1 or 2
  int count;              // kMinSpan or more

  // For kernels that share distances between rows, and spans whose taps are 3 and 1 rows above and
  // 1 and 3 below: 16 times the distances to the rows 1 and 3 below go to `below`, and `above`
  // holds what the rows 1 and 3 above left there. All null elsewhere, an entry of `above` at the
  // top.
  const int16_t* above[2] = {nullptr, nullptr};
  int16_t* below[2] = {nullptr, nullptr};
};

struct chroma_kernels {
  // Filters a span. The last vector of a span starts early enough to end with it: pixels that it
  // repeats get the same values again.
  void (*filter)(const chroma_span& span, const chroma_weights& weights);
  // De-interleaves `pairs` U,V pairs, the distance from 128 scaled by (16 + gain) / 16. pairs is a
  // multiple of kPairsPerStep. Without a gain the pyramid's split does it, and interleave the way
  // back.
  void (*split_gain)(const uint8_t* src_uv, uint8_t* dst_u, uint8_t* dst_v, size_t pairs,
                     int8_t gain);
};

// The table of a form; the plain one where the form is not part of this build.
const chroma_kernels& chroma_kernels_of(kernel_form form);

inline const chroma_kernels& active_chroma_kernels() {
  return chroma_kernels_of(active_kernel_form());
}

// The forms' own tables, in chroma_<form>.cpp.
extern const chroma_kernels kChromaNeon;
#if defined(__aarch64__)
extern const chroma_kernels kChromaNeonDot;
#endif
#if defined(__x86_64__)
extern const chroma_kernels kChromaSse2;
extern const chroma_kernels kChromaAvx2;
extern const chroma_kernels kChromaAvx512;
#endif

}  // namespace vorn
