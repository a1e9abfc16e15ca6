// The four calls, in the order a caller makes them.
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "base/handle.h"
#include "base/log.h"
#include "api/tuning.h"
#include "cnr/cnr_driver.h"
#include "cnr/cnr_handle.h"
#include "runtime/image.h"
#include "runtime/pool.h"
#include "runtime/stage.h"
#include "ynr/ynr_driver.h"
#include "ynr/ynr_handle.h"

namespace {

constexpr char kDumpPath[] = "/data/vendor/cameraserver";
constexpr size_t kDumpPathBytes = 256;

// Bytes of a frame; 0 for a size that is empty or whose three samples a pixel leave 31 bits.
int frame_bytes(int width, int height) {
  if (width < 1 || height < 1) return 0;
  const int64_t pixels = int64_t{width} * height;
  return pixels <= INT_MAX / 3 ? static_cast<int>(pixels * 3 / 2) : 0;
}

// Releases a handle that init could not finish.
void release(denoise_handle_t* handle) {
  if (handle->cnr) cnr_deinit(handle->cnr);
  std::free(handle->dump_path);
  if (handle->pool) vorn_threadpool_destroy(handle->pool);
  std::free(handle);
}

bool overlap(const unsigned char* a, const unsigned char* b, int bytes) {
  const uintptr_t a0 = reinterpret_cast<uintptr_t>(a);
  const uintptr_t b0 = reinterpret_cast<uintptr_t>(b);
  return (a0 > b0 ? a0 - b0 : b0 - a0) < static_cast<uintptr_t>(bytes);
}

// The caller's frames as the drivers get them: contiguous from the first plane, whatever the
// caller's strides, other planes and type say.
struct frame {
  _tag_uni_image src = {};
  _tag_uni_image dst = {};
  int bytes = 0;

  int luma_bytes() const { return src.width * src.height; }

  // Makes dst hold what src holds, from a byte on. Nothing to do where they are one buffer.
  void copy_input(pool* workers, int from = 0) {
    if (src.plane[0] != dst.plane[0])
      vorn::copy_bytes(workers, dst.plane[0] + from, src.plane[0] + from,
                       static_cast<size_t>(bytes - from));
  }
};

// Describes the frame. Returns false with one ERROR line when the records describe no usable frame;
// dst then holds a copy of src, provided that it is large enough.
bool take_frame(const _tag_uni_image* src, const _tag_uni_image* dst, frame* out) {
  if (!src->plane[0] || !dst->plane[0]) {
    VORN_LOGE("plane is NULL, src %p, dst %p\n", static_cast<void*>(src->plane[0]),
              static_cast<void*>(dst->plane[0]));
    return false;
  }
  out->bytes = frame_bytes(src->width, src->height);
  const bool same_size = src->width == dst->width && src->height == dst->height;
  if (out->bytes == 0 || frame_bytes(dst->width, dst->height) < out->bytes) {
    VORN_LOGE("no frame of size %d x %d into %d x %d\n", src->width, src->height, dst->width,
              dst->height);
    return false;
  }
  const bool same_buffer = src->plane[0] == dst->plane[0];
  if (!same_buffer && overlap(src->plane[0], dst->plane[0], out->bytes)) {
    VORN_LOGE("src %p and dst %p overlap\n", static_cast<void*>(src->plane[0]),
              static_cast<void*>(dst->plane[0]));
    return false;
  }
  create_uni_image(&out->src, src->plane[0], src->width, src->height, VORN_IMAGE_YUV420SP);
  create_uni_image(&out->dst, dst->plane[0], src->width, src->height, VORN_IMAGE_YUV420SP);
  if (!same_size) {
    out->copy_input(nullptr);
    VORN_LOGE("src is %d x %d, dst is %d x %d\n", src->width, src->height, dst->width, dst->height);
    return false;
  }
  return true;
}

bool is_switch(int enable) {
  return enable == 0 || enable == 1;
}

void fill_text(char* field, size_t size, const char* text) {
  std::memset(field, 0, size);
  std::memcpy(field, text, std::strlen(text));
}

}  // namespace

