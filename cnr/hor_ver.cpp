#include "cnr/hor_ver.h"

#include <algorithm>
#include <cstring>

#include "cnr/kernels/chroma_kernels.h"
#include "cnr/kernels/chroma_rule.h"
#include "runtime/stage.h"

namespace {

using vorn::chroma_pixel;

enum class direction { horizontal, vertical };

// One pass over one level, as its rows read it. All planes are width x height without padding. A
// and B are U and V in the order that puts the smaller colour edge first.
struct chroma_pass {
  const uint8_t* guide;
  const uint8_t* src_a;
  const uint8_t* src_b;
  uint8_t* dst_a;
  uint8_t* dst_b;
  int width;
  int height;
  int radius;
  int step;
  int level_mode;
  vorn::chroma_weights weights;
};

// Fills a pass from any of the job records.
template <typename Job>
void describe(const Job& job, chroma_pass* pass) {
  const _tag_cnr_param& param = *job.param;
  const bool swapped = param.color_edge_u > param.color_edge_v;
  pass->guide = job.guide->plane[0];
  pass->src_a = (swapped ? job.src_v : job.src_u)->plane[0];
  pass->src_b = (swapped ? job.src_u : job.src_v)->plane[0];
  pass->dst_a = (swapped ? job.dst_v : job.dst_u)->plane[0];
  pass->dst_b = (swapped ? job.dst_u : job.dst_v)->plane[0];
  pass->width = job.dst_u->width;
  pass->height = job.dst_u->height;
  pass->radius = param.smooth_radius;
  pass->step = param.smooth_step;
  pass->level_mode = param.level_mode;
  vorn::make_chroma_weights(param.range_coef[0], std::min(param.color_edge_u, param.color_edge_v),
                            std::max(param.color_edge_u, param.color_edge_v), &pass->weights);
}

struct weighted_sums {
  int64_t weight;
  int64_t a;
  int64_t b;
};

// Sums over the taps of pixel (x, y), the centre entering with centre_weight.
weighted_sums sum_taps(const chroma_pass& pass, direction dir, int x, int y, int centre_weight) {
  const bool along_row = dir == direction::horizontal;
  const ptrdiff_t pitch = along_row ? 1 : pass.width;
  const ptrdiff_t at = static_cast<ptrdiff_t>(y) * pass.width + x;
  const vorn::tap_range taps = vorn::taps_at(
      along_row ? x : y, along_row ? pass.width : pass.height, pass.radius, pass.step);
  const chroma_pixel centre = {pass.guide[at], pass.src_a[at], pass.src_b[at]};
  const int grey_sq = vorn::grey_distance_sq(centre.u, centre.v);
  const int radial = vorn::radial_at(x, y, pass.width, pass.height);
  weighted_sums sums = {centre_weight, static_cast<int64_t>(centre_weight) * centre.u,
                        static_cast<int64_t>(centre_weight) * centre.v};
  for (int64_t t = taps.first; t <= taps.last; t += pass.step) {
    if (t == 0) continue;
    const ptrdiff_t from = at + t * pitch;
    const chroma_pixel tap = {pass.guide[from], pass.src_a[from], pass.src_b[from]};
    const int weight = pass.weights.weight[vorn::range_index(centre, tap, pass.weights.edge_a,
                                                             pass.weights.edge_b, grey_sq, radial)];
    sums.weight += weight;
    sums.a += weight * tap.u;
    sums.b += weight * tap.v;
  }
  return sums;
}

// The quotient as the plane stores it: above 255 is 255. It is negative only for level modes that
// the driver never sets; then its low 8 bits are stored.
uint8_t quotient(int64_t numerator, int64_t weight) {
  const int64_t q = numerator / weight;
  return static_cast<uint8_t>(q < 255 ? q : 255);
}

// The rule for one pixel. dither_index is the row's start plus x.
void filter_pixel(const chroma_pass& pass, direction dir, int x, int y, int64_t dither_index) {
  const weighted_sums sums = sum_taps(pass, dir, x, y, 256);
  const int64_t quarters =
      static_cast<int64_t>(vorn::dither_entry(dither_index)) + pass.level_mode + 2;
  const int64_t bias = sums.weight / 4 * quarters;
  const ptrdiff_t at = static_cast<ptrdiff_t>(y) * pass.width + x;
  pass.dst_a[at] = quotient(sums.a + bias, sums.weight);
  pass.dst_b[at] = quotient(sums.b + bias, sums.weight);
}

int64_t dither_start(const chroma_pass& pass, direction dir, int y) {
  return dir == direction::horizontal ? vorn::horizontal_dither_start(y, pass.level_mode)
                                      : vorn::vertical_dither_start(y, pass.level_mode);
}

void filter_by_rule(const chroma_pass& pass, direction dir, int y, int begin, int end) {
  const int64_t start = dither_start(pass, dir, y);
  for (int x = begin; x < end; ++x) filter_pixel(pass, dir, x, y, start + x);
}

// ---- The walk over the fast kernels. Lines along the pass's axis share their taps, so:
//
//      vertical      every row is one span
//      horizontal    [ R border | one span per row      | R border ]
//                    the borders have taps of their own in every column: blocks of rows are turned
//                    on their side, and each column becomes a span

constexpr int kSegment = 1024;      // longest span, but for a remainder below kStripRows
constexpr int kStripRows = 64;      // rows of a block that is turned on its side
constexpr int kStripColumns = 128;  // two borders of radius 64
static_assert(vorn::kDitherSlack >= kSegment + kStripRows, "a span's dither is contiguous");

// Whether the kernels can run this pass over lines of `length` pixels.
bool fits_kernels(const chroma_pass& pass, int length) {
  if (!vorn::edges_fit_kernels(pass.weights.edge_a, pass.weights.edge_b)) return false;
  if (pass.level_mode != -1 && pass.level_mode != 0) return false;
  if (pass.radius < 1 || pass.step < 1) return true;
  const int64_t reach = std::min<int64_t>(2 * static_cast<int64_t>(pass.radius), length);
  return reach / pass.step + 1 <= vorn::kMaxFastTaps;
}

// Byte offsets from a pixel to its taps. Returns their number, at most kMaxFastTaps.
int list_taps(const chroma_pass& pass, int position, int length, ptrdiff_t pitch,
              ptrdiff_t (&offsets)[vorn::kMaxFastTaps]) {
  const vorn::tap_range taps = vorn::taps_at(position, length, pass.radius, pass.step);
  int count = 0;
  for (int64_t t = taps.first; t <= taps.last; t += pass.step)
    if (t != 0) offsets[count++] = t * pitch;
  return count;
}

// Radial factors of `count` pixels along an axis from `begin` on. The factor changes with the
// distance from the centre at most four times on either side: filled by runs.
void fill_radial(int16_t* out, int begin, int count, int centre, int64_t across, int64_t reach) {
  for (int i = 0; i < count;) {
    const int at = begin + i;
    const int64_t distance = std::abs(at - centre) + across;
    const int k = reach ? static_cast<int>(std::min<int64_t>(4 * distance / reach, 4)) : 0;
    int64_t last;  // of the run
    if (at < centre) {
      const int64_t nearest = (k * reach + 3) / 4 - across;
      last = centre - std::max<int64_t>(nearest, 0);
    } else {
      last = k == 4 || reach == 0 ? INT32_MAX : centre + ((k + 1) * reach + 3) / 4 - 1 - across;
    }
    const int run = static_cast<int>(std::min<int64_t>(last - at + 1, count - i));
    std::fill_n(out + i, run, static_cast<int16_t>(std::min(vorn::kRadial[k] << 8, 32767)));
    i += run;
  }
}

// Columns begin..end-1 of row y, which share the span's taps; at least kMinSpan of them.
void filter_line(const chroma_pass& pass, direction dir, int y, int begin, int end,
                 const ptrdiff_t* taps, int tap_count) {
  alignas(64) int16_t radial[kSegment + kStripRows];
  const int64_t start = dither_start(pass, dir, y);
  const int centre_x = pass.width >> 1;
  const int centre_y = pass.height >> 1;
  const auto kernel = vorn::active_chroma_kernels().filter;
  for (int x = begin; x < end;) {
    const int count = end - x > kSegment + kStripRows ? kSegment : end - x;
    fill_radial(radial, x, count, centre_x, std::abs(y - centre_y),
                static_cast<int64_t>(centre_x) + centre_y);
    const ptrdiff_t at = static_cast<ptrdiff_t>(y) * pass.width + x;
    kernel({pass.guide + at, pass.src_a + at, pass.src_b + at, pass.dst_a + at, pass.dst_b + at,
            taps, tap_count, radial,
            vorn::chroma_dither().dither + ((start + x) & (vorn::kDitherEntries - 1)),
            pass.level_mode + 2, count},
           pass.weights);
    x += count;
  }
}

// Bytes of an 8 x 8 tile, one word per line, mirrored about the diagonal. Little-endian.
void transpose_tile(uint64_t (&line)[8]) {
  const auto exchange = [](uint64_t& a, uint64_t& b, int shift, uint64_t mask) {
    const uint64_t t = ((a >> shift) ^ b) & mask;
    b ^= t;
    a ^= t << shift;
  };
  for (int i = 0; i < 4; ++i) exchange(line[i], line[i + 4], 32, 0x00000000FFFFFFFFu);
  for (int i : {0, 1, 4, 5}) exchange(line[i], line[i + 2], 16, 0x0000FFFF0000FFFFu);
  for (int i : {0, 2, 4, 6}) exchange(line[i], line[i + 1], 8, 0x00FF00FF00FF00FFu);
}

// A block on its side: column c of the block is line c, kStripRows bytes apart.
using strip_plane = uint8_t[kStripColumns * kStripRows];

// Lines of `columns` columns out of `rows` rows; `lanes` rows, a multiple of 8, are filled, those
// past the last with the last row.
void turn(const uint8_t* const (&row)[kStripRows], int lanes, int columns, strip_plane& out) {
  if (columns < 8) {
    for (int c = 0; c < columns; ++c)
      for (int r = 0; r < lanes; ++r) out[c * kStripRows + r] = row[r][c];
    return;
  }
  for (int r = 0; r < lanes; r += 8) {
    for (int c = 0; c < columns; c += 8) {
      if (c > columns - 8) c = columns - 8;
      uint64_t line[8];
      for (int i = 0; i < 8; ++i) std::memcpy(&line[i], row[r + i] + c, 8);
      transpose_tile(line);
      for (int i = 0; i < 8; ++i) std::memcpy(&out[(c + i) * kStripRows + r], &line[i], 8);
    }
  }
}

// The way back, into rows of a plane.
void turn_back(const strip_plane& in, int rows, int columns, uint8_t* out, int stride) {
  if (columns < 8) {
    for (int r = 0; r < rows; ++r)
      for (int c = 0; c < columns; ++c)
        out[static_cast<ptrdiff_t>(r) * stride + c] = in[c * kStripRows + r];
    return;
  }
  for (int r = 0; r < rows; r += 8) {
    for (int c = 0; c < columns; c += 8) {
      if (c > columns - 8) c = columns - 8;
      uint64_t line[8];
      for (int i = 0; i < 8; ++i) std::memcpy(&line[i], &in[(c + i) * kStripRows + r], 8);
      transpose_tile(line);
      for (int i = 0; i < 8 && r + i < rows; ++i)
        std::memcpy(out + static_cast<ptrdiff_t>(r + i) * stride + c, &line[i], 8);
    }
  }
}

// Horizontal pass over columns begin..end-1 of some rows, which reach columns from..to-1; at most
// kStripColumns of those.
void filter_strip(const chroma_pass& pass, int row_begin, int row_end, int begin, int end, int from,
                  int to) {
  alignas(64) strip_plane guide, src_a, src_b, dither, dst_a, dst_b;
  alignas(64) int16_t radial[kStripRows];
  ptrdiff_t taps[vorn::kMaxFastTaps];
  const int centre_x = pass.width >> 1;
  const int centre_y = pass.height >> 1;
  const auto kernel = vorn::active_chroma_kernels().filter;
  for (int y = row_begin; y < row_end; y += kStripRows) {
    const int rows = std::min(kStripRows, row_end - y);
    const int lanes = (rows + vorn::kMinSpan - 1) / vorn::kMinSpan * vorn::kMinSpan;
    const uint8_t* row[kStripRows];
    const auto turn_plane = [&](const uint8_t* plane, strip_plane& out) {
      for (int r = 0; r < lanes; ++r)
        row[r] = plane + static_cast<ptrdiff_t>(y + std::min(r, rows - 1)) * pass.width + from;
      turn(row, lanes, to - from, out);
    };
    turn_plane(pass.guide, guide);
    turn_plane(pass.src_a, src_a);
    turn_plane(pass.src_b, src_b);
    for (int r = 0; r < lanes; ++r) {
      const int64_t start =
          dither_start(pass, direction::horizontal, y + std::min(r, rows - 1)) + begin;
      row[r] = reinterpret_cast<const uint8_t*>(vorn::chroma_dither().dither) +
               (start & (vorn::kDitherEntries - 1));
    }
    turn(row, lanes, end - begin, dither);
    for (int x = begin; x < end; ++x) {
      const int tap_count = list_taps(pass, x, pass.width, kStripRows, taps);
      fill_radial(radial, y, lanes, centre_y, std::abs(x - centre_x),
                  static_cast<int64_t>(centre_x) + centre_y);
      const int in = (x - from) * kStripRows;
      const int out = (x - begin) * kStripRows;
      kernel({guide + in, src_a + in, src_b + in, dst_a + out, dst_b + out, taps, tap_count, radial,
              reinterpret_cast<const int8_t*>(dither) + out, pass.level_mode + 2, lanes},
             pass.weights);
    }
    const ptrdiff_t at = static_cast<ptrdiff_t>(y) * pass.width + begin;
    turn_back(dst_a, rows, end - begin, pass.dst_a + at, pass.width);
    turn_back(dst_b, rows, end - begin, pass.dst_b + at, pass.width);
  }
}

void filter_columns_fast(const chroma_pass& pass, int row_begin, int row_end) {
  const int width = pass.width;
  if (width <= kStripColumns) return filter_strip(pass, row_begin, row_end, 0, width, 0, width);
  const int radius = pass.step < 1 ? 0 : std::min(std::max(pass.radius, 0), width);
  if (radius > kStripColumns / 2 || width - 2 * radius < vorn::kMinSpan) {
    // Wide windows: the borders by the rule.
    const int inner_end = width - radius;
    for (int y = row_begin; y < row_end; ++y) {
      if (inner_end - radius < vorn::kMinSpan) {
        filter_by_rule(pass, direction::horizontal, y, 0, width);
        continue;
      }
      ptrdiff_t taps[vorn::kMaxFastTaps];
      const int count = list_taps(pass, radius, width, 1, taps);
      filter_by_rule(pass, direction::horizontal, y, 0, radius);
      filter_line(pass, direction::horizontal, y, radius, inner_end, taps, count);
      filter_by_rule(pass, direction::horizontal, y, inner_end, width);
    }
    return;
  }
  ptrdiff_t taps[vorn::kMaxFastTaps];
  const int tap_count = list_taps(pass, radius, width, 1, taps);
  for (int y = row_begin; y < row_end; ++y)
    filter_line(pass, direction::horizontal, y, radius, width - radius, taps, tap_count);
  if (radius == 0) return;
  filter_strip(pass, row_begin, row_end, 0, radius, 0, 2 * radius);
  filter_strip(pass, row_begin, row_end, width - radius, width, width - 2 * radius, width);
}

void filter_rows(const chroma_pass& pass, direction dir, int row_begin, int row_end) {
  const bool along_row = dir == direction::horizontal;
  const bool fast = vorn::active_kernel_form() != vorn::kernel_form::scalar &&
                    fits_kernels(pass, along_row ? pass.width : pass.height);
  if (fast && along_row) {
    filter_columns_fast(pass, row_begin, row_end);
  } else if (fast && pass.width >= vorn::kMinSpan) {
    ptrdiff_t taps[vorn::kMaxFastTaps];
    for (int y = row_begin; y < row_end; ++y) {
      const int count = list_taps(pass, y, pass.height, pass.width, taps);
      filter_line(pass, dir, y, 0, pass.width, taps, count);
    }
  } else {
    for (int y = row_begin; y < row_end; ++y) filter_by_rule(pass, dir, y, 0, pass.width);
  }
}

void* filter_process(void* job, direction dir) {
  const auto& slice = *static_cast<const hor_ver_job*>(job);
  if (slice.row_begin < slice.row_end) {
    chroma_pass pass;
    describe(slice, &pass);
    filter_rows(pass, dir, slice.row_begin, slice.row_end);
  }
  one_thread_done(slice.pool);
  return nullptr;
}

// One pass over a whole level on the pool. Rows do not depend on each other, so any cut gives the
// same.
int filter_level(const hor_ver_job& level, direction dir) {
  chroma_pass pass;
  describe(level, &pass);
  vorn::row_queue rows(pass.height, vorn::kMinSpan);
  return vorn::run_shared(level.pool, [&] {
    for (int begin, end; rows.next(&begin, &end);) filter_rows(pass, dir, begin, end);
  });
}

}  // namespace

