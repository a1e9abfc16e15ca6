// Optional calls: a thin layer over the same entry points and drivers.
#include "vorn_ycnr_ext.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>

#include "api/entry.h"
#include "api/planes.h"
#include "base/handle.h"
#include "base/log.h"
#include "cnr/cnr_driver.h"
#include "cnr/cnr_handle.h"
#include "runtime/kernel_form.h"
#include "runtime/pool.h"
#include "ynr/ynr_driver.h"
#include "ynr/ynr_handle.h"

namespace {

using vorn::bytes_of;

int even(int size) {
  return size + size % 2;
}

// Least width and height that the filters take with these tunings, even. A number of luma levels
// that is refused anyway asks for nothing.
int least_side(const ycnr_ynr_tuning_param& luma, const ycnr_cnr_tuning_param& chroma) {
  const bool levels = luma.enable == 1 && luma.layer >= 2 && luma.layer <= vorn::kLevels;
  return std::max({2, levels ? vorn::ynr_least_side(luma.layer) : 0,
                   chroma.enable == 1 ? vorn::cnr_least_side(chroma.scale) : 0});
}

// The handle's two packed frames, allocated at the first use; null when there is no memory.
unsigned char* packed_frames(denoise_handle_t* handle, size_t frame_bytes) {
  if (!handle->packed) handle->packed = static_cast<unsigned char*>(std::calloc(2, frame_bytes));
  return handle->packed;
}

// The handle itself if it is of this size, else one inside it, which is kept while the size stays;
// null when there is no memory.
denoise_handle_t* handle_of_size(denoise_handle_t* handle, int width, int height) {
  const auto fits = [=](const denoise_handle_t* h) {
    return h && h->ynr->width == width && h->ynr->height == height;
  };
  if (fits(handle)) return handle;
  if (fits(handle->enlarged)) return handle->enlarged;
  vorn::close_enlarged(handle);
  denoise_handle_t* inner = static_cast<denoise_handle_t*>(std::malloc(sizeof(denoise_handle_t)));
  if (!inner) return nullptr;
  *inner = {};
  inner->pool = handle->pool;
  handle->enlarged = inner;
  inner->cnr = cnr_init(width, height, inner);
  inner->ynr = inner->cnr ? ynr_init(width, height, inner) : nullptr;
  if (!inner->ynr) vorn::close_enlarged(handle);
  return handle->enlarged;
}

bool overlap(const vorn_ycnr_planes& a, const vorn_ycnr_planes& packed) {
  const auto address = [](const unsigned char* p) { return reinterpret_cast<uintptr_t>(p); };
  const uintptr_t begin = address(packed.plane[0]);
  const uintptr_t end = begin + bytes_of(packed.width) * bytes_of(packed.height) * 3 / 2;
  for (int plane = 0; plane < (a.layout == VORN_LAYOUT_I420 ? 3 : 2); ++plane) {
    const uintptr_t rows = static_cast<uintptr_t>(plane == 0 ? a.height : even(a.height) / 2);
    const uintptr_t first = address(a.plane[plane]);
    if (first < end && first + rows * static_cast<uintptr_t>(a.stride[plane]) > begin) return true;
  }
  return false;
}

// One call's frame in planes, of either kind.
struct planes_call {
  const char* name;                   // in its log lines
  vorn::frame_process process_frame;  // plain or fine
  denoise_handle_t* handle;
  vorn_ycnr_planes from, to;
  ycnr_ynr_tuning_param luma;
  ycnr_cnr_tuning_param chroma;

