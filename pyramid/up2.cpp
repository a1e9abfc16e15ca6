#include "pyramid/up2.h"

#include <cstddef>
#include <cstring>

#include "pyramid/kernels/pyramid_kernels.h"
#include "runtime/stage.h"

namespace vorn {
namespace {

uint8_t* row_of(const _tag_uni_image& image, int y) {
  return image.plane[0] + static_cast<ptrdiff_t>(y) * image.stride[0];
}

}  // namespace

void up2_pair(const uint8_t* a, const uint8_t* b, uint8_t* even, uint8_t* odd, int width) {
  if (width < 1) return;
  const int last = width > 1 ? width - 2 : 0;  // the column that the last one repeats
  active_pyramid_kernels().up(a, b, even, odd, last + 1);
  even[width - 1] = even[last];
  odd[width - 1] = odd[last];
}

void up2_row(const uint8_t* a, const uint8_t* b, uint8_t* fine, int width) {
  if (!b) return up2_pair(a, a, fine, fine, width);
  for (int x = 0; x < width - 1; ++x) fine[x] = up_odd_row(a, b, x);
  if (width > 0) fine[width - 1] = width > 1 ? fine[width - 2] : up_odd_row(a, b, 0);
}

void up2_add_rows(const _tag_uni_image& detail, const _tag_uni_image& image,
                  const _tag_uni_image& out, int row_begin, int row_end) {
  const pyramid_kernels& kernels = active_pyramid_kernels();
  const int last = image.width - 1;
  // Rows from here on repeat the enlarged row above, which b == a does for a pair.
  const int closing = 2 * detail.height <= image.height ? 2 * detail.height - 2 : image.height;
  for (int y = row_begin; y < row_end; y += 2) {
    const uint8_t* a = row_of(detail, (y < closing ? y : closing) / 2);
    const bool alone = y + 1 >= row_end;  // an odd row count ends with half a pair
    const uint8_t* b = y < closing && !alone ? a + detail.stride[0] : a;
    const uint8_t *even = row_of(image, y), *odd = alone ? even : row_of(image, y + 1);
    uint8_t *out_even = row_of(out, y), *out_odd = alone ? out_even : row_of(out, y + 1);
    const uint8_t end_even = merge_detail(up_even_row(a, last - 1), even[last]);
    const uint8_t end_odd = merge_detail(up_odd_row(a, b, last - 1), odd[last]);
    if (alone)
      for (int x = 0; x < last; ++x) out_even[x] = merge_detail(up_even_row(a, x), even[x]);
    else
      kernels.up_merge(a, b, even, odd, out_even, out_odd, last);
    out_even[last] = end_even;
    out_odd[last] = end_odd;
  }
}

}  // namespace vorn

using vorn::row_of;

int gaussin3x3_up2(_tag_uni_image* small, _tag_uni_image* out) {
  const int height = out->height;
  const int closing = 2 * small->height - 1;  // first of the rows that repeat the one above
  for (int y = 0; y < height && y < 2 * small->height; y += 2) {
    const uint8_t* a = row_of(*small, y / 2);
    uint8_t* even = row_of(*out, y);
    // The odd row of the last coarse row would need one more; it is either outside the plane or
    // overwritten below.
    if (y + 1 >= height || y + 1 == closing)
      vorn::up2_row(a, nullptr, even, out->width);
    else
      vorn::up2_pair(a, a + small->stride[0], even, even + out->stride[0], out->width);
  }
  if (2 * small->height <= height)
    for (int y = closing > 1 ? closing : 1; y < height; ++y)
      std::memcpy(row_of(*out, y), row_of(*out, y - 1), static_cast<size_t>(out->stride[0]));
  return 0;
}

