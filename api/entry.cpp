// The four calls, in the order a caller makes them.
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "api/entry.h"
#include "api/tuning.h"
#include "base/dump.h"
#include "base/handle.h"
#include "base/log.h"
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
constexpr char kProcess[] = "vorn_ycnr_process";  // in the log lines of a frame

// Bytes of a frame; 0 for a size that is empty or whose three samples a pixel leave 31 bits.
int frame_bytes(int width, int height) {
  if (width < 1 || height < 1) return 0;
  const int64_t pixels = int64_t{width} * height;
  return pixels <= INT_MAX / 3 ? static_cast<int>(pixels * 3 / 2) : 0;
}

// Frees a handle and all that it owns but the pool, none of which need be there: the one inside has
// no texts, and init may have failed half-way.
void free_handle(denoise_handle_t* handle) {
  if (handle->enlarged) free_handle(handle->enlarged);
  if (handle->plane) ynr_deinit(handle->plane);
  if (handle->ynr) ynr_deinit(handle->ynr);
  if (handle->cnr) cnr_deinit(handle->cnr);
  std::free(handle->grids);
  std::free(handle->packed);
  std::free(handle->dump_path);
  std::free(handle);
}

// Releases a handle that init could not finish.
void release(denoise_handle_t* handle) {
  if (handle->pool) vorn_threadpool_destroy(handle->pool);
  free_handle(handle);
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
  // Of whole rows: an odd height leaves half a row behind them.
  int chroma_bytes() const { return src.width * (src.height / 2); }

  // Makes dst hold what src holds. Nothing to do where they are one buffer.
  void copy_input(pool* workers) { copy_input(workers, 0, bytes); }
  void copy_input(pool* workers, int from, int until) {
    if (src.plane[0] != dst.plane[0])
      vorn::copy_bytes(workers, dst.plane[0] + from, src.plane[0] + from,
                       static_cast<size_t>(until - from));
  }
};

// Describes the frame. Returns false with one ERROR line when the records describe no usable frame;
// dst then holds a copy of src, provided that it is large enough.
bool take_frame(const _tag_uni_image* src, const _tag_uni_image* dst, frame* out) {
  if (!src->plane[0] || !dst->plane[0]) {
    VORN_LOG_AS(vorn::kLogError, kProcess, "plane is NULL, src %p, dst %p\n",
                static_cast<void*>(src->plane[0]), static_cast<void*>(dst->plane[0]));
    return false;
  }
  out->bytes = frame_bytes(src->width, src->height);
  const bool same_size = src->width == dst->width && src->height == dst->height;
  if (out->bytes == 0 || frame_bytes(dst->width, dst->height) < out->bytes) {
    VORN_LOG_AS(vorn::kLogError, kProcess, "no frame of size %d x %d into %d x %d\n", src->width,
                src->height, dst->width, dst->height);
    return false;
  }
  const bool same_buffer = src->plane[0] == dst->plane[0];
  if (!same_buffer && overlap(src->plane[0], dst->plane[0], out->bytes)) {
    VORN_LOG_AS(vorn::kLogError, kProcess, "src %p and dst %p overlap\n",
                static_cast<void*>(src->plane[0]), static_cast<void*>(dst->plane[0]));
    return false;
  }
  create_uni_image(&out->src, src->plane[0], src->width, src->height, VORN_IMAGE_YUV420SP);
  create_uni_image(&out->dst, dst->plane[0], src->width, src->height, VORN_IMAGE_YUV420SP);
  if (!same_size) {
    out->copy_input(nullptr);
    VORN_LOG_AS(vorn::kLogError, kProcess, "src is %d x %d, dst is %d x %d\n", src->width,
                src->height, dst->width, dst->height);
    return false;
  }
  return true;
}

struct filters {
  bool luma, chroma;
};

// What a tuning switches on: nothing if either switch is neither 0 nor 1.
filters switched_on(const ycnr_ynr_tuning_param& luma, const ycnr_cnr_tuning_param& chroma) {
  const auto is_switch = [](int enable) { return enable == 0 || enable == 1; };
  const bool known = is_switch(luma.enable) && is_switch(chroma.enable);
  return {known && luma.enable == 1, known && chroma.enable == 1};
}

enum class outcome { done, luma_failed, chroma_failed };

// Whether the filters take a frame of this size with the handle's tuning. A layer count below 2 is
// the luma driver's own to refuse.
outcome check_frame(const denoise_handle_t& handle, const frame& io, filters wanted) {
  const int width = io.src.width, height = io.src.height, layer = handle.ynr_param.layer;
  if (wanted.luma && layer > 1 && vorn::ynr_check_frame(handle.ynr, width, height, layer) != 0)
    return outcome::luma_failed;
  if (wanted.chroma &&
      vorn::cnr_check_frame(handle.cnr, width, height, handle.cnr_param.scale) != 0)
    return outcome::chroma_failed;
  return outcome::done;
}

int filter_chroma_plane(denoise_handle_t* handle, _tag_uni_image* from, _tag_uni_image* to,
                        int strength) {
  return vorn::filter_plane(handle->plane, from, to, strength, handle->grids);
}

