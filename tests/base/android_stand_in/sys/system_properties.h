/* The one call and the one bound of the device's header that the platform file uses. */
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

#define PROP_VALUE_MAX 92

int __system_property_get(const char* name, char* value);

#ifdef __cplusplus
}
#endif