namespace {

// Row pairs row_begin, row_begin + 2, ... < row_end of up2_merge and, with `closes`, what follows
// on the pairs: the last two rows.
void up2_merge_rows(const _tag_uni_image& small, const _tag_uni_image& fine,
                    const _tag_uni_image& detail, const _tag_uni_image& result, int row_begin,
                    int row_end, bool closes) {
  const int width = fine.width, height = fine.height;
  // All planes share the fine stride.
  const auto row = [stride = fine.stride[0]](const _tag_uni_image& image, int y) {
    return image.plane[0] + static_cast<ptrdiff_t>(y) * stride;
  };
  const vorn::pyramid_kernels& kernels = vorn::active_pyramid_kernels();
  const int stepped = width > 0 ? (width - 1) & ~15 : 0;  // columns done sixteen at a time

  for (int y = row_begin; y < row_end; y += 2) {
    const uint8_t *a = row_of(small, y / 2), *b = a + small.stride[0];
    kernels.up_merge(a, b, row(detail, y), row(detail, y + 1), row(result, y), row(result, y + 1),
                     stepped);
    const int tail = width - 1 - stepped;
    if (tail > 0)
      kernels.up(a + stepped / 2, b + stepped / 2, row(fine, y) + stepped,
                 row(fine, y + 1) + stepped, tail);
    for (int k = 0; tail > 0 && k < 2; ++k) {
      const uint8_t *enlarged = row(fine, y + k), *bias = row(detail, y + k);
      uint8_t* merged = row(result, y + k);
      // Without a tail, column W-1 stays as it was: kept on purpose
      // (Up2.MergeLeavesLastColumnOfMultiplesOf16).
      const uint8_t end = vorn::merge_detail(enlarged[width - 2], bias[width - 1]);
      kernels.add(enlarged + stepped, bias + stepped, merged + stepped, tail);
      merged[width - 1] = end;
    }
  }
  if (!closes || width < 2) return;

  // The last two rows both take the enlarged row H-2. For an odd H the loop has merged that row
  // already; in place it is merged again here: kept on purpose
  // (Up2.MergeInPlaceTwiceForOddHeights).
  const int y = height - 2;
  uint8_t* enlarged = row(fine, y);
  const uint8_t* a = row_of(small, y / 2);
  if (y % 2)
    for (int x = 0; x < width - 1; ++x) enlarged[x] = vorn::up_odd_row(a, a + small.stride[0], x);
  else
    kernels.up(a, a, enlarged, enlarged, width - 1);
  const uint8_t last = enlarged[width - 2];
  for (int k = 1; k >= 0; --k) {  // row H-2 last: it may be the enlarged row itself
    const uint8_t* bias = row(detail, y + k);
    uint8_t* merged = row(result, y + k);
    const uint8_t corner = vorn::merge_detail(last, bias[width - 1]);
    kernels.add(enlarged, bias, merged, width - 1);
    merged[width - 1] = corner;
  }
}

// Half of the row pairs of one plane; the lower half closes it.
struct up2_merge_half {
  const _tag_uni_image *small, *up, *detail;
  bool lower;
  struct pool* pool;
};

void* up2_merge_half_process(void* argument) {
  const auto* job = static_cast<const up2_merge_half*>(argument);
  const int pairs_end = job->up->height - 2, middle = pairs_end / 4 * 2;
  up2_merge_rows(*job->small, *job->up, *job->detail, *job->detail, job->lower ? middle : 0,
                 job->lower ? pairs_end : middle, job->lower);
  one_thread_done(job->pool);
  return nullptr;
}

}  // namespace

int vorn::up2_merge(const _tag_uni_image& small, const _tag_uni_image& fine,
                    const _tag_uni_image& detail, const _tag_uni_image& result) {
  if (fine.height < 2) return -1;
  up2_merge_rows(small, fine, detail, result, 0, fine.height - 2, true);
  return 0;
}

int vorn::up2_merge_stage(pool* workers, _tag_uni_image& small_u, _tag_uni_image& up_u,
                          _tag_uni_image& detail_u, _tag_uni_image& small_v, _tag_uni_image& up_v,
                          _tag_uni_image& detail_v) {
  if (up_u.height < 2) return 0;  // nothing to enlarge to
  up2_merge_half jobs[] = {{&small_u, &up_u, &detail_u, false, workers},
                           {&small_v, &up_v, &detail_v, false, workers},
                           {&small_u, &up_u, &detail_u, true, workers},
                           {&small_v, &up_v, &detail_v, true, workers}};
  return run_jobs(workers, up2_merge_half_process, jobs);
}
