#include "ynr/pre_mask.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "runtime/arithmetic.h"

namespace {

using vorn::truncated;
using vorn::wrapping_product;
using vorn::wrapping_sum;

constexpr int kCentreValue = 64;
constexpr int kFloor = 16;
constexpr int kStep = 8;  // columns that go through the float chain come in eights

unsigned char to_mask(int t) {
  const int raised = wrapping_sum(t, kCentreValue);
  return static_cast<unsigned char>(std::max(kFloor, std::min(255, raised)));
}

// k * (d / R)^3 in three truncating steps, with one factor d / R in single precision.
unsigned char float_chain(int k, int d, float inverse) {
  const float f = static_cast<float>(d) * inverse;
  int t = k;
  for (int i = 0; i < 3; ++i) t = truncated(f * static_cast<float>(t));
  return to_mask(t);
}

}  // namespace

// The same cube in whole numbers. INT_MIN / -1 cannot occur: R >= 0.
unsigned char vorn::mask_sample(int k, int d, int normaliser) {
  if (normaliser == 0) return to_mask(0);
  int t = k;
  for (int i = 0; i < 3; ++i) t = wrapping_product(t, d) / normaliser;
  return to_mask(t);
}

// A sample depends on the city-block distance to the centre alone, so a row one further from the
// centre is its neighbour moved outward by one column, with one new sample at either end: three
// float chains in a row instead of one per sample.
//
//     row cy      4 3 2 1 0 1 2 3
//     row cy + 1  5 4 3 2 1 2 3 4
int pre_mask(_tag_uni_image* /*src*/, _tag_uni_image* mask, int width, int height, int strength) {
  if (height < 4) return 0;
  const vorn::mask_grid g(width, height);
  const int k = strength > 63 ? wrapping_product(4, strength - kCentreValue) : 4 * 14;
  const float inverse = static_cast<float>(1.0 / g.normaliser);
  const int stride = mask->stride[0];
  const int bulk = g.columns > 0 ? g.columns / kStep * kStep : 0;
  const auto row_at = [&](int y) { return mask->plane[0] + static_cast<ptrdiff_t>(y) * stride; };
  const auto fill_tail = [&](unsigned char* row, int dy) {
    for (int x = bulk; x < g.columns; ++x)
      row[x] = vorn::mask_sample(k, std::abs(x - g.centre_x) + dy, g.normaliser);
  };

  unsigned char* middle = row_at(g.centre_y);
  for (int x = 0; x < bulk; ++x) middle[x] = float_chain(k, std::abs(x - g.centre_x), inverse);
  fill_tail(middle, 0);
  const int cx = g.centre_x;
  for (int dy = 1; dy <= std::max(g.centre_y, g.rows - 1 - g.centre_y); ++dy) {
    for (int side = -1; side <= 1; side += 2) {
      const int y = g.centre_y + side * dy;
      if (y < 0 || y >= g.rows) continue;
      unsigned char* row = row_at(y);
      const unsigned char* inner = row_at(y - side);
      if (bulk > 0) {
        // Left of the centre and at it: inner moved left to right; right of it: the other way.
        const int left = std::min(cx, bulk - 1);
        std::memcpy(row + 1, inner, static_cast<size_t>(left));
        row[0] = float_chain(k, cx + dy, inverse);
        if (left < bulk - 1) {
          std::memcpy(row + left + 1, inner + left + 2, static_cast<size_t>(bulk - 2 - left));
          row[bulk - 1] = float_chain(k, bulk - 1 - cx + dy, inverse);
        }
      }
      fill_tail(row, dy);
    }
  }
  return 0;
}
