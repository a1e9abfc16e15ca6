// Longer than other files: the steps of the plain and of the fine mode work on one frame and share
// most of what they do to it.
#include "cnr/cnr_driver.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <utility>

#include "base/dump.h"
#include "base/log.h"
#include "base/stage_times.h"
#include "cnr/chroma_noise.h"
#include "cnr/hor_ver.h"
#include "cnr/uv_split.h"
#include "pyramid/detail.h"
#include "pyramid/down2.h"
#include "pyramid/down_yuv.h"
#include "pyramid/up2.h"
#include "pyramid/up_chroma.h"
#include "runtime/arithmetic.h"
#include "runtime/stage.h"

namespace {

using vorn::chroma_level;
using vorn::chroma_plane;

// One frame under way, and its stages in the order in which they run.
struct chroma_frame {
  cnr_handle_t* cnr;
  const _tag_uni_image& src;
  const _tag_uni_image& dst;
  _tag_cnr_param* param;
  chroma_level fine, coarse;
  vorn::stage_times stages;

  bool luma_in_dst;      // filtered
  bool keep_src;         // else luma in dst is copied into src
  bool to_pairs;         // level 0 goes into dst's pairs as it is filtered
  bool unsplit = false;  // and comes from src's: nothing else reads its planes

  void split();
  int take_luma() const;
  void halve(const char* name);
  void filter(const chroma_level& level, _tag_uni_image* out_u, _tag_uni_image* out_v,
              const char* across, const char* along, int number);
  void filter_finest(const char* across, const char* along);
  bool coarse_level_changes() const;
  void skip_coarse_level();
  void add_coarse_change();
  unsigned char* pairs_of_dst() const;
  void merge();

  void filter_both_levels();
  void filter_coarse_level();
  void filter_fine_level();

