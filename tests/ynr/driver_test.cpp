#include "ynr/ynr_driver.h"

#include <cstring>
#include <memory>

#include "api/log.h"
#include "pyramid/detail.h"
#include "pyramid/up2.h"
#include "runtime/pool.h"
#include "tests/ynr/model.h"
#include "ynr/pre_mask.h"
#include "ynr/window.h"

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

// The frame rule step by step through the exported functions, one plane walk per step, into a
// destination with room for overhanging blocks.
void frame_by_steps(denoise_handle_t* top, _tag_uni_image src, _tag_uni_image dst,
                    _tag_uni_image* mask, const _tag_ynr_param_output& param) {
  ynr_handle_t* ynr = top->ynr;
  ynr->gauss[0] = src;
  ynr->work[0] = dst;
  ASSERT_EQ(BuildGauPyrs_u8(ynr, &src, ynr->gauss, param.layer), 0);
  std::vector<unsigned char> made(static_cast<size_t>(src.width / 4) * (src.height / 4));
  _tag_uni_image own{};
  own.width = own.stride[0] = src.width / 4;
  own.height = src.height / 4;
  own.plane[0] = made.data();
  if (!mask) {
    pre_mask(&src, &own, src.width, src.height, param.param0);
    mask = &own;
  }
  const int top_level = param.layer - 1;
  const _tag_uni_image& whole = ynr->gauss_whole[top_level];
  std::memcpy(ynr->work_whole[top_level].plane[0], whole.plane[0],
              static_cast<size_t>(whole.stride[0]) * whole.height);
  for (int l = top_level; l >= 1; --l) {
    _tag_uni_image *work = &ynr->work[l], *out = &ynr->out[l];
    if (param.pIntensity[l] < 1) {
      for (int y = 0; y < work->height; ++y)
        std::memcpy(out->plane[0] + y * out->stride[0], work->plane[0] + y * work->stride[0],
                    static_cast<size_t>(work->width));
    } else {
      FillExpandPixels(&ynr->work_whole[l], 8);
      ASSERT_EQ(nlm_denoise_process(ynr, work, out, mask, param.pIntensity[l], param.pRadius[l]),
                0);
    }
    ImgSubImg_add128_u8(out, &ynr->gauss[l], work);
    if (param.pIntensity[l] < 1)
      for (int y = 0; y < work->height; ++y) {
        unsigned char* end = work->plane[0] + y * work->stride[0] + work->width;
        end[0] = end[-1];
      }
    gaussin3x3_up2(work, &ynr->work[l - 1]);
    ImgAddDiff_sub128_u8(&ynr->gauss[l - 1], &ynr->work[l - 1],
                         l == 1 && param.pIntensity[0] >= 1 ? &ynr->out[0] : &ynr->work[l - 1]);
  }
  if (param.pIntensity[0] >= 1) {
    FillExpandPixels(&ynr->out_whole[0], 8);
    ASSERT_EQ(
        nlm_denoise_process(ynr, &ynr->out[0], &dst, mask, param.pIntensity[0], param.pRadius[0]),
        0);
  }
}

// Runs a frame between guards: dst without padding, as in a caller's 4:2:0 frame.
void check_frame(luma* l, int width, int height, const _tag_ynr_param_output& param,
                 _tag_uni_image* mask, unsigned seed) {
  SCOPED_TRACE(testing::Message() << width << "x" << height << " layer " << param.layer << " seed "
                                  << seed);
  model::plane src(width, height, 0), dst(width, height, 0), big(width, height, 4);
  model::paint(&src, seed % 3 ? model::kTexture : model::kNoise, seed);
  model::paint(&dst, model::kNoise, seed + 1);
  const size_t luma_bytes = dst.bytes.size();
  src.bytes.resize(luma_bytes * 3 / 2, 0x11);
  dst.bytes.resize(luma_bytes * 3 / 2 + 64, 0xC7);
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) *big.at(x, y) = *dst.at(x, y);
  const std::vector<unsigned char> src_before = src.bytes;
  _tag_uni_image s = src.image(), d = dst.image(), b = big.image();
  _tag_ynr_param_output p = param;
  ASSERT_EQ(pyramid_denoise_mask_process(&l->top, &s, &d, mask, &p), 0);
  EXPECT_EQ(src.bytes, src_before);
  for (size_t i = luma_bytes; i < dst.bytes.size(); ++i)
    ASSERT_EQ(dst.bytes[i], 0xC7) << "byte " << i - luma_bytes << " behind the luma plane";

  luma reference(width, height);
  frame_by_steps(&reference.top, s, b, mask, param);
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) ASSERT_EQ(*dst.at(x, y), *big.at(x, y)) << x << ", " << y;
}

