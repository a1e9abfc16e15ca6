#include "ynr/pre_mask.h"

#include "runtime/pool.h"
#include "tests/ynr/model.h"

namespace {

// The mask by its definition, sample by sample, and a guard around it.
struct expected_mask {
  std::vector<unsigned char> bytes;
  expected_mask(int width, int height, int strength, int stride) {
    const int columns = width / 4, rows = height / 4;
    const int normaliser = width / 8 + height / 8;
    const int k = strength > 63 ? 4 * (strength - 64) : 56;
    bytes.assign(static_cast<size_t>(stride) * std::max(rows, 1), 0xEE);
    for (int y = 0; y < rows; ++y) {
      for (int x = 0; x < columns; ++x) {
        const int d = std::abs(x - width / 8) + std::abs(y - height / 8);
        long long t = 0;
        if (x < columns / 8 * 8) {
          const float f = static_cast<float>(d) * static_cast<float>(1.0 / normaliser);
          const float t1 = std::trunc(f * static_cast<float>(k));
          const float t2 = std::trunc(f * t1);
          t = static_cast<long long>(std::trunc(f * t2));
        } else if (normaliser != 0) {
          t = k;
          for (int i = 0; i < 3; ++i) t = t * d / normaliser;
        }
        bytes[static_cast<size_t>(y) * stride + x] =
            static_cast<unsigned char>(std::max(16ll, std::min(255ll, t + 64)));
      }
    }
  }
};

std::vector<unsigned char> run(int width, int height, int strength, int stride) {
  std::vector<unsigned char> bytes(static_cast<size_t>(stride) * std::max(height / 4, 1), 0xEE);
  _tag_uni_image mask{};
  mask.plane[0] = bytes.data();
  mask.stride[0] = stride;
  EXPECT_EQ(pre_mask(nullptr, &mask, width, height, strength), 0);
  return bytes;
}

TEST(PreMask, MatchesTheFormula) {
  const int sizes[][2] = {{4, 4},    {3, 9},     {31, 20},   {32, 4},   {33, 7},
                          {36, 40},  {64, 64},   {71, 50},   {200, 12}, {12, 200},
                          {255, 97}, {640, 480}, {1001, 750}};
  for (const auto& size : sizes)
    for (int strength : {-5, 0, 63, 64, 65, 80, 100, 112, 255, 100000})
      for (int extra : {0, 5})
        ASSERT_EQ(run(size[0], size[1], strength, size[0] / 4 + extra),
                  expected_mask(size[0], size[1], strength, size[0] / 4 + extra).bytes)
            << size[0] << "x" << size[1] << " strength " << strength;
}

TEST(PreMask, StatedValues) {
  const std::vector<unsigned char> mask = run(4000, 3000, 112, 1000);
  EXPECT_EQ(mask[375 * 1000 + 500], 64);
  EXPECT_EQ(mask[0], 255);
  EXPECT_EQ(run(4000, 3000, 10, 1000)[0], 120);  // weak strengths count as k = 56
  for (unsigned char v : run(640, 480, 64, 160)) ASSERT_EQ(v, 64);
  EXPECT_EQ(run(640, 3, 100, 160)[0], 0xEE);  // too low: nothing written
  EXPECT_EQ(run(7, 7, 100, 1)[0], 64);        // R = 0
}

TEST(PreMask, ExtremeStrengthsWrapAsWords) {
  for (int strength : {INT32_MIN, INT32_MAX, 1 << 29, (1 << 29) + 63, -(1 << 30)})
    for (unsigned char v : run(71, 50, strength, 17)) ASSERT_GE(v, 16);
}

TEST(PreMask, SlicedVariantUsesWholeNumbers) {
  pool* workers = nullptr;
  ASSERT_EQ(vorn_threadpool_init(&workers, 4), 0);
  ynr_handle_t handle{};
  handle.pool = workers;
  for (const auto& size : {std::pair<int, int>{200, 100}, {64, 20}, {13, 8}}) {
    const int columns = size.first / 4, rows = size.second / 4;
    std::vector<unsigned char> bytes(static_cast<size_t>(columns) * rows);
    _tag_uni_image mask{};
    mask.plane[0] = bytes.data();
    mask.stride[0] = columns;
    EXPECT_EQ(pre_mask_thread(&handle, nullptr, &mask, size.first, size.second), 0);
    const int normaliser = size.first / 8 + size.second / 8;
    for (int y = 0; y < rows; ++y) {
      for (int x = 0; x < columns; ++x) {
        const int d = std::abs(x - size.first / 8) + std::abs(y - size.second / 8);
        const int t = d * 256 / normaliser * d / normaliser * d / normaliser;
        ASSERT_EQ(bytes[static_cast<size_t>(y) * columns + x], std::min(255, t + 64))
            << x << " " << y;
      }
    }
  }
  vorn_threadpool_destroy(workers);
}

}  // namespace