denoise_handle_t* vorn_ycnr_init(ycnr_init_param* params) {
  return vorn::vorn_ycnr_init(params, vorn::kMaxWorkers, 0);
}

denoise_handle_t* vorn::vorn_ycnr_init(const ycnr_init_param* params, int workers, int bind_core) {
  VORN_LOGD("vorn_nr_init start\n");
  if (!params) {
    VORN_LOGE("params is NULL\n");
    return nullptr;
  }
  initLogLevel();
  if (frame_bytes(params->width, params->height) == 0) {
    VORN_LOGE("size %d x %d is not possible\n", params->width, params->height);
    return nullptr;
  }
  denoise_handle_t* handle = static_cast<denoise_handle_t*>(std::malloc(sizeof(denoise_handle_t)));
  if (!handle) {
    VORN_LOGE("denoise_handle malloc fail\n");
    return nullptr;
  }
  *handle = {};
  if (vorn_threadpool_init(&handle->pool, workers, bind_core) != 0) {
    VORN_LOGE("pool_init fail\n");
    release(handle);
    return nullptr;
  }
  VORN_LOGD("width = %d, height = %d  \n", params->width, params->height);
  handle->dump_path = static_cast<char*>(std::malloc(kDumpPathBytes));
  if (!handle->dump_path) {
    VORN_LOGE("dump_path malloc fail\n");
    release(handle);
    return nullptr;
  }
  std::memset(handle->dump_path, 0, kDumpPathBytes);
  std::memcpy(handle->dump_path, kDumpPath, sizeof kDumpPath);
  // Both algorithms take the pool from the handle, so it exists before they do.
  handle->cnr = cnr_init(params->width, params->height, handle);
  if (!handle->cnr) {
    VORN_LOGE("cnr_handle malloc fail\n");
    release(handle);
    return nullptr;
  }
  VORN_LOGD("cnr_handle malloc success\n");
  handle->ynr = ynr_init(params->width, params->height, handle);
  if (!handle->ynr) {
    VORN_LOGE("ynr_handle malloc fail\n");
    release(handle);
    return nullptr;
  }
  VORN_LOGD("ynr_handle malloc success\n");
  return handle;
}

