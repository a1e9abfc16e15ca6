#include "bench/stages.h"

#include "bench/blocks.h"
#include "cnr/exported/pyramid_stages.h"
#include "cnr/hor_ver.h"
#include "cnr/uv_split.h"
#include "pyramid/detail.h"
#include "pyramid/down2.h"
#include "pyramid/down_yuv.h"
#include "pyramid/up2.h"
#include "pyramid/up_chroma.h"
#include "runtime/exported/image.h"
#include "runtime/image.h"
#include "runtime/stage.h"
#include "ynr/exported/pyramid_stages.h"
#include "ynr/pre_mask.h"
#include "ynr/window.h"
#include "ynr/ynr_driver.h"

namespace bench {

scene::scene(int w, int h, int workers)
    : width(w),
      height(h),
      d(w, h, workers),
      bytes_(noisy_frame(w, h)),
      result_(bytes_),
      details_(bytes_),
      frame(frame_image(bytes_, w, h)),
      dst(frame_image(result_, w, h)),
      detail(frame_image(details_, w, h)) {
  create_uni_image(&mask, w / 4, h / 4, VORN_IMAGE_GRAY);
  pre_mask(&frame, &mask, w, h, 190);
  BuildGauPyrs_u8(d.luma(), &frame, d.luma()->gauss, 4);
  copy_uni_image(d.luma()->out, &frame);
  FillExpandPixels(d.luma()->out_whole, vorn::kBorder);
  pyramid_down2(d.chroma(), &frame, plane(0));
  split_UV_thread(d.chroma(), frame.plane[1], plane(2)->plane[0], plane(4)->plane[0], w, h / 2);
  pyramid_down_yuv(d.chroma(), plane(0), plane(1), plane(2), plane(3), plane(4), plane(5));
  for (float& c : chroma.range_coef) c = 1.0f / 400;
  chroma.range_factor_sq = 400;
  chroma.color_edge_u = 8;
  chroma.color_edge_v = 9;
  chroma.smooth_step = 2;
}

scene::~scene() {
  destroy_uni_image(&mask);
}

namespace {

stage filter(const char* name, int level, int radius, bool horizontal) {
  return {name, true, [=](scene& s) {
            s.chroma.smooth_radius = radius;
            s.chroma.level_mode = level ? -1 : 0;
            const auto run =
                horizontal ? reduce_color_noise_hor_thread : reduce_color_noise_ver_thread;
            run(s.d.chroma(), s.plane(level), s.plane(2 + level), s.plane(4 + level),
                s.plane(6 + level), s.plane(8 + level), &s.chroma);
          }};
}

stage window(const char* name, int radius) {
  return {name, true, [radius](scene& s) {
            nlm_denoise_process(s.d.luma(), s.d.luma()->out, &s.dst, &s.mask, 45, radius);
          }};
}

stage blocks(const char* name, int radius) {
  return {name, false, [radius](scene& s) { filter_by_blocks(s, radius); }, true};
}

struct empty_job {
  int row_begin, row_end;
  struct pool* pool;
};
void* empty_process(void* job) {
  one_thread_done(static_cast<empty_job*>(job)->pool);
  return nullptr;
}

}  // namespace

// A table, one entry a stage: longer than other functions, and nothing to split.
const std::vector<stage>& stages() {
  static const std::vector<stage> all = {
      {"down2", false,
       [](scene& s) { gaussin3x3_down2_ynr(s.d.luma(), &s.frame, s.d.luma()->gauss + 1); }},
      {"up2", false, [](scene& s) { gaussin3x3_up2(s.d.luma()->gauss + 1, &s.dst); }},
      {"detail_subtract", false,
       [](scene& s) { ImgSubImg_add128_u8(&s.frame, &s.detail, &s.dst); }},
      {"detail_add", false, [](scene& s) { ImgAddDiff_sub128_u8(&s.frame, &s.detail, &s.dst); }},
      {"up2_add_fused", false,
       [](scene& s) { vorn::up2_add_rows(s.d.luma()->gauss[1], s.frame, s.dst, 0, s.height); }},
      {"build_pyramid", false,
       [](scene& s) { BuildGauPyrs_u8(s.d.luma(), &s.frame, s.d.luma()->gauss, 4); }},
      {"fill_border", false,
       [](scene& s) { FillExpandPixels(s.d.luma()->out_whole, vorn::kBorder); }},
      {"pre_mask", false, [](scene& s) { pre_mask(&s.frame, &s.mask, s.width, s.height, 190); }},
      window("nlm_3x3", 3),
      window("nlm_5x5", 5),
      window("nlm_7x7", 7),
      blocks("blocks_3x3", 3),
      blocks("blocks_5x5", 5),
      blocks("blocks_7x7", 7),
      {"split_uv", true,
       [](scene& s) {
         split_UV_thread(s.d.chroma(), s.frame.plane[1], s.plane(2)->plane[0], s.plane(4)->plane[0],
                         s.width, s.height / 2);
       }},
      {"split_uv_saturation", true,
       [](scene& s) {
         split_UV_saturation_thread(s.d.chroma(), s.frame.plane[1], s.plane(2)->plane[0],
                                    s.plane(4)->plane[0], 5, s.width, s.height / 2);
       }},
      {"merge_uv", true,
       [](scene& s) {
         mergeUV_thread(s.d.chroma(), s.dst.plane[1], s.plane(2)->plane[0], s.plane(4)->plane[0],
                        s.width, s.height / 2);
       }},
      {"guide_down2", true, [](scene& s) { pyramid_down2(s.d.chroma(), &s.frame, s.plane(0)); }},
      {"down_yuv", true,
       [](scene& s) {
         pyramid_down_yuv(s.d.chroma(), s.plane(0), s.plane(1), s.plane(2), s.plane(3), s.plane(4),
                          s.plane(5));
       }},
      filter("chroma_hor_r18s2", 1, 18, true),
      filter("chroma_ver_r18s2", 1, 18, false),
      filter("chroma_hor_r3s2", 0, 3, true),
      filter("chroma_ver_r3s2", 0, 3, false),
      {"up2_merge", true,
       [](scene& s) {
         gaussin3x3_up2_merge1_thread(s.d.chroma(), s.plane(3), s.plane(10), s.plane(6), s.plane(5),
                                      s.plane(12), s.plane(8));
       }},
      {"up2_planes", true,
       [](scene& s) { pyramid_up2(s.d.chroma(), s.plane(3), s.plane(6), s.plane(5), s.plane(8)); }},
      // What one stage costs when there is nothing to do in it: queue, wake, barrier.
      {"empty", true,
       [](scene& s) {
         empty_job jobs[vorn::kSlices];
         for (empty_job& job : jobs) job = {0, 0, s.d.handle()->pool};
         vorn::run_jobs(s.d.handle()->pool, empty_process, jobs);
       }},
  };
  return all;
}

}  // namespace bench
