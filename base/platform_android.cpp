#include "base/platform.h"

#include <android/log.h>
#include <sys/system_properties.h>

namespace vorn {

int platform_property(const char* name, char value[kPropertyMax]) {
  static_assert(PROP_VALUE_MAX <= kPropertyMax, "property values must fit");
  value[0] = '\0';
  return __system_property_get(name, value);
}

void platform_log(int priority, const char* tag, const char* message) {
  __android_log_print(priority, tag, "%s", message);
}

}  // namespace vorn
