/* The declarations of the NDK's header that the sample in docs/android.md uses. */
#ifndef VORN_STAND_IN_NDK_IMAGE_H
#define VORN_STAND_IN_NDK_IMAGE_H

#include <stdint.h>

typedef struct AImage AImage;
typedef enum { AMEDIA_OK = 0 } media_status_t;
media_status_t AImage_getWidth(const AImage* image, int32_t* width);
media_status_t AImage_getHeight(const AImage* image, int32_t* height);
media_status_t AImage_getPlaneData(const AImage* image, int planeIdx, uint8_t** data, int* length);
media_status_t AImage_getPlaneRowStride(const AImage* image, int planeIdx, int32_t* stride);
media_status_t AImage_getPlanePixelStride(const AImage* image, int planeIdx, int32_t* stride);

#endif
