// The optional calls of the fine mode.
#include <cstdlib>

#include "api/entry.h"
#include "base/handle.h"
#include "base/log.h"
#include "vorn_ycnr_ext.h"
#include "ynr/four_grids.h"
#include "ynr/ynr_handle.h"

namespace {

// Whether the handle has its scratch, which is allocated at the first question. Chroma planes below
// one block of the luma filter go without it.
bool has_scratch(denoise_handle_t* handle) {
  const int width = handle->ynr->width, height = handle->ynr->height;
  const bool planes = width / 2 >= 4 && height / 2 >= 4;
  if (!handle->grids)
    handle->grids = static_cast<unsigned char*>(std::calloc(1, vorn::four_grids_scratch(width)));
  if (!handle->plane && planes) handle->plane = ynr_init(width / 2, height / 2, handle);
  if (handle->grids && (handle->plane || !planes)) return true;
  VORN_LOG_AS(vorn::kLogError, "vorn_ycnr_process_fine", "malloc failed\n");
  return false;
}

}  // namespace

int32_t vorn::process_frame_finely(denoise_handle_t* handle, _tag_uni_image* src,
                                   _tag_uni_image* dst, Denoise_Parameters_t* params) {
  if (!has_scratch(handle)) {
    // With both filters off the input is copied.
    ycnr_ynr_tuning_param luma = {};
    ycnr_cnr_tuning_param chroma = {};
    Denoise_Parameters_t none = {0, &luma, &chroma};
    vorn::process_frame(handle, src, dst, &none);
    return VORN_FAIL;
  }
  handle->fine = true;
  const int32_t result = vorn::process_frame(handle, src, dst, params);
  handle->fine = false;
  return result;
}

int32_t vorn_ycnr_prepare_fine(denoise_handle_t* handle) {
  if (!handle) {
    VORN_LOGE("handle is NULL\n");
    return VORN_FAIL;
  }
  const vorn::handle_use use(handle);
  if (!use.refusal()) return has_scratch(handle) ? VORN_OK : VORN_FAIL;
  VORN_LOGE("handle %p %s\n", static_cast<void*>(handle), use.refusal());
  return VORN_FAIL;
}

int32_t vorn_ycnr_process_fine(denoise_handle_t* handle, _tag_uni_image* src, _tag_uni_image* dst,
                               Denoise_Parameters_t* params) {
  return vorn::process_call(handle, src, dst, params, vorn::process_frame_finely);
}
