// The window's walks: every width, weight maps of any kind, and what a mask leaves alone. And
// whole levels with any mask, against the model.
#include "ynr/window.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "tests/support/canvas.h"
#include "tests/support/forms.h"
#include "ynr/block_sums.h"
#include "ynr/exported/window.h"
#include "ynr/run_walk.h"

namespace {

using namespace vorn_test;

using walk_fn = int (*)(_tag_uni_image*, _tag_uni_image*, _tag_uni_image*, int*, int, int);
constexpr walk_fn kWalks[] = {process3x3_pro, process5x5_pro, process7x7_pro};

canvas textured(int width, int height, int seed = 1) {
  random_source random(seed);
  canvas c(width, height, width + 12, random);
  c.paint(content::texture, random);
  return c;
}

// A mask whose row 0 holds the values given and whose other rows hold 0.
canvas first_row_mask(std::initializer_list<int> values, int rows) {
  random_source random(1);
  canvas mask(static_cast<int>(values.size()), rows, static_cast<int>(values.size()), random);
  std::fill_n(mask.data(), values.size() * rows, uint8_t{0});
  std::copy(values.begin(), values.end(), mask.data());
  return mask;
}

TEST(WindowWalk, EveryWidth) {
  for (int width = 1; width <= 150; width += width < 76 ? 1 : 9)
    for (int rings = 1; rings <= 3; ++rings) {
      const int height = 1 + width % 9, middle = height / 8 * 4;
      canvas src = textured(width, height), before(textured(width, height, 2)), want(before);
      model::window(src.plane(), want.plane(), nullptr, 45, 2 * rings + 1);
      int map[800];
      model::weight_map(map, 45.0f, 800);
      with_every_form([&] {
        canvas dst(before);
        kWalks[rings - 1](src.image(), dst.image(), nullptr, map, 0, middle);
        kWalks[rings - 1](src.image(), dst.image(), nullptr, map, middle, height);
        ASSERT_TRUE(dst.same(want)) << width << " rings " << rings;
      });
    }
}

// Weights that no intensity gives: not monotonic, or beyond a byte. The walks take any map.
TEST(WindowWalk, ForeignWeightMaps) {
  for (int kind = 0; kind < 3; ++kind) {
    canvas src = textured(72, 8), want(src);
    int map[800];
    for (int i = 0; i < 800; ++i) map[i] = kind == 0 ? i % 7 : kind == 1 ? 300 + i : 255 - i % 256;
    for (int y = 0; y < 8; y += 4)
      for (int x = 0; x < 72; x += 4) {
        uint8_t out[16];
        model::block(src.plane(), src.plane(), y, x, 3, map, 64, model::rule::vector, out);
        for (int k = 0; k < 16; ++k) want.plane().at(y + k / 4, x + k % 4) = out[k];
      }
    with_every_form([&] {
      canvas dst(src);
      process7x7_pro(src.image(), dst.image(), nullptr, map, 0, 8);
      ASSERT_TRUE(dst.same(want)) << kind;
    });
  }
}

// Rows handed out in chunks, of a level so wide that each chunk is walked in two bands of columns;
// the second one ends within a run. What a band leaves for its next rows is not for the other.
TEST(WindowWalk, ChunksOfTwoBands) {
  constexpr int kHeight = 64;
  canvas src = textured(2092, kHeight);
  int map[800];
  model::weight_map(map, 45.0f, 800);
  vorn::weight_table table;
  ASSERT_TRUE(vorn::make_weight_table(&table, map));
  with_every_form([&] {
    canvas at_once(src), in_chunks(src);
    process7x7_pro(src.image(), at_once.image(), nullptr, map, 0, kHeight);
    vorn::row_queue rows(kHeight, 4);
    vorn::walk_queue({src.image(), in_chunks.image(), nullptr, map, 3, &table}, &rows);
    ASSERT_TRUE(in_chunks.same(at_once));
  });
}

TEST(WindowWalk, ThreeAndSevenReadMaskRowZero) {
  canvas src = textured(32, 16), before = textured(32, 16, 2);
  canvas mask = first_row_mask({64, 70, 80, 90, 100, 110, 120, 130}, 4), all_rows(mask);
  for (int y = 1; y < 4; ++y) std::copy_n(mask.data(), 8, &all_rows.plane().at(y, 0));
  int map[800];
  model::weight_map(map, 45.0f, 800);
  for (int rings = 1; rings <= 3; ++rings) {
    canvas dst(before), full(before);
    kWalks[rings - 1](src.image(), dst.image(), mask.image(), map, 0, 16);
    kWalks[rings - 1](src.image(), full.image(), all_rows.image(), map, 0, 16);
    EXPECT_EQ(dst.same(full), rings != 2);
    if (rings != 2) continue;
    // 5x5 sees the rows of 0 and leaves their blocks alone.
    canvas first_rows(before);
    std::copy_n(full.data(), 4 * 44, first_rows.data());
    EXPECT_TRUE(dst.same(first_rows));
  }
}

TEST(WindowWalk, HalfMaskedPairFiltersTheLeftBlock) {
  canvas src = textured(16, 4), before = textured(16, 4, 2);
  canvas mask = first_row_mask({0, 90, 120, 0}, 1), closed = first_row_mask({0, 0, 0, 0}, 1);
  int map[800];
  model::weight_map(map, 45.0f, 800);
  for (int rings = 1; rings <= 3; ++rings) {
    canvas want(before);
    for (int x : {0, 8}) {
      uint8_t out[16];
      const int m = x ? 120 : 90;
      model::block(src.plane(), src.plane(), 0, x, rings, map, m, model::rule::scalar, out);
      for (int k = 0; k < 16; ++k) want.plane().at(k / 4, x + k % 4) = out[k];
    }
    with_every_form([&] {
      canvas dst(before), untouched(before);
      kWalks[rings - 1](src.image(), dst.image(), mask.image(), map, 0, 4);
      EXPECT_TRUE(dst.same(want)) << rings;
      kWalks[rings - 1](src.image(), untouched.image(), closed.image(), map, 0, 4);
      EXPECT_TRUE(untouched.same(before)) << "a mask of zeros writes nothing";
    });
  }
}

TEST(WindowWalk, ALevelWithoutColumnsHasNoMaskRatio) {
  canvas src = textured(16, 4), dst = textured(16, 4, 2), before(dst);
  canvas mask = first_row_mask({64, 64, 64, 64}, 2);
  src.image()->width = 0;
  EXPECT_EQ(nlm_denoise_guided_process(src.image(), src.image(), dst.image(), mask.image(), 45, 5),
            0);
  EXPECT_TRUE(dst.same(before));
}

TEST(Window, FollowsTheModelWithAnyMask) {
  trials(900, 400, [](random_source& random) {
    const int w = random.between(1, random.one_in(4) ? 200 : 90), h = random.between(1, 40),
              radius = random.pick({3, 5, 7, random.pick({0, 1, 4, 6, 8, 9, -7, INT32_MAX})});
    const bool copied = radius != 3 && radius != 5 && radius != 7;
    // The last blocks overhang by up to three samples and their windows by three more.
    canvas src = painted(w, h, w + 12, random), dst(w, h, w + 12, random), want(dst);
    canvas mask = random_mask(random.between(1, w / 4 + 3), random.between(1, h / 4 + 3), random);
    const bool masked = !random.one_in(4);
    const int intensity = random.one_in(4) ? random.pick({0, -7, 1, 102, 103, 200, 400, 3000})
                                           : random.between(2, 90);
    const model::plane mask_plane = mask.plane();
    model::window(src.plane(), want.plane(), masked ? &mask_plane : nullptr, intensity, radius);
    canvas alone(dst);
    if (copied) {
      model::plane whole = want.plane();  // equal strides: one block, padding included
      whole.width = whole.stride;
      model::plane from = src.plane();
      from.width = from.stride;
      model::window(from, whole, nullptr, intensity, radius);
    }
    EXPECT_EQ(nlm_denoise_process(stage_handle()->ynr, src.image(), dst.image(),
                                  masked ? mask.image() : nullptr, intensity, radius),
              0);
    EXPECT_TRUE(dst.same(want)) << numbers({w, h, radius, intensity, masked});
    if (copied) return;
    int map[800];
    MakeWeightMap(map, static_cast<float>(intensity), 800);
    auto* whole_layer = radius == 3 ? Process3x3 : radius == 5 ? Process5x5 : Process7x7;
    whole_layer(src.image(), alone.image(), masked ? mask.image() : nullptr, map);
    EXPECT_TRUE(alone.same(want)) << "one thread " << numbers({w, h, radius, intensity, masked});
  });
}

TEST(Window, GuidedFollowsTheModel) {
  trials(1000, 60, [](random_source& random) {
    const int w = random.between(1, 60), h = random.between(1, 40),
              intensity = random.between(0, 90);
    canvas src = painted(w, h, w + 12, random), guide = painted(w, h, w + 12, random);
    canvas dst(w, h, w + 20, random), want(dst);
    canvas mask = random_mask(random.between(1, w / 4 + 3), random.between(1, h / 4 + 3), random);
    const model::plane mask_plane = mask.plane();
    const bool masked = !random.one_in(4);
    model::window_guided(src.plane(), guide.plane(), want.plane(), masked ? &mask_plane : nullptr,
                         intensity);
    nlm_denoise_guided_process(src.image(), guide.image(), dst.image(),
                               masked ? mask.image() : nullptr, intensity, 7);
    EXPECT_TRUE(dst.same(want)) << numbers({w, h, intensity, masked});
  });
}

}  // namespace
