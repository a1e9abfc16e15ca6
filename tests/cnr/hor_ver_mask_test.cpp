#include "cnr/exported/hor_ver_mask.h"

#include "tests/cnr/level.h"

namespace {

using vorn_test::level;

struct masked_level : level {
  std::vector<uint8_t> mask_bytes;
  _tag_uni_image mask{};
  std::vector<uint8_t> uv;

  masked_level(int w, int h, int mask_width, std::vector<uint8_t> bytes)
      : level(w, h), mask_bytes(std::move(bytes)), uv(static_cast<size_t>(w) * h * 2, 0xEE) {
    mask.width = mask.stride[0] = mask_width;
    mask.height = mask_width ? static_cast<int>(mask_bytes.size()) / mask_width : 0;
    mask.plane[0] = mask_bytes.data();
  }

  static _tag_cnr_param param(float range_factor, int radius, int step) {
    _tag_cnr_param p = vorn_test::tuning(range_factor, radius, step, 0);
    p.range_coef[0] /= 2;
    return p;
  }

  void run(bool along_row, _tag_cnr_param p) {
    static vorn_test::pool_handle workers;
    auto* stage =
        along_row ? reduce_color_noise_mask_hor_thread : reduce_color_noise_mask_ver_thread;
    EXPECT_EQ(stage(&workers.handle, &images[0], &images[1], &images[2], &images[3], &images[4], &p,
                    &mask),
              0);
  }
  void run_merge(_tag_cnr_param p) {
    static vorn_test::pool_handle workers;
    EXPECT_EQ(
        reduce_color_noise_mask_vermerge_thread(&workers.handle, &images[0], &images[1], &images[2],
                                                &images[3], &images[4], &p, uv.data(), &mask),
        0);
  }
};

// Kept on purpose: one neighbour of weight 255 beside a centre of 32768. Sum 33023 keeps the
// reciprocal of 16; (32768 * 100 + 255 * 200 + 1024) >> 11 = 1625, over 16 rounds to 102.
TEST(HorVerMask, CentreDominates) {
  for (bool along_row : {true, false}) {
    masked_level image(along_row ? 2 : 1, along_row ? 1 : 2, 1, {255});
    image.src_u = {100, 200};
    image.images[1].plane[0] = image.src_u.data();
    image.run(along_row, masked_level::param(1000, 1, 1));
    EXPECT_EQ(image.dst_u[0], 102);
    EXPECT_EQ(image.dst_v[0], 129);  // (32768 + 255) * 128 loses the weight's low bits too
    image.run_merge(masked_level::param(1000, 1, 1));
    if (!along_row) {
      EXPECT_EQ(image.uv[0], 102);
      EXPECT_EQ(image.uv[1], 129);
    }
  }
}

// A mask of half the level's size covers 2x2 pixels per byte; a mask wider than the level has a
// ratio of 0 and only its first byte counts; positions past the mask's end stay inside it.
TEST(HorVerMask, MaskSampling) {
  masked_level image(4, 2, 2, {255, 0});
  image.src_u = {100, 200, 100, 200, 100, 200, 100, 200};
  image.images[1].plane[0] = image.src_u.data();
  image.run(true, masked_level::param(1000, 1, 1));
  EXPECT_NE(image.dst_u[0], 100);
  EXPECT_EQ(image.dst_u[2], 100);
  EXPECT_EQ(image.dst_u[3], 200);

  masked_level wide(2, 1, 4, {0, 255, 255, 255});
  wide.src_u = {100, 200};
  wide.images[1].plane[0] = wide.src_u.data();
  wide.run(true, masked_level::param(1000, 1, 1));
  EXPECT_EQ(wide.dst_u, wide.src_u);

  masked_level narrow(2, 1, 0, {0, 255});  // no columns, and so no rows: the first byte as well
  narrow.src_u = {100, 200};
  narrow.images[1].plane[0] = narrow.src_u.data();
  narrow.run(true, masked_level::param(1000, 1, 1));
  EXPECT_EQ(narrow.dst_u, narrow.src_u);

  masked_level ragged(5, 9, 2, {255, 255});
  ragged.fill(4, 100);
  ragged.run(false, masked_level::param(50, 18, 3));  // under the address sanitizer
}

// A record may end with the mask: the planar passes read nothing behind it. An empty slice reads
// nothing at all and signals.
TEST(HorVerMask, PlanarJobsEndWithTheMask) {
  vorn_test::pool_handle workers;
  masked_level image(24, 10, 24, std::vector<uint8_t>(240, 100));
  image.fill(5, 20);
  _tag_cnr_param p = masked_level::param(20, 6, 2);
  for (auto* process : {reduce_color_noise_mask_hor_process, reduce_color_noise_mask_ver_process}) {
    const bool along_row = process == reduce_color_noise_mask_hor_process;
    image.run(along_row, p);
    const std::vector<uint8_t> expected = image.dst_u;
    EXPECT_NE(expected, image.src_u);
    std::fill(image.dst_u.begin(), image.dst_u.end(), 0xEE);
    hor_ver_mask_job job{&image.images[0],
                         &image.images[1],
                         &image.images[2],
                         &image.images[3],
                         &image.images[4],
                         &p,
                         0,
                         10,
                         workers.handle.pool,
                         0,
                         &image.mask,
                         image.uv.data()};
    reset_thread_done(job.pool);
    process(&job);
    EXPECT_EQ(image.dst_u, expected);
    EXPECT_EQ(image.uv, std::vector<uint8_t>(480, 0xEE));
    job.row_end = 0;
    job.mask = nullptr;
    process(&job);
    EXPECT_EQ(sync_thread_done(job.pool, 2), 0);
  }
}

}  // namespace