int32_t vorn_ycnr_process(denoise_handle_t* handle, _tag_uni_image* src, _tag_uni_image* dst,
                          Denoise_Parameters_t* params) {
  VORN_LOGD("vorn_ycnr_process start \n");
  if (!handle || !src || !dst || !params) {
    VORN_LOGI("params is NULL, please return\n");
    return VORN_FAIL;
  }
  VORN_LOGI("handle->ynr:%p, handle->cnr:%p, width:%d, height:%d \n",
            static_cast<void*>(handle->ynr), static_cast<void*>(handle->cnr), src->width,
            src->height);
  const ycnr_ynr_tuning_param* luma = params->ynr;
  const ycnr_cnr_tuning_param* chroma = params->cnr;
  if (luma && chroma) {
    VORN_LOGI("pSrcImg addr:%p, pDstImg addr:%p, ynr2_enable:%d, cnr4_enable:%d \n",
              static_cast<void*>(src->plane[0]), static_cast<void*>(dst->plane[0]), luma->enable,
              chroma->enable);
    get_param_gain_info(handle, params);
  }
  frame io;
  if (!take_frame(src, dst, &io)) return VORN_FAIL;
  if (!luma || !chroma) {
    io.copy_input(handle->pool);
    VORN_LOGE("tuning is NULL, ynr %p, cnr %p\n", static_cast<const void*>(luma),
              static_cast<const void*>(chroma));
    return VORN_FAIL;
  }

  const bool known = is_switch(luma->enable) && is_switch(chroma->enable);
  const bool with_luma = known && luma->enable == 1;
  const bool with_chroma = known && chroma->enable == 1;
  if (!with_luma && !with_chroma) {
    io.copy_input(handle->pool);
    VORN_LOGI("ynr_cnr_process bypass! \n");
    return VORN_OK;
  }
  if (io.src.plane[0] == io.dst.plane[0]) {
    VORN_LOGE("src and dst are one buffer %p\n", static_cast<void*>(io.src.plane[0]));
    return VORN_FAIL;
  }

  const double start = getTime();
  // Both algorithms are asked before either runs, so that a refused frame leaves src alone. A
  // layer below 2 is the luma driver's own to refuse.
  int luma_result = 0;
  if (with_luma && handle->ynr_param.layer > 1)
    luma_result =
        vorn::ynr_check_frame(handle->ynr, src->width, src->height, handle->ynr_param.layer);
  int chroma_result = 0;
  if (luma_result == 0 && with_chroma)
    chroma_result =
        vorn::cnr_check_frame(handle->cnr, src->width, src->height, handle->cnr_param.scale);
  const bool runs = luma_result == 0 && chroma_result == 0;

  // The luma filter writes every luma sample, so only what it leaves alone is copied beforehand.
  if (runs) io.copy_input(handle->pool, with_luma ? io.luma_bytes() : 0);
  if (with_luma && runs)
    luma_result =
        uni_luma_noise_reduce_mask_process(handle, &io.src, &io.dst, nullptr, &handle->ynr_param);
  if (luma_result != 0) {
    VORN_LOGI("vorn_ynr_process fail\n");
    io.copy_input(handle->pool);
    return VORN_FAIL;
  }
  // The chroma filter takes its guide from src; chroma itself is still the same in both.
  if (with_luma && with_chroma && runs)
    vorn::copy_bytes(handle->pool, io.src.plane[0], io.dst.plane[0],
                     static_cast<size_t>(io.luma_bytes()));
  if (with_chroma && runs)
    chroma_result = uni_color_noise_reduce_process(handle, &io.src, &io.dst, &handle->cnr_param);
  if (chroma_result != 0) {
    VORN_LOGI("vorn_cnr_process fail\n");
    io.copy_input(handle->pool);
    return VORN_FAIL;
  }
  const double cost = getTime() - start;
  if (!with_luma) {
    VORN_LOGI("cnr_process time cost : %.3f \n", cost);
  } else if (!with_chroma) {
    VORN_LOGI("ynr_process time cost : %.3f \n", cost);
  } else {
    VORN_LOGI("vorn_ycnr_process time cost : %.3f \n", cost);
  }
  return VORN_OK;
}

int32_t vorn_ycnr_deinit(denoise_handle_t* handle) {
  VORN_LOGD("ycnr deinit start \n");
  if (!handle) {
    VORN_LOGE("handle is NULL, please return\n");
    return VORN_FAIL;
  }
  // The workers go first: nothing may run on memory that is about to be freed.
  if (vorn_threadpool_destroy(handle->pool) < 0) {
    VORN_LOGE("pool_destroy fail\n");
    return VORN_POOL_BUSY;
  }
  std::free(handle->dump_path);
  std::free(handle->packed);
  if (cnr_deinit(handle->cnr) != 0) {
    VORN_LOGE("cnr deinit fail \n");
    return VORN_FAIL;
  }
  if (ynr_deinit(handle->ynr) != 0) {
    VORN_LOGE("ynr deinit fail \n");
    return VORN_FAIL;
  }
  std::free(handle);
  VORN_LOGD("ycnr deinit end \n");
  return VORN_OK;
}

int32_t vorn_ycnr_capability(denoise_handle_t* handle, ycnr_capability_param* params) {
  if (!handle || !params) {
    VORN_LOGE("Error, handle = %p, param = %p\n", static_cast<void*>(handle),
              static_cast<void*>(params));
    return VORN_FAIL;
  }
  fill_text(params->name, sizeof params->name, "CAM_ALGO_CV_YCNR");
  fill_text(params->build_date, sizeof params->build_date, "Aug 28 2024");
  fill_text(params->build_time, sizeof params->build_time, "18:43:29");
  fill_text(params->version, sizeof params->version, "1.0.1.2.2768825");
  params->memory_mb = 1;
  if (const int result = ynr_capability(handle->ynr, &params->ynr)) return result;
  return cnr_capability(handle->cnr, &params->cnr);
}
