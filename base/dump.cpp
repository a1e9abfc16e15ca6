#include "base/dump.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <initializer_list>

#include "base/log.h"
#include "base/platform.h"

namespace {

constexpr char kDefaultPath[] = "/data/vendor/cameraserver/";
constexpr int kTextMax = 256;  // property values and file names

// Reads both properties of a dump. Returns 0 when it is switched on, else the comparison's result.
// A path that is longer than a property can be is cut, which one line says.
int dump_switch(const char* function, const char* enable_property, const char* expected,
                const char* path_property, char path[kTextMax]) {
  char enable[kTextMax] = {};
  getProperty_NR(enable_property, "no", enable);
  getProperty_NR(path_property, kDefaultPath, path);
  const int off = std::strcmp(enable, expected);
  char value[vorn::kPropertyMax];
  const int length = off ? 0 : vorn::platform_property(path_property, value);
  if (length >= vorn::kPropertyMax)
    VORN_LOG_AS(vorn::kLogError, function, "%s: %d characters cut to %d\n", path_property, length,
                vorn::kPropertyMax - 1);
  return off;
}

// Writes a file name; one that is longer than the buffer is cut.
__attribute__((format(printf, 2, 3))) void make_name(char name[kTextMax], const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(name, kTextMax, format, arguments);
  va_end(arguments);
}

// Opens a file for writing as fopen does, but never waits for a reader, and follows a link only if
// it is the process's own: dump names can be guessed. Returns -1 with errno.
int open_file(const char* name) {
  constexpr int kFlags = O_WRONLY | O_CREAT | O_NONBLOCK | O_CLOEXEC;
  int file = open(name, kFlags | O_NOFOLLOW, 0666);
  struct stat kind;
  if (file < 0 && errno == ELOOP && lstat(name, &kind) == 0 && kind.st_uid == geteuid())
    file = open(name, kFlags, 0666);
  if (file < 0) return -1;
  const bool known = fstat(file, &kind) == 0;
  if (known && S_ISCHR(kind.st_mode)) return file;
  if (known && S_ISREG(kind.st_mode) && ftruncate(file, 0) == 0) return file;
  close(file);
  errno = ENXIO;
  return -1;
}

// Opens a dump's file. The log line carries the name of the dump's function.
FILE* open_dump(const char* function, const char* name) {
  const int descriptor = open_file(name);
  FILE* file = descriptor < 0 ? nullptr : fdopen(descriptor, "wb");
  const int error = errno;
  if (!file && descriptor >= 0) close(descriptor);
  if (!file) VORN_LOG_AS(vorn::kLogError, function, "fopen %s fail! errno=%d\n", name, error);
  return file;
}

struct field {
  const char* name;
  int value;
};

// A tuning as one "name value " line per field. Returns 0, the switch's comparison, or -1 when the
// file could not be written whole.
int dump_fields(const char* function, const char* algorithm, const char* enable_property,
                const char* expected, const char* path_property, const char* timestamp,
                std::initializer_list<field> fields) {
  char path[kTextMax] = {};
  if (const int off = dump_switch(function, enable_property, expected, path_property, path))
    return off;
  char name[kTextMax];
  make_name(name, "%s_%s_%s_turning_param.txt", path, timestamp, algorithm);
  FILE* file = open_dump(function, name);
  if (!file) return -1;
  int result = 0;
  for (const field& f : fields)
    if (std::fprintf(file, "%s %d \n", f.name, f.value) < 0) result = -1;
  if (std::fclose(file) != 0) result = -1;
  if (result) VORN_LOG_AS(vorn::kLogError, function, "fwrite %s error! errno=%d\n", name, errno);
  return result;
}

}  // namespace

int DUMP_ynr_config_file(const char* enable_property, const char* expected,
                         const char* path_property, const char* timestamp,
                         ycnr_ynr_tuning_param* tuning) {
  const ycnr_ynr_tuning_param& t = *tuning;
  return dump_fields(__func__, "ynr2", enable_property, expected, path_property, timestamp,
                     {{"enable", t.enable},
                      {"layer", t.layer},
                      {"0pIntensity", t.pIntensity[0]},
                      {"1pIntensity", t.pIntensity[1]},
                      {"2pIntensity", t.pIntensity[2]},
                      {"3pIntensity", t.pIntensity[3]},
                      {"4pIntensity", t.pIntensity[4]},
                      {"0pRadius", t.pRadius[0]},
                      {"1pRadius", t.pRadius[1]},
                      {"2pRadius", t.pRadius[2]},
                      {"3pRadius", t.pRadius[3]},
                      {"4pRadius", t.pRadius[4]},
                      {"param0", t.param0},
                      {"param1", t.param1},
                      {"param2", t.param2}});
}

int DUMP_cnr_config_file(const char* enable_property, const char* expected,
                         const char* path_property, const char* timestamp,
                         ycnr_cnr_tuning_param* tuning) {
  const ycnr_cnr_tuning_param& t = *tuning;
  return dump_fields(__func__, "cnr4", enable_property, expected, path_property, timestamp,
                     {{"enable", t.enable},
                      {"range_factor", t.range_factor},
                      {"smooth_radius", t.smooth_radius},
                      {"scale", t.scale},
                      {"step", t.step},
                      {"color_edge_u", t.color_edge_u},
                      {"color_edge_v", t.color_edge_v},
                      {"saturation", t.saturation},
                      {"param0", t.param0},
                      {"param1", t.param1},
                      {"param2", t.param2}});
}

void vorn::dump_frame(const char* enable_property, const char* path_property, const char* label,
                      const char* timestamp, const _tag_uni_image& frame) {
  const int64_t bytes = int64_t{frame.width} * frame.height * 3 / 2;
  DUMP_IMAGE_CONDITION(enable_property, "yes", path_property, label, timestamp, frame.plane[0],
                       frame.width, frame.height, static_cast<int>(bytes));
}

bool vorn::dumps(const char* enable_property) {
  char enable[kTextMax] = {};
  getProperty_NR(enable_property, "no", enable);
  return std::strcmp(enable, "yes") == 0;
}

int DUMP_IMAGE_CONDITION(const char* enable_property, const char* expected,
                         const char* path_property, const char* label, const char* timestamp,
                         void* data, int width, int height, int size) {
  char path[kTextMax] = {};
  if (const int off = dump_switch(__func__, enable_property, expected, path_property, path))
    return off;
  char name[kTextMax];
  make_name(name, "%s%s_%dx%d_%s.yuv", path, label, width, height, timestamp);
  FILE* file = open_dump(__func__, name);
  if (!file) return -1;
  const size_t bytes = size > 0 ? static_cast<size_t>(size) : 0;
  const bool written = std::fwrite(data, 1, bytes, file) == bytes;
  if (!written) VORN_LOGE("fwrite %s error! errno=%d\n", name, errno);
  const int result = std::fclose(file);
  if (result && written) VORN_LOGE("fclose %s error! errno=%d\n", name, errno);
  return result;
}
