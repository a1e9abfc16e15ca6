// Raw NV12, NV21 and I420: frames one after the other, nothing else.
#include <libyuv.h>

#include <algorithm>
#include <cctype>
#include <cstdio>

#include "tools/error.h"
#include "tools/picture/formats.h"
#include "tools/picture/output_file.h"

namespace vorn::tool {
namespace {

// "..._1920x1080_..." or "...-1920x1080.nv12": the last such pair in the file's name.
bool size_in_name(const std::string& path, int& width, int& height) {
  const std::string name = path.substr(path.rfind('/') + 1);
  bool found = false;
  for (size_t at = 0; at < name.size(); at++) {
    if (!std::isdigit(uint8_t(name[at])) || (at > 0 && std::isalnum(uint8_t(name[at - 1]))))
      continue;
    int w = 0, h = 0, used = 0;
    if (std::sscanf(name.c_str() + at, "%7dx%7d%n", &w, &h, &used) == 2 && used > 0 &&
        !std::isalnum(uint8_t(name[at + used])) && name[at + used] != 0) {
      width = w;
      height = h;
      found = true;
    }
  }
  return found;
}

class raw_reader : public frame_reader {
 public:
  raw_reader(const std::string& path, file_kind kind, const picture_options& options)
      : in_(path), kind_(kind), width_(options.width), height_(options.height) {
    if (width_ == 0 && !size_in_name(path, width_, height_)) {
      throw error(in_.name(), "raw pictures need --size WxH (or a name like photo_1920x1080.nv12)");
    }
    need_size(width_, height_, in_.name());
    stride_ = options.stride ? options.stride : width_;
    if (stride_ < width_) {
      throw error(in_.name(), "--stride " + std::to_string(stride_) + " is less than the width " +
                                  std::to_string(width_));
    }
    const int rows = (height_ + 1) / 2;
    // The chroma rows of an odd width are one byte longer than the luma rows.
    chroma_stride_ = kind == file_kind::i420 ? stride_ / 2 + stride_ % 2
                                             : std::max(stride_, (width_ + 1) / 2 * 2);
    frame_bytes_ = int64_t(stride_) * height_ +
                   int64_t(chroma_stride_) * rows * (kind == file_kind::i420 ? 2 : 1);
    const int64_t size = in_.size();
    if (size >= 0) {
      if (size == 0 || size % frame_bytes_ != 0) {
        throw error(in_.name(), std::to_string(size) + " bytes is not a whole number of " +
                                    size_text(width_, height_) + " " + file_kind_name(kind) +
                                    " frames of " + std::to_string(frame_bytes_) + " bytes");
      }
      count_ = size / frame_bytes_;
    }
  }

  bool next(frame& f) override {
    buffer_.resize(size_t(frame_bytes_));
    const size_t got = in_.read(buffer_.data(), buffer_.size());
    if (got == 0 && index_ > 0 && !in_.failed()) return false;
    if (got != buffer_.size()) {
      throw error(in_.name(), "ends within frame " + std::to_string(index_));
    }
    reshape(f, width_, height_);
    libyuv::CopyPlane(buffer_.data(), stride_, f.luma(), f.padded_width, width_, height_);
    const uint8_t* const chroma = buffer_.data() + size_t(stride_) * height_;
    const int w = f.chroma_width(), h = f.chroma_height();
    if (kind_ == file_kind::i420) {
      libyuv::MergeUVPlane(chroma, chroma_stride_, chroma + size_t(chroma_stride_) * h,
                           chroma_stride_, f.chroma(), f.padded_width, w, h);
    } else if (kind_ == file_kind::nv21) {
      libyuv::SwapUVPlane(chroma, chroma_stride_, f.chroma(), f.padded_width, w, h);
    } else {
      libyuv::CopyPlane(chroma, chroma_stride_, f.chroma(), f.padded_width, 2 * w, h);
    }
    pad_edges(f);
    index_++;
    return true;
  }
  int64_t frame_count() const override { return count_; }

 private:
  input_stream in_;
  file_kind kind_;
  int width_, height_;
  int stride_ = 0, chroma_stride_ = 0;  // bytes
  int64_t frame_bytes_ = 0;
  int64_t count_ = 0;
  int64_t index_ = 0;
  std::vector<uint8_t> buffer_;
};

class raw_writer : public frame_writer {
 public:
  raw_writer(const std::string& path, file_kind kind, int stride)
      : file_(path), kind_(kind), stride_(stride) {}
  void write(const frame& f) override {
    const int stride = stride_ ? stride_ : f.width;
    if (stride < f.width) {
      throw error("--out-stride " + std::to_string(stride),
                  "less than the width " + std::to_string(f.width));
    }
    const int w = f.chroma_width(), h = f.chroma_height();
    const int chroma_stride =
        kind_ == file_kind::i420 ? stride / 2 + stride % 2 : std::max(stride, 2 * w);
    std::vector<uint8_t> out(size_t(stride) * f.height +
                             size_t(chroma_stride) * h * (kind_ == file_kind::i420 ? 2 : 1));
    libyuv::CopyPlane(f.luma(), f.padded_width, out.data(), stride, f.width, f.height);
    uint8_t* const chroma = out.data() + size_t(stride) * f.height;
    if (kind_ == file_kind::i420) {
      libyuv::SplitUVPlane(f.chroma(), f.padded_width, chroma, chroma_stride,
                           chroma + size_t(chroma_stride) * h, chroma_stride, w, h);
    } else if (kind_ == file_kind::nv21) {
      libyuv::SwapUVPlane(f.chroma(), f.padded_width, chroma, chroma_stride, w, h);
    } else {
      libyuv::CopyPlane(f.chroma(), f.padded_width, chroma, chroma_stride, 2 * w, h);
    }
    file_.write(out.data(), out.size());
  }
  void finish() override { file_.commit(); }

 private:
  output_file file_;
  file_kind kind_;
  int stride_;
};

}  // namespace

std::unique_ptr<frame_reader> open_raw_reader(const std::string& path, file_kind kind,
                                              const picture_options& options) {
  return std::make_unique<raw_reader>(path, kind, options);
}

std::unique_ptr<frame_writer> open_raw_writer(const std::string& path, file_kind kind, int stride) {
  return std::make_unique<raw_writer>(path, kind, stride);
}

}  // namespace vorn::tool
