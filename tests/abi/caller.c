/* A caller in C99: includes the installed headers alone. */
#include "vorn_ycnr.h"
#include "vorn_ycnr_ext.h"

#include <stddef.h>
#include <stdio.h>
#include <string.h>

/* Fails to compile when a field moves. */
#define FIELD(line, record, field, offset, bytes)                                     \
  typedef char offset_##line##_##field[offsetof(record, field) == (offset) ? 1 : -1]; \
  typedef char size_##line##_##field[sizeof(((record*)0)->field) == (bytes) ? 1 : -1]
#define SIZE(record, bytes) typedef char size_of_##record[sizeof(record) == (bytes) ? 1 : -1]

FIELD(1, _tag_uni_image, type, 0, 4);
FIELD(1, _tag_uni_image, width, 4, 4);
FIELD(1, _tag_uni_image, height, 8, 4);
FIELD(1, _tag_uni_image, plane, 16, 32);
FIELD(1, _tag_uni_image, stride, 48, 16);
SIZE(_tag_uni_image, 64);

FIELD(2, ycnr_init_param, width, 0, 4);
FIELD(2, ycnr_init_param, height, 4, 4);
SIZE(ycnr_init_param, 8);

FIELD(3, ycnr_ynr_tuning_param, enable, 0, 4);
FIELD(3, ycnr_ynr_tuning_param, layer, 4, 4);
FIELD(3, ycnr_ynr_tuning_param, pIntensity, 8, 20);
FIELD(3, ycnr_ynr_tuning_param, pRadius, 28, 20);
FIELD(3, ycnr_ynr_tuning_param, param0, 48, 4);
FIELD(3, ycnr_ynr_tuning_param, param1, 52, 4);
FIELD(3, ycnr_ynr_tuning_param, param2, 56, 4);
SIZE(ycnr_ynr_tuning_param, 60);

FIELD(4, ycnr_cnr_tuning_param, enable, 0, 4);
FIELD(4, ycnr_cnr_tuning_param, range_factor, 4, 4);
FIELD(4, ycnr_cnr_tuning_param, smooth_radius, 8, 4);
FIELD(4, ycnr_cnr_tuning_param, scale, 12, 4);
FIELD(4, ycnr_cnr_tuning_param, step, 16, 4);
FIELD(4, ycnr_cnr_tuning_param, color_edge_u, 20, 4);
FIELD(4, ycnr_cnr_tuning_param, color_edge_v, 24, 4);
FIELD(4, ycnr_cnr_tuning_param, saturation, 28, 4);
FIELD(4, ycnr_cnr_tuning_param, param0, 32, 4);
FIELD(4, ycnr_cnr_tuning_param, param1, 36, 4);
FIELD(4, ycnr_cnr_tuning_param, param2, 40, 4);
SIZE(ycnr_cnr_tuning_param, 44);

FIELD(5, Denoise_Parameters_t, caller_data, 0, 8);
FIELD(5, Denoise_Parameters_t, ynr, 8, 8);
FIELD(5, Denoise_Parameters_t, cnr, 16, 8);
SIZE(Denoise_Parameters_t, 24);

#define CAPABILITY_HEAD(line, record)       \
  FIELD(line, record, name, 0, 256);        \
  FIELD(line, record, build_date, 256, 32); \
  FIELD(line, record, build_time, 288, 32); \
  FIELD(line, record, version, 320, 256);   \
  FIELD(line, record, memory_mb, 576, 4)
CAPABILITY_HEAD(6, __ynr_capability_param);
CAPABILITY_HEAD(7, __cnr_capability_param);
CAPABILITY_HEAD(8, ycnr_capability_param);
SIZE(__ynr_capability_param, 580);
SIZE(__cnr_capability_param, 580);
FIELD(8, ycnr_capability_param, ynr, 580, 580);
FIELD(8, ycnr_capability_param, cnr, 1160, 580);
SIZE(ycnr_capability_param, 1740);

FIELD(9, vorn_ycnr_options, width, 0, 4);
FIELD(9, vorn_ycnr_options, height, 4, 4);
FIELD(9, vorn_ycnr_options, workers, 8, 4);
FIELD(9, vorn_ycnr_options, bind_cores, 12, 4);
SIZE(vorn_ycnr_options, 16);

FIELD(10, vorn_ycnr_planes, layout, 0, 4);
FIELD(10, vorn_ycnr_planes, width, 4, 4);
FIELD(10, vorn_ycnr_planes, height, 8, 4);
FIELD(10, vorn_ycnr_planes, plane, 16, 24);
FIELD(10, vorn_ycnr_planes, stride, 40, 12);
SIZE(vorn_ycnr_planes, 56);

static uint8_t source[64 * 48 * 3 / 2];
static uint8_t result[64 * 48 * 3 / 2];

int main(void) {
  ycnr_init_param size = {64, 48};
  ycnr_ynr_tuning_param luma = {1, 3, {40, 40, 40, 40, 40}, {5, 7, 7, 7, 7}, 64, 0, 0};
  ycnr_cnr_tuning_param chroma = {1, 20, 6, 2, 1, 8, 8, 0, 0, 0, 0};
  Denoise_Parameters_t params = {0, NULL, NULL};
  _tag_uni_image src, dst;
  ycnr_capability_param capability;
  denoise_handle_t* handle = vorn_ycnr_init(&size);
  size_t i;
  int ok = handle != NULL;

  memset(&src, 0, sizeof src);
  src.type = VORN_IMAGE_YUV420SP;
  src.width = 64;
  src.height = 48;
  dst = src;
  src.plane[0] = source;
  dst.plane[0] = result;
  params.ynr = &luma;
  params.cnr = &chroma;
  for (i = 0; i < sizeof source; ++i) source[i] = (uint8_t)(100 + (i * 7919 >> 3) % 13);

  ok = ok && vorn_ycnr_process(handle, &src, &dst, &params) == VORN_OK;
  ok = ok && memcmp(source, result, 64 * 48) == 0; /* both on: source holds the filtered luma */
  ok = ok && vorn_ycnr_capability(handle, &capability) == VORN_OK;
  ok = ok && strcmp(capability.name, "CAM_ALGO_CV_YCNR") == 0;
  ok = ok && vorn_ycnr_deinit(handle) == VORN_OK;
  ok = ok && vorn_ycnr_deinit(NULL) == VORN_FAIL;
  puts(ok ? "ok" : "failed");
  return ok ? 0 : 1;
}