TEST(LumaFrame, MatchesItsStepsAtAllSizes) {
  const int sizes[][2] = {{64, 48}, {65, 49}, {66, 50},  {67, 51}, {16, 16}, {17, 19},  {31, 33},
                          {160, 7}, {7, 160}, {90, 120}, {33, 16}, {47, 64}, {250, 131}};
  model::for_every_form([&] {
    for (const auto& size : sizes) {
      luma l(size[0], size[1]);
      for (int layer = 2; layer <= 5; ++layer) {
        if (std::min(size[0], size[1]) >> (layer - 1) < 1) continue;
        _tag_ynr_param_output p = tuning(layer, 30, 7);
        p.pRadius[0] = 5;
        p.pRadius[2] = 3;
        check_frame(&l, size[0], size[1], p, nullptr, 3u * size[0] + layer);
        p.pIntensity[layer % 3] = 0;  // a level that passes, with borders of the frame before
        check_frame(&l, size[0], size[1], p, nullptr, 5u * size[1] + layer);
        p.pRadius[0] = 4;
        check_frame(&l, size[0], size[1], p, nullptr, 7u * size[1] + layer);
      }
    }
  });
}

TEST(LumaFrame, CallersMaskWithHoles) {
  for (const auto& size : {std::pair<int, int>{96, 64}, {101, 67}}) {
    model::plane values(size.first / 4, size.second / 4, 0, 3);
    std::mt19937 random(9);
    for (unsigned char& v : values.bytes)
      v = static_cast<unsigned char>(random() % 3 ? 40 + random() % 200 : 0);
    _tag_uni_image mask = values.image();
    for (int radius : {3, 5, 7}) {
      // Fresh handles: holes of a coarse level hold what the frame before left there.
      luma l(size.first, size.second);
      check_frame(&l, size.first, size.second, tuning(4, 25, radius), &mask, 40u + radius);
    }
  }
}

// All intensities 0: the frame comes back bit for bit, right edge included, whatever the frame
// before has left in the borders.
TEST(LumaFrame, NothingToDoGivesTheSource) {
  for (const auto& size : {std::pair<int, int>{64, 64}, {65, 49}, {67, 51}, {91, 35}, {250, 131}}) {
    luma l(size.first, size.second);
    for (int layer = 2; layer <= 5; ++layer) {
      model::plane src(size.first, size.second, 0), dst(size.first, size.second, 0);
      _tag_uni_image s = src.image(), d = dst.image();
      for (int intensity : {60, 0}) {
        model::paint(&src, model::kNoise, static_cast<unsigned>(layer + intensity));
        _tag_ynr_param_output p = tuning(layer, intensity, 7);
        ASSERT_EQ(pyramid_denoise_mask_process(&l.top, &s, &d, nullptr, &p), 0);
      }
      ASSERT_EQ(dst.bytes, src.bytes) << size.first << "x" << size.second << " layer " << layer;
    }
  }
}

TEST(LumaFrame, RefusesWhatItCannotDo) {
  luma l(64, 48);
  model::plane src(64, 48, 0), dst(64, 48, 0);
  model::paint(&src, model::kTexture, 1);
  const std::vector<unsigned char> before = dst.bytes;
  _tag_uni_image s = src.image(), d = dst.image();
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
  EXPECT_EQ(dst.bytes, before);

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

TEST(Border, FollowsTheOutermostInnerPixels) {
  for (int border : {1, 3, 8}) {
    model::plane p(11, 9, border, 2);
    model::paint(&p, model::kNoise, 3);
    std::vector<unsigned char> before = p.bytes;
    _tag_uni_image whole{};
    whole.width = 11 + 2 * border;
    whole.height = 9 + 2 * border;
    whole.plane[0] = p.bytes.data();
    whole.stride[0] = p.stride;
    FillExpandPixels(&whole, border);
    for (int y = -border; y < 9 + border; ++y)
      for (int x = -border; x < 11 + border; ++x)
        ASSERT_EQ(*p.at(x, y),
                  before[static_cast<size_t>(p.at(std::clamp(x, 0, 10), std::clamp(y, 0, 8)) -
                                             p.bytes.data())]);
  }
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