outcome run_filters(denoise_handle_t* handle, frame* io, filters wanted) {
  pool* const workers = handle->pool;
  const bool fine = handle->fine, both = wanted.luma && wanted.chroma;
  // Dumps between the filters show whole frames. Otherwise only what no filter writes is copied.
  const bool whole = fine || vorn::shows_frames_between_filters();
  const int luma = io->luma_bytes(), chroma = both && !whole ? io->chroma_bytes() : 0;
  io->copy_input(workers, wanted.luma ? luma + chroma : 0, io->bytes);
  if (wanted.luma && (fine ? vorn::ynr_process_fine(handle, &io->src, &io->dst, handle->grids)
                           : uni_luma_noise_reduce_mask_process(handle, &io->src, &io->dst, nullptr,
                                                                &handle->ynr_param)) != 0)
    return outcome::luma_failed;
  if (!wanted.chroma) return outcome::done;
  // The chroma filter takes its guide from src; chroma itself is still the same in both.
  const auto take_luma = [=] {
    vorn::copy_bytes(workers, io->src.plane[0], io->dst.plane[0], static_cast<size_t>(luma));
  };
  if (both && whole) take_luma();
  const int result = fine             ? vorn::cnr_process_fine(handle, &io->src, &io->dst,
                                                   handle->plane ? filter_chroma_plane : nullptr)
                     : both && !whole ? vorn::cnr_process_filtered(handle, &io->src, &io->dst)
                                      : uni_color_noise_reduce_process(handle, &io->src, &io->dst,
                                                                       &handle->cnr_param);
  if (result == 0) return outcome::done;
  if (both && !handle->keep_src) take_luma();
  return outcome::chroma_failed;
}

void fill_text(char* field, size_t size, const char* text) {
  std::memset(field, 0, size);
  std::memcpy(field, text, std::strlen(text));
}

}  // namespace

vorn::handle_use::handle_use(denoise_handle_t* handle) : handle_(handle), refusal_(nullptr) {
  if (forked_pool(handle->pool)) {
    refusal_ = "was made by the process that this one was forked from";
  } else if (__atomic_exchange_n(&handle->busy, 1, __ATOMIC_ACQUIRE) != 0) {
    refusal_ = "is in use by another thread";
  }
}

vorn::handle_use::~handle_use() {
  if (!refusal_) __atomic_store_n(&handle_->busy, 0, __ATOMIC_RELEASE);
}

bool vorn::shows_frames_between_filters() {
  return dumps(kLumaDumps.output) || dumps(kChromaDumps.input);
}

void vorn::close_enlarged(denoise_handle_t* handle) {
  if (handle->enlarged) free_handle(handle->enlarged);
  handle->enlarged = nullptr;
}

denoise_handle_t* vorn_ycnr_init(ycnr_init_param* params) {
  return vorn::open_handle(params, vorn::kMaxWorkers, 0);
}

denoise_handle_t* vorn::open_handle(const ycnr_init_param* params, int workers, int bind_core) {
  constexpr char kName[] = "vorn_ycnr_init";  // in its log lines
  VORN_LOG_AS(kLogDebug, kName, "vorn_nr_init start\n");
  if (!params) {
    VORN_LOG_AS(kLogError, kName, "params is NULL\n");
    return nullptr;
  }
  initLogLevel();
  if (frame_bytes(params->width, params->height) == 0) {
    VORN_LOG_AS(kLogError, kName, "size %d x %d is not possible\n", params->width, params->height);
    return nullptr;
  }
  denoise_handle_t* handle = static_cast<denoise_handle_t*>(std::malloc(sizeof(denoise_handle_t)));
  if (!handle) {
    VORN_LOG_AS(kLogError, kName, "denoise_handle malloc fail\n");
    return nullptr;
  }
  *handle = {};
  if (create_pool(&handle->pool, workers, bind_core) != 0) {
    VORN_LOG_AS(kLogError, kName, "pool_init fail\n");
    release(handle);
    return nullptr;
  }
  VORN_LOG_AS(kLogDebug, kName, "width = %d, height = %d  \n", params->width, params->height);
  handle->dump_path = static_cast<char*>(std::malloc(kDumpPathBytes));
  if (!handle->dump_path) {
    VORN_LOG_AS(kLogError, kName, "dump_path malloc fail\n");
    release(handle);
    return nullptr;
  }
  std::memset(handle->dump_path, 0, kDumpPathBytes);
  std::memcpy(handle->dump_path, kDumpPath, sizeof kDumpPath);
  // Both algorithms take the pool from the handle, so it exists before they do.
  handle->cnr = cnr_init(params->width, params->height, handle);
  if (!handle->cnr) {
    VORN_LOG_AS(kLogError, kName, "cnr_handle malloc fail\n");
    release(handle);
    return nullptr;
  }
  VORN_LOG_AS(kLogDebug, kName, "cnr_handle malloc success\n");
  handle->ynr = ynr_init(params->width, params->height, handle);
  if (!handle->ynr) {
    VORN_LOG_AS(kLogError, kName, "ynr_handle malloc fail\n");
    release(handle);
    return nullptr;
  }
  VORN_LOG_AS(kLogDebug, kName, "ynr_handle malloc success\n");
  return handle;
}

