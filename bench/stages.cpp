// The stages of one 12-megapixel frame, each by itself on the buffers of a real handle.
#include <cstring>

#include "bench/measure.h"
#include "bench/workload.h"
#include "cnr/hor_ver.h"
#include "cnr/uv_split.h"
#include "pyramid/detail.h"
#include "pyramid/down2.h"
#include "pyramid/down_yuv.h"
#include "pyramid/up2.h"
#include "pyramid/up_chroma.h"
#include "runtime/image.h"
#include "runtime/stage.h"
#include "ynr/pre_mask.h"
#include "ynr/window.h"
#include "ynr/ynr_driver.h"

namespace bench {

using vorn::kernel_form;

namespace {

constexpr int kWidth = 4000, kHeight = 3000;
constexpr double kPixels = 1.0 * kWidth * kHeight;
constexpr size_t kLumaBytes = static_cast<size_t>(kWidth) * kHeight;

// One handle with its frame, mask and chroma tuning. Its planes hold what the stages before the one
// measured would leave there.
struct scene {
  denoiser d;
  std::vector<uint8_t> bytes = noisy_frame(kWidth, kHeight), result = bytes, details = bytes;
  _tag_uni_image frame = frame_image(bytes, kWidth, kHeight);
  _tag_uni_image dst = frame_image(result, kWidth, kHeight);
  _tag_uni_image detail = frame_image(details, kWidth, kHeight);
  _tag_uni_image mask{};
  _tag_cnr_param chroma{};

  explicit scene(int workers) : d(kWidth, kHeight, workers) {
    create_uni_image(&mask, kWidth / 4, kHeight / 4, VORN_IMAGE_GRAY);
    pre_mask(&frame, &mask, kWidth, kHeight, 190);
    BuildGauPyrs_u8(d.luma(), &frame, d.luma()->gauss, 4);
    _tag_uni_image* level0 = d.luma()->out;
    copy_uni_image(level0, &frame);
    FillExpandPixels(d.luma()->out_whole, vorn::kBorder);
    _tag_uni_image* planes = d.chroma()->images;
    pyramid_down2(d.chroma(), &frame, planes);
    split_UV_thread(d.chroma(), frame.plane[1], planes[2].plane[0], planes[4].plane[0], kWidth,
                    kHeight / 2);
    pyramid_down_yuv(d.chroma(), planes, planes + 1, planes + 2, planes + 3, planes + 4,
                     planes + 5);
    for (float& c : chroma.range_coef) c = 1.0f / 400;
    chroma.range_factor_sq = 400;
    chroma.color_edge_u = 8;
    chroma.color_edge_v = 9;
    chroma.smooth_step = 2;
  }
  ~scene() { destroy_uni_image(&mask); }

  _tag_uni_image* plane(int i) { return d.chroma()->images + i; }
};

// Stages that run on the pool: on one worker and on four.
void pooled(const std::string& name, const std::function<void(scene&)>& run) {
  for (int workers : {1, 4})
    for_each_form("stage/" + name + "/" + std::to_string(workers), 0.1,
                  [run, workers](benchmark::State& state, kernel_form) {
                    scene s(workers);
                    measure(state, kPixels, kLumaBytes, [&] { run(s); });
                  });
}

// Steps of the caller's thread.
void single(const std::string& name, const std::function<void(scene&)>& run) {
  for_each_form("stage/" + name, 0.1, [run](benchmark::State& state, kernel_form) {
    scene s(1);
    measure(state, kPixels, kLumaBytes, [&] { run(s); });
  });
}

void filter(const std::string& name, int level, int radius, bool horizontal) {
  pooled(name, [=](scene& s) {
    s.chroma.smooth_radius = radius;
    s.chroma.level_mode = level ? -1 : 0;
    const auto stage = horizontal ? reduce_color_noise_hor_thread : reduce_color_noise_ver_thread;
    stage(s.d.chroma(), s.plane(level), s.plane(2 + level), s.plane(4 + level), s.plane(6 + level),
          s.plane(8 + level), &s.chroma);
  });
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

void register_stages() {
  single("down2",
         [](scene& s) { gaussin3x3_down2_ynr(s.d.luma(), &s.frame, s.d.luma()->gauss + 1); });
  single("up2", [](scene& s) { gaussin3x3_up2(s.d.luma()->gauss + 1, &s.dst); });
  single("detail_subtract", [](scene& s) { ImgSubImg_add128_u8(&s.frame, &s.detail, &s.dst); });
  single("detail_add", [](scene& s) { ImgAddDiff_sub128_u8(&s.frame, &s.detail, &s.dst); });
  single("up2_add_fused",
         [](scene& s) { vorn::up2_add_rows(s.d.luma()->gauss[1], s.frame, s.dst, 0, kHeight); });
  single("build_pyramid",
         [](scene& s) { BuildGauPyrs_u8(s.d.luma(), &s.frame, s.d.luma()->gauss, 4); });
  single("fill_border", [](scene& s) { FillExpandPixels(s.d.luma()->out_whole, vorn::kBorder); });
  single("pre_mask", [](scene& s) { pre_mask(&s.frame, &s.mask, kWidth, kHeight, 190); });
  for (int radius : {3, 5, 7})
    pooled("nlm_" + std::to_string(radius) + "x" + std::to_string(radius), [radius](scene& s) {
      nlm_denoise_process(s.d.luma(), s.d.luma()->out, &s.dst, &s.mask, 45, radius);
    });

  pooled("split_uv", [](scene& s) {
    split_UV_thread(s.d.chroma(), s.frame.plane[1], s.plane(2)->plane[0], s.plane(4)->plane[0],
                    kWidth, kHeight / 2);
  });
  pooled("split_uv_saturation", [](scene& s) {
    split_UV_saturation_thread(s.d.chroma(), s.frame.plane[1], s.plane(2)->plane[0],
                               s.plane(4)->plane[0], 5, kWidth, kHeight / 2);
  });
  pooled("merge_uv", [](scene& s) {
    mergeUV_thread(s.d.chroma(), s.dst.plane[1], s.plane(2)->plane[0], s.plane(4)->plane[0], kWidth,
                   kHeight / 2);
  });
  pooled("guide_down2", [](scene& s) { pyramid_down2(s.d.chroma(), &s.frame, s.plane(0)); });
  pooled("down_yuv", [](scene& s) {
    pyramid_down_yuv(s.d.chroma(), s.plane(0), s.plane(1), s.plane(2), s.plane(3), s.plane(4),
                     s.plane(5));
  });
  filter("chroma_hor_r18s2", 1, 18, true);
  filter("chroma_ver_r18s2", 1, 18, false);
  filter("chroma_hor_r3s2", 0, 3, true);
  filter("chroma_ver_r3s2", 0, 3, false);
  pooled("up2_merge", [](scene& s) {
    gaussin3x3_up2_merge1_thread(s.d.chroma(), s.plane(3), s.plane(10), s.plane(6), s.plane(5),
                                 s.plane(12), s.plane(8));
  });
  pooled("up2_planes", [](scene& s) {
    pyramid_up2(s.d.chroma(), s.plane(3), s.plane(6), s.plane(5), s.plane(8));
  });
  // What one stage costs when there is nothing to do in it: queue, wake, barrier.
  pooled("empty", [](scene& s) {
    empty_job jobs[vorn::kSlices];
    for (empty_job& job : jobs) job = {0, 0, s.d.handle()->pool};
    vorn::run_jobs(s.d.handle()->pool, empty_process, jobs);
  });
}

}  // namespace bench
