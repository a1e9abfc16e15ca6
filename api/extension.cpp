// Optional calls: a thin layer over the same entry points and drivers.
#include "vorn_ycnr_ext.h"

#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "api/entry.h"
#include "base/handle.h"
#include "base/log.h"
#include "runtime/kernel_form.h"
#include "runtime/pool.h"
#include "ynr/ynr_handle.h"

namespace {

size_t bytes_of(int count) {
  return static_cast<size_t>(count);
}

int chroma_planes(const vorn_ycnr_planes& frame) {
  return frame.layout == VORN_LAYOUT_I420 ? 2 : 1;
}

// Bytes of one row of a plane, and its rows; chroma rounds up.
int row_bytes(const vorn_ycnr_planes& frame, int plane) {
  if (plane == 0) return frame.width;
  return (frame.width / 2 + frame.width % 2) * (frame.layout == VORN_LAYOUT_I420 ? 1 : 2);
}

int row_count(const vorn_ycnr_planes& frame, int plane) {
  return plane == 0 ? frame.height : frame.height / 2 + frame.height % 2;
}

unsigned char* row_of(const vorn_ycnr_planes& frame, int plane, int row) {
  return frame.plane[plane] + std::ptrdiff_t{frame.stride[plane]} * row;
}

bool usable(const vorn_ycnr_planes& frame) {
  if (frame.layout < VORN_LAYOUT_NV12 || frame.layout > VORN_LAYOUT_I420) return false;
  if (frame.width < 1 || frame.height < 1 || frame.width == INT_MAX) return false;
  for (int plane = 0; plane <= chroma_planes(frame); ++plane)
    if (!frame.plane[plane] || frame.stride[plane] < row_bytes(frame, plane)) return false;
  return true;
}

void copy_plane(const vorn_ycnr_planes& src, const vorn_ycnr_planes& dst, int plane) {
  if (src.plane[plane] == dst.plane[plane]) return;
  for (int row = 0; row < row_count(src, plane); ++row)
    std::memmove(row_of(dst, plane, row), row_of(src, plane, row), bytes_of(row_bytes(src, plane)));
}

// Between one row of the packed frame's U V pairs and the caller's chroma planes.

void pack_chroma_row(const vorn_ycnr_planes& src, int row, unsigned char* pairs) {
  const int count = src.width / 2;
  const unsigned char* first = row_of(src, 1, row);
  if (src.layout == VORN_LAYOUT_NV12) {
    std::memcpy(pairs, first, bytes_of(2 * count));
  } else if (src.layout == VORN_LAYOUT_NV21) {
    for (int x = 0; x < count; ++x) {
      pairs[2 * x] = first[2 * x + 1];
      pairs[2 * x + 1] = first[2 * x];
    }
  } else {
    const unsigned char* v = row_of(src, 2, row);
    for (int x = 0; x < count; ++x) {
      pairs[2 * x] = first[x];
      pairs[2 * x + 1] = v[x];
    }
  }
}

void unpack_chroma_row(const unsigned char* pairs, const vorn_ycnr_planes& dst, int row) {
  const int count = dst.width / 2;
  unsigned char* first = row_of(dst, 1, row);
  if (dst.layout == VORN_LAYOUT_NV12) {
    std::memcpy(first, pairs, bytes_of(2 * count));
  } else if (dst.layout == VORN_LAYOUT_NV21) {
    for (int x = 0; x < count; ++x) {
      first[2 * x] = pairs[2 * x + 1];
      first[2 * x + 1] = pairs[2 * x];
    }
  } else {
    unsigned char* v = row_of(dst, 2, row);
    for (int x = 0; x < count; ++x) {
      first[x] = pairs[2 * x];
      v[x] = pairs[2 * x + 1];
    }
  }
}

// The handle's two packed frames, allocated at the first use; null when there is no memory.
unsigned char* packed_frames(denoise_handle_t* handle, size_t frame_bytes) {
  if (!handle->packed) handle->packed = static_cast<unsigned char*>(std::calloc(2, frame_bytes));
  return handle->packed;
}

}  // namespace

