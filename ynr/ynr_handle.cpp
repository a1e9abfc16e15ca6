#include "ynr/ynr_handle.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "base/log.h"
#include "ynr/block_rules.h"
#include "ynr/block_sums.h"

namespace {

using vorn::kBlock;
using vorn::kBorder;
using vorn::kLevels;

constexpr char kName[] = "CAM_ALGO_CV_YNR2";
constexpr char kBuildDate[] = "Aug 28 2024";
constexpr char kBuildTime[] = "18:43:34";
constexpr char kVersion[] = "2.0.1.2.2768825";

constexpr int kQuarterShift = 2;    // a quarter map has one byte per 4x4 block
constexpr size_t kSlackBytes = 64;  // behind the last buffer

int64_t bordered_bytes(int width, int height) {
  return (int64_t{width} + 2 * kBorder) * (int64_t{height} + 2 * kBorder);
}

// Bytes of the memory plan: four bordered images and a quarter map for each of the levels 1..4,
// then the bordered level 0.
int64_t plan_bytes(int width, int height) {
  int64_t bytes = bordered_bytes(width, height);
  for (int level = 1; level < kLevels; ++level) {
    bytes += 4 * bordered_bytes(width >> level, height >> level);
    bytes += int64_t{width >> (level + kQuarterShift)} * (height >> (level + kQuarterShift));
  }
  return bytes;
}

int round_up_to_block(int n) {
  return (n + kBlock - 1) / kBlock * kBlock;
}

struct intensity_weights {
  bool made, fits;  // fits the table
  int intensity;
  int map[vorn::kMapSize];
  vorn::weight_table table;
};

// Behind the images.
struct weight_store {
  intensity_weights of[kLevels];
  unsigned next;  // to be replaced
};
constexpr size_t kStoreAlignment = alignof(weight_store);

bool overhangs(int width, int height) {
  return width % kBlock != 0 || height % kBlock != 0;
}

void describe(_tag_uni_image* image, unsigned char* first, int width, int height, int stride) {
  image->width = width;
  image->height = height;
  image->plane[0] = first;
  image->stride[0] = stride;
}

// Describes a bordered image of a width x height level at `buffer`. Returns the byte behind it.
unsigned char* lay_out_bordered(unsigned char* buffer, int width, int height, _tag_uni_image* whole,
                                _tag_uni_image* inner) {
  const int stride = width + 2 * kBorder;
  describe(whole, buffer, stride, height + 2 * kBorder, stride);
  describe(inner, buffer + static_cast<size_t>(stride) * kBorder + kBorder, width, height, stride);
  return buffer + bordered_bytes(width, height);
}

}  // namespace

ynr_handle_t* ynr_init(int width, int height, denoise_handle_t* owner) {
  VORN_LOGD("ynr_init start\n");
  VORN_LOGI("%s \n", "CAM_ALGO_CV_YNR2_LIBVER [2.0.1.2.2768825][Aug 28 2024][18:43:34]");
  ynr_handle_t* handle = static_cast<ynr_handle_t*>(std::calloc(1, sizeof(ynr_handle_t)));
  if (!handle) {
    VORN_LOGE("ynr malloc fail\n");
    return nullptr;
  }
  handle->height = height;
  handle->width = width;
  handle->thread_num = 4;
  handle->pool = owner ? owner->pool : nullptr;
  if (ynr_Allocate_slice_memory(handle) != 0) {
    VORN_LOGE("ynr_Allocate_slice_memory fail\n");
    std::free(handle);
    return nullptr;
  }
  return handle;
}

