// AVX-512 F, BW, VL and VBMI: 64 bytes per register, byte permutes across all of it; outputs per
// step 64 (down, split, interleave), 2 x 128 (up, up_merge). Widest intermediate 16 bits: at most
// 16 * 255 + 8 in down. Exact.
#include <immintrin.h>

#include "pyramid/kernels/pyramid_rows.h"

namespace vorn {
namespace {

// Bytes to take from two registers side by side (0..63 the first, 64..127 the second).
struct byte_order {
  alignas(64) uint8_t index[64];
};
// Every second byte, from the first on or from the second.
constexpr byte_order every_second(int from) {
  byte_order order{};
  for (int i = 0; i < 64; ++i) order.index[i] = static_cast<uint8_t>(2 * i + from);
  return order;
}
// Bytes of the two in turn, from byte `from` of each.
constexpr byte_order in_turn(int from) {
  byte_order order{};
  for (int i = 0; i < 64; ++i) order.index[i] = static_cast<uint8_t>(from + i / 2 + 64 * (i % 2));
  return order;
}
constexpr byte_order kEvens = every_second(0), kOdds = every_second(1);
constexpr byte_order kZipLow = in_turn(0), kZipHigh = in_turn(32);

// 16-bit lanes moved up by one, the last lane of the second register moved in.
struct lane_order {
  alignas(64) uint16_t index[32];
};
constexpr lane_order moved_up() {
  lane_order order{};
  for (int i = 0; i < 32; ++i) order.index[i] = static_cast<uint16_t>(i ? i - 1 : 63);
  return order;
}
constexpr lane_order kMovedUp = moved_up();

struct vector {
  using reg = __m512i;
  static constexpr int kBytes = 64;
  static constexpr int kUnrolled = 1;
  // Detail rows wait for memory, and on planes larger than the caches 64-byte accesses that
  // straddle lines measured 1.3 times the time of 32-byte ones.
  static constexpr bool kOwnDetail = false, kOwnBlur = false;
  static constexpr kernel_form kNarrower = kernel_form::avx2;

  static reg load(const uint8_t* p) { return _mm512_loadu_si512(p); }
  static void store(uint8_t* p, reg v) { _mm512_storeu_si512(p, v); }
  static void load_step(const uint8_t* p, reg (&v)[kUnrolled]) { v[0] = load(p); }
  static void store_step(uint8_t* p, const reg (&v)[kUnrolled]) { store(p, v[0]); }
  static reg average(reg a, reg b) { return _mm512_avg_epu8(a, b); }
  static reg picked(reg p, const byte_order& order, reg q) {
    return _mm512_permutex2var_epi8(p, _mm512_load_si512(order.index), q);
  }

  // value + up - down in saturating bytes, mirrored where it is negative.
  static reg reflected(reg value, reg up, reg down) {
    return _mm512_or_si512(_mm512_adds_epu8(_mm512_subs_epu8(value, down), up),
                           _mm512_subs_epu8(down, value));
  }
  static reg merge(reg value, reg detail) {
    const reg bias = _mm512_set1_epi8(-128);
    return reflected(value, _mm512_subs_epu8(detail, bias), _mm512_subs_epu8(bias, detail));
  }
  static reg detail(reg value, reg reference) {
    const reg bias = _mm512_set1_epi8(-128);
    return reflected(value, _mm512_subs_epu8(bias, reference), _mm512_subs_epu8(reference, bias));
  }

  static void zip(reg p, reg q, reg (&out)[2]) {
    out[0] = picked(p, kZipLow, q);
    out[1] = picked(p, kZipHigh, q);
  }
  static void unzip(const uint8_t* uv, reg (&out)[2]) {
    const reg p = load(uv), q = load(uv + 64);
    out[0] = picked(p, kEvens, q);
    out[1] = picked(p, kOdds, q);
  }

  static void store_pairs(uint8_t* uv, reg u, reg v) {
    reg pairs[2];
    zip(u, v, pairs);
    store(uv, pairs[0]);
    store(uv + kBytes, pairs[1]);
  }

  static reg carry_of(int sum) { return _mm512_set1_epi16(static_cast<short>(sum)); }
  // 32 outputs from 64 columns; see the AVX2 form.
  static reg down32(const uint8_t* upper, const uint8_t* centre, const uint8_t* lower,
                    reg& before) {
    const reg weights = _mm512_set1_epi16(0x0102);
    const reg u = load(upper), c = load(centre), l = load(lower);
    const reg right = _mm512_add_epi16(
        _mm512_add_epi16(_mm512_maddubs_epi16(u, weights), _mm512_maddubs_epi16(l, weights)),
        _mm512_slli_epi16(_mm512_maddubs_epi16(c, weights), 1));
    const reg odd =
        _mm512_add_epi16(_mm512_add_epi16(_mm512_srli_epi16(u, 8), _mm512_srli_epi16(l, 8)),
                         _mm512_slli_epi16(_mm512_srli_epi16(c, 8), 1));
    const reg left = _mm512_permutex2var_epi16(odd, _mm512_load_si512(kMovedUp.index), before);
    before = odd;
    const reg total = _mm512_add_epi16(_mm512_add_epi16(right, left), _mm512_set1_epi16(8));
    return _mm512_srli_epi16(total, 4);
  }
  static reg down(const uint8_t* upper, const uint8_t* centre, const uint8_t* lower, reg& before) {
    const reg first = down32(upper, centre, lower, before);
    return picked(first, kEvens, down32(upper + 64, centre + 64, lower + 64, before));
  }
};

}  // namespace

const pyramid_kernels kPyramidAvx512 = pyramid_rows<vector>::table();

}  // namespace vorn
