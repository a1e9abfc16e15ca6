#include "api/dump.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "api/log.h"

namespace {

constexpr char kDefaultPath[] = "/data/vendor/cameraserver/";
constexpr int kTextMax = 256;  // property values and file names

// Reads both properties of a dump. Returns 0 when it is switched on, else the comparison's result.
int dump_switch(const char* enable_property, const char* expected, const char* path_property,
                char path[kTextMax]) {
  char enable[kTextMax] = {};
  getProperty_NR(enable_property, "no", enable);
  getProperty_NR(path_property, kDefaultPath, path);
  return std::strcmp(enable, expected);
}

// Writes a file name; one that is longer than the buffer is cut.
__attribute__((format(printf, 2, 3))) void make_name(char name[kTextMax], const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(name, kTextMax, format, arguments);
  va_end(arguments);
}

struct field {
  const char* name;
  int value;
};

// One "name value " line per field. Returns 0, or -1 when the file could not be written whole.
int write_fields(FILE* file, const field* fields, int count) {
  int result = 0;
  for (int i = 0; i < count; ++i)
    if (std::fprintf(file, "%s %d \n", fields[i].name, fields[i].value) < 0) result = -1;
  return result;
}

}  // namespace

// The three dumps open and close their files themselves: the log lines carry the function's name.

int DUMP_ynr_config_file(const char* enable_property, const char* expected,
                         const char* path_property, const char* timestamp,
                         ycnr_ynr_tuning_param* tuning) {
  char path[kTextMax] = {};
  if (const int off = dump_switch(enable_property, expected, path_property, path)) return off;
  char name[kTextMax];
  make_name(name, "%s_%s_ynr2_turning_param.txt", path, timestamp);
  FILE* file = std::fopen(name, "wb");
  if (!file) {
    VORN_LOGE("fopen %s fail! errno=%d\n", name, errno);
    return -1;
  }
  const field fields[] = {
      {"enable", tuning->enable},
      {"layer", tuning->layer},
      {"0pIntensity", tuning->pIntensity[0]},
      {"1pIntensity", tuning->pIntensity[1]},
      {"2pIntensity", tuning->pIntensity[2]},
      {"3pIntensity", tuning->pIntensity[3]},
      {"4pIntensity", tuning->pIntensity[4]},
      {"0pRadius", tuning->pRadius[0]},
      {"1pRadius", tuning->pRadius[1]},
      {"2pRadius", tuning->pRadius[2]},
      {"3pRadius", tuning->pRadius[3]},
      {"4pRadius", tuning->pRadius[4]},
      {"param0", tuning->param0},
      {"param1", tuning->param1},
      {"param2", tuning->param2},
  };
  int result = write_fields(file, fields, sizeof fields / sizeof *fields);
  if (std::fclose(file) != 0) result = -1;
  if (result) VORN_LOGE("fwrite %s error! errno=%d\n", name, errno);
  return result;
}

int DUMP_cnr_config_file(const char* enable_property, const char* expected,
                         const char* path_property, const char* timestamp,
                         ycnr_cnr_tuning_param* tuning) {
  char path[kTextMax] = {};
  if (const int off = dump_switch(enable_property, expected, path_property, path)) return off;
  char name[kTextMax];
  make_name(name, "%s_%s_cnr4_turning_param.txt", path, timestamp);
  FILE* file = std::fopen(name, "wb");
  if (!file) {
    VORN_LOGE("fopen %s fail! errno=%d\n", name, errno);
    return -1;
  }
  const field fields[] = {
      {"enable", tuning->enable},
      {"range_factor", tuning->range_factor},
      {"smooth_radius", tuning->smooth_radius},
      {"scale", tuning->scale},
      {"step", tuning->step},
      {"color_edge_u", tuning->color_edge_u},
      {"color_edge_v", tuning->color_edge_v},
      {"saturation", tuning->saturation},
      {"param0", tuning->param0},
      {"param1", tuning->param1},
      {"param2", tuning->param2},
  };
  int result = write_fields(file, fields, sizeof fields / sizeof *fields);
  if (std::fclose(file) != 0) result = -1;
  if (result) VORN_LOGE("fwrite %s error! errno=%d\n", name, errno);
  return result;
}

int DUMP_IMAGE_CONDITION(const char* enable_property, const char* expected,
                         const char* path_property, const char* label, const char* timestamp,
                         void* data, int width, int height, int size) {
  char path[kTextMax] = {};
  if (const int off = dump_switch(enable_property, expected, path_property, path)) return off;
  char name[kTextMax];
  make_name(name, "%s%s_%dx%d_%s.yuv", path, label, width, height, timestamp);
  FILE* file = std::fopen(name, "wb");
  if (!file) {
    VORN_LOGE("fopen %s fail! errno=%d\n", name, errno);
    return -1;
  }
  const size_t bytes = size > 0 ? static_cast<size_t>(size) : 0;
  const bool written = std::fwrite(data, 1, bytes, file) == bytes;
  if (!written) VORN_LOGE("fwrite %s error! errno=%d\n", name, errno);
  const int result = std::fclose(file);
  if (result && written) VORN_LOGE("fclose %s error! errno=%d\n", name, errno);
  return result;
}

void DUMP_DATA(char*, const char*, int, void*, int) {}

void DUMP_DATA_YNR(char*, const char*, int, void*, int) {}