  int take_out_blotches(int range_factor);
  void filter_both_ways();
  void filter_finely();
  void filter_planes(vorn::plane_filter filter, denoise_handle_t* owner, int strength);
};

// For the log line of a step that another one does, or none: with the time that nothing takes.
int nothing() {
  return 0;
}

// The source's U,V pairs into the planes of level 0, its luma into their guide.
void chroma_frame::split() {
  const int gain = param->saturation, width = src.width, rows = src.height / 2;
  unsigned char *const pairs = chroma_plane(src), *const u = fine.u->plane[0],
                       *const v = fine.v->plane[0];
  unsplit = to_pairs && gain == 0 &&
            (param->scale == 0 || (param->scale == 2 && !coarse_level_changes()));
  stages.run(gain ? "splitUV saturation" : "splitUV", 0, [=] {
    if (unsplit) return nothing();
    return gain ? split_UV_saturation_thread(cnr, pairs, u, v, gain, width, rows)
                : split_UV_thread(cnr, pairs, u, v, width, rows);
  });
  stages.run("pyramid_down2", 0,
             [=] { return luma_in_dst ? take_luma() : vorn::make_guide(cnr, src); });
}

// dst's luma into src, unless that is kept, and, halved, into the guide, a few rows at a time.
int chroma_frame::take_luma() const {
  const unsigned char* const from = dst.plane[0];
  unsigned char* const to = src.plane[0];
  const _tag_uni_image& guide = *fine.guide;
  const ptrdiff_t stride = src.width;
  return vorn::run_rows(cnr->pool, guide.height, 1, 9 * guide.width, [=](int begin, int end) {
    constexpr int kRows = 8;
    for (int y = begin; y < end; y += kRows) {
      const int until = std::min(y + kRows, end);
      const int last = until < guide.height ? 2 * until : src.height;
      if (!keep_src)
        std::memcpy(to + 2 * y * stride, from + 2 * y * stride,
                    static_cast<size_t>((last - 2 * y) * stride));
      vorn::down2_rows(from, src.height, src.width, guide.plane[0], guide.width, guide.width, y,
                       until);
    }
  });
}

void chroma_frame::halve(const char* name) {
  stages.run(name, 0, [this] { return vorn::halve_chroma(cnr); });
}

// A level across its rows and along its columns, into out_u and out_v.
void chroma_frame::filter(const chroma_level& level, _tag_uni_image* out_u, _tag_uni_image* out_v,
                          const char* across, const char* along, int number) {
  stages.run(across, number, [&] {
    return reduce_color_noise_hor_thread(cnr, level.guide, level.u, level.v, level.across_u,
                                         level.across_v, param);
  });
  stages.run(along, number, [&] {
    return reduce_color_noise_ver_thread(cnr, level.guide, level.across_u, level.across_v, out_u,
                                         out_v, param);
  });
}

// Without taps the coarse passes copy: a quotient is the sample plus less than one of dither. Their
// change is then 128 everywhere and adds nothing. Only for sizes at which the enlarging takes no
// sample from beyond the coarse planes.
bool chroma_frame::coarse_level_changes() const {
  const bool taps = param->smooth_radius >= 1 && param->smooth_step >= 1;
  return taps || fine.u->width % 2 != 0 || fine.u->height % 2 != 0;
}

// Its lines stand in the log all the same.
void chroma_frame::skip_coarse_level() {
  stages.run("pyramid_down_yuv %d", 0, nothing);
  stages.run("reduce_color_noise_hor %d", 1, nothing);
  stages.run("reduce_color_noise_ver %d", 1, nothing);
  stages.run("ImgSubImg_add128_u8 %d", 1, nothing);
  stages.run("gaussin3x3_up2_merge UV %d", 1, nothing);
}

// Level 0 plus what the filters changed on level 1.
void chroma_frame::add_coarse_change() {
  stages.run("ImgSubImg_add128_u8 %d", 1, [this] {
    ImgSubImg_add128_u8(coarse.change_u, coarse.u, coarse.change_u);
    ImgSubImg_add128_u8(coarse.change_v, coarse.v, coarse.change_v);
  });
  // Heights alone decide, whatever the widths.
  if (2 * coarse.change_u->height >= fine.change_u->height) {
    stages.run("gaussin3x3_up2_merge UV %d", 1, [this] {
      return vorn::up2_merge_stage(cnr->pool, *coarse.change_u, *fine.change_u, *fine.u,
                                   *coarse.change_v, *fine.change_v, *fine.v);
    });
    return;
  }
  stages.run("pyramid_up2 %d", 1, [this] {
    return gaussin3x3_up_odd(coarse.change_u, fine.change_u, coarse.change_v, fine.change_v);
  });
  stages.run("ImgAddDiff_sub128_u8 %d", 1, [this] {
    ImgAddDiff_sub128_u8(fine.u, fine.change_u, fine.u);
    ImgAddDiff_sub128_u8(fine.v, fine.change_v, fine.v);
  });
}

// Where dst's pairs stand, whatever dst's own record says of its size.
unsigned char* chroma_frame::pairs_of_dst() const {
  return chroma_plane(src) - src.plane[0] + dst.plane[0];
}

// Level 0 across and along, into dst's pairs.
void chroma_frame::filter_finest(const char* across, const char* along) {
  stages.run(across, 0, [&] {
    return unsplit ? vorn::split_and_filter_hor(cnr, chroma_plane(src), *fine.guide, *fine.u,
                                                *fine.v, *fine.across_u, *fine.across_v, *param)
                   : reduce_color_noise_hor_thread(cnr, fine.guide, fine.u, fine.v, fine.across_u,
                                                   fine.across_v, param);
  });
  stages.run(along, 0, [&] {
    return vorn::filter_ver_to_pairs(cnr, *fine.guide, *fine.across_u, *fine.across_v, *fine.u,
                                     *fine.v, pairs_of_dst(), *param);
  });
}

void chroma_frame::merge() {
  const bool done = to_pairs && (param->scale == 0 || param->scale == 2);
  stages.run("mergeUV", 0, [=] {
    return done ? nothing()
                : mergeUV_thread(cnr, pairs_of_dst(), fine.u->plane[0], fine.v->plane[0], src.width,
                                 src.height / 2);
  });
}

// The window of level 0 in scale 2.
constexpr int kFineRadius = 3;
constexpr int kFineStep = 2;

// Scale 2.
void chroma_frame::filter_both_levels() {
  constexpr char kAcross[] = "reduce_color_noise_hor %d", kAlong[] = "reduce_color_noise_ver %d";
  if (coarse_level_changes()) {
    halve("pyramid_down_yuv %d");
    param->level_mode = -1;
    filter(coarse, coarse.change_u, coarse.change_v, kAcross, kAlong, 1);
    add_coarse_change();
  } else {
    skip_coarse_level();
  }
  if (stages.result() != 0) return;
  // Level 0 always runs with this small window; the caller's record keeps it.
  param->level_mode = 0;
  param->smooth_radius = kFineRadius;
  param->smooth_step = kFineStep;
  filter_finest(kAcross, kAlong);
}

// Scale 1.
void chroma_frame::filter_coarse_level() {
  param->level_mode = -1;
  halve("pyramid_down_yuv");
  filter(coarse, coarse.u, coarse.v, "reduce_color_noise_hor_thread",
         "reduce_color_noise_ver_thread", 0);
  stages.run("pyramid_up2", 0,
             [this] { return vorn::up_stage(cnr->pool, *coarse.u, *fine.u, *coarse.v, *fine.v); });
}

// Scale 0.
void chroma_frame::filter_fine_level() {
  param->level_mode = -1;
  filter_finest("reduce_color_noise_hor", "reduce_color_noise_ver");
}

// ---- fine mode

// The share of the tuning's range factor, in 1/256, that takes out coarse blotches. Measured on
// photographs: noise without correlation wants little more than a tenth, that of camera pipelines
// twice to three times as much.
int blotch_share(int coarseness) {
  constexpr int kLeast = 38, kMost = 102, kSlope = 77;
  return std::clamp(kLeast + (coarseness - vorn::kFineGrained) * kSlope / 256, kLeast, kMost);
}

// A pass over level 1 before the tuning's own: a wide window in which only much the same colours
// count. Leaves level 0 in place of the source.
int chroma_frame::take_out_blotches(int range_factor) {
  halve("pyramid_down_yuv %d");
  int coarseness = 0;
  stages.run("chroma_coarseness", 0, [&] {
    coarseness = vorn::chroma_coarseness(*fine.guide, {*fine.u, *fine.v}, {*coarse.u, *coarse.v});
    return 0;
  });
  const float inverse_share = 256.0f / static_cast<float>(blotch_share(coarseness));
  _tag_cnr_param blotches = *param;
  vorn::set_range_coefficient(&blotches, inverse_share * inverse_share, range_factor);
  blotches.smooth_radius = 8;
  blotches.smooth_step = 2;
  blotches.color_edge_u = 14;
  blotches.color_edge_v = 3;
  blotches.level_mode = 0;
  _tag_cnr_param* const own = param;
  param = &blotches;
  filter(coarse, coarse.change_u, coarse.change_v, "reduce_color_noise_hor %d",
         "reduce_color_noise_ver %d", 1);
  param = own;
  add_coarse_change();
  return coarseness;
}

// Level 0 across and along, and along and across; the mean of both rounded down, which takes back
// what enlarging the coarse changes adds.
void chroma_frame::filter_both_ways() {
  constexpr char kAcross[] = "reduce_color_noise_hor %d", kAlong[] = "reduce_color_noise_ver %d";
  filter(fine, fine.change_u, fine.change_v, kAcross, kAlong, 0);
  stages.run(kAlong, 0, [this] {
    return reduce_color_noise_ver_thread(cnr, fine.guide, fine.u, fine.v, fine.across_u,
                                         fine.across_v, param);
  });
  stages.run(kAcross, 0, [this] {
    return reduce_color_noise_hor_thread(cnr, fine.guide, fine.across_u, fine.across_v, fine.u,
                                         fine.v, param);
  });
  stages.run("mean of both", 0, [this] {
    const ptrdiff_t width = fine.u->width;
    return vorn::run_rows(cnr->pool, fine.u->height, 1, 6 * fine.u->width, [=](int begin, int end) {
      for (const auto& [plane, other] :
           {std::pair(fine.u, fine.change_u), std::pair(fine.v, fine.change_v)}) {
        unsigned char* const a = plane->plane[0];
        const unsigned char* const b = other->plane[0];
        for (ptrdiff_t i = begin * width; i < end * width; ++i)
          a[i] = static_cast<unsigned char>((a[i] + b[i]) >> 1);
      }
    });
  });
}

void chroma_frame::filter_finely() {
  const bool own_coarse_pass = param->smooth_radius >= 1 && param->smooth_step >= 1;
  if (param->scale == 1) return filter_coarse_level();
  if (param->scale == 2 && own_coarse_pass) {
    halve("pyramid_down_yuv %d");
    param->level_mode = -1;
    filter(coarse, coarse.change_u, coarse.change_v, "reduce_color_noise_hor %d",
           "reduce_color_noise_ver %d", 1);
    add_coarse_change();
  }
  param->level_mode = 0;
  if (param->scale == 2) {
    param->smooth_radius = kFineRadius;
    param->smooth_step = kFineStep;
  }
  filter_both_ways();
}

// The strength of the filter of single planes. Measured on photographs behind the passes above:
// white noise wants 12 times the root of the range factor, that of camera pipelines, whose grain is
// coarser than the filter's blocks see, half as much.
int plane_strength(int range_factor, int coarseness) {
  constexpr int kWhole = 256, kLeast = 128, kSlope = 136;
  if (range_factor < 1) return 0;
  const int share =
      std::clamp(kWhole - (coarseness - vorn::kFineGrained) * kSlope / 256, kLeast, kWhole);
  return static_cast<int>(12 * std::sqrt(static_cast<double>(range_factor))) * share / kWhole;
}

// Each plane of level 0 by itself, into the place of its change.
void chroma_frame::filter_planes(vorn::plane_filter filter, denoise_handle_t* owner, int strength) {
  stages.run("chroma planes", 0, [&] {
    std::swap(fine.u, fine.change_u);
    std::swap(fine.v, fine.change_v);
    const int result = filter(owner, fine.change_u, fine.u, strength);
    return result ? result : filter(owner, fine.change_v, fine.v, strength);
  });
}

// The radius rounded towards zero to a multiple of the step; 0 for a step of 0.
int radius_in_steps(int radius, int step) {
  if (step == 0) return 0;
  // 64 bits: the most negative radius over a step of -1 does not fit into 32.
  const int64_t steps = static_cast<int64_t>(radius) / step;
  return static_cast<int>(static_cast<uint32_t>(steps * step));
}

// The record that the stages read.
_tag_cnr_param record_of(const _tag_cnr_param_output& tuning) {
  _tag_cnr_param param{};
  vorn::set_range_coefficient(&param, 1.0f, tuning.range_factor);
  param.range_factor_sq = vorn::wrapping_product(tuning.range_factor, tuning.range_factor);
  param.smooth_step = tuning.step;
  param.smooth_radius = radius_in_steps(tuning.smooth_radius, tuning.step);
  param.scale = tuning.scale;
  param.saturation = tuning.saturation;
  param.color_edge_u = tuning.color_edge_u;
  param.color_edge_v = tuning.color_edge_v;
  return param;
}

constexpr char kDriver[] = "color_noise_reduce_process";  // in the log lines of its steps

// One frame; filter(&frame) is what stands between its split and its merge.
template <typename Filter>
int run_frame(denoise_handle_t* owner, const _tag_uni_image& src, const _tag_uni_image& dst,
              _tag_cnr_param* param, const Filter& filter, bool luma_in_dst, bool to_pairs) {
  if (vorn::cnr_check_frame(owner->cnr, src.width, src.height, param->scale) != 0) return -1;
  char timestamp[256] = {};
  getTimestamp_NR(timestamp, sizeof(timestamp));
  vorn::dump_frame(vorn::kChromaDumps.input, vorn::kChromaDumps.path, "cnr4_input", timestamp, src);
  const double begin = getTime();
  chroma_frame frame = {owner->cnr,
                        src,
                        dst,
                        param,
                        vorn::level_of(owner->cnr, 0),
                        vorn::level_of(owner->cnr, 1),
                        {owner->cnr->pool->sink, kDriver, ""},
                        luma_in_dst,
                        luma_in_dst && owner->keep_src,
                        to_pairs};
  frame.split();
  filter(&frame);
  frame.merge();
  if (frame.stages.result() != 0) return -1;  // a stage could not be queued; the pool logged why
  const double ms = getTime() - begin;
  VORN_LOG_AS(vorn::kLogDebug, kDriver, "CNR_process cost time: %.3f \n", ms);
  frame.stages.tell("CNR_process", ms);
  vorn::dump_frame(vorn::kChromaDumps.output, vorn::kChromaDumps.path, "cnr4_output", timestamp,
                   dst);
  return 0;
}

}  // namespace

