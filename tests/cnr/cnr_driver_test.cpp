#include "cnr/cnr_driver.h"

#include <climits>
#include <memory>

#include "api/log.h"
#include "tests/cnr/level.h"

namespace {

using vorn_test::with_every_form;
using bytes = std::vector<uint8_t>;

// A denoiser's chroma half with a source and a destination frame.
struct frame {
  int width, height;
  denoise_handle_t top{};
  bytes src_bytes, dst_bytes;
  _tag_uni_image src{}, dst{};

  frame(int w, int h) : width(w), height(h) {
    EXPECT_EQ(vorn_threadpool_init(&top.pool, 4), 0);
    top.cnr = cnr_init(w, h, &top);
    EXPECT_NE(top.cnr, nullptr);
    const size_t size = static_cast<size_t>(w) * h * 3 / 2;
    src_bytes.resize(size);
    dst_bytes.assign(size, 0xEE);
    src.width = dst.width = w;
    src.height = dst.height = h;
    src.plane[0] = src_bytes.data();
    dst.plane[0] = dst_bytes.data();
  }
  ~frame() {
    vorn_threadpool_destroy(top.pool);
    cnr_deinit(top.cnr);
  }
  frame(const frame&) = delete;

  size_t luma_size() const { return static_cast<size_t>(width) * height; }
  size_t chroma_size() const { return static_cast<size_t>(width) * (height / 2); }

  void fill(uint32_t seed) {
    std::mt19937 engine(seed);
    for (size_t i = 0; i < src_bytes.size(); ++i)
      src_bytes[i] =
          static_cast<uint8_t>((i < luma_size() ? 90 : 120) + engine() % 24 + i / 97 % 9);
  }

