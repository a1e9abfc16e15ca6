// One pass of the directional chroma filters over one level, and its rows: pixel by pixel by the
// rule (chroma_pass.cpp), or over spans of pixels that share their taps (chroma_spans.cpp).
#pragma once

#include <cstddef>
#include <cstdint>

#include "cnr/cnr_handle.h"
#include "cnr/kernels/chroma_kernels.h"
#include "cnr/kernels/chroma_rule.h"

namespace vorn {

enum class direction { horizontal, vertical };

// As its rows read it. All planes are width x height without padding. A and B are U and V in the
// order that puts the smaller colour edge first.
struct chroma_pass {
  const uint8_t* guide;
  const uint8_t* src_a;
  const uint8_t* src_b;
  uint8_t* dst_a;
  uint8_t* dst_b;
  int width;
  int height;
  int radius;
  int step;
  int level_mode;
  bool swapped;  // A is V
  uint8_t* pairs =
      nullptr;  // where filter_spans puts rows of a vertical pass, instead of the planes
  chroma_weights weights;
};

chroma_pass describe_pass(const _tag_uni_image& guide, const _tag_uni_image& src_u,
                          const _tag_uni_image& src_v, const _tag_uni_image& dst_u,
                          const _tag_uni_image& dst_v, const _tag_cnr_param& param);

// The taps of pixel (x, y) as byte offsets from it: calls visit(offset) for each but the centre.
template <typename Visit>
void for_taps(const chroma_pass& pass, direction dir, int x, int y, const Visit& visit) {
  const bool along_row = dir == direction::horizontal;
  const int64_t pitch = along_row ? 1 : pass.width;
  const tap_range taps =
      taps_at(along_row ? x : y, along_row ? pass.width : pass.height, pass.radius, pass.step);
  const int64_t last = taps.last * pitch, step = pass.step * pitch;
  for (int64_t t = taps.first * pitch; t <= last; t += step)
    if (t != 0) visit(static_cast<ptrdiff_t>(t));
}

// The sums of pixel (x, y) by the rule, the centre entering with centre_weight.
inline weighted_sums<int64_t> sums_at(const chroma_pass& pass, direction dir, int x, int y,
                                      int centre_weight) {
  const ptrdiff_t at = static_cast<ptrdiff_t>(y) * pass.width + x;
  return filter_sums<int64_t>({pass.guide + at, pass.src_a + at, pass.src_b + at}, centre_weight,
                              pass.weights, radial_at(x, y, pass.width, pass.height),
                              [&](const auto& visit) { for_taps(pass, dir, x, y, visit); });
}

// Where row y begins in the dither, not yet wrapped into the table.
inline int64_t dither_start(const chroma_pass& pass, direction dir, int y) {
  return dir == direction::horizontal ? horizontal_dither_start(y, pass.level_mode)
                                      : vertical_dither_start(y, pass.level_mode);
}

// Rows row_begin..row_end-1 with the kernels in force.
void filter_rows(const chroma_pass& pass, direction dir, int row_begin, int row_end);

// Columns begin..end-1 of row y by the rule.
void filter_by_rule(const chroma_pass& pass, direction dir, int y, int begin, int end);

// Whether the kernels can run this pass, and its rows over spans.
bool spans_fit(const chroma_pass& pass, direction dir);
void filter_spans(const chroma_pass& pass, direction dir, int row_begin, int row_end);

}  // namespace vorn
