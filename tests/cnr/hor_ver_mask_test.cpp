#include "cnr/exported/hor_ver_mask.h"

#include "runtime/pool.h"
#include "tests/support/level.h"

namespace {

using namespace vorn_test;

using bytes = std::vector<uint8_t>;

struct masked_level : level {
  bytes mask_bytes;
  _tag_uni_image mask{};
  bytes uv;

  masked_level(int w, int h, int mask_width, bytes values)
      : level(w, h), mask_bytes(std::move(values)), uv(static_cast<size_t>(w) * h * 2, 0xEE) {
    mask.width = mask.stride[0] = mask_width;
    mask.height = mask_width ? static_cast<int>(mask_bytes.size()) / mask_width : 0;
    mask.plane[0] = mask_bytes.data();
  }

  void across(_tag_cnr_param p) { run(reduce_color_noise_mask_hor_thread, p, &mask); }
  void along(_tag_cnr_param p) { run(reduce_color_noise_mask_ver_thread, p, &mask); }
  void merge(_tag_cnr_param p) {
    EXPECT_EQ(run(reduce_color_noise_mask_vermerge_thread, p, uv.data(), &mask), 0);
  }
};

_tag_cnr_param halved(float range_factor, int radius, int step) {
  _tag_cnr_param p = chroma_param(range_factor, radius, step, 0);
  p.range_coef[0] /= 2;
  return p;
}

// Kept on purpose: one neighbour of weight 255 beside a centre of 32768. Sum 33023 keeps the
// reciprocal of 16; (32768 * 100 + 255 * 200 + 1024) >> 11 = 1625, over 16 rounds to 102.
TEST(HorVerMask, CentreDominates) {
  masked_level row(2, 1, 1, {255}), column(1, 2, 1, {255});
  for (masked_level* image : {&row, &column}) image->src_u.set({100, 200});
  row.across(halved(1000, 1, 1));
  column.along(halved(1000, 1, 1));
  for (masked_level* image : {&row, &column}) {
    EXPECT_EQ(image->dst_u.at(0, 0), 102);
    EXPECT_EQ(image->dst_v.at(0, 0), 129);  // (32768 + 255) * 128 loses the weight's low bits too
  }
  column.merge(halved(1000, 1, 1));
  EXPECT_EQ(column.uv[0], 102);
  EXPECT_EQ(column.uv[1], 129);
}

// A mask of half the level's size covers 2x2 pixels per byte; a mask wider than the level has a
// ratio of 0 and only its first byte counts; positions past the mask's end stay inside it.
TEST(HorVerMask, MaskSampling) {
  masked_level image(4, 2, 2, {255, 0});
  image.src_u.set({100, 200, 100, 200, 100, 200, 100, 200});
  image.across(halved(1000, 1, 1));
  EXPECT_NE(image.dst_u.at(0, 0), 100);
  EXPECT_EQ(image.dst_u.at(0, 2), 100);
  EXPECT_EQ(image.dst_u.at(0, 3), 200);

  masked_level wide(2, 1, 4, {0, 255, 255, 255});
  masked_level narrow(2, 1, 0, {0, 255});  // no columns, and so no rows: the first byte as well
  for (masked_level* each : {&wide, &narrow}) {
    each->src_u.set({100, 200});
    each->across(halved(1000, 1, 1));
    EXPECT_EQ(each->dst_u.samples(), each->src_u.samples());
  }

  masked_level ragged(5, 9, 2, {255, 255});
  ragged.fill(4, 100);
  ragged.along(halved(50, 18, 3));  // under the address sanitizer
}

// A record may end with the mask: the planar passes read nothing behind it. An empty slice reads
// nothing at all and signals.
TEST(HorVerMask, PlanarJobsEndWithTheMask) {
  masked_level image(24, 10, 24, bytes(240, 100));
  image.fill(5, 20);
  _tag_cnr_param p = halved(20, 6, 2);
  for (auto* process : {reduce_color_noise_mask_hor_process, reduce_color_noise_mask_ver_process}) {
    process == reduce_color_noise_mask_hor_process ? image.across(p) : image.along(p);
    const bytes expected = image.dst_u.samples();
    EXPECT_NE(expected, image.src_u.samples());
    image.dst_u.set(bytes(240, 0xEE));
    hor_ver_mask_job job{image.guide.image(),
                         image.src_u.image(),
                         image.src_v.image(),
                         image.dst_u.image(),
                         image.dst_v.image(),
                         &p,
                         0,
                         10,
                         stage_handle()->pool,
                         0,
                         &image.mask,
                         image.uv.data()};
    reset_thread_done(job.pool);
    process(&job);
    EXPECT_EQ(image.dst_u.samples(), expected);
    EXPECT_EQ(image.uv, bytes(480, 0xEE));
    job.row_end = 0;
    job.mask = nullptr;
    process(&job);
    EXPECT_EQ(sync_thread_done(job.pool, 2), 0);
  }
}

TEST(HorVerMask, FollowsTheModel) {
  trials(1400, 150, [](random_source& random) {
    const int mask_w = random.between(1, 12), mask_h = random.between(1, 12);
    const int ratio = random.between(1, 5), w = mask_w * ratio, h = mask_h * ratio;
    level in(w, h, random);
    canvas mask(mask_w, mask_h, mask_w, random);
    for (int i = 0; i < mask_w * mask_h; ++i)
      if (random.one_in(5)) mask.data()[i] = 0;
    const _tag_cnr_param p = random_param(random, any_strength(random));
    canvas want_u(in.dst_u), want_v(in.dst_v);
    const auto where =
        numbers({w, h, ratio, p.smooth_radius, p.smooth_step, p.color_edge_u, p.color_edge_v});
    for (auto dir : {model::direction::horizontal, model::direction::vertical}) {
      const bool across = dir == model::direction::horizontal;
      model::filter_masked(dir, in.guide.plane(), in.src_u.plane(), in.src_v.plane(),
                           want_u.plane(), want_v.plane(), of(p), mask.plane());
      in.run(across ? reduce_color_noise_mask_hor_thread : reduce_color_noise_mask_ver_thread, p,
             mask.image());
      EXPECT_TRUE(in.dst_u.same(want_u) && in.dst_v.same(want_v))
          << (across ? "hor " : "ver ") << where;
    }

    canvas uv(2 * w, h, 2 * w, random), want(uv), before(in.dst_u);
    for (int i = 0; i < 2 * w * h; ++i)
      want.data()[i] = i % 2 == 0 ? want_u.data()[i / 2] : want_v.data()[i / 2];
    in.run(reduce_color_noise_mask_vermerge_thread, p, uv.data(), mask.image());
    EXPECT_TRUE(uv.same(want)) << "interleaved " << where;
    EXPECT_TRUE(in.dst_u.same(before)) << "the planes stay as they were";
  });
}

}  // namespace
