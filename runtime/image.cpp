#include "runtime/image.h"

#include <cstdint>
#include <cstring>

#include "base/log.h"
#include "runtime/arithmetic.h"

namespace {

using vorn::wrapping_product;

// Start of a plane. Integer arithmetic: a record may be laid out over no buffer, or with a size
// that no buffer has; its planes are never used then.
unsigned char* plane_at(unsigned char* buffer, int offset) {
  return reinterpret_cast<unsigned char*>(reinterpret_cast<uintptr_t>(buffer) +
                                          static_cast<uintptr_t>(intptr_t{offset}));
}

// Planes and strides of a layout over one buffer. The offsets between planes are w * h bytes.
// Returns 0, or -2 for an unknown type.
int lay_out(_tag_uni_image* img, unsigned char* buffer) {
  const int width = img->width;
  const int plane_size = wrapping_product(width, img->height);
  switch (img->type) {
    case VORN_IMAGE_GRAY:
      img->plane[0] = buffer;
      img->stride[0] = width;
      return 0;
    case VORN_IMAGE_RGB:
    case VORN_IMAGE_BGR:
      img->plane[0] = buffer;
      img->stride[0] = wrapping_product(width, 3);
      return 0;
    case VORN_IMAGE_YUV420SP:
    case VORN_IMAGE_YVU420SP:
      img->plane[0] = buffer;
      img->plane[1] = plane_at(buffer, plane_size);
      img->stride[0] = img->stride[1] = width;
      return 0;
    case VORN_IMAGE_PLANAR3:
      img->plane[0] = buffer;
      img->plane[1] = plane_at(buffer, plane_size);
      img->plane[2] = plane_at(img->plane[1], plane_size);
      img->stride[0] = img->stride[1] = img->stride[2] = width;
      return 0;
    default:
      return -2;
  }
}

bool known_type(int type) {
  return type >= VORN_IMAGE_GRAY && type <= VORN_IMAGE_PLANAR3;
}

}  // namespace

int create_uni_image(_tag_uni_image* img, unsigned char* buffer, int width, int height, int type) {
  img->type = type;
  img->width = width;
  img->height = height;
  if (!known_type(type)) {
    VORN_LOGD("image type error");
    return -2;
  }
  return lay_out(img, buffer);
}

void copy_uni_image(_tag_uni_image* dst, _tag_uni_image* src) {
  if (!dst || !src) return;
  if (dst->stride[0] == src->stride[0]) {
    const int bytes = wrapping_product(dst->stride[0], dst->height);
    if (bytes > 0) std::memcpy(dst->plane[0], src->plane[0], static_cast<size_t>(bytes));
    return;
  }
  if (dst->width <= 0) return;
  unsigned char* to = dst->plane[0];
  const unsigned char* from = src->plane[0];
  for (int row = 0; row < dst->height; ++row) {
    std::memcpy(to, from, static_cast<size_t>(dst->width));
    to += dst->stride[0];
    from += src->stride[0];
  }
}
