#include "cnr/cnr_driver.h"

#include <climits>

#include "base/log.h"
#include "cnr/exported/masked_driver.h"
#include "runtime/exported/pool.h"
#include "tests/cnr/level.h"
#include "tests/model/model.h"

namespace {

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

struct quiet {
  int level = nr_log_Level;
  quiet() { nr_log_Level = 0; }
  ~quiet() { nr_log_Level = level; }
};

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
TEST(CnrDriver, ACoarseLevelWithoutTapsIsSkipped) {
  quiet silence;
  for (const auto& size : {std::pair{64, 48}, {96, 80}, {66, 48}, {64, 50}, {70, 46}}) {
    frame f(size.first, size.second);
    for (const int radius : {0, 1, -4}) {
      f.fill(static_cast<uint32_t>(9 + radius));
      _tag_cnr_param_output t = tuning(2, radius ? 0 : 6);
      t.smooth_radius = radius;
      ASSERT_EQ(f.run(t), 0);
      ycnr_cnr_tuning_param same{};
      same.enable = 1;
      same.range_factor = t.range_factor;
      same.smooth_radius = t.smooth_radius;
      same.step = t.step / 2;
      same.scale = t.scale;
      same.saturation = t.saturation;
      same.color_edge_u = t.color_edge_u;
      same.color_edge_v = t.color_edge_v;
      bytes wanted = f.dst_bytes;
      ASSERT_EQ(model::chroma(f.width, f.height, f.src_bytes.data(), wanted.data(), same), 0);
      EXPECT_EQ(f.dst_bytes, wanted) << f.width << "x" << f.height << ", radius " << radius;
    }
  }
}

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

}  // namespace
