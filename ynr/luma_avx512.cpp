// Leaf kernels for AVX-512 (F, BW, VL, VBMI, VNNI): a run's 64 pixels per vector, byte permutes and
// dot products.
//
// Compiled for AVX-512 while the rest of the library is not: nothing here may end up as a shared
// copy of an inline function, so everything is static and nothing comes from the standard library.
#include <immintrin.h>

#include <cstddef>

#include "ynr/luma_kernels.h"

namespace vorn {
namespace {

static inline __m512i load(const void* p) {
  return _mm512_loadu_si512(p);
}

// Distances of all 16 blocks. Differences of bytes made signed saturate far above the clip of 49;
// four clipped rows add up as bytes (196), and a dot product with ones adds the four columns.
template <int Dx, int Dy>
static inline void displaced(const __m512i (&cur)[4], const unsigned char* tile,
                             uint16_t* distance) {
  const __m512i clip = _mm512_set1_epi8(49);
  const __m512i bias = _mm512_set1_epi8(-128);
  const unsigned char* nei = tile + Dy * kTilePitch + Dx;
  __m512i clipped[4];
  for (int r = 0; r < 4; ++r) {
    const __m512i difference =
        _mm512_subs_epi8(cur[r], _mm512_xor_si512(load(nei + r * kTilePitch), bias));
    clipped[r] = _mm512_min_epu8(_mm512_abs_epi8(difference), clip);
  }
  const __m512i sum = _mm512_add_epi8(_mm512_add_epi8(clipped[0], clipped[1]),
                                      _mm512_add_epi8(clipped[2], clipped[3]));
  const __m512i blocks = _mm512_dpbusd_epi32(_mm512_setzero_si512(), sum, _mm512_set1_epi8(1));
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(distance), _mm512_cvtepi32_epi16(blocks));
}

template <int D>
static inline void ring_distances(const __m512i (&cur)[4], const unsigned char* tile,
                                  uint16_t (*distance)[kRunBlocks]) {
  displaced<-D, 0>(cur, tile, distance[0]);
  displaced<D, 0>(cur, tile, distance[1]);
  displaced<-D, -D>(cur, tile, distance[2]);
  displaced<0, -D>(cur, tile, distance[3]);
  displaced<D, -D>(cur, tile, distance[4]);
  displaced<-D, D>(cur, tile, distance[5]);
  displaced<0, D>(cur, tile, distance[6]);
  displaced<D, D>(cur, tile, distance[7]);
}

template <int Rings>
static void distances_of(const unsigned char* tile, uint16_t (*distance)[kRunBlocks]) {
  __m512i cur[4];
  for (int r = 0; r < 4; ++r)
    cur[r] = _mm512_xor_si512(load(tile + r * kTilePitch), _mm512_set1_epi8(-128));
  ring_distances<1>(cur, tile, distance);
  if (Rings >= 2) ring_distances<2>(cur, tile, distance + kNeighbours);
  if (Rings >= 3) ring_distances<3>(cur, tile, distance + 2 * kNeighbours);
}

static void distances(const unsigned char* tile, int rings, uint16_t (*distance)[kRunBlocks]) {
  if (rings == 1) distances_of<1>(tile, distance);
  if (rings == 2) distances_of<2>(tile, distance);
  if (rings == 3) distances_of<3>(tile, distance);
}

// Word positions of one field of 16 rules in two vectors, twice over.
struct field_words {
  alignas(64) uint16_t at[32];
};

constexpr field_words words_of_field(int field) {
  field_words words{};
  for (int i = 0; i < 32; ++i) words.at[i] = static_cast<uint16_t>(4 * (i % kRunBlocks) + field);
  return words;
}

constexpr field_words kBiasWords = words_of_field(0), kFactorWords = words_of_field(1),
                      kShiftWords = words_of_field(2);

struct wide_rule {
  __m512i bias, factor, shift;
  explicit wide_rule(const index_rule* rules) {
    const __m512i first = load(rules), second = load(rules + 8);
    bias = _mm512_permutex2var_epi16(first, load(kBiasWords.at), second);
    factor = _mm512_permutex2var_epi16(first, load(kFactorWords.at), second);
    shift = _mm512_permutex2var_epi16(first, load(kShiftWords.at), second);
  }
  // Indices of two neighbours' distances.
  __m512i at(const uint16_t* distance) const {
    const __m512i scaled = _mm512_add_epi16(_mm512_slli_epi16(load(distance), 6), bias);
    return _mm512_srlv_epi16(_mm512_mulhi_epu16(scaled, factor), shift);
  }
};

// 64 look-ups per step: indices 0..127 in one two-register permute, the rest in a second one.
template <bool Long>
static void look_up_in_registers(const uint16_t (*distance)[kRunBlocks], int neighbours,
                                 const index_rule* rules, const unsigned char* of,
                                 unsigned char (*weight)[kRunBlocks], uint16_t* total) {
  const __m512i low = load(of), high = load(of + 64);
  const __m512i third = Long ? load(of + 128) : low, fourth = Long ? load(of + 192) : high;
  const wide_rule wide(rules);
  const __m512i bytes = _mm512_set1_epi16(0x00FF);
  __m512i even = _mm512_setzero_si512(), odd = even;
  for (int n = 0; n < neighbours; n += 4) {
    const __m256i first = _mm512_cvtusepi16_epi8(wide.at(distance[n]));
    const __m256i second = _mm512_cvtusepi16_epi8(wide.at(distance[n + 2]));
    const __m512i index = _mm512_inserti64x4(_mm512_castsi256_si512(first), second, 1);
    const __mmask64 beyond = _mm512_movepi8_mask(index);  // 128 and above
    __m512i w;
    if (Long)
      w = _mm512_mask_blend_epi8(beyond, _mm512_permutex2var_epi8(low, index, high),
                                 _mm512_permutex2var_epi8(third, index, fourth));
    else
      w = _mm512_maskz_permutex2var_epi8(~beyond, low, index, high);
    _mm512_storeu_si512(weight[n], w);
    even = _mm512_add_epi16(even, _mm512_and_si512(w, bytes));
    odd = _mm512_add_epi16(odd, _mm512_srli_epi16(w, 8));
  }
  // Fold the four neighbours of a step, then put even and odd blocks in turn.
  const __m256i even2 =
      _mm256_add_epi16(_mm512_castsi512_si256(even), _mm512_extracti64x4_epi64(even, 1));
  const __m256i odd2 =
      _mm256_add_epi16(_mm512_castsi512_si256(odd), _mm512_extracti64x4_epi64(odd, 1));
  const __m128i even4 =
      _mm_add_epi16(_mm256_castsi256_si128(even2), _mm256_extracti128_si256(even2, 1));
  const __m128i odd4 =
      _mm_add_epi16(_mm256_castsi256_si128(odd2), _mm256_extracti128_si256(odd2, 1));
  const __m128i own = _mm_set1_epi16(256);
  _mm_storeu_si128(reinterpret_cast<__m128i*>(total),
                   _mm_add_epi16(own, _mm_unpacklo_epi16(even4, odd4)));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(total + 8),
                   _mm_add_epi16(own, _mm_unpackhi_epi16(even4, odd4)));
}

