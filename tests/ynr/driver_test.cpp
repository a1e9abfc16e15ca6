// What the luma driver refuses, its memory, and borders of images that are hardly larger. Frames
// are held in tests/frame.
#include "ynr/ynr_driver.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <vector>

#include "tests/support/canvas.h"
#include "tests/support/forms.h"
#include "tests/support/guarded.h"
#include "ynr/block_rules.h"
#include "ynr/block_sums.h"

namespace {

using namespace vorn_test;

class LumaFrame : public testing::Test {
  const quiet_log silence_;
};
using LumaHandle = LumaFrame;

_tag_ynr_param_output uniform(int layer, int intensity, int radius) {
  _tag_ynr_param_output p{};
  p.layer = layer;
  p.param0 = 96;
  for (int l = 0; l < 5; ++l) {
    p.pIntensity[l] = intensity;
    p.pRadius[l] = radius;
  }
  return p;
}

// A caller's own record may end where the public calls' part of denoise_handle_t begins.
TEST_F(LumaFrame, NeedsNoMoreOfTheOwnerThanItsFirstFields) {
  const denoiser l(64, 48);
  const size_t bytes = offsetof(denoise_handle_t, packed);
  const guarded_buffer record(bytes, guarded_buffer::side::end);
  std::memcpy(record.data(), l.get(), bytes);
  random_source random(2);
  canvas src(64, 48, 64, random), dst(64, 48, 64, random);
  _tag_ynr_param_output param = uniform(3, 40, 7);
  EXPECT_EQ(pyramid_denoise_mask_process(record.data(), src.image(), dst.image(), nullptr, &param),
            0);
}

// All intensities 0: the frame comes back bit for bit, right edge included, whatever the frame
// before has left in the borders.
TEST_F(LumaFrame, NothingToDoGivesTheSource) {
  random_source random(1);
  for (const auto& size : {std::pair<int, int>{64, 64}, {65, 49}, {67, 51}, {91, 35}, {250, 131}}) {
    const int w = size.first, h = size.second;
    const denoiser l(w, h);
    for (int layer = 2; layer <= 5; ++layer) {
      canvas src(w, h, w, random), dst(w, h, w, random);
      for (int intensity : {60, 0}) {
        src.paint(content::noise, random);
        _tag_ynr_param_output p = uniform(layer, intensity, 7);
        ASSERT_EQ(pyramid_denoise_mask_process(l.get(), src.image(), dst.image(), nullptr, &p), 0);
      }
      ASSERT_TRUE(std::equal(src.data(), src.data() + w * h, dst.data()))
          << w << "x" << h << " layer " << layer;
    }
  }
}

TEST_F(LumaFrame, RefusesWhatItCannotDo) {
  const denoiser l(64, 48);
  random_source random(1);
  canvas src(64, 48, 64, random), dst(64, 48, 64, random), before(dst);
  _tag_uni_image s = *src.image(), d = *dst.image();
  _tag_ynr_param_output p = uniform(3, 30, 7);
  EXPECT_EQ(pyramid_denoise_mask_process(nullptr, &s, &d, nullptr, &p), -1);
  EXPECT_EQ(pyramid_denoise_mask_process(l.get(), nullptr, &d, nullptr, &p), -1);
  EXPECT_EQ(pyramid_denoise_mask_process(l.get(), &s, nullptr, nullptr, &p), -1);
  for (int layer : {INT32_MIN, -1, 0, 1, 6, INT32_MAX}) {
    p.layer = layer;
    EXPECT_EQ(pyramid_denoise_mask_process(l.get(), &s, &d, nullptr, &p), -1) << layer;
  }
  p.layer = 3;
  _tag_uni_image odd = s;
  odd.width = 62;
  EXPECT_EQ(pyramid_denoise_mask_process(l.get(), &odd, &d, nullptr, &p), -1);
  odd = d;
  odd.plane[0] = nullptr;
  EXPECT_EQ(pyramid_denoise_mask_process(l.get(), &s, &odd, nullptr, &p), -1);
  EXPECT_TRUE(dst.same(before));

  EXPECT_EQ(vorn::ynr_check_frame(l.get()->ynr, 64, 48, 5), 0);
  EXPECT_EQ(vorn::ynr_check_frame(l.get()->ynr, 48, 64, 5), -1);
  const denoiser small(15, 16);
  EXPECT_EQ(vorn::ynr_check_frame(small.get()->ynr, 15, 16, 4), 0);
  EXPECT_EQ(vorn::ynr_check_frame(small.get()->ynr, 15, 16, 5), -1) << "an empty level";
  const denoiser tiny(3, 16);
  EXPECT_EQ(vorn::ynr_check_frame(tiny.get()->ynr, 3, 16, 2), -1);
}

TEST_F(LumaHandle, MemoryPlan) {
  const denoiser l(4000, 3000);
  const ynr_handle_t* h = l.get()->ynr;
  ASSERT_NE(h, nullptr);
  EXPECT_EQ(h->memory_mb, 27);
  EXPECT_EQ(h->thread_num, 4);
  EXPECT_EQ(h->pool, l.get()->pool);
  const unsigned char* start = h->gauss_whole[1].plane[0];
  EXPECT_EQ(h->gauss_whole[1].width, 2016);
  EXPECT_EQ(h->gauss_whole[1].height, 1516);
  EXPECT_EQ(h->gauss[1].plane[0] - start, 8 * 2016 + 8);
  EXPECT_EQ(h->spare_whole[1].plane[0] - start, 2016 * 1516);
  EXPECT_EQ(h->out_whole[1].plane[0] - start, 3 * 2016 * 1516);
  EXPECT_EQ(h->quarter_map[4].width, 62);
  EXPECT_EQ(h->quarter_map[4].height, 46);
  EXPECT_EQ(h->out_whole[0].plane[0] - start, 28722047 - 4016 * 3016);
  EXPECT_EQ(h->out[0].plane[0] - h->out_whole[0].plane[0], 8 * 4016 + 8);
  EXPECT_EQ(vorn::block_destination(*h).plane[0], nullptr);
  __ynr_capability_param c;
  EXPECT_EQ(ynr_capability(l.get()->ynr, &c), 0);
  EXPECT_STREQ(c.name, "CAM_ALGO_CV_YNR2");
  EXPECT_EQ(c.memory_mb, 27);
  EXPECT_EQ(ynr_capability(nullptr, &c), -1);
  EXPECT_EQ(ynr_deinit(nullptr), -1);
}

TEST_F(LumaHandle, WeightsAreKeptForTheLastFiveIntensities) {
  for (const int width : {64, 63}) {  // with and without room for overhanging blocks
    const denoiser f(width, 48);
    int* maps[vorn::kLevels];
    for (int i = 0; i < vorn::kLevels; ++i)
      maps[i] = vorn::kept_weight_map(*f.get()->ynr, 40 + 50 * i);
    for (int i = 0; i < vorn::kLevels; ++i) {
      int wanted[vorn::kMapSize];
      MakeWeightMap(wanted, static_cast<float>(40 + 50 * i), vorn::kMapSize);
      ASSERT_EQ(vorn::kept_weight_map(*f.get()->ynr, 40 + 50 * i), maps[i]);
      EXPECT_TRUE(std::equal(wanted, wanted + vorn::kMapSize, maps[i])) << i;
      const vorn::weight_table* table = vorn::kept_weight_table(*f.get()->ynr, maps[i]);
      ASSERT_NE(table, nullptr);
      EXPECT_TRUE(std::equal(wanted + 1, wanted + vorn::kMapSize, table->of + 1)) << i;
    }
    EXPECT_EQ(vorn::kept_weight_map(*f.get()->ynr, 7), maps[0]);  // the oldest makes room
    EXPECT_NE(vorn::kept_weight_map(*f.get()->ynr, 40), maps[0]);
    int own[vorn::kMapSize] = {};
    EXPECT_EQ(vorn::kept_weight_table(*f.get()->ynr, own), nullptr);
  }
  EXPECT_EQ(vorn::kept_weight_map(ynr_handle_t{}, 40), nullptr);
}

TEST_F(LumaHandle, RefusesImpossibleSizes) {
  const int sizes[][2] = {{0, 0},
                          {0, 10},
                          {10, -1},
                          {INT32_MIN, INT32_MIN},
                          {65536, 65536},
                          {INT32_MAX, 1},
                          {INT32_MAX, INT32_MAX},
                          {40000, 40000}};
  for (const auto& size : sizes) EXPECT_EQ(ynr_init(size[0], size[1], nullptr), nullptr);
}

TEST(Border, DegenerateImages) {
  // No taller than two borders: rows only, the top ones first.
  std::vector<unsigned char> bytes(20);
  for (size_t i = 0; i < bytes.size(); ++i)
    bytes[i] = static_cast<unsigned char>(i % 4 + i / 4 * 10);
  _tag_uni_image image{};
  image.width = image.stride[0] = 4;
  image.height = 5;
  image.plane[0] = bytes.data();
  FillExpandPixels(&image, 3);
  for (int y = 0; y < 5; ++y) EXPECT_EQ(bytes[static_cast<size_t>(4 * y)], 30) << y;
  const std::vector<unsigned char> before = bytes;
  for (int border : {0, -1, 5, 1000}) FillExpandPixels(&image, border);
  EXPECT_EQ(bytes, before);
  // Row copies do not ask for a column inside the border.
  bytes = {1, 1, 2, 2, 3, 3, 4, 4, 5, 5};
  image.width = image.stride[0] = 2;
  FillExpandPixels(&image, 3);
  EXPECT_EQ(bytes, std::vector<unsigned char>(10, 4));
}

TEST(Border, FollowsTheModel) {
  trials(1100, 60, [](random_source& random) {
    const int n = random.between(0, 12);
    const int w = 2 * n + random.between(1, 60), h = 2 * n + random.between(1, 30);
    canvas image = painted(w, h, w, random), want(image);
    model::expand_border(want.plane(), n);
    FillExpandPixels(image.image(), n);
    EXPECT_TRUE(image.same(want)) << numbers({w, h, n});
  });
}

// The luma driver with a mask that the caller brings, zeros in it.
TEST_F(LumaFrame, GivenMasksFollowTheModel) {
  trials(1800, 60, [](random_source& random) {
    const int w = random.between(16, 120), h = random.between(16, 90);
    const denoiser own(w, h);
    frame src(w, h), dst(w, h), want(w, h);
    src.paint(any_content(random), random);
    std::copy_n(dst.data(), dst.size(), want.data());
    canvas mask = random_mask(w / 4, h / 4, random);
    const model::plane mask_plane = mask.plane();
    tuning t = random_tuning(random);
    t.ynr.layer = random.between(2, 4);
    _tag_ynr_param_output p = {};
    std::copy_n(t.ynr.pIntensity, 5, p.pIntensity);
    std::copy_n(t.ynr.pRadius, 5, p.pRadius);
    p.layer = t.ynr.layer;
    _tag_uni_image from = src.image, to = dst.image;
    from.stride[0] = to.stride[0] = w;
    EXPECT_EQ(uni_luma_noise_reduce_mask_process(own.get(), &from, &to, mask.image(), &p), 0);
    ASSERT_EQ(model::luma({src.data(), w, h, w}, {want.data(), w, h, w}, t.ynr, &mask_plane), 0);
    EXPECT_EQ(first_difference(dst, want), "") << numbers({w, h}) << text(t);
    EXPECT_TRUE(dst.guards_intact());
  });
}

}  // namespace
