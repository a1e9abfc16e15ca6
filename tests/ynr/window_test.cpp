#include "ynr/window.h"

#include "runtime/pool.h"
#include "tests/ynr/model.h"
#include "ynr/block_sums.h"

namespace {

using walk_fn = int (*)(_tag_uni_image*, _tag_uni_image*, _tag_uni_image*, int*, int, int);
constexpr walk_fn kWalks[] = {process3x3_pro, process5x5_pro, process7x7_pro};

struct mask_plane {
  int width, height, stride;
  std::vector<unsigned char> bytes;
  mask_plane(int w, int h, int extra = 0)
      : width(w), height(h), stride(w + extra), bytes(static_cast<size_t>(w + extra) * h, 64) {}
  _tag_uni_image image() {
    _tag_uni_image i{};
    i.width = width;
    i.height = height;
    i.plane[0] = bytes.data();
    i.stride[0] = stride;
    return i;
  }
};

// The mask value of the block at (x, y) of a level src_width wide.
int mask_value(const mask_plane* mask, int rings, int src_width, int x, int y) {
  if (!mask) return 64;
  if (rings != 2) return mask->bytes[static_cast<size_t>(std::min(x / 4, mask->width - 1))];
  const int row = std::min(mask->width * y / src_width, mask->height - 1);
  const int column = std::min(mask->width * x / src_width, mask->width - 1);
  return mask->bytes[static_cast<size_t>(row) * mask->stride + column];
}

// What a walk over the rows [row_begin, row_end) leaves in dst.
void expected_walk(model::plane* src, model::plane* dst, const mask_plane* mask, int rings,
                   const std::vector<int>& map, int row_begin, int row_end) {
  const auto filter = [&](int x, int y, int m, bool pair) {
    const model::sums s = model::block_sums(src, x, y, rings, map.data(), m);
    for (int k = 0; k < 16; ++k)
      *dst->at(x + k % 4, y + k / 4) = pair ? model::vector_pixel(s, k) : model::scalar_pixel(s, k);
  };
  for (int y = row_begin; y < row_end; y += 4) {
    int x = 0;
    for (; x + 8 <= src->width; x += 8) {
      const int left = mask_value(mask, rings, src->width, x, y);
      const int right = mask_value(mask, rings, src->width, x + 4, y);
      if (left && right) {
        filter(x, y, left, true);
        filter(x + 4, y, right, true);
      } else if (left || right) {
        filter(x, y, left + right, false);
      }
    }
    for (; x < src->width; x += 4)
      if (const int m = mask_value(mask, rings, src->width, x, y)) filter(x, y, m, false);
  }
}

void expect_same(model::plane* a, model::plane* b) {
  for (int y = -a->border; y < a->height + a->border; ++y)
    for (int x = -a->border; x < a->width + a->border; ++x)
      ASSERT_EQ(*a->at(x, y), *b->at(x, y)) << "at " << x << ", " << y;
}

void check_walk(int width, int height, int rings, int intensity, mask_plane* mask, model::fill fill,
                unsigned seed) {
  SCOPED_TRACE(testing::Message() << width << "x" << height << " rings " << rings << " intensity "
                                  << intensity << " seed " << seed);
  model::plane src(width, height, 8, static_cast<int>(seed % 7)), dst(width, height, 8),
      want(width, height, 8);
  model::paint(&src, fill, seed);
  model::paint(&dst, model::kNoise, seed + 1);
  want.bytes = dst.bytes;
  std::vector<int> map(800);
  MakeWeightMap(map.data(), static_cast<float>(intensity), 800);
  const std::vector<unsigned char> src_before = src.bytes;
  _tag_uni_image s = src.image(), d = dst.image(), m = mask ? mask->image() : _tag_uni_image{};
  const int split = height / 8 * 4;
  EXPECT_EQ(kWalks[rings - 1](&s, &d, mask ? &m : nullptr, map.data(), 0, split), 0);
  EXPECT_EQ(kWalks[rings - 1](&s, &d, mask ? &m : nullptr, map.data(), split, height), 0);
  expected_walk(&src, &want, mask, rings, map, 0, height);
  expect_same(&dst, &want);
  EXPECT_EQ(src.bytes, src_before);
}

TEST(WindowWalk, EveryWidthWithoutAMask) {
  model::for_every_form([] {
    for (int rings = 1; rings <= 3; ++rings)
      for (int width = 1; width <= 150; width += width < 76 ? 1 : 9)
        check_walk(width, 1 + width % 9, rings, 45, nullptr, model::kTexture, 17u * width);
  });
}

TEST(WindowWalk, IntensitiesAndContents) {
  model::for_every_form([] {
    for (int intensity : {0, 1, 3, 12, 25, 26, 45, 51, 52, 90, 102, 103, 150, 200, 400, 3000})
      for (int fill = 0; fill < model::kFills; ++fill)
        check_walk(144, 8, 1 + (intensity + fill) % 3, intensity, nullptr,
                   static_cast<model::fill>(fill), 31u * intensity + fill);
  });
}

TEST(WindowWalk, MasksOfAllKinds) {
  model::for_every_form([] {
    std::mt19937 random(4);
    for (int trial = 0; trial < 60; ++trial) {
      const int width = 1 + static_cast<int>(random() % 200);
      const int height = 1 + static_cast<int>(random() % 13);
      mask_plane mask(1 + static_cast<int>(random() % (trial % 3 ? 60 : 9)), 1 + trial % 7,
                      trial % 4);
      // Full range; smooth as the built-in mask; mostly set with holes; narrow.
      for (unsigned char& v : mask.bytes) {
        const int r = static_cast<int>(random() >> 8);
        v = static_cast<unsigned char>(trial % 4 == 0   ? 1 + r % 255
                                       : trial % 4 == 1 ? 64 + r % 128
                                       : trial % 4 == 2 ? (r % 9 ? 60 + r % 100 : 0)
                                                        : (r % 2) * (r & 255));
      }
      check_walk(width, height, 1 + trial % 3, trial % 5 == 4 ? 130 : 20 + trial, &mask,
                 static_cast<model::fill>(trial % model::kFills), random());
    }
  });
}

TEST(WindowWalk, ThreeAndSevenReadMaskRowZero) {
  mask_plane mask(16, 4);
  for (int y = 0; y < 4; ++y)
    for (int x = 0; x < 16; ++x)
      mask.bytes[static_cast<size_t>(y) * 16 + x] = static_cast<unsigned char>(y == 0 ? 64 + x : 0);
  for (int rings : {1, 3}) check_walk(64, 16, rings, 45, &mask, model::kTexture, 8);
  // The same mask seen by 5x5: rows 1 to 3 leave their blocks alone.
  check_walk(64, 16, 2, 45, &mask, model::kTexture, 8);
}

TEST(WindowWalk, HalfMaskedPairFiltersTheLeftBlock) {
  for (int rings = 1; rings <= 3; ++rings) {
    mask_plane mask(4, 1);
    mask.bytes = {0, 90, 120, 0};
    model::plane src(16, 4), dst(16, 4);
    model::paint(&src, model::kTexture, 2);
    std::fill(dst.bytes.begin(), dst.bytes.end(), 0x5A);
    std::vector<int> map = model::weight_map(45);
    _tag_uni_image s = src.image(), d = dst.image(), m = mask.image();
    kWalks[rings - 1](&s, &d, &m, map.data(), 0, 4);
    const model::sums first = model::block_sums(&src, 0, 0, rings, map.data(), 90);
    const model::sums third = model::block_sums(&src, 8, 0, rings, map.data(), 120);
    for (int k = 0; k < 16; ++k) {
      EXPECT_EQ(*dst.at(k % 4, k / 4), model::scalar_pixel(first, k));
      EXPECT_EQ(*dst.at(4 + k % 4, k / 4), 0x5A);
      EXPECT_EQ(*dst.at(8 + k % 4, k / 4), model::scalar_pixel(third, k));
      EXPECT_EQ(*dst.at(12 + k % 4, k / 4), 0x5A);
    }
  }
}

TEST(WindowWalk, AllZeroMaskLeavesDst) {
  mask_plane mask(20, 3);
  std::fill(mask.bytes.begin(), mask.bytes.end(), 0);
  model::for_every_form([&] {
    for (int rings = 1; rings <= 3; ++rings) check_walk(83, 11, rings, 45, &mask, model::kNoise, 6);
  });
}

// Weights that no intensity gives: not monotonic, or beyond a byte. The walks take any map.
TEST(WindowWalk, ForeignWeightMaps) {
  model::for_every_form([] {
    for (int kind = 0; kind < 3; ++kind) {
      model::plane src(72, 8), dst(72, 8), want(72, 8);
      model::paint(&src, model::kTexture, 11);
      std::vector<int> map(800);
      for (int i = 0; i < 800; ++i)
        map[i] = kind == 0 ? i % 7 : kind == 1 ? 300 + i : 255 - i % 256;
      _tag_uni_image s = src.image(), d = dst.image();
      process7x7_pro(&s, &d, nullptr, map.data(), 0, 8);
      expected_walk(&src, &want, nullptr, 3, map, 0, 8);
      expect_same(&dst, &want);
    }
  });
}

class Levels : public ::testing::Test {
 protected:
  Levels() {
    vorn_threadpool_init(&workers, 4);
    handle.pool = workers;
  }
  ~Levels() override { vorn_threadpool_destroy(workers); }
  pool* workers = nullptr;
  ynr_handle_t handle{};
};

TEST_F(Levels, SlicesAndWholeLevelAgree) {
  for (int height : {3, 15, 16, 36, 67}) {
    model::plane src(100, height);
    model::paint(&src, model::kTexture, 21);
    std::vector<int> map = model::weight_map(60);
    mask_plane mask(25, std::max(1, height / 4));
    for (size_t i = 0; i < mask.bytes.size(); ++i)
      mask.bytes[i] = static_cast<unsigned char>(64 + i % 100);
    using whole_fn = int (*)(_tag_uni_image*, _tag_uni_image*, _tag_uni_image*, int*);
    const whole_fn whole[] = {Process3x3, Process5x5, Process7x7};
    for (int rings = 1; rings <= 3; ++rings) {
      model::plane sliced(100, height), single(100, height);
      _tag_uni_image s = src.image(), d = sliced.image(), e = single.image(), m = mask.image();
      EXPECT_EQ(nlm_denoise_process(&handle, &s, &d, &m, 60, 2 * rings + 1), 0);
      EXPECT_EQ(whole[rings - 1](&s, &e, &m, map.data()), 0);
      expect_same(&sliced, &single);
    }
  }
}

TEST_F(Levels, OtherRadiiCopy) {
  model::plane src(33, 9, 8, 3);
  model::paint(&src, model::kNoise, 1);
  for (int radius : {0, 1, 2, 4, 6, 8, 9, -7, INT32_MAX}) {
    model::plane dst(33, 9);
    _tag_uni_image s = src.image(), d = dst.image();
    EXPECT_EQ(nlm_denoise_process(&handle, &s, &d, nullptr, 45, radius), 0);
    for (int y = 0; y < 9; ++y)
      for (int x = 0; x < 33; ++x) ASSERT_EQ(*dst.at(x, y), *src.at(x, y));
  }
}

TEST_F(Levels, IntensityZeroCopiesBlocks) {
  model::plane src(40, 12);
  model::paint(&src, model::kNoise, 1);
  for (int radius : {3, 5, 7}) {
    model::plane dst(40, 12);
    _tag_uni_image s = src.image(), d = dst.image();
    nlm_denoise_process(&handle, &s, &d, nullptr, 0, radius);
    for (int y = 0; y < 12; ++y)
      for (int x = 0; x < 40; ++x) ASSERT_EQ(*dst.at(x, y), *src.at(x, y));
  }
}

TEST_F(Levels, GuidedTakesEveryBlockByTheScalarRule) {
  model::plane src(26, 8), dst(26, 8), want(26, 8);
  model::paint(&src, model::kTexture, 12);
  _tag_uni_image s = src.image(), d = dst.image();
  EXPECT_EQ(nlm_denoise_guided_process(&s, &s, &d, nullptr, 45, 99), 0);
  const std::vector<int> map = model::weight_map(45);
  for (int y = 0; y < 8; y += 4) {
    for (int x = 0; x < 28; x += 4) {
      const model::sums sums = model::block_sums(&src, x, y, 2, map.data(), 64);
      for (int k = 0; k < 16; ++k) *want.at(x + k % 4, y + k / 4) = model::scalar_pixel(sums, k);
    }
  }
  expect_same(&dst, &want);

  mask_plane mask(4, 2);
  _tag_uni_image m = mask.image();
  s.width = 0;  // a level without columns has no ratio to its mask
  EXPECT_EQ(nlm_denoise_guided_process(&s, &s, &d, &m, 45, 5), 0);
  expect_same(&dst, &want);
}

}  // namespace