void* reduce_color_noise_hor_process(void* job) {
  return filter_process(job, direction::horizontal);
}

void* reduce_color_noise_ver_process(void* job) {
  return filter_process(job, direction::vertical);
}

void* reduce_color_noise_vermerge_process(void* job) {
  const auto& slice = *static_cast<const vermerge_job*>(job);
  if (slice.row_begin < slice.row_end) {
    chroma_pass pass;
    describe(slice, &pass);
    const bool swapped = pass.src_a != slice.src_u->plane[0];
    for (int y = slice.row_begin; y < slice.row_end; ++y) {
      uint8_t* out = slice.dst_uv + static_cast<ptrdiff_t>(y) * pass.width * 2;
      for (int x = 0; x < pass.width; ++x) {
        const weighted_sums sums =
            sum_taps(pass, direction::vertical, x, y, vorn::kFineCentreWeight);
        out[2 * x + swapped] = vorn::fine_quotient(sums.a, sums.weight);
        out[2 * x + !swapped] = vorn::fine_quotient(sums.b, sums.weight);
      }
    }
  }
  one_thread_done(slice.pool);
  return nullptr;
}

int reduce_color_noise_hor_thread(cnr_handle_t* handle, _tag_uni_image* guide,
                                  _tag_uni_image* src_u, _tag_uni_image* src_v,
                                  _tag_uni_image* dst_u, _tag_uni_image* dst_v,
                                  _tag_cnr_param* param) {
  return filter_level({guide, src_u, src_v, dst_u, dst_v, param, 0, 0, handle->pool, 0},
                      direction::horizontal);
}

