// One chroma level with a pool to filter it on, for tests of the directional filters.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <vector>

#include "cnr/hor_ver.h"
#include "runtime/exported/pool.h"
#include "runtime/pool.h"
#include "tests/support/forms.h"

namespace vorn_test {

// A handle that holds nothing but a pool of four workers.
struct pool_handle {
  cnr_handle_t handle{};
  pool_handle() { EXPECT_EQ(vorn_threadpool_init(&handle.pool, 4), 0); }
  ~pool_handle() { vorn_threadpool_destroy(handle.pool); }
  pool_handle(const pool_handle&) = delete;
};

// Five planes of one size.
struct level {
  int width;
  int height;
  std::vector<uint8_t> guide, src_u, src_v, dst_u, dst_v;
  _tag_uni_image images[5]{};

  level(int w, int h) : width(w), height(h) {
    const size_t size = static_cast<size_t>(w) * static_cast<size_t>(h);
    std::vector<uint8_t>* planes[] = {&guide, &src_u, &src_v, &dst_u, &dst_v};
    for (int i = 0; i < 5; ++i) {
      planes[i]->assign(size, 128);
      images[i].width = images[i].stride[0] = w;
      images[i].height = h;
      images[i].plane[0] = planes[i]->data();
    }
  }
  level(const level&) = delete;

  // spread limits how far samples stray from 128.
  void fill(uint32_t seed, int spread) {
    std::mt19937 engine(seed);
    for (auto* plane : {&guide, &src_u, &src_v})
      for (uint8_t& sample : *plane)
        sample = static_cast<uint8_t>(128 + static_cast<int>(engine() % (2 * spread)) - spread);
  }

  void horizontal(_tag_cnr_param param) { run(reduce_color_noise_hor_thread, param); }
  void vertical(_tag_cnr_param param) { run(reduce_color_noise_ver_thread, param); }

 private:
  using stage = int(cnr_handle_t*, _tag_uni_image*, _tag_uni_image*, _tag_uni_image*,
                    _tag_uni_image*, _tag_uni_image*, _tag_cnr_param*);
  void run(stage* filter, _tag_cnr_param param) {
    static pool_handle workers;
    std::fill(dst_u.begin(), dst_u.end(), 0xEE);
    std::fill(dst_v.begin(), dst_v.end(), 0xEE);
    EXPECT_EQ(
        filter(&workers.handle, &images[0], &images[1], &images[2], &images[3], &images[4], &param),
        0);
  }
};

inline _tag_cnr_param tuning(float range_factor, int radius, int step, int level_mode) {
  _tag_cnr_param param{};
  for (float& coef : param.range_coef) coef = 1.0f / (range_factor * range_factor);
  param.smooth_radius = radius;
  param.smooth_step = step;
  param.color_edge_u = 8;
  param.color_edge_v = 8;
  param.level_mode = level_mode;
  return param;
}

}  // namespace vorn_test
