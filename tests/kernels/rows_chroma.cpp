// The chroma filters' leaf kernels.
#include <algorithm>
#include <vector>

#include "cnr/kernels/chroma_kernels.h"
#include "cnr/kernels/chroma_rule.h"
#include "tests/kernels/kernel_check.h"

namespace kernel_check {

using vorn::chroma_kernels_of;
using vorn::kernel_form;

// Taps anywhere in a window, in any number that a span may have; or the four of the last level,
// along a row or between rows, which then leave distances for the rows below.
enum class tap_grid { anywhere, along_row, between_rows };

// Weights of every length, edges up to their bounds.
void check_filter(trial& t) {
  constexpr int kReach = 6;
  const region window = {t.width + kReach, t.height + kReach, kReach, kReach};
  const auto guide = t.input<uint8_t>("guide", window);
  const auto a = t.input<uint8_t>("a", window, {0, 255}, 0);
  const auto b = t.input<uint8_t>("b", window, {0, 255}, 0);
  const auto radial = t.input<int16_t>("radial", {t.width}, [&t](int, int) {
    return std::min(vorn::kRadial[t.random(0, 4)] << 8, 32767);
  });
  const auto dither =
      t.input<int8_t>("dither", {t.width}, [&t](int, int) { return t.random(-1, 1); });
  const auto dst_a = t.output<uint8_t>("dst_a", {t.width, t.height});
  const auto dst_b = t.output<uint8_t>("dst_b", {t.width, t.height});
  const int edge_a = t.parameter("edge_a", 0, vorn::kMaxSmallerEdge);
  int edge_b = std::max(edge_a, t.parameter("edge_b", 0, 52));
  while (!vorn::edges_fit_kernels(edge_a, edge_b)) --edge_b;
  const float factor = static_cast<float>(t.timed() ? 20 : t.parameter("factor", 1, 300));
  const int quarters = t.parameter("quarters", 1, 2);
  vorn::chroma_weights weights;
  vorn::make_chroma_weights(1 / (factor * factor), edge_a, edge_b, &weights);
  const auto grid = static_cast<tap_grid>(t.timed() ? 0 : t.parameter("grid", 0, 2));
  const bool four = grid != tap_grid::anywhere, between = grid == tap_grid::between_rows;
  const int taps = four ? 4 : t.timed() ? 18 : t.parameter("taps", 0, vorn::kMaxFastTaps);
  ptrdiff_t offsets[vorn::kMaxFastTaps];
  for (int k = 0; k < taps; ++k)
    offsets[k] =
        four ? (2 * k - 3) * (between ? guide.stride() : 1)
             : t.random(-kReach, kReach - 1) * guide.stride() + t.random(-kReach, kReach - 1);
  t.run([&](kernel_form form) {
    std::vector<int16_t> left[2];
    for (auto& rows : left) rows.resize(static_cast<size_t>(t.width) * t.height);
    for (int y = 0; y < t.height; ++y) {
      vorn::chroma_span span = {guide.row(y), a.row(y), b.row(y), dst_a.row(y),
                                dst_b.row(y), offsets,  taps,     radial.row(),
                                dither.row(), quarters, t.width};
      for (int i = 0; between && i < 2; ++i) {
        const int reach = 2 * i + 1;
        span.below[i] = left[i].data() + static_cast<ptrdiff_t>(y) * t.width;
        if (y >= reach) span.above[i] = span.below[i] - static_cast<ptrdiff_t>(reach) * t.width;
      }
      chroma_kernels_of(form).filter(span, weights);
    }
  });
}

void add_chroma_rows() {
  add_table("chroma", sizeof(vorn::chroma_kernels) / sizeof(void (*)()));
  add({"chroma.filter", {vorn::kMinSpan, 1, 150}, check_filter});
  add({"chroma.split_gain", {vorn::kPairsPerStep, vorn::kPairsPerStep, 160}, [](trial& t) {
         const auto uv = t.input<uint8_t>("uv", {2 * t.width});
         const auto u = t.output<uint8_t>("u", {t.width}), v = t.output<uint8_t>("v", {t.width});
         const int gain = t.parameter("gain", -128, 127);
         t.run([&](kernel_form form) {
           chroma_kernels_of(form).split_gain(
               uv.row(), u.row(), v.row(), static_cast<size_t>(t.width), static_cast<int8_t>(gain));
         });
       }});
}

}  // namespace kernel_check
