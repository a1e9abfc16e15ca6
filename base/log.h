// Log lines, verbosity, properties and clocks: leaf services that every folder may use.
//
// One line format: "L <line>, <function>:<text>", tag "YCNR_LOG". A line is written when
// nr_log_Level reaches its threshold: ERROR 1, WARN 2, INFO 3, DEBUG 4; level 0 is silent.
#pragma once

#include "vorn_ycnr.h"

// Process-wide verbosity, shared by all handles and set by every init. Starts at 4.
extern VORN_API int nr_log_Level;

// Sets nr_log_Level from "ro.debuggable" (4 or 3), then from "persist.vendor.cam.nr_api.log" (any
// value >= 0, as a 32-bit number). A property that is not set changes nothing.
VORN_API void initLogLevel();

// Milliseconds with a fraction, on the monotonic clock.
VORN_API double getTime();

// Copies a property into value (at least 256 bytes); when it is not set, default_value, cut at 255
// characters and followed by zeros up to 256 bytes.
VORN_API void getProperty_NR(const char* name, const char* default_value, char* value);

// Local time as fourteen digits YYYYmmddHHMMSS; writes nothing when the local time is unknown.
VORN_API void getTimestamp_NR(char* buffer, int size);

namespace vorn {

enum log_priority { kLogDebug = 3, kLogInfo = 4, kLogWarn = 5, kLogError = 6 };

// The level from which on lines of a priority appear.
constexpr int log_threshold(log_priority priority) {
  return priority == kLogDebug ? 4 : priority == kLogInfo ? 3 : priority == kLogWarn ? 2 : 1;
}

bool log_enabled(log_priority priority);

// Writes one line through the platform, whatever the level: see VORN_LOG.
void log_write(log_priority priority, const char* format, ...)
    __attribute__((format(printf, 2, 3)));

int log_level();

// Sets the level, returning the former one. From then on initLogLevel leaves it alone; a negative
// level hands it back to the properties.
int set_log_level(int level);

// Sends all lines to sink (without their line feed), or to the platform when it is null. Returns
// when the former sink is not running any more. What a sink throws is dropped; what is logged while
// it runs goes to the platform.
void set_log_sink(void (*sink)(void* context, int priority, const char* message), void* context);

}  // namespace vorn

// Logs as a given place: a step under the name of the operation that it belongs to, or a line whose
// number is part of the format. text is a literal format that follows "L %d, %s:".
#define VORN_LOG_AT(priority, function, line, text, ...)                              \
  do {                                                                                \
    if (vorn::log_enabled(priority))                                                  \
      vorn::log_write(priority, "L %d, %s:" text, (line), (function), ##__VA_ARGS__); \
  } while (0)

// The same under this line's number, and from the place itself.
#define VORN_LOG_AS(priority, function, text, ...) \
  VORN_LOG_AT(priority, function, __LINE__, text, ##__VA_ARGS__)
#define VORN_LOGD(text, ...) VORN_LOG_AS(vorn::kLogDebug, __func__, text, ##__VA_ARGS__)
#define VORN_LOGI(text, ...) VORN_LOG_AS(vorn::kLogInfo, __func__, text, ##__VA_ARGS__)
#define VORN_LOGW(text, ...) VORN_LOG_AS(vorn::kLogWarn, __func__, text, ##__VA_ARGS__)
#define VORN_LOGE(text, ...) VORN_LOG_AS(vorn::kLogError, __func__, text, ##__VA_ARGS__)