namespace vorn {

chroma_level level_of(cnr_handle_t* handle, int level) {
  _tag_uni_image* const image = handle->images + level;  // level 0 the even ones, level 1 the odd
  return {image, image + 2, image + 4, image + 6, image + 8, image + 10, image + 12};
}

int make_guide(cnr_handle_t* handle, const _tag_uni_image& src) {
  const _tag_uni_image& guide = *level_of(handle, 0).guide;
  return down2_stage({guide.plane[0], src.plane[0], src.width, guide.width, src.height,
                      guide.height, 0, 0, handle->pool});
}

int halve_chroma(cnr_handle_t* handle) {
  const chroma_level fine = level_of(handle, 0), coarse = level_of(handle, 1);
  return down_yuv_stage({coarse.guide->plane[0], fine.guide->plane[0], coarse.u->plane[0],
                         fine.u->plane[0], coarse.v->plane[0], fine.v->plane[0], fine.guide->width,
                         coarse.guide->width, fine.guide->height, coarse.guide->height, 0, 0,
                         handle->pool});
}

void set_range_coefficient(_tag_cnr_param* param, float numerator, int range_factor) {
  const float factor = static_cast<float>(range_factor);
  for (float& entry : param->range_coef) entry = numerator / (factor * factor);
}

int cnr_least_side(int scale) {
  return scale == 1 || scale == 2 ? 4 : 2;  // luma samples of a pixel of the last level
}

int cnr_check_frame(const cnr_handle_t* handle, int width, int height, int scale) {
  const int least = cnr_least_side(scale);
  if (handle && width == handle->width && height == handle->height && width % 2 == 0 &&
      width >= least && height >= least)
    return 0;
  VORN_LOGE("chroma cannot run a %d x %d frame: even width, at least %d x %d, made for %d x %d\n",
            width, height, least, least, handle ? handle->width : 0, handle ? handle->height : 0);
  return -1;
}

}  // namespace vorn

