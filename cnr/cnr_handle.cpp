#include "cnr/cnr_handle.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "base/log.h"

namespace {

constexpr const char* kBuildBanner =
    "CAM_ALGO_CV_CNR4_LIBVER [4.0.1.2.2768825][Aug 28 2024][18:43:31]";

constexpr int kImagesPerLevel = 7;
// Behind the last plane. Up-sampling to an odd width reads one sample past a coarse row; past the
// last row of the last plane, a difference, it finds "no difference" in the first spare byte.
constexpr size_t kSpareBytes = 128;
constexpr unsigned char kNoDifference = 128;

}  // namespace

cnr_handle_t* cnr_init(int width, int height, denoise_handle_t* owner) {
  VORN_LOGD("cnr_init start\n");
  VORN_LOGI("%s \n", kBuildBanner);
  auto* handle = owner ? static_cast<cnr_handle_t*>(std::malloc(sizeof(cnr_handle_t))) : nullptr;
  if (!handle) {
    VORN_LOGE("cnr malloc fail\n");
    return nullptr;
  }
  std::memset(handle, 0, sizeof(*handle));
  handle->cnr_version = 4;
  handle->height = height;
  handle->width = width;
  handle->pool = owner->pool;
  if (cnr_Allocate_slice_memory(handle) != 0) {
    VORN_LOGE("cnr Allocate_slice_memory fail\n");
    std::free(handle);
    return nullptr;
  }
  return handle;
}

int cnr_Allocate_slice_memory(cnr_handle_t* handle) {
  const int width = handle->width;
  const int height = handle->height;
  // The first bound keeps the sum of the planes itself inside 64 bits.
  const bool sane = width >= 1 && height >= 1 && static_cast<int64_t>(width) * height <= INT32_MAX;
  const int64_t level0 = sane ? static_cast<int64_t>(width >> 1) * (height >> 1) : 0;
  const int64_t level1 = sane ? static_cast<int64_t>(width >> 2) * (height >> 2) : 0;
  const int64_t size = kImagesPerLevel * (level0 + level1);
  unsigned char* block = nullptr;
  if (sane && size <= INT32_MAX)
    block = static_cast<unsigned char*>(std::malloc(static_cast<size_t>(size) + kSpareBytes));
  if (!block) {
    VORN_LOGE("malloc failed\n");
    return -1;
  }
  std::memset(block, 0, static_cast<size_t>(size) + kSpareBytes);
  block[size] = kNoDifference;
  for (int k = 0; k < kImagesPerLevel; ++k) {
    _tag_uni_image& fine = handle->images[2 * k];
    fine.width = fine.stride[0] = width >> 1;
    fine.height = height >> 1;
    fine.plane[0] = block + k * level0;
    _tag_uni_image& coarse = handle->images[2 * k + 1];
    coarse.width = coarse.stride[0] = width >> 2;
    coarse.height = height >> 2;
    coarse.plane[0] = block + kImagesPerLevel * level0 + k * level1;
  }
  handle->memory_size_mb = static_cast<int>(size / 1048576);
  VORN_LOGD("cnr malloc size : %d M  \n", handle->memory_size_mb);
  return 0;
}

int cnr_deinit(void* handle) {
  if (!handle) {
    VORN_LOGD("input handle is empty:%p\n", handle);
    return -1;
  }
  auto* cnr = static_cast<cnr_handle_t*>(handle);
  std::free(cnr->images[0].plane[0]);
  std::free(cnr);
  return 0;
}

int cnr_capability(void* handle, __cnr_capability_param* capability) {
  if (!handle || !capability) {
    VORN_LOGE("Error, handle = %p, param = %p\n", handle, static_cast<void*>(capability));
    return -1;
  }
  // The luma library's name, kept on purpose: callers know the record by it.
  std::strcpy(capability->name, "CAM_ALGO_CV_YNR2");
  std::strcpy(capability->build_date, "Aug 28 2024");
  std::strcpy(capability->build_time, "18:43:31");
  std::strcpy(capability->version, "4.0.1.2.2768825");
  capability->memory_mb = static_cast<cnr_handle_t*>(handle)->memory_size_mb;
  return 0;
}
