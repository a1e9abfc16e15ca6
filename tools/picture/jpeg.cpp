// JPEG, by libjpeg-turbo's planar interface: 4:2:0 files keep their own samples both ways.
#include <libyuv.h>
#include <turbojpeg.h>

#include <algorithm>
#include <cstring>

#include "tools/error.h"
#include "tools/picture/formats.h"

namespace vorn::tool {
namespace {

struct jpeg_guard {
  tjhandle handle;
  explicit jpeg_guard(tjhandle h) : handle(h) {}
  ~jpeg_guard() { tjDestroy(handle); }
};

// Stray bytes between segments, which some cameras leave, harm nothing; every other warning means
// that samples were invented.
bool jpeg_failed(tjhandle handle, int result) {
  if (result == 0) return false;
  return tjGetErrorCode(handle) != TJERR_WARNING ||
         !std::strstr(tjGetErrorStr2(handle), "extraneous bytes");
}

// Files that claim more than their bytes can hold, or that were made to keep a decoder busy: found
// before memory and time are spent on them.
void refuse_bombs(const jpeg_outline& outline, int64_t width, int64_t height, size_t size,
                  const std::string& name) {
  constexpr int kMostScans = 100;  // encoders make about ten
  if (outline.scans > kMostScans) {
    throw error(name, "a JPEG file of " + std::to_string(outline.scans) + " scans; " +
                          std::to_string(kMostScans) + " at most are read");
  }
  const int64_t blocks = ((width + 7) / 8) * ((height + 7) / 8);
  if (outline.huffman && int64_t(size) < blocks / 8)
    throw error(name, "not a readable JPEG file: too short for " + size_text(width, height));
}

// Chroma at any JPEG subsampling to 4:2:0: the mean over the four luma positions of each sample.
void halve_chroma(const uint8_t* src, int src_stride, int x_factor, int y_factor, uint8_t* dst,
                  const frame& f) {
  const int last_x = (f.width - 1) / x_factor;
  const int last_y = (f.height - 1) / y_factor;
  for (int y = 0; y < f.chroma_height(); y++) {
    const uint8_t* const top = src + size_t(std::min(2 * y / y_factor, last_y)) * src_stride;
    const uint8_t* const low = src + size_t(std::min((2 * y + 1) / y_factor, last_y)) * src_stride;
    for (int x = 0; x < f.chroma_width(); x++) {
      const int left = std::min(2 * x / x_factor, last_x);
      const int right = std::min((2 * x + 1) / x_factor, last_x);
      *dst++ = uint8_t((top[left] + top[right] + low[left] + low[right] + 2) >> 2);
    }
  }
}

}  // namespace

frame decode_jpeg(const uint8_t* bytes, size_t size, const std::string& name, stream_info* info) {
  const jpeg_guard jpeg(tjInitDecompress());
  const auto fail = [&] {
    throw error(name, std::string("not a readable JPEG file: ") + tjGetErrorStr2(jpeg.handle));
  };
  int width = 0, height = 0, subsampling = 0, colour = 0;
  if (tjDecompressHeader3(jpeg.handle, bytes, size, &width, &height, &subsampling, &colour) != 0) {
    fail();
  }
  if (width < 1 || height < 1) throw error(name, "not a readable JPEG file: it ends too early");
  need_size(width, height, name);
  const jpeg_outline outline = outline_of_jpeg(bytes, size);
  refuse_bombs(outline, width, height, size, name);
  if (colour == TJCS_CMYK || colour == TJCS_YCCK) throw error(name, "CMYK JPEG is not supported");
  if (info) {
    info->metadata = outline.metadata;
    info->orientation = outline.orientation;
  }
  if (colour == TJCS_RGB) {
    rgb_image image;
    image.width = width;
    image.height = height;
    image.data.resize(size_t(width) * height * 3);
    if (jpeg_failed(jpeg.handle, tjDecompress2(jpeg.handle, bytes, size, image.data.data(), width,
                                               width * 3, height, TJPF_RGB, 0))) {
      fail();
    }
    return from_rgb(image);
  }
  frame f = make_frame(width, height);
  f.gray = subsampling == TJSAMP_GRAY;
  // Luma planes are padded to the chroma subsampling, which can be more than the frame's own
  // padding.
  const int luma_width = tjPlaneWidth(0, width, subsampling);
  const int luma_height = tjPlaneHeight(0, height, subsampling);
  const int chroma_width = f.gray ? 0 : tjPlaneWidth(1, width, subsampling);
  const int chroma_height = f.gray ? 0 : tjPlaneHeight(1, height, subsampling);
  std::vector<uint8_t> luma(size_t(luma_width) * luma_height);
  std::vector<uint8_t> u(size_t(chroma_width) * chroma_height), v(u.size());
  uint8_t* planes[3] = {luma.data(), u.data(), v.data()};
  int strides[3] = {luma_width, chroma_width, chroma_width};
  if (jpeg_failed(jpeg.handle, tjDecompressToYUVPlanes(jpeg.handle, bytes, size, planes, width,
                                                       strides, height, 0))) {
    fail();
  }
  libyuv::CopyPlane(luma.data(), luma_width, f.luma(), f.padded_width, width, height);
  pad_edges(f);
  if (subsampling == TJSAMP_420) {
    merge_chroma(f, u, v);
  } else if (!f.gray) {
    const int x_factor = luma_width / chroma_width, y_factor = luma_height / chroma_height;
    planar_chroma half(f);
    halve_chroma(u.data(), chroma_width, x_factor, y_factor, half.u.data(), f);
    halve_chroma(v.data(), chroma_width, x_factor, y_factor, half.v.data(), f);
    merge_chroma(f, half.u, half.v);
  }
  return f;
}

std::vector<uint8_t> encode_jpeg(const frame& f, int quality, const stream_info& info) {
  const jpeg_guard jpeg(tjInitCompress());
  unsigned char* bytes = nullptr;
  unsigned long size = 0;
  int result;
  if (f.full_range) {
    planar_chroma chroma(f);
    chroma.split(f);
    const uint8_t* planes[3] = {f.luma(), chroma.u.data(), chroma.v.data()};
    int strides[3] = {f.padded_width, f.chroma_width(), f.chroma_width()};
    result = tjCompressFromYUVPlanes(jpeg.handle, planes, f.width, strides, f.height,
                                     f.gray ? TJSAMP_GRAY : TJSAMP_420, &bytes, &size, quality, 0);
  } else {
    const rgb_image image = to_rgb(f);
    result = tjCompress2(jpeg.handle, image.data.data(), f.width, 0, f.height, TJPF_RGB, &bytes,
                         &size, TJSAMP_420, quality, 0);
  }
  const std::string message = result ? tjGetErrorStr2(jpeg.handle) : "";
  std::vector<uint8_t> out;
  if (result == 0) out = with_jpeg_metadata(bytes, size, info.metadata);
  tjFree(bytes);
  if (result != 0) throw error("JPEG", message);
  return out;
}

}  // namespace vorn::tool