namespace {

_tag_cnr_param told_record(const _tag_cnr_param_output& tuning) {
  const _tag_cnr_param param = record_of(tuning);
  VORN_LOG_AS(vorn::kLogDebug, "uni_color_noise_reduce_process",
              "scale = %d, smooth_radius = %d, smooth_step = %d , range_factor = %d \n",
              param.scale, param.smooth_radius, param.smooth_step, tuning.range_factor);
  return param;
}

void filter_by_scale(chroma_frame* frame) {
  if (frame->param->scale == 2) frame->filter_both_levels();
  if (frame->param->scale == 1) frame->filter_coarse_level();
  if (frame->param->scale == 0) frame->filter_fine_level();
}

}  // namespace

int uni_color_noise_reduce_process(void* handle, _tag_uni_image* src, _tag_uni_image* dst,
                                   _tag_cnr_param_output* tuning) {
  if (!tuning) return -1;
  _tag_cnr_param param = told_record(*tuning);
  return color_noise_reduce_process(handle, src, dst, &param);
}

int color_noise_reduce_process(void* handle, _tag_uni_image* src, _tag_uni_image* dst,
                               _tag_cnr_param* param) {
  if (!handle || !src || !dst || !param) return -1;
  return run_frame(static_cast<denoise_handle_t*>(handle), *src, *dst, param, filter_by_scale,
                   false, true);
}

