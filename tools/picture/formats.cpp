#include "tools/picture/formats.h"

#include <libyuv.h>

#include "tools/error.h"

namespace vorn::tool {

std::string display_name(const std::string& path, bool reading) {
  if (path != "-") return path;
  return reading ? "standard input" : "standard output";
}

std::string size_text(int64_t width, int64_t height) {
  return std::to_string(width) + "x" + std::to_string(height);
}

void need_size(int64_t width, int64_t height, const std::string& name) {
  if (!frame_size_ok(width, height)) {
    throw error(name, size_text(width, height) + " pixels is no size that can be processed");
  }
}

void reshape(frame& f, int width, int height) {
  if (f.width != width || f.height != height) f = make_frame(width, height);
}

planar_chroma::planar_chroma(const frame& f)
    : u(size_t(f.chroma_width()) * f.chroma_height()), v(u.size()) {}

void planar_chroma::split(const frame& f) {
  libyuv::SplitUVPlane(f.chroma(), f.padded_width, u.data(), f.chroma_width(), v.data(),
                       f.chroma_width(), f.chroma_width(), f.chroma_height());
}

void merge_chroma(frame& f, const std::vector<uint8_t>& u, const std::vector<uint8_t>& v) {
  libyuv::MergeUVPlane(u.data(), f.chroma_width(), v.data(), f.chroma_width(), f.chroma(),
                       f.padded_width, f.chroma_width(), f.chroma_height());
}

}  // namespace vorn::tool
