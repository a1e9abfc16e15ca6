#include <android/log.h>
#include <gtest/gtest.h>
#include <sys/system_properties.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>

#include "base/log.h"
#include "base/platform.h"

namespace {

std::string logged;

}  // namespace

// The device's two calls, answered here.

int __system_property_get(const char* name, char* value) {
  if (std::strcmp(name, "longest") == 0) {
    std::memset(value, 'x', PROP_VALUE_MAX - 1);
    value[PROP_VALUE_MAX - 1] = '\0';
    return PROP_VALUE_MAX - 1;
  }
  value[0] = '\0';
  return 0;
}

int __android_log_print(int priority, const char* tag, const char* format, ...) {
  char text[256];
  va_list args;
  va_start(args, format);
  std::vsnprintf(text, sizeof text, format, args);
  va_end(args);
  logged = std::to_string(priority) + "|" + tag + "|" + text;
  return 1;
}

namespace {

TEST(AndroidPlatform, PrioritiesAreTheDevices) {
  EXPECT_EQ(vorn::kLogDebug, static_cast<int>(ANDROID_LOG_DEBUG));
  EXPECT_EQ(vorn::kLogInfo, static_cast<int>(ANDROID_LOG_INFO));
  EXPECT_EQ(vorn::kLogWarn, static_cast<int>(ANDROID_LOG_WARN));
  EXPECT_EQ(vorn::kLogError, static_cast<int>(ANDROID_LOG_ERROR));
}

TEST(AndroidPlatform, MessagesAreNoFormats) {
  vorn::platform_log(vorn::kLogError, "YCNR_LOG", "L 1, f:100%s %n\n");
  EXPECT_EQ(logged, "6|YCNR_LOG|L 1, f:100%s %n\n");
}

TEST(AndroidPlatform, Properties) {
  char value[vorn::kPropertyMax];
  std::memset(value, 'y', sizeof value);
  EXPECT_EQ(vorn::platform_property("absent", value), 0);
  EXPECT_EQ(value[0], '\0');
  EXPECT_EQ(vorn::platform_property("longest", value), 91);
  EXPECT_EQ(std::strlen(value), 91u);
}

}  // namespace