int reduce_color_noise_ver_thread(cnr_handle_t* handle, _tag_uni_image* guide,
                                  _tag_uni_image* src_u, _tag_uni_image* src_v,
                                  _tag_uni_image* dst_u, _tag_uni_image* dst_v,
                                  _tag_cnr_param* param) {
  return filter_level({guide, src_u, src_v, dst_u, dst_v, param, 0, 0, handle->pool, 0},
                      direction::vertical);
}

int reduce_color_noise_vermerge_thread(cnr_handle_t* handle, _tag_uni_image* guide,
                                       _tag_uni_image* src_u, _tag_uni_image* src_v,
                                       _tag_uni_image* dst_u, _tag_uni_image* dst_v,
                                       _tag_cnr_param* param, unsigned char* dst_uv) {
  const vermerge_job prototype{guide, src_u, src_v,        dst_u, dst_v, param,
                               0,     0,     handle->pool, 0,     dst_uv};
  vermerge_job jobs[vorn::kSlices];
  vorn::cut_rows(jobs, prototype, dst_u->height / vorn::kSlices, dst_u->height);
  for (int i = 0; i < vorn::kSlices; ++i) jobs[i].job_index = i;
  return vorn::run_jobs(handle->pool, reduce_color_noise_vermerge_process, jobs);
}