denoise_handle_t* vorn_ycnr_open(const vorn_ycnr_options* options) {
  if (!options) {
    VORN_LOGE("options is NULL\n");
    return nullptr;
  }
  const int workers = options->workers == 0 ? vorn::kMaxWorkers : options->workers;
  if (workers < 1 || workers > vorn::kMaxWorkers || (options->bind_cores & ~1) != 0) {
    VORN_LOGE("workers = %d, bind_cores = %d are not possible\n", options->workers,
              options->bind_cores);
    return nullptr;
  }
  const ycnr_init_param size = {options->width, options->height};
  return vorn::open_handle(&size, workers, options->bind_cores);
}

int32_t vorn_ycnr_process_planes(denoise_handle_t* handle, const vorn_ycnr_planes* src,
                                 const vorn_ycnr_planes* dst, const ycnr_ynr_tuning_param* ynr,
                                 const ycnr_cnr_tuning_param* cnr) {
  if (!handle || !src || !dst) {
    VORN_LOGE("handle = %p, src = %p, dst = %p\n", static_cast<void*>(handle),
              static_cast<const void*>(src), static_cast<const void*>(dst));
    return VORN_FAIL;
  }
  const vorn_ycnr_planes from = *src, to = *dst;
  if (!usable(from) || !usable(to) || from.layout != to.layout || from.width != to.width ||
      from.height != to.height) {
    VORN_LOGE("planes of layout %d, %d x %d into layout %d, %d x %d\n", from.layout, from.width,
              from.height, to.layout, to.width, to.height);
    return VORN_FAIL;
  }
  const int width = handle->ynr->width;
  const int height = handle->ynr->height;
  const size_t luma_bytes = bytes_of(width) * bytes_of(height);
  const size_t frame_bytes = luma_bytes * 3 / 2;
  const bool fits = from.width == width && from.height == height;
  unsigned char* input = fits ? packed_frames(handle, frame_bytes) : nullptr;
  if (!input) {
    if (fits) {
      VORN_LOGE("malloc failed\n");
    } else {
      VORN_LOGE("frame is %d x %d, handle is %d x %d\n", from.width, from.height, width, height);
    }
    for (int plane = 0; plane <= chroma_planes(from); ++plane) copy_plane(from, to, plane);
    return VORN_FAIL;
  }
  unsigned char* result = input + frame_bytes;

  for (int row = 0; row < height; ++row)
    std::memcpy(input + bytes_of(row) * bytes_of(width), row_of(from, 0, row), bytes_of(width));
  // Rows of an odd width do not begin on a pair; the filter does not run on them either.
  const int chroma_rows = width % 2 == 0 ? height / 2 : 0;
  for (int row = 0; row < chroma_rows; ++row)
    pack_chroma_row(from, row, input + luma_bytes + bytes_of(row) * bytes_of(width));
  for (int plane = 1; plane <= chroma_planes(from); ++plane) copy_plane(from, to, plane);

  ycnr_ynr_tuning_param luma_tuning = {};
  ycnr_cnr_tuning_param chroma_tuning = {};
  if (ynr) luma_tuning = *ynr;
  if (cnr) chroma_tuning = *cnr;
  Denoise_Parameters_t params = {0, &luma_tuning, &chroma_tuning};
  _tag_uni_image packed_src = {}, packed_dst = {};
  packed_src.width = packed_dst.width = width;
  packed_src.height = packed_dst.height = height;
  packed_src.plane[0] = input;
  packed_dst.plane[0] = result;
  const int32_t code = vorn_ycnr_process(handle, &packed_src, &packed_dst, &params);

  for (int row = 0; row < height; ++row)
    std::memcpy(row_of(to, 0, row), result + bytes_of(row) * bytes_of(width), bytes_of(width));
  for (int row = 0; row < chroma_rows; ++row)
    unpack_chroma_row(result + luma_bytes + bytes_of(row) * bytes_of(width), to, row);
  return code;
}

void vorn_ycnr_set_log_sink(vorn_ycnr_log_sink sink, void* context) {
  vorn::set_log_sink(sink, context);
}

const char* vorn_ycnr_result_text(int32_t result) {
  switch (result) {
    case VORN_OK:
      return "done";
    case VORN_FAIL:
      return "refused or failed, see the log";
    case -2:
      return "unknown image layout";
    case VORN_POOL_BUSY:
      return "the worker threads cannot be stopped";
    default:
      return "unknown result";
  }
}

const char* vorn_ycnr_kernel_form() {
  return vorn::kernel_form_name(vorn::active_kernel_form());
}