  // Runs the frame on a handle of width x height, which the frame fits in. Of chroma, the rows from
  // chroma_rows on stay the source's.
  int32_t run(denoise_handle_t* on, int width, int height, int chroma_rows);
};

int32_t planes_call::run(denoise_handle_t* on, int width, int height, int chroma_rows) {
  const size_t luma_bytes = bytes_of(width) * bytes_of(height);
  const size_t frame_bytes = luma_bytes * 3 / 2;
  // Contiguous frames are read and written where they lie. Fine mode writes to its source, and to
  // write to a packed copy would be in vain.
  const bool same_size = from.width == width && from.height == height;
  const bool keeps_src =
      process_frame == vorn::process_frame && !vorn::shows_frames_between_filters();
  const bool kept = keeps_src && same_size && vorn::is_packed(from) && !overlap(to, from);
  const bool direct = same_size && vorn::is_packed(to) && !overlap(from, to);
  const bool packs = !kept || !direct;
  unsigned char* const packed = on && packs ? packed_frames(on, frame_bytes) : nullptr;
  if (!on || (packs && !packed)) {
    VORN_LOG_AS(vorn::kLogError, name, "malloc failed\n");
    vorn::copy_planes(from, to, 0);
    return VORN_FAIL;
  }
  unsigned char* const input = kept ? from.plane[0] : packed;
  if (!kept) {
    vorn::pack_luma(on->pool, from, input, width, height);
    if (chroma_rows > 0) vorn::pack_chroma(on->pool, from, input + luma_bytes, width, height / 2);
  }
  if (chroma_rows < even(from.height) / 2) vorn::copy_planes(from, to, 1);
  unsigned char* const result = direct ? to.plane[0] : packed + frame_bytes;
  Denoise_Parameters_t params = {0, &luma, &chroma};
  _tag_uni_image src = {}, dst = {};
  src.width = dst.width = width;
  src.height = dst.height = height;
  src.plane[0] = input;
  dst.plane[0] = result;
  on->keep_src = keeps_src;
  const int32_t code = process_frame(on, &src, &dst, &params);
  on->keep_src = false;
  if (!direct) {
    vorn::unpack_luma(on->pool, result, to, width);
    vorn::unpack_chroma(on->pool, result + luma_bytes, to, width, chroma_rows);
  }
  return code;
}

// What both calls for planes begin with, then run(call) on a handle in use. A refused frame is
// copied.
template <typename Run>
int32_t with_planes(const char* name, vorn::frame_process process_frame, denoise_handle_t* handle,
                    const vorn_ycnr_planes* src, const vorn_ycnr_planes* dst,
                    const ycnr_ynr_tuning_param* ynr, const ycnr_cnr_tuning_param* cnr,
                    const Run& run) {
  const bool match = src && dst && vorn::matching_planes(*src, *dst);
  if (!handle || !src || !dst) {
    if (match) vorn::copy_planes(*src, *dst, 0);
    VORN_LOG_AS(vorn::kLogError, name, "handle = %p, src = %p, dst = %p\n",
                static_cast<void*>(handle), static_cast<const void*>(src),
                static_cast<const void*>(dst));
    return VORN_FAIL;
  }
  planes_call call = {name, process_frame, handle, *src, *dst, {}, {}};
  if (!match) {
    VORN_LOG_AS(vorn::kLogError, name, "planes of layout %d, %d x %d into layout %d, %d x %d\n",
                call.from.layout, call.from.width, call.from.height, call.to.layout, call.to.width,
                call.to.height);
    return VORN_FAIL;
  }
  const vorn::handle_use use(handle);
  if (use.refusal()) {
    vorn::copy_planes(call.from, call.to, 0);
    VORN_LOG_AS(vorn::kLogError, name, "handle %p %s\n", static_cast<void*>(handle), use.refusal());
    return VORN_FAIL;
  }
  if (ynr) call.luma = *ynr;
  if (cnr) call.chroma = *cnr;
  return run(&call);
}

int32_t refuse_size(const planes_call& call) {
  VORN_LOG_AS(vorn::kLogError, call.name, "frame is %d x %d, handle is %d x %d\n", call.from.width,
              call.from.height, call.handle->ynr->width, call.handle->ynr->height);
  vorn::copy_planes(call.from, call.to, 0);
  return VORN_FAIL;
}

int32_t process_any_size(planes_call* call) {
  const ynr_handle_t& made_for = *call->handle->ynr;
  if (call->from.width > made_for.width || call->from.height > made_for.height)
    return refuse_size(*call);
  const int least = least_side(call->luma, call->chroma);
  const int width = std::max(even(made_for.width), least);
  const int height = std::max(even(made_for.height), least);
  return call->run(handle_of_size(call->handle, width, height), width, height,
                   even(call->from.height) / 2);
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
  const auto run = [](planes_call* call) {
    const int width = call->handle->ynr->width, height = call->handle->ynr->height;
    if (call->from.width != width || call->from.height != height) return refuse_size(*call);
    // Rows of an odd width do not begin on a pair; the filter does not run on them either.
    return call->run(call->handle, width, height, width % 2 == 0 ? height / 2 : 0);
  };
  return with_planes(__func__, vorn::process_frame, handle, src, dst, ynr, cnr, run);
}

int32_t vorn_ycnr_process_any(denoise_handle_t* handle, const vorn_ycnr_planes* src,
                              const vorn_ycnr_planes* dst, const ycnr_ynr_tuning_param* ynr,
                              const ycnr_cnr_tuning_param* cnr) {
  return with_planes(__func__, vorn::process_frame, handle, src, dst, ynr, cnr, process_any_size);
}

int32_t vorn_ycnr_process_any_fine(denoise_handle_t* handle, const vorn_ycnr_planes* src,
                                   const vorn_ycnr_planes* dst, const ycnr_ynr_tuning_param* ynr,
                                   const ycnr_cnr_tuning_param* cnr) {
  return with_planes(__func__, vorn::process_frame_finely, handle, src, dst, ynr, cnr,
                     process_any_size);
}

int32_t vorn_ycnr_set_stage_sink(denoise_handle_t* handle, vorn_ycnr_stage_sink sink,
                                 void* context) {
  if (!handle) {
    VORN_LOGE("handle is NULL\n");
    return VORN_FAIL;
  }
  const vorn::handle_use use(handle);
  if (use.refusal()) {
    VORN_LOGE("handle %p %s\n", static_cast<void*>(handle), use.refusal());
    return VORN_FAIL;
  }
  handle->pool->sink = {sink, context};
  return VORN_OK;
}

int32_t vorn_ycnr_log_level() {
  return vorn::log_level();
}

int32_t vorn_ycnr_set_log_level(int32_t level) {
  return vorn::set_log_level(level);
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