int vorn::cnr_process_filtered(denoise_handle_t* handle, _tag_uni_image* src, _tag_uni_image* dst) {
  _tag_cnr_param param = told_record(handle->cnr_param);
  return run_frame(handle, *src, *dst, &param, filter_by_scale, true, true);
}

int vorn::cnr_process_fine(denoise_handle_t* handle, _tag_uni_image* src, _tag_uni_image* dst,
                           plane_filter filter) {
  // Half of what the tuning asks for; the other half is left to the filter of single planes.
  _tag_cnr_param_output tuning = handle->cnr_param;
  const int range_factor = tuning.range_factor;
  if (filter) tuning.range_factor -= range_factor / 2;
  _tag_cnr_param param = record_of(tuning);
  const auto filter_frame = [&](chroma_frame* frame) {
    if (tuning.scale < 0 || tuning.scale > 2) return;
    const _tag_uni_image& coarse = *frame->coarse.u;
    const int coarseness = coarse.width > 0 && coarse.height > 0
                               ? frame->take_out_blotches(tuning.range_factor)
                               : kFineGrained;
    frame->filter_finely();
    const int strength = plane_strength(range_factor, coarseness);
    if (filter && strength > 0) frame->filter_planes(filter, handle, strength);
  };
  return run_frame(handle, *src, *dst, &param, filter_frame, false, false);
}
