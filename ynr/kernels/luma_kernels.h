// The hot leaf kernels of the luma window, one set per kernel form, and the records they work on.
//
// A run is up to 16 adjacent blocks of one block row, filtered in three phases over scratch that
// stays in the first-level cache:
//
//   distances  every block against its 8, 16 or 24 displaced blocks     tile     -> distance
//   look_up    distance and mask value to weight, and their total       distance -> weight, total
//   blend      weighted sums, times the block's reciprocal, to pixels   tile, weight -> 64 x 4
//
// AVX2 and AVX-512 have filters of their own, which do not write the distances down.
//
// Shape:   the tile holds the run's 64 x 4 pixels and 3 more rows above and below, a row every
//          kTilePitch bytes, with at least 16 readable bytes left and right of the 64.
// Rounds:  distances, weights and sums are whole numbers; a pixel is truncate(0.5 + sum * r), the
//          product rounded, then the sum rounded. With r the refined reciprocal of the total that
//          is the vector rule of block_pair.h; with exact_reciprocals() it is the scalar rule.
// Threads: a leaf touches its arguments only.
//
// Every form gives the same bytes. This header is included by files that are compiled for newer
// machines than the library's baseline: constants, records and declarations only.
#pragma once

#include <cstdint>

#include "runtime/kernel_form.h"

namespace vorn {

constexpr int kRunBlocks = 16;
constexpr int kRunPixels = 4 * kRunBlocks;
constexpr int kMaxRings = 3;
constexpr int kNeighbours = 8;  // per ring, in the order of kRing (block_rules.h)
constexpr int kMaxNeighbours = kNeighbours * kMaxRings;
constexpr int kTileMargin = 64;  // bytes left and right of a band's pixels: rows begin cache lines
constexpr int kBandRuns = 32;    // runs whose rows lie in one window
constexpr int kTilePitch = kBandRuns * kRunPixels + 2 * kTileMargin;
constexpr int kTileRows = 4 + 2 * kMaxRings;

// Weight by index 0..799 as bytes; entry 0 repeats entry 1, since no neighbour's index is below 1.
// Zero from index `support` on, and so behind the last entry.
struct weight_table {
  alignas(64) unsigned char of[1024];
  int support;
  // Supports of 256 and more, where `lines` holds: the same weights on lines, which registers have
  // room for. Line k has 8 entries for supports below 512, else 16, and entry i of it weighs
  //   minus base[k], less slope[k] * i / 16, less 1 where a bit is set:
  //   bit 7 - i of lower[k] for i < 8, bit 15 - i of upper[k] for the rest, all modulo 256.
  bool lines;
  alignas(64) unsigned char base[64], slope[64], lower[64], upper[64];
};

// Fills in the table of a weight map (block_rules.h). Returns false for a map that no intensity
// gives, with a weight outside 0..255.
bool make_weight_table(weight_table* table, const int* map);

// Index of a distance under one mask value, in 16-bit numbers:
// (high half of (64 D + bias) * factor) >> shift. Exact for mask values 2..255.
struct index_rule {
  uint16_t bias, factor;
  uint16_t shift;         // 1..7
  uint16_t shift_factor;  // 2^(16 - shift): the shift as the high half of a product
};

// How the mask values of a run's blocks turn distances into indices. Made by make_mask_rules.
struct mask_rules {
  alignas(64) index_rule of[kRunBlocks];
  // A shorter rule for mask values of 64 and more: the index is the high half of the doubled
  // product 32 D * factor, divided by 32 and rounded. It holds for tables up to `short_support`
  // entries; 0 where it was not asked for or a mask value is below 64.
  int16_t short_factor[kRunBlocks];
  int short_support;
  bool neutral;  // asked for, and all values are 64: an index is the distance
};

// values: the run's mask values; those of blocks that are not filtered count for nothing but may
// not be 1. with_short: whether the form in use takes the shorter rule.
void make_mask_rules(mask_rules* rules, const unsigned char (&values)[kRunBlocks], bool with_short);

// What a run is filtered by: the rules of its mask values, the weights, and a bit per block that
// takes the scalar rule.
struct run_rules {
  const mask_rules* masks;
  const weight_table* table;
  uint32_t exact;
};

// What the rows of one block row leave for the next one: sums of clipped differences between rows
// that both reach, three rows per ring, columns as in the tile.
constexpr int kCarryRows = 3 * kMaxRings;

// Filters `runs` runs side by side, 1 to kBandRuns, by a rule each. tile points at the first run's
// first pixel, and so does carry, in a row of kTilePitch bytes. carry is what the last call made of
// the block row just above and the same runs; with `first` it is not read.
using run_filter = void (*)(const unsigned char* tile, const run_rules* rules, int runs,
                            unsigned char* out, int out_stride, unsigned char* carry, bool first);

// fetch copies `count` pixels into a tile, each exclusive-or `bias`; filter[r - 1] makes the 64 x 4
// pixels of each run with r rings: the 3x3, 5x5 and 7x7 window.
struct luma_kernels {
  unsigned char bias;
  bool short_rules;  // whether the filters use mask_rules' shorter rule
  void (*fetch)(unsigned char* to, const unsigned char* from, int count);
  run_filter filter[kMaxRings];
};

// The phases of the forms that keep their results in memory in between, and the filter made of
// them.
struct luma_phases {
  void (*distances)(const unsigned char* tile, int rings, uint16_t (*distance)[kRunBlocks]);
  void (*look_up)(const uint16_t (*distance)[kRunBlocks], int rings, const index_rule* rules,
                  const weight_table* table, unsigned char (*weight)[kRunBlocks], uint16_t* total);
  void (*blend)(const unsigned char* tile, const unsigned char (*weight)[kRunBlocks],
                const float* reciprocal, unsigned char* out, int out_stride);
};
void filter_in_phases(const luma_phases& phases, int rings, const unsigned char* tile,
                      const run_rules* rules, int runs, unsigned char* out, int out_stride);
void fetch_unchanged(unsigned char* to, const unsigned char* from, int count);

// The table of a form; the plain one where the form is not part of this build.
const luma_kernels& luma_kernels_of(kernel_form form);

// The forms' own tables, in luma_<form>.cpp.
extern const luma_kernels kLumaNeon;
#if defined(__aarch64__)
extern const luma_kernels kLumaNeonDot;
#endif
#if defined(__x86_64__)
extern const luma_kernels kLumaSse2;
extern const luma_kernels kLumaAvx2;
extern const luma_kernels kLumaAvx512;
#endif

// The 256 index rules by mask value (entries 0 and 1 are not usable), and the reciprocals of totals
// 0..6376 that give the scalar rule. Built once.
const index_rule* index_rule_table();
const float* exact_reciprocals();

}  // namespace vorn
