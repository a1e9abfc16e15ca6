// The luma filter: the leaf kernels of a run of blocks in every form, and the exported pair members
// against two blocks of the scalar rule.
#include <algorithm>
#include <vector>

#include "tests/kernels/kernel_check.h"
#include "ynr/block_processors.h"
#include "ynr/block_sums.h"
#include "ynr/exported/block_processors.h"
#include "ynr/exported/block_sums.h"
#include "ynr/kernels/luma_kernels.h"

namespace kernel_check {

using vorn::kernel_form;

namespace {

constexpr int kMapEntries = 800;
constexpr int kAccumulator = 17;

// A weight map as MakeWeightMap builds them, from sharp to wide.
view<int> weight_map(trial& t) {
  int map[kMapEntries];
  MakeWeightMap(map, static_cast<float>(t.parameter("sigma", 1, 400)), kMapEntries);
  return t.input<int>("map", {kMapEntries}, [&map](int, int i) { return map[i]; });
}

// A pair of blocks with `ring` pixels around it.
view<uint8_t> pair_with_ring(trial& t, int ring) {
  return t.input<uint8_t>("src", {8 + ring, 4 + ring, ring, ring});
}

// What the centre block alone leaves in an accumulator.
view<int> started(trial& t, const char* name) {
  return t.in_out<int>(name, {kAccumulator},
                       [&t](int, int i) { return i ? 256 * t.random(0, 255) : 256; });
}

using pair_member = void (*)(const view<uint8_t>&, int stride, unsigned char* out, int out_stride,
                             int* map, int* left, int* right, int m_left, int m_right);
using block_member = void (*)(unsigned char* cur, int stride, unsigned char* out, int out_stride,
                              int* map, int* acc, int m);

void processor(trial& t, int ring, pair_member pair, block_member block) {
  const auto src = pair_with_ring(t, ring);
  const auto out = t.output<uint8_t>("out", {8, 4});
  const auto map = weight_map(t);
  const auto left = t.scratch<int>("acc_left", {kAccumulator});
  const auto right = t.scratch<int>("acc_right", {kAccumulator});
  const int m_left = t.parameter("m_left", 1, 255), m_right = t.parameter("m_right", 1, 255);
  t.run([&](kernel_form form) {
    if (form != kernel_form::scalar)
      return pair(src, src.stride(), out.row(), out.stride(), map.row(), left.row(), right.row(),
                  m_left, m_right);
    block(src.row(), src.stride(), out.row(), out.stride(), map.row(), left.row(), m_left);
    block(src.row() + 4, src.stride(), out.row() + 4, out.stride(), map.row(), right.row(),
          m_right);
  });
}

void ring_sum(trial& t, int ring, decltype(&AddBlockSumByNei_5x5neon) pair) {
  const auto src = pair_with_ring(t, ring);
  const auto map = weight_map(t);
  const auto left = started(t, "acc_left"), right = started(t, "acc_right");
  const int m_left = t.parameter("m_left", 1, 255), m_right = t.parameter("m_right", 1, 255);
  t.run([&](kernel_form form) {
    unsigned char *cur = src.row(), *up = src.row(-ring), *down = src.row(ring);
    unsigned char* nei[8] = {cur - ring, cur + ring,  up - ring, up,
                             up + ring,  down - ring, down,      down + ring};
    const int stride = src.stride();
    if (form != kernel_form::scalar)
      return pair(cur, nei[0], nei[1], nei[2], nei[3], nei[4], nei[5], nei[6], nei[7], stride,
                  map.row(), left.row(), right.row(), m_left, m_right);
    for (unsigned char* n : nei) {
      AddBlockSumByNei(cur, n, stride, left.row(), map.row(), m_left);
      AddBlockSumByNei(cur + 4, n + 4, stride, right.row(), map.row(), m_right);
    }
  });
}

void ring_and_result(trial& t) {
  const auto src = pair_with_ring(t, 1);
  const auto map = weight_map(t);
  const auto left = started(t, "acc_left"), right = started(t, "acc_right");
  const auto out = t.output<uint8_t>("out", {8, 4});
  const int m_left = t.parameter("m_left", 1, 255), m_right = t.parameter("m_right", 1, 255);
  t.run([&](kernel_form form) {
    unsigned char *cur = src.row(), *up = src.row(-1), *down = src.row(1);
    unsigned char* nei[8] = {cur - 1, cur + 1, up - 1, up, up + 1, down - 1, down, down + 1};
    const int stride = src.stride();
    if (form != kernel_form::scalar)
      return AddBlockSumByNei_neon(cur, nei[0], nei[1], nei[2], nei[3], nei[4], nei[5], nei[6],
                                   nei[7], stride, map.row(), m_left, m_right, out.row(),
                                   out.stride(), left.row(), right.row());
    for (unsigned char* n : nei) {
      AddBlockSumByNei(cur, n, stride, left.row(), map.row(), m_left);
      AddBlockSumByNei(cur + 4, n + 4, stride, right.row(), map.row(), m_right);
    }
    GetBlockResult(out.row(), out.stride(), left.row());
    GetBlockResult(out.row() + 4, out.stride(), right.row());
  });
}

void centre(trial& t) {
  const auto src = t.input<uint8_t>("block", {8, 4});
  const auto left = t.output<int>("acc_left", {kAccumulator});
  const auto right = t.output<int>("acc_right", {kAccumulator});
  t.run([&](kernel_form form) {
    if (form != kernel_form::scalar)
      return CumBlockWeight2_256neon(src.row(), src.stride(), left.row(), right.row(), 256);
    CumBlockWeight_new(src.row(), src.stride(), left.row(), 256);
    CumBlockWeight_new(src.row() + 4, src.stride(), right.row(), 256);
  });
}

void result(trial& t) {
  const auto accumulator = [&t](const char* name) {
    const int weight = t.parameter("weight", 256, 6376);
    // Any sum of weighted samples, every other time one that ends on an exact half.
    return t.input<int>(name, {kAccumulator}, [&t, weight](int, int i) -> long {
      if (i == 0) return weight;
      return t.random(0, 1) ? t.random(0, 254) * weight + weight / 2 : t.random(0, 255L * weight);
    });
  };
  const auto left = accumulator("acc_left"), right = accumulator("acc_right");
  const auto out = t.output<uint8_t>("out", {8, 4});
  t.run([&](kernel_form form) {
    if (form != kernel_form::scalar)
      return GetBlockResult_2neon(out.row(), out.stride(), left.row(), right.row());
    GetBlockResult(out.row(), out.stride(), left.row());
    GetBlockResult(out.row() + 4, out.stride(), right.row());
  });
}

void pair3(const view<uint8_t>& s, int stride, unsigned char* out, int out_stride, int* map,
           int* left, int* right, int m_left, int m_right) {
  ProcessBlock4x4_3x3_neon(s.row(), s.row(-1), s.row(1), stride, out, out_stride, map, left, right,
                           m_left, m_right);
}
void pair5(const view<uint8_t>& s, int stride, unsigned char* out, int out_stride, int* map,
           int* left, int* right, int m_left, int m_right) {
  ProcessBlock4x4_5x5_neon(s.row(), s.row(-1), s.row(1), s.row(-2), s.row(2), stride, out,
                           out_stride, map, left, right, m_left, m_right);
}
void pair7(const view<uint8_t>& s, int stride, unsigned char* out, int out_stride, int* map,
           int* left, int* right, int m_left, int m_right) {
  ProcessBlock4x4_7x7_neon(s.row(), s.row(-1), s.row(1), s.row(-2), s.row(2), s.row(-3), s.row(3),
                           stride, out, out_stride, map, left, right, m_left, m_right);
}
void block3(unsigned char* c, int s, unsigned char* out, int out_stride, int* map, int* acc,
            int m) {
  ProcessBlock4x4_3x3(c, c - s, c + s, s, out, out_stride, map, acc, m);
}
void block5(unsigned char* c, int s, unsigned char* out, int out_stride, int* map, int* acc,
            int m) {
  ProcessBlock4x4_5x5(c, c - s, c + s, c - 2 * s, c + 2 * s, s, out, out_stride, map, acc, m);
}
void block7(unsigned char* c, int s, unsigned char* out, int out_stride, int* map, int* acc,
            int m) {
  ProcessBlock4x4_7x7(c, c - s, c + s, c - 2 * s, c + 2 * s, c - 3 * s, c + 3 * s, s, out,
                      out_stride, map, acc, m);
}

using vorn::kRunBlocks;
using vorn::kRunPixels;

using vorn::kTilePitch;
constexpr int kTimedRuns = 8;

void fetch(trial& t) {
  const auto src = t.input<uint8_t>("src", {t.width});
  const auto to = t.output<uint8_t>("to", {t.width});
  t.run([&](kernel_form form) {
    const vorn::luma_kernels& kernels = vorn::luma_kernels_of(form);
    kernels.fetch(to.row(), src.row(), t.width);
    for (int x = 0; x < t.width; ++x) to.row()[x] ^= kernels.bias;
  });
}

// The weights of a trial: as intensities make them, or any, with supports around the sizes at which
// the forms change their way of looking up.
vorn::weight_table weights(trial& t) {
  vorn::weight_table table{};
  int map[kMapEntries];
  if (t.timed() || t.parameter("made", 0, 2)) {
    MakeWeightMap(map, static_cast<float>(t.timed() ? 45 : t.parameter("sigma", 1, 1200)),
                  kMapEntries);
  } else {
    constexpr int kSupports[] = {1, 2, 63, 64, 65, 127, 128, 129, 254, 255, 256, 257, 500, 800};
    const int support = kSupports[t.parameter("support", 0, 13)];
    for (int i = 0; i < kMapEntries; ++i)
      map[i] = i < support ? static_cast<int>(t.random(1, 255)) : 0;
  }
  vorn::make_weight_table(&table, map);
  return table;
}

// Two block rows, one after the other as the window goes, by what is carried and without.
void filter(trial& t, int rings) {
  const int runs = t.timed() ? kTimedRuns : t.parameter("runs", 1, 3);
  // The runs' rows and what may be read around them, with any contrast: weights are for small ones.
  constexpr int kMargin = 16;
  const int contrast = (1 << t.parameter("contrast_bits", 0, 8)) - 1;
  const auto tile = t.input<uint8_t>(
      "tile", {runs * kRunPixels + kMargin, 8 + rings, kMargin, rings}, range{255 - contrast, 255});
  const vorn::weight_table table = weights(t);
  // Mask values of any kind, of 64 and more as the built-in mask has them, or neutral ones.
  const int lowest = t.timed()                     ? 64
                     : t.parameter("m_kind", 0, 2) ? 64
                                                   : t.parameter("m_low", 2, 255);
  const int highest = t.timed() ? 190 : std::max(lowest, t.parameter("m_high", 64, 255));
  std::vector<vorn::mask_rules> masks[2];  // with the short rule and without
  std::vector<vorn::run_rules> rules[2];
  for (int i = 0; i < runs; ++i) {
    unsigned char values[kRunBlocks];
    for (unsigned char& m : values) m = static_cast<unsigned char>(t.random(lowest, highest));
    for (int with_short = 0; with_short < 2; ++with_short) {
      masks[with_short].resize(static_cast<size_t>(runs));
      vorn::make_mask_rules(&masks[with_short][static_cast<size_t>(i)], values, with_short != 0);
    }
    const auto exact = static_cast<uint32_t>(t.timed() ? 0 : t.parameter("exact", 0, 0xFFFF));
    for (int k = 0; k < 2; ++k)
      rules[k].push_back({&masks[k][static_cast<size_t>(i)], &table, exact});
  }
  const auto out = t.output<uint8_t>("out", {runs * kRunPixels, 8});
  const auto carry = t.scratch<uint8_t>("carry", {vorn::kCarryRows * kTilePitch});
  const bool carried = t.timed() || t.parameter("carried", 0, 1);
  t.run([&](kernel_form form) {
    const vorn::luma_kernels& kernels = vorn::luma_kernels_of(form);
    alignas(64) static unsigned char fetched[(8 + 2 * vorn::kMaxRings) * kTilePitch];
    unsigned char* at = fetched + vorn::kMaxRings * kTilePitch + vorn::kTileMargin;
    for (int y = -rings; y < 8 + rings; ++y)
      kernels.fetch(at + y * kTilePitch - kMargin, tile.row(y) - kMargin,
                    runs * kRunPixels + 2 * kMargin);
    for (int y = 0; y < 8; y += 4)
      kernels.filter[rings - 1](at + y * kTilePitch, rules[kernels.short_rules].data(), runs,
                                out.row(y), out.stride(), carry.row() + vorn::kTileMargin,
                                y == 0 || !carried);
  });
}

}  // namespace

void add_luma_rows() {
  // A run of blocks has one size; its widths, too, only count trials.
  const sizes run = {1, 1, 24, 8, false, kTimedRuns * kRunPixels, 8};
  add_table("luma", (sizeof(vorn::luma_kernels) - offsetof(vorn::luma_kernels, fetch)) /
                        sizeof(void (*)()));
  add({"luma.fetch", {1, 1, 80, 1, true, 1030, 1}, fetch});
  add({"luma.filter_3x3", run, [](trial& t) { filter(t, 1); }});
  add({"luma.filter_5x5", run, [](trial& t) { filter(t, 2); }});
  add({"luma.filter_7x7", run, [](trial& t) { filter(t, 3); }});
  // A pair of blocks has one size; the widths only count trials.
  const sizes pair = {1, 1, 80, 1, false, 8, 4};
  // The vector rule divides by a refined reciprocal: exact halves may come out one lower.
  add({"ProcessBlock4x4_3x3_neon", pair, [](trial& t) { processor(t, 1, pair3, block3); }, 1,
       true});
  add({"ProcessBlock4x4_5x5_neon", pair, [](trial& t) { processor(t, 2, pair5, block5); }, 1,
       true});
  add({"ProcessBlock4x4_7x7_neon", pair, [](trial& t) { processor(t, 3, pair7, block7); }, 1,
       true});
  add({"AddBlockSumByNei_5x5neon", pair, [](trial& t) { ring_sum(t, 2, AddBlockSumByNei_5x5neon); },
       0, true});
  add({"AddBlockSumByNei_7x7neon", pair, [](trial& t) { ring_sum(t, 3, AddBlockSumByNei_7x7neon); },
       0, true});
  add({"AddBlockSumByNei_neon", pair, ring_and_result, 1, true});
  add({"CumBlockWeight2_256neon", pair, centre, 0, true});
  add({"GetBlockResult_2neon", pair, result, 1, true});
}

}  // namespace kernel_check