int32_t vorn_ycnr_process(denoise_handle_t* handle, _tag_uni_image* src, _tag_uni_image* dst,
                          Denoise_Parameters_t* params) {
  return vorn::process_call(handle, src, dst, params, vorn::process_frame);
}

int32_t vorn::process_call(denoise_handle_t* handle, _tag_uni_image* src, _tag_uni_image* dst,
                           Denoise_Parameters_t* params, frame_process process) {
  VORN_LOG_AS(kLogDebug, kProcess, "vorn_ycnr_process start \n");
  if (!handle || !src || !dst || !params) {
    VORN_LOG_AS(kLogInfo, kProcess, "params is NULL, please return\n");
    return VORN_FAIL;
  }
  const handle_use use(handle);
  if (!use.refusal()) return process(handle, src, dst, params);
  frame io;
  if (take_frame(src, dst, &io)) {
    io.copy_input(nullptr);
    VORN_LOG_AS(kLogError, kProcess, "handle %p %s\n", static_cast<void*>(handle), use.refusal());
  }
  return VORN_FAIL;
}

int32_t vorn::process_frame(denoise_handle_t* handle, _tag_uni_image* src, _tag_uni_image* dst,
                            Denoise_Parameters_t* params) {
  VORN_LOG_AS(kLogInfo, kProcess, "handle->ynr:%p, handle->cnr:%p, width:%d, height:%d \n",
              static_cast<void*>(handle->ynr), static_cast<void*>(handle->cnr), src->width,
              src->height);
  const ycnr_ynr_tuning_param* luma = params->ynr;
  const ycnr_cnr_tuning_param* chroma = params->cnr;
  if (luma && chroma) {
    VORN_LOG_AS(kLogInfo, kProcess,
                "pSrcImg addr:%p, pDstImg addr:%p, ynr2_enable:%d, cnr4_enable:%d \n",
                static_cast<void*>(src->plane[0]), static_cast<void*>(dst->plane[0]), luma->enable,
                chroma->enable);
    get_param_gain_info(handle, params);
  }
  frame io;
  if (!take_frame(src, dst, &io)) return VORN_FAIL;
  if (!luma || !chroma) {
    io.copy_input(handle->pool);
    VORN_LOG_AS(kLogError, kProcess, "tuning is NULL, ynr %p, cnr %p\n",
                static_cast<const void*>(luma), static_cast<const void*>(chroma));
    return VORN_FAIL;
  }
  const filters wanted = switched_on(*luma, *chroma);
  if (!wanted.luma && !wanted.chroma) {
    io.copy_input(handle->pool);
    VORN_LOG_AS(kLogInfo, kProcess, "ynr_cnr_process bypass! \n");
    return VORN_OK;
  }
  if (io.src.plane[0] == io.dst.plane[0]) {
    VORN_LOG_AS(kLogError, kProcess, "src and dst are one buffer %p\n",
                static_cast<void*>(io.src.plane[0]));
    return VORN_FAIL;
  }

  const double start = getTime();
  // Both algorithms are asked before either runs, so that a refused frame leaves src alone.
  outcome result = check_frame(*handle, io, wanted);
  if (result == outcome::done) result = run_filters(handle, &io, wanted);
  if (result != outcome::done) {
    VORN_LOG_AS(kLogInfo, kProcess, "%s fail\n",
                result == outcome::luma_failed ? "vorn_ynr_process" : "vorn_cnr_process");
    io.copy_input(handle->pool);
    return VORN_FAIL;
  }
  const char* name = !wanted.luma     ? "cnr_process"
                     : !wanted.chroma ? "ynr_process"
                                      : "vorn_ycnr_process";
  const double ms = getTime() - start;
  VORN_LOG_AS(kLogInfo, kProcess, "%s time cost : %.3f \n", name, ms);
  handle->pool->sink.tell(name, ms);
  return VORN_OK;
}

int32_t vorn_ycnr_deinit(denoise_handle_t* handle) {
  VORN_LOGD("ycnr deinit start \n");
  if (!handle) {
    VORN_LOGE("handle is NULL, please return\n");
    return VORN_FAIL;
  }
  if (!vorn::forked_pool(handle->pool) &&
      __atomic_exchange_n(&handle->busy, 1, __ATOMIC_ACQUIRE) != 0) {
    VORN_LOGE("handle %p is in use by another thread\n", static_cast<void*>(handle));
    return VORN_POOL_BUSY;
  }
  // The workers go first: nothing may run on memory that is about to be freed.
  if (vorn_threadpool_destroy(handle->pool) < 0) {
    VORN_LOGE("pool_destroy fail\n");
    __atomic_store_n(&handle->busy, 0, __ATOMIC_RELEASE);
    return VORN_POOL_BUSY;
  }
  free_handle(handle);
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
