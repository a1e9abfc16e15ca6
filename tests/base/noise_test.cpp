#include "base/noise.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "base/exported/noise.h"
#include "runtime/image.h"
#include "tests/support/canvas.h"
#include "tests/support/forms.h"
#include "tests/support/host.h"

namespace {

using namespace vorn_test;

// Little-endian bytes of 16-bit values, so that the sums hold on every machine.
uint64_t checksum_of(const std::vector<short>& values) {
  std::vector<uint8_t> bytes;
  for (short value : values) {
    bytes.push_back(static_cast<uint8_t>(value & 255));
    bytes.push_back(static_cast<uint8_t>(value >> 8 & 255));
  }
  return checksum(bytes.data(), bytes.size());
}

// Drawn by LLVM's libc++ 14 itself: std::mt19937 through std::uniform_int_distribution<short>.
// The first two are the chroma filter's dither and offset tables.
TEST(Noise, TablesAreThoseOfLibcxx) {
  struct row {
    int count;
    unsigned seed;
    short low, high;
    short first[8];
    uint64_t sum;
  };
  constexpr row kRows[] = {
      {8192, 255u, -1, 2, {2, 0, 2, 0, 1, 0, 2, -1}, 0xbab13b7884840b00u},
      {2048, 1024u, 0, 2048, {1979, 913, 601, 865, 1347, 946, 1888, 1559}, 0x1047992761d32d9fu},
      {1000, 1u, 5, 5, {5, 5, 5, 5, 5, 5, 5, 5}, 0xfe6ee7a3be9164c5u},
      {1000,
       7u,
       -32768,
       32767,
       {28847, 25796, 16921, -22026, 5699, 20691, -31849, -18841},
       0x95a519c60fc2ac24u},
      {1000, 0xffffffffu, -3, 4, {0, -1, 1, 4, 1, -3, 3, -1}, 0xf0dc52bb3aeddebfu},
      {1000,
       99u,
       0,
       32765,
       {29313, 23587, 13497, 3240, 9929, 1768, 24274, 21572},
       0xc80f77f534538580u},
      {1000, 3u, -20, 19, {4, -17, -12, -20, 1, -1, -10, -10}, 0xc11cc321c59e8b41u},
  };
  for (const row& r : kRows) {
    SCOPED_TRACE(r.seed);
    std::vector<short> table(static_cast<size_t>(r.count) + 1, 77);
    GetRandomTable(table.data(), r.count, r.seed, r.low, r.high);
    EXPECT_EQ(table.back(), 77);
    table.pop_back();
    for (size_t i = 0; i < 8; ++i) EXPECT_EQ(table[i], r.first[i]) << i;
    EXPECT_EQ(checksum_of(table), r.sum);
  }
  short untouched = 9;
  GetRandomTable(&untouched, 0, 1, 0, 5);
  GetRandomTable(&untouched, -4, 1, 0, 5);
  EXPECT_EQ(untouched, 9);
}

// Adds noise to a ramp in an image whose rows are `pad` bytes apart; returns the samples.
std::vector<short> noisy_ramp(int width, int height, int pad, unsigned seed, int low, int high) {
  const int stride = width + pad;
  std::vector<uint8_t> plane(static_cast<size_t>(stride * height) + 1, 0xa5);
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x)
      plane[static_cast<size_t>(y * stride + x)] = static_cast<uint8_t>(x * 7 + y * 13);
  _tag_uni_image img = {};
  create_uni_image(&img, plane.data(), width, height, VORN_IMAGE_GRAY);
  img.stride[0] = stride;
  EXPECT_EQ(addNoiseToImage(&img, seed, low, high), 0);
  std::vector<short> samples;
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < stride; ++x) {
      const uint8_t sample = plane[static_cast<size_t>(y * stride + x)];
      if (x < width) {
        samples.push_back(sample);
      } else {
        EXPECT_EQ(sample, 0xa5);
      }
    }
  EXPECT_EQ(plane.back(), 0xa5);
  return samples;
}

// The sums were made with libc++ 14's distribution and the rule written out.
TEST(Noise, ImageNoiseIsRepeatable) {
  EXPECT_EQ(checksum_of(noisy_ramp(37, 9, 0, 42, -20, 20)), 0x177d9eb825b994b4u);
  EXPECT_EQ(checksum_of(noisy_ramp(37, 9, 11, 42, -20, 20)), 0x177d9eb825b994b4u);
  EXPECT_EQ(checksum_of(noisy_ramp(10922, 2, 0, 7, -300, 300)), 0xa20d4e138043dfa9u);
}

TEST(Noise, EqualBoundsShiftAndSaturate) {
  const std::vector<short> shifted = noisy_ramp(40, 5, 3, 8, 5, 5);
  for (int i = 0; i < 200; ++i) {
    const int sample = (i % 40 * 7 + i / 40 * 13) & 255;
    EXPECT_EQ(shifted[static_cast<size_t>(i)], sample > 250 ? 255 : sample + 5);
  }
}

TEST(Noise, SizesWithoutNoise) {
  uint8_t sample = 100;
  _tag_uni_image img = {};
  create_uni_image(&img, &sample, 0, 1, VORN_IMAGE_GRAY);
  EXPECT_EQ(addNoiseToImage(&img, 1, 5, 5), 0);
  create_uni_image(&img, &sample, 1, 0, VORN_IMAGE_GRAY);
  EXPECT_EQ(addNoiseToImage(&img, 1, 5, 5), 0);
  create_uni_image(&img, &sample, 10923, 1, VORN_IMAGE_GRAY);
  log_capture log;
  EXPECT_EQ(addNoiseToImage(&img, 1, 5, 5), -1);
  EXPECT_EQ(log.count('E'), 1);
  EXPECT_EQ(sample, 100);
}

TEST(Noise, FollowsTheModel) {
  trials(1700, 40, [](random_source& random) {
    const auto seed = static_cast<unsigned>(random.next());
    const int low = random.between(-300, 300),
              high = low + random.pick({0, 1, 3, 100, 2048, 30000});
    short got[500], want[500];
    GetRandomTable(got, 500, seed, static_cast<short>(low), static_cast<short>(high));
    model::random_table(want, 500, seed, static_cast<short>(low), static_cast<short>(high));
    EXPECT_TRUE(std::equal(want, want + 500, got)) << numbers({low, high});

    const int w = random.between(1, 90), h = random.between(1, 20);
    canvas image = painted(w, h, w + random.between(0, 9), random), expected(image);
    EXPECT_EQ(addNoiseToImage(image.image(), seed, low, high), 0);
    model::add_noise(expected.plane(), seed, low, high);
    EXPECT_TRUE(image.same(expected)) << numbers({w, h, low, high});
  });
}

}  // namespace
