#include "ynr/block_sums.h"

#include <cmath>
#include <cstddef>

#include "runtime/arithmetic.h"
#include "ynr/block_rules.h"

namespace {

// As vorn::truncated.
int64_t to_int64(double x) {
  if (x >= 9223372036854775808.0) return INT64_MAX;
  if (x < -9223372036854775808.0) return INT64_MIN;
  return x == x ? static_cast<int64_t>(x) : 0;
}

}  // namespace

void MakeWeightMap(int* map, float sigma, int count) {
  map[0] = vorn::kCentreWeight;
  if (count < 2) return;
  const int s = vorn::truncated(sigma * sigma);
  const float inverse = 1.0f / static_cast<float>(s);  // infinite below sigma 1: all weights 0
  for (int d = 1; d < count; ++d) {
    const int square = vorn::wrapping_product(d, d);
    const float t = static_cast<float>(square) * inverse;
    // The single-precision exponential, by way of the double one: where libraries differ is expf's
    // last bit, and from intensity 472 on there are weights that it decides.
    const float e = static_cast<float>(std::exp(-static_cast<double>(t)));
    // The fused step is kept although nothing depends on its single rounding.
    const int64_t v = to_int64(std::fma(static_cast<double>(e), 255.0, 0.5));
    map[d] = static_cast<int>(std::fmin(static_cast<float>(v), 255.0f));
  }
}

void CumBlockWeight_new(unsigned char* block, int stride, int* acc, int w) {
  for (int i = 0; i < vorn::kAccWords; ++i) acc[i] = 0;
  vorn::add_weighted(acc, block, stride, static_cast<unsigned>(w));
}

unsigned AddBlockSumByNei(unsigned char* cur, unsigned char* nei, int stride, int* acc, int* map,
                          int m) {
  return vorn::add_by_distance(cur, nei, nei, stride, acc, map, m);
}

void GetBlockResult(unsigned char* out, int out_stride, int* acc) {
  for (int r = 0; r < 4; ++r, out += out_stride)
    for (int c = 0; c < 4; ++c) out[c] = vorn::normalised(acc[1 + 4 * r + c], acc[0]);
}