static void look_up_in_memory(const uint16_t (*distance)[kRunBlocks], int neighbours,
                              const index_rule* rules, const unsigned char* of,
                              unsigned char (*weight)[kRunBlocks], uint16_t* total) {
  const wide_rule wide(rules);
  __m256i sum = _mm256_set1_epi16(256);
  for (int n = 0; n < neighbours; n += 2) {
    alignas(64) uint16_t index[2 * kRunBlocks];
    _mm512_store_si512(index, _mm512_min_epu16(wide.at(distance[n]), _mm512_set1_epi16(799)));
    for (int i = 0; i < 2 * kRunBlocks; ++i)
      weight[n + i / kRunBlocks][i % kRunBlocks] = of[index[i]];
    for (int k = 0; k < 2; ++k)
      sum = _mm256_add_epi16(
          sum,
          _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(weight[n + k]))));
  }
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(total), sum);
}

static void look_up(const uint16_t (*distance)[kRunBlocks], int rings, const index_rule* rules,
                    const weight_table* table, unsigned char (*weight)[kRunBlocks],
                    uint16_t* total) {
  const int neighbours = rings * kNeighbours;
  if (table->support <= 128)
    look_up_in_registers<false>(distance, neighbours, rules, table->of, weight, total);
  else if (table->support <= 255)
    look_up_in_registers<true>(distance, neighbours, rules, table->of, weight, total);
  else
    look_up_in_memory(distance, neighbours, rules, table->of, weight, total);
}

// Byte positions that make words of 16 blocks out of a ring's eight weight rows (two vectors): byte
// k of block b is row rows[k] of block b.
struct word_bytes {
  alignas(64) unsigned char at[64];
};

constexpr word_bytes words_from(int first, int second, int third) {
  word_bytes bytes{};
  for (int b = 0; b < kRunBlocks; ++b) {
    bytes.at[4 * b] = static_cast<unsigned char>(first * kRunBlocks + b);
    bytes.at[4 * b + 1] = static_cast<unsigned char>(second * kRunBlocks + b);
    bytes.at[4 * b + 2] = static_cast<unsigned char>(third * kRunBlocks + b);
  }
  return bytes;
}

// Bytes (left, centre, right, centre) of 16 pixels at ring distance d, from a row that begins three
// pixels to the left of the first.
constexpr word_bytes quads_at(int d) {
  word_bytes bytes{};
  for (int x = 0; x < 16; ++x) {
    bytes.at[4 * x] = static_cast<unsigned char>(3 + x - d);
    bytes.at[4 * x + 1] = static_cast<unsigned char>(3 + x);
    bytes.at[4 * x + 2] = static_cast<unsigned char>(3 + x + d);
    bytes.at[4 * x + 3] = static_cast<unsigned char>(3 + x);
  }
  return bytes;
}

