// What the luma driver refuses, its memory, and borders of images that are hardly larger. Frames
// are held in tests/frame.
#include "ynr/ynr_driver.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <vector>

#include "base/log.h"
#include "runtime/exported/pool.h"
#include "runtime/pool.h"
#include "tests/frame/frame_util.h"
#include "tests/support/guarded.h"
#include "ynr/block_rules.h"
#include "ynr/block_sums.h"

using frame_util::canvas;
using frame_util::content;

namespace {

// A luma handle with its pool, as the library's entry points would make it.
class luma {
 public:
  luma(int width, int height) : level_(nr_log_Level) {
    nr_log_Level = 0;
    vorn_threadpool_init(&top.pool, 4);
    top.ynr = ynr_init(width, height, &top);
  }
  ~luma() {
    vorn_threadpool_destroy(top.pool);
    if (top.ynr) ynr_deinit(top.ynr);
    nr_log_Level = level_;
  }
  denoise_handle_t top{};

 private:
  int level_;
};

_tag_ynr_param_output tuning(int layer, int intensity, int radius) {
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
TEST(LumaFrame, NeedsNoMoreOfTheOwnerThanItsFirstFields) {
  luma l(64, 48);
  const size_t bytes = offsetof(denoise_handle_t, packed);
  const vorn_test::guarded_buffer record(bytes, vorn_test::guarded_buffer::side::end);
  std::memcpy(record.data(), &l.top, bytes);
  frame_util::random_source random(2);
  canvas src(64, 48, 64, random), dst(64, 48, 64, random);
  _tag_ynr_param_output param = tuning(3, 40, 7);
  EXPECT_EQ(pyramid_denoise_mask_process(record.data(), src.image(), dst.image(), nullptr, &param),
            0);
}

// All intensities 0: the frame comes back bit for bit, right edge included, whatever the frame
// before has left in the borders.
TEST(LumaFrame, NothingToDoGivesTheSource) {
  frame_util::random_source random(1);
  for (const auto& size : {std::pair<int, int>{64, 64}, {65, 49}, {67, 51}, {91, 35}, {250, 131}}) {
    const int w = size.first, h = size.second;
    luma l(w, h);
    for (int layer = 2; layer <= 5; ++layer) {
      canvas src(w, h, w, random), dst(w, h, w, random);
      for (int intensity : {60, 0}) {
        src.paint(content::noise, random);
        _tag_ynr_param_output p = tuning(layer, intensity, 7);
        ASSERT_EQ(pyramid_denoise_mask_process(&l.top, src.image(), dst.image(), nullptr, &p), 0);
      }
      ASSERT_TRUE(std::equal(src.data(), src.data() + w * h, dst.data()))
          << w << "x" << h << " layer " << layer;
    }
  }
}

TEST(LumaFrame, RefusesWhatItCannotDo) {
  luma l(64, 48);
  frame_util::random_source random(1);
  canvas src(64, 48, 64, random), dst(64, 48, 64, random), before(dst);
  _tag_uni_image s = *src.image(), d = *dst.image();
  _tag_ynr_param_output p = tuning(3, 30, 7);
  EXPECT_EQ(pyramid_denoise_mask_process(nullptr, &s, &d, nullptr, &p), -1);
  EXPECT_EQ(pyramid_denoise_mask_process(&l.top, nullptr, &d, nullptr, &p), -1);
  EXPECT_EQ(pyramid_denoise_mask_process(&l.top, &s, nullptr, nullptr, &p), -1);
  for (int layer : {INT32_MIN, -1, 0, 1, 6, INT32_MAX}) {
    p.layer = layer;
    EXPECT_EQ(pyramid_denoise_mask_process(&l.top, &s, &d, nullptr, &p), -1) << layer;
  }
  p.layer = 3;
  _tag_uni_image odd = s;
  odd.width = 62;
  EXPECT_EQ(pyramid_denoise_mask_process(&l.top, &odd, &d, nullptr, &p), -1);
  odd = d;
  odd.plane[0] = nullptr;
  EXPECT_EQ(pyramid_denoise_mask_process(&l.top, &s, &odd, nullptr, &p), -1);
  EXPECT_TRUE(dst.same(before));

  EXPECT_EQ(vorn::ynr_check_frame(l.top.ynr, 64, 48, 5), 0);
  EXPECT_EQ(vorn::ynr_check_frame(l.top.ynr, 48, 64, 5), -1);
  luma small(15, 16);
  EXPECT_EQ(vorn::ynr_check_frame(small.top.ynr, 15, 16, 4), 0);
  EXPECT_EQ(vorn::ynr_check_frame(small.top.ynr, 15, 16, 5), -1) << "an empty level";
  luma tiny(3, 16);
  EXPECT_EQ(vorn::ynr_check_frame(tiny.top.ynr, 3, 16, 2), -1);
}

TEST(LumaHandle, MemoryPlan) {
  luma l(4000, 3000);
  const ynr_handle_t* h = l.top.ynr;
  ASSERT_NE(h, nullptr);
  EXPECT_EQ(h->memory_mb, 27);
  EXPECT_EQ(h->thread_num, 4);
  EXPECT_EQ(h->pool, l.top.pool);
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
  EXPECT_EQ(ynr_capability(l.top.ynr, &c), 0);
  EXPECT_STREQ(c.name, "CAM_ALGO_CV_YNR2");
  EXPECT_EQ(c.memory_mb, 27);
  EXPECT_EQ(ynr_capability(nullptr, &c), -1);
  EXPECT_EQ(ynr_deinit(nullptr), -1);
}

TEST(LumaHandle, WeightsAreKeptForTheLastFiveIntensities) {
  for (const int width : {64, 63}) {  // with and without room for overhanging blocks
    luma f(width, 48);
    int* maps[vorn::kLevels];
    for (int i = 0; i < vorn::kLevels; ++i)
      maps[i] = vorn::kept_weight_map(*f.top.ynr, 40 + 50 * i);
    for (int i = 0; i < vorn::kLevels; ++i) {
      int wanted[vorn::kMapSize];
      MakeWeightMap(wanted, static_cast<float>(40 + 50 * i), vorn::kMapSize);
      ASSERT_EQ(vorn::kept_weight_map(*f.top.ynr, 40 + 50 * i), maps[i]);
      EXPECT_TRUE(std::equal(wanted, wanted + vorn::kMapSize, maps[i])) << i;
      const vorn::weight_table* table = vorn::kept_weight_table(*f.top.ynr, maps[i]);
      ASSERT_NE(table, nullptr);
      EXPECT_TRUE(std::equal(wanted + 1, wanted + vorn::kMapSize, table->of + 1)) << i;
    }
    EXPECT_EQ(vorn::kept_weight_map(*f.top.ynr, 7), maps[0]);  // the oldest makes room
    EXPECT_NE(vorn::kept_weight_map(*f.top.ynr, 40), maps[0]);
    int own[vorn::kMapSize] = {};
    EXPECT_EQ(vorn::kept_weight_table(*f.top.ynr, own), nullptr);
  }
  EXPECT_EQ(vorn::kept_weight_map(ynr_handle_t{}, 40), nullptr);
}

TEST(LumaHandle, RefusesImpossibleSizes) {
  const int level = nr_log_Level;
  nr_log_Level = 0;
  const int sizes[][2] = {{0, 0},
                          {0, 10},
                          {10, -1},
                          {INT32_MIN, INT32_MIN},
                          {65536, 65536},
                          {INT32_MAX, 1},
                          {INT32_MAX, INT32_MAX},
                          {40000, 40000}};
  for (const auto& size : sizes) EXPECT_EQ(ynr_init(size[0], size[1], nullptr), nullptr);
  nr_log_Level = level;
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

}  // namespace
