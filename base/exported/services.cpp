#include "base/exported/services.h"

#include "base/log.h"

void lib_version() {
  VORN_LOGI("%s\n", "CAM_ALGO_CV_YCNR_LIBVER [1.0.1.2.2768825][Aug 28 2024][18:43:33]");
}

void DUMP_DATA(char*, const char*, int, void*, int) {}

void DUMP_DATA_YNR(char*, const char*, int, void*, int) {}
