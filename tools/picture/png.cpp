// PNG, by libpng's simplified interface.
#include <png.h>

#include <algorithm>

#include "tools/error.h"
#include "tools/picture/formats.h"

namespace vorn::tool {
namespace {

// Frees what libpng holds for an image, also when something is thrown.
struct png_guard {
  png_image image = {};
  png_guard() { image.version = PNG_IMAGE_VERSION; }
  ~png_guard() { png_image_free(&image); }
};

// stride: bytes from one row to the next.
std::vector<uint8_t> encode_png_samples(const uint8_t* samples, int width, int height, int stride,
                                        uint32_t format) {
  constexpr int kLongestSide = 1000000;  // libpng's own limit
  if (std::max(width, height) > kLongestSide)
    throw error("PNG", size_text(width, height) + " is too large: " + std::to_string(kLongestSide) +
                           " pixels a side at most");
  png_guard png;
  png.image.width = width;
  png.image.height = height;
  png.image.format = format;
  std::vector<uint8_t> out(PNG_IMAGE_PNG_SIZE_MAX(png.image));
  png_alloc_size_t size = out.size();
  if (!png_image_write_to_memory(&png.image, out.data(), &size, 0, samples, stride, nullptr)) {
    throw error("PNG", png.image.message);
  }
  out.resize(size);
  return out;
}

// Uncompressed bytes of a picture whose header libpng has accepted: by bits per sample (byte 24)
// and samples per pixel, which follow from the colour type (byte 25).
int64_t least_bytes(const uint8_t* bytes, int64_t width, int64_t height) {
  constexpr int kSamples[7] = {1, 1, 3, 1, 2, 1, 4};
  const int64_t bits = int64_t{bytes[24]} * kSamples[bytes[25] % 7];
  return height * ((width * bits + 7) / 8);
}

}  // namespace

frame decode_png(const uint8_t* bytes, size_t size, const std::string& name, stream_info* info) {
  png_guard png;
  if (!png_image_begin_read_from_memory(&png.image, bytes, size)) {
    throw error(name, std::string("not a readable PNG file: ") + png.image.message);
  }
  const int64_t width = png.image.width, height = png.image.height;
  need_size(width, height, name);
  // Compression makes at most a thousand bytes of one, so a short file that claims to be large is
  // found before memory is taken for it.
  constexpr int64_t kMostFromOne = 1032;
  if (least_bytes(bytes, width, height) / kMostFromOne > int64_t(size))
    throw error(name, "not a readable PNG file: too short for " + size_text(width, height));
  if (info) info->metadata = png_metadata(bytes, size);
  // Or else 16-bit files that do not say how they are coded would be taken for linear light.
  png.image.flags |= PNG_IMAGE_FLAG_16BIT_sRGB;
  const bool gray = !(png.image.format & PNG_FORMAT_FLAG_COLOR);
  png.image.format = gray ? PNG_FORMAT_GRAY : PNG_FORMAT_RGB;
  const png_color white = {255, 255, 255};  // under transparent pixels
  rgb_image image;
  image.width = int(width);
  image.height = int(height);
  frame f;
  if (gray) {
    f = make_frame(image.width, image.height);
    f.gray = true;
  } else {
    image.data.resize(size_t(width) * height * 3);
  }
  uint8_t* const samples = gray ? f.luma() : image.data.data();
  const int row = gray ? f.padded_width : image.width * 3;
  if (!png_image_finish_read(&png.image, &white, samples, row, nullptr)) {
    throw error(name, std::string("not a readable PNG file: ") + png.image.message);
  }
  if (!gray) return from_rgb(image);
  pad_edges(f);
  return f;
}

std::vector<uint8_t> encode_png(const rgb_image& image) {
  return encode_png_samples(image.data.data(), image.width, image.height, image.width * 3,
                            PNG_FORMAT_RGB);
}

std::vector<uint8_t> encode_png(const frame& f) {
  if (!f.gray || !f.full_range) return encode_png(to_rgb(f));
  return encode_png_samples(f.luma(), f.width, f.height, f.padded_width, PNG_FORMAT_GRAY);
}

}  // namespace vorn::tool