int ynr_Allocate_slice_memory(ynr_handle_t* handle) {
  const int width = handle->width;
  const int height = handle->height;
  // The first bound keeps the sum of the plan itself inside 64 bits.
  const bool sane = width >= 1 && height >= 1 && int64_t{width} * height <= INT32_MAX;
  const int64_t bytes = sane ? plan_bytes(width, height) : 0;
  unsigned char* block = nullptr;
  if (sane && bytes <= INT32_MAX) {
    size_t all = static_cast<size_t>(bytes) + kSlackBytes + kStoreAlignment + sizeof(weight_store);
    if (overhangs(width, height))
      all += static_cast<size_t>(round_up_to_block(width)) * round_up_to_block(height);
    // Zeroed, so that no sample of any frame depends on what the memory held before.
    block = static_cast<unsigned char*>(std::calloc(all, 1));
  }
  if (!block) {
    VORN_LOGE("malloc failed\n");
    return -1;
  }

  unsigned char* next = block;
  for (int level = 1; level < kLevels; ++level) {
    const int w = width >> level;
    const int h = height >> level;
    next = lay_out_bordered(next, w, h, &handle->gauss_whole[level], &handle->gauss[level]);
    next = lay_out_bordered(next, w, h, &handle->spare_whole[level], &handle->spare[level]);
    next = lay_out_bordered(next, w, h, &handle->work_whole[level], &handle->work[level]);
    next = lay_out_bordered(next, w, h, &handle->out_whole[level], &handle->out[level]);
    const int map_width = width >> (level + kQuarterShift);
    const int map_height = height >> (level + kQuarterShift);
    describe(&handle->quarter_map[level], next, map_width, map_height, map_width);
    next += static_cast<size_t>(map_width) * map_height;
  }
  lay_out_bordered(next, width, height, &handle->out_whole[0], &handle->out[0]);

  handle->memory_mb = static_cast<int>(bytes / 1048576);
  VORN_LOGD("ynr malloc size : %d M  \n", handle->memory_mb);
  return 0;
}

_tag_uni_image vorn::block_destination(const ynr_handle_t& handle) {
  _tag_uni_image image{};
  if (overhangs(handle.width, handle.height)) {
    const _tag_uni_image& last = handle.out_whole[0];
    describe(&image, last.plane[0] + static_cast<size_t>(last.stride[0]) * last.height,
             handle.width, handle.height, round_up_to_block(handle.width));
  }
  return image;
}

static weight_store* weights_of(const ynr_handle_t& handle) {
  const _tag_uni_image& last = handle.out_whole[0];
  if (!last.plane[0]) return nullptr;
  size_t behind = static_cast<size_t>(last.stride[0]) * last.height;
  if (overhangs(handle.width, handle.height))
    behind +=
        static_cast<size_t>(round_up_to_block(handle.width)) * round_up_to_block(handle.height);
  const auto end = reinterpret_cast<uintptr_t>(last.plane[0] + behind + kSlackBytes);
  return reinterpret_cast<weight_store*>((end + kStoreAlignment - 1) / kStoreAlignment *
                                         kStoreAlignment);
}

int* vorn::kept_weight_map(const ynr_handle_t& handle, int intensity) {
  weight_store* store = weights_of(handle);
  if (!store) return nullptr;
  for (intensity_weights& kept : store->of)
    if (kept.made && kept.intensity == intensity) return kept.map;
  intensity_weights& oldest = store->of[store->next++ % kLevels];
  MakeWeightMap(oldest.map, static_cast<float>(intensity), kMapSize);
  oldest.fits = make_weight_table(&oldest.table, oldest.map);
  oldest.intensity = intensity;
  oldest.made = true;
  return oldest.map;
}

const vorn::weight_table* vorn::kept_weight_table(const ynr_handle_t& handle, const int* map) {
  if (const weight_store* store = weights_of(handle))
    for (const intensity_weights& kept : store->of)
      if (kept.map == map) return kept.fits ? &kept.table : nullptr;
  return nullptr;
}

int ynr_deinit(void* handle) {
  if (!handle) {
    VORN_LOGD("input handle is empty:%p\n", handle);
    return -1;
  }
  ynr_handle_t* ynr = static_cast<ynr_handle_t*>(handle);
  std::free(ynr->gauss_whole[1].plane[0]);
  std::free(ynr);
  return 0;
}

int ynr_capability(void* handle, __ynr_capability_param* capability) {
  if (!handle || !capability) {
    VORN_LOGE("Error, handle = %p, param = %p\n", handle, static_cast<void*>(capability));
    return -1;
  }
  std::snprintf(capability->name, sizeof capability->name, "%s", kName);
  std::snprintf(capability->build_date, sizeof capability->build_date, "%s", kBuildDate);
  std::snprintf(capability->build_time, sizeof capability->build_time, "%s", kBuildTime);
  std::snprintf(capability->version, sizeof capability->version, "%s", kVersion);
  capability->memory_mb = static_cast<ynr_handle_t*>(handle)->memory_mb;
  return 0;
}