constexpr word_bytes kUpWords = words_from(2, 3, 4);
constexpr word_bytes kOwnWords = words_from(0, 0, 1);
constexpr word_bytes kDownWords = words_from(5, 6, 7);
constexpr word_bytes kQuads[kMaxRings] = {quads_at(1), quads_at(2), quads_at(3)};

template <int Rings>
static void blend_rings(const unsigned char* tile, const unsigned char (*weight)[kRunBlocks],
                        const float* reciprocal, unsigned char* out, int out_stride) {
  // A word per block: the weights of (left, centre, right, spare) of the row above, own row and row
  // below of each ring. The block's own weight 256 is 255 in the centre byte and 1 in the spare
  // one.
  constexpr __mmask64 kTriples = 0x7777777777777777, kSides = 0x5555555555555555;
  __m512i words[Rings][3];
  __m512i total = _mm512_setzero_si512();
  for (int ring = 0; ring < Rings; ++ring) {
    const __m512i first = load(weight[ring * kNeighbours]);
    const __m512i second = load(weight[ring * kNeighbours + 4]);
    words[ring][0] = _mm512_maskz_permutex2var_epi8(kTriples, first, load(kUpWords.at), second);
    words[ring][1] = _mm512_maskz_permutex2var_epi8(kSides, first, load(kOwnWords.at), second);
    words[ring][2] = _mm512_maskz_permutex2var_epi8(kTriples, first, load(kDownWords.at), second);
    if (ring == 0) words[ring][1] = _mm512_or_si512(words[ring][1], _mm512_set1_epi32(0x0100FF00));
    for (int i = 0; i < 3; ++i)
      total = _mm512_dpbusd_epi32(total, words[ring][i], _mm512_set1_epi8(1));
  }
  // Pixels enter as p - 128; what that takes away stands in the sums from the start.
  const __m512i offset = _mm512_slli_epi32(total, 7);
  const __m256i bias = _mm256_set1_epi8(-128);
  const __m512 r = _mm512_loadu_ps(reciprocal);
  const __m512i quads[3] = {load(kQuads[0].at), load(kQuads[1].at), load(kQuads[2].at)};

#pragma GCC unroll 1
  for (int group = 0; group < 4; ++group, tile += 16, out += 16) {
    const __m512i of_block =
        _mm512_add_epi32(_mm512_setr_epi32(0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 2, 2, 3, 3, 3, 3),
                         _mm512_set1_epi32(4 * group));
    __m512i w[Rings][3];
    for (int ring = 0; ring < Rings; ++ring)
      for (int i = 0; i < 3; ++i) w[ring][i] = _mm512_permutexvar_epi32(of_block, words[ring][i]);
    const __m512i start = _mm512_permutexvar_epi32(of_block, offset);
    __m512i sum[4] = {start, start, start, start};
#pragma GCC unroll 10
    for (int row = -Rings; row <= 3 + Rings; ++row) {
      // 22 of these 32 bytes are looked at, as signed numbers.
      const __m512i pixels = _mm512_castsi256_si512(_mm256_xor_si256(
          bias, _mm256_loadu_si256(
                    reinterpret_cast<const __m256i*>(tile + row * kTilePitch - kMaxRings))));
#pragma GCC unroll 3
      for (int ring = 0; ring < Rings; ++ring) {
        const int d = ring + 1;
        if (row < -d || row > 3 + d) continue;
        const __m512i quad = _mm512_permutexvar_epi8(quads[ring], pixels);
        if (row + d < 4) sum[row + d] = _mm512_dpbusd_epi32(sum[row + d], w[ring][0], quad);
        if (row >= 0 && row < 4) sum[row] = _mm512_dpbusd_epi32(sum[row], w[ring][1], quad);
        if (row - d >= 0) sum[row - d] = _mm512_dpbusd_epi32(sum[row - d], w[ring][2], quad);
      }
    }
    const __m512 of_group = _mm512_permutexvar_ps(of_block, r);
    for (int row = 0; row < 4; ++row) {
      const __m512 mean = _mm512_mul_ps(_mm512_cvtepi32_ps(sum[row]), of_group);
      const __m512i pixels = _mm512_cvttps_epi32(_mm512_add_ps(_mm512_set1_ps(0.5f), mean));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(out + row * static_cast<ptrdiff_t>(out_stride)),
                       _mm512_cvtepi32_epi8(pixels));
    }
  }
}

static void blend(const unsigned char* tile, int rings, const unsigned char (*weight)[kRunBlocks],
                  const float* reciprocal, unsigned char* out, int out_stride) {
  if (rings == 1) blend_rings<1>(tile, weight, reciprocal, out, out_stride);
  if (rings == 2) blend_rings<2>(tile, weight, reciprocal, out, out_stride);
  if (rings == 3) blend_rings<3>(tile, weight, reciprocal, out, out_stride);
}

}  // namespace

const luma_kernels kLumaAvx512 = {distances, look_up, blend};

}  // namespace vorn
