#include "runtime/exported/image.h"

#include <climits>
#include <cstddef>
#include <cstdint>
#include <new>

#include "runtime/image.h"

int create_uni_image(_tag_uni_image* img, int width, int height, int type) {
  if (!img) return -1;
  img->type = type;
  img->width = width;
  img->height = height;
  unsigned char* buffer = nullptr;
  if (type >= VORN_IMAGE_GRAY && type <= VORN_IMAGE_PLANAR3) {
    // Three bytes a pixel for every layout but gray, also where 4:2:0 planes need only half of
    // that.
    const int64_t pixels = int64_t{width} * height;
    const int64_t limit = type == VORN_IMAGE_GRAY ? INT_MAX : INT_MAX / 3;
    if (pixels < 0 || pixels > limit) throw std::bad_alloc();  // the count leaves 32 bits
    const size_t size = static_cast<size_t>(type == VORN_IMAGE_GRAY ? pixels : pixels * 3);
    buffer = new unsigned char[size]();
  }
  return create_uni_image(img, buffer, width, height, type);  // which refuses other types
}

void destroy_uni_image(_tag_uni_image* img) {
  if (!img || !img->plane[0]) return;
  delete[] img->plane[0];
  img->plane[0] = nullptr;
}