  int run(_tag_cnr_param_output tuning) {
    std::fill(dst_bytes.begin(), dst_bytes.end(), 0xEE);
    return uni_color_noise_reduce_process(&top, &src, &dst, &tuning);
  }
};

_tag_cnr_param_output tuning(int scale, int saturation = 0) {
  _tag_cnr_param_output t{};
  t.range_factor = 20;
  t.smooth_radius = 18;
  t.step = 2;
  t.scale = scale;
  t.saturation = saturation;
  t.color_edge_u = 8;
  t.color_edge_v = 9;
  return t;
}

double spread(const bytes& plane, size_t from, size_t size) {
  double sum = 0, squares = 0;
  for (size_t i = from; i < from + size; ++i) {
    sum += plane[i];
    squares += plane[i] * plane[i];
  }
  return squares / size - sum / size * (sum / size);
}

struct quiet {
  int level = nr_log_Level;
  quiet() { nr_log_Level = 0; }
  ~quiet() { nr_log_Level = level; }
};

// Every mode, with sizes whose chroma levels are odd: only the chroma plane is written, all of it;
// the second frame on a handle has the bytes of the first; every form has the same bytes.
TEST(CnrDriver, ModesAndOddSizes) {
  quiet silence;
  const std::pair<int, int> sizes[] = {{64, 48}, {322, 242}, {134, 35},
                                       {16, 16}, {4, 4},     {130, 66}};
  for (const auto& size : sizes) {
    frame f(size.first, size.second);
    f.fill(11);
    for (int scale : {0, 1, 2, 3, -1}) {
      bytes first;
      with_every_form([&] {
        ASSERT_EQ(f.run(tuning(scale)), 0);
        if (first.empty()) first = f.dst_bytes;
        ASSERT_TRUE(f.dst_bytes == first) << size.first << "x" << size.second << " " << scale;
      });
      for (size_t i = 0; i < f.luma_size(); ++i) ASSERT_EQ(first[i], 0xEE);
      // Odd frame height: the half row behind the last whole chroma row is not the filter's.
      for (size_t i = f.luma_size() + f.chroma_size(); i < first.size(); ++i)
        ASSERT_EQ(first[i], 0xEE);
      const bool same =
          std::equal(first.begin() + f.luma_size(), first.begin() + f.luma_size() + f.chroma_size(),
                     f.src_bytes.begin() + f.luma_size());
      EXPECT_EQ(same, scale == 3 || scale == -1);
      if (size.first >= 64 && !same) {
        EXPECT_LT(spread(first, f.luma_size(), f.chroma_size()),
                  0.8 * spread(f.src_bytes, f.luma_size(), f.chroma_size()));
      }
    }
  }
}

TEST(CnrDriver, FlatColoursStay) {
  quiet silence;
  frame f(132, 102);
  for (int scale : {0, 1, 2}) {
    for (int colour : {0, 16, 128, 255}) {
      std::fill(f.src_bytes.begin(), f.src_bytes.end(), static_cast<uint8_t>(colour));
      ASSERT_EQ(f.run(tuning(scale)), 0);
      for (size_t i = f.luma_size(); i < f.dst_bytes.size(); ++i)
        ASSERT_EQ(f.dst_bytes[i], colour) << scale;
    }
  }
}

TEST(CnrDriver, SaturationAlone) {
  quiet silence;
  frame f(34, 22);
  f.fill(5);
  ASSERT_EQ(f.run(tuning(3, 16)), 0);
  for (size_t i = f.luma_size(); i < f.dst_bytes.size(); ++i) {
    const int x = f.src_bytes[i], y = x + (x - 128);
    ASSERT_EQ(f.dst_bytes[i], y < 0 ? 0 : y > 255 ? 255 : y);
  }
}

TEST(CnrDriver, RadiusIsRoundedDownToTheStep) {
  quiet silence;
  frame f(96, 80);
  f.fill(6);
  const auto result = [&](int radius, int step) {
    _tag_cnr_param_output t = tuning(1);
    t.smooth_radius = radius;
    t.step = step;
    EXPECT_EQ(f.run(t), 0);
    return f.dst_bytes;
  };
  EXPECT_EQ(result(7, 2), result(6, 2));
  EXPECT_NE(result(8, 2), result(6, 2));
  EXPECT_EQ(result(7, 0), result(0, 2));
  EXPECT_EQ(result(INT_MIN, -1), result(0, 2));
  EXPECT_EQ(result(INT_MAX, INT_MIN), result(0, 2));
  // One tap per pixel: the first column, the first row, where the grid starts.
  EXPECT_NE(result(INT_MAX, INT_MAX), result(0, 2));
}

// The second plane pointer does not matter; mode 2 leaves its fine window in the caller's record.
TEST(CnrDriver, RecordsAsTheCallerSeesThem) {
  quiet silence;
  frame f(48, 40);
  f.fill(8);
  ASSERT_EQ(f.run(tuning(2)), 0);
  const bytes expected = f.dst_bytes;
  uint8_t elsewhere = 0;
  f.src.plane[1] = f.dst.plane[1] = &elsewhere;
  _tag_cnr_param param{};
  for (float& coef : param.range_coef) coef = 1.0f / 400;
  param.smooth_radius = 18;
  param.smooth_step = 2;
  param.scale = 2;
  param.color_edge_u = 8;
  param.color_edge_v = 9;
  ASSERT_EQ(color_noise_reduce_process(&f.top, &f.src, &f.dst, &param), 0);
  EXPECT_EQ(f.dst_bytes, expected);
  EXPECT_EQ(param.smooth_radius, 3);
  EXPECT_EQ(param.smooth_step, 2);
  EXPECT_EQ(param.level_mode, 0);
}

TEST(CnrDriver, RefusesWhatItCannotRun) {
  quiet silence;
  frame f(16, 12);
  _tag_cnr_param param{};
  EXPECT_EQ(color_noise_reduce_process(nullptr, &f.src, &f.dst, &param), -1);
  EXPECT_EQ(color_noise_reduce_process(&f.top, nullptr, &f.dst, &param), -1);
  EXPECT_EQ(color_noise_reduce_process(&f.top, &f.src, nullptr, &param), -1);
  EXPECT_EQ(color_noise_reduce_process(&f.top, &f.src, &f.dst, nullptr), -1);
  EXPECT_EQ(uni_color_noise_reduce_process(&f.top, &f.src, &f.dst, nullptr), -1);
  EXPECT_EQ(color_noise_reduce_mask_process(&f.top, &f.src, &f.dst, nullptr, &param), -1);
  f.src.width = 14;
  EXPECT_EQ(f.run(tuning(2)), -1);
  EXPECT_EQ(f.dst_bytes, bytes(f.dst_bytes.size(), 0xEE));

  const struct {
    int width, height, scale, expected;
  } cases[] = {{15, 12, 0, -1}, {2, 2, 0, 0}, {2, 2, 1, -1}, {4, 3, 2, -1},
               {4, 4, 2, 0},    {2, 2, 3, 0}, {2, 1, 0, -1}};
  for (const auto& c : cases) {
    cnr_handle_t handle{};
    handle.width = c.width;
    handle.height = c.height;
    EXPECT_EQ(vorn::cnr_check_frame(&handle, c.width, c.height, c.scale), c.expected)
        << c.width << "x" << c.height << " " << c.scale;
  }
}

// Both branches of the masked driver: a mask of 0 leaves the split chroma, an open one changes it.
TEST(CnrDriver, MaskedDriver) {
  quiet silence;
  frame f(96, 64);
  f.fill(9);
  bytes mask_bytes(24 * 16, 0);
  _tag_uni_image mask{};
  mask.width = 24;
  mask.height = 16;
  mask.plane[0] = mask_bytes.data();
  _tag_cnr_param_output t = tuning(2);
  ASSERT_EQ(uni_color_noise_reduce_mask_process(&f.top, &f.src, &f.dst, &mask, &t), 0);
  EXPECT_TRUE(std::equal(f.src_bytes.begin() + f.luma_size(), f.src_bytes.end(),
                         f.dst_bytes.begin() + f.luma_size()));
  std::fill(mask_bytes.begin(), mask_bytes.end(), 255);
  ASSERT_EQ(uni_color_noise_reduce_mask_process(&f.top, &f.src, &f.dst, &mask, &t), 0);
  EXPECT_FALSE(std::equal(f.src_bytes.begin() + f.luma_size(), f.src_bytes.end(),
                          f.dst_bytes.begin() + f.luma_size()));
  EXPECT_EQ(bytes(f.dst_bytes.begin(), f.dst_bytes.begin() + f.luma_size()),
            bytes(f.luma_size(), 0xEE));

  _tag_cnr_param param{};
  param.range_coef[0] = 0.5f / 400;
  param.smooth_radius = 18;
  param.smooth_step = 3;
  param.scale = 1;
  param.saturation = -16;  // grey: whatever the filters do, it stays grey
  std::fill(f.dst_bytes.begin(), f.dst_bytes.end(), 0);
  std::fill(mask_bytes.begin(), mask_bytes.end(), 0);
  ASSERT_EQ(color_noise_reduce_mask_process(&f.top, &f.src, &f.dst, &mask, &param), 0);
  for (size_t i = f.luma_size(); i < f.dst_bytes.size(); ++i) ASSERT_EQ(f.dst_bytes[i], 128);
}

}  // namespace
