/* The one declaration of the device's header that the library uses. */
#ifndef VORN_STAND_IN_SYSTEM_PROPERTIES_H
#define VORN_STAND_IN_SYSTEM_PROPERTIES_H

#define PROP_VALUE_MAX 92

#ifdef __cplusplus
extern "C" {
#endif
int __system_property_get(const char* name, char* value);
#ifdef __cplusplus
}
#endif

#endif
