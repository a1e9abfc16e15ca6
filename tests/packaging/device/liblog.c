/* Stands in for the device's liblog and its property call, so that the library can be linked and
 * run as on a device: properties come from the environment (dots become underscores), log lines go
 * to standard error. */
#include <android/log.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/system_properties.h>

int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
  va_list args;
  va_start(args, fmt);
  fprintf(stderr, "%d %s: ", prio, tag);
  vfprintf(stderr, fmt, args);
  va_end(args);
  return 1;
}

int __system_property_get(const char* name, char* value) {
  char key[128];
  snprintf(key, sizeof key, "%s", name);
  for (char* c = key; *c; ++c)
    if (*c == '.') *c = '_';
  const char* set = getenv(key);
  snprintf(value, PROP_VALUE_MAX, "%s", set ? set : "");
  return (int)strlen(value);
}
