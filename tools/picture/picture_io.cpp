#include "tools/picture/picture_io.h"

#include <libyuv.h>
#include <png.h>
#include <turbojpeg.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "tools/error.h"
#include "tools/picture/output_file.h"

namespace vorn::tool {
namespace {

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

// --- PNG -----------------------------------------------------------------------------------------

// Frees what libpng holds for an image, also when something is thrown.
struct png_guard {
  png_image image = {};
  png_guard() { image.version = PNG_IMAGE_VERSION; }
  ~png_guard() { png_image_free(&image); }
};

// stride: bytes from one row to the next.
std::vector<uint8_t> encode_png_samples(const uint8_t* samples, int width, int height, int stride,
                                        uint32_t format) {
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

// --- JPEG ----------------------------------------------------------------------------------------

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

// Copies the segments that describe the picture, not its coding.
std::vector<uint8_t> jpeg_markers(const uint8_t* bytes, size_t size) {
  std::vector<uint8_t> out;
  size_t at = 2;
  while (at + 4 <= size && bytes[at] == 0xff) {
    const int code = bytes[at + 1];
    const size_t length = size_t(bytes[at + 2]) << 8 | bytes[at + 3];
    if (code == 0xda || length < 2 || at + 2 + length > size) break;  // the scan begins
    if (code == 0xe1 || code == 0xe2 || code == 0xfe) {
      out.insert(out.end(), bytes + at, bytes + at + 2 + length);
    }
    at += 2 + length;
  }
  return out;
}

// The orientation entry of an EXIF segment's first directory; 1 where there is none or its bytes
// make no sense.
int exif_orientation(const uint8_t* bytes, size_t size) {
  constexpr uint8_t kExif[] = {'E', 'x', 'i', 'f', 0, 0};
  if (size < sizeof kExif || std::memcmp(bytes, kExif, sizeof kExif) != 0) return 1;
  const uint8_t* const tiff = bytes + sizeof kExif;
  const size_t length = size - sizeof kExif;
  if (length < 8) return 1;
  const bool little = tiff[0] == 'I';
  const auto number = [&](size_t at, int count) {
    uint32_t value = 0;
    for (int i = 0; i < count; i++)
      value = value << 8 | tiff[at + size_t(little ? count - 1 - i : i)];
    return value;
  };
  const size_t directory = number(4, 4);
  if (directory > length - 2) return 1;
  constexpr size_t kEntry = 12;
  constexpr uint32_t kOrientation = 0x0112, kShort = 3;
  for (uint32_t i = 0; i < number(directory, 2); i++) {
    const size_t entry = directory + 2 + i * kEntry;
    if (entry + kEntry > length) return 1;
    if (number(entry, 2) != kOrientation || number(entry + 2, 2) != kShort) continue;
    const int orientation = int(number(entry + 8, 2));
    return orientation >= 1 && orientation <= 8 ? orientation : 1;
  }
  return 1;
}

// Of copied segments.
int orientation_of(const std::vector<uint8_t>& markers) {
  for (size_t at = 0; at + 4 <= markers.size();) {
    const size_t length = size_t(markers[at + 2]) << 8 | markers[at + 3];
    if (markers[at + 1] == 0xe1) {
      const int orientation = exif_orientation(&markers[at + 4], length - 2);
      if (orientation != 1) return orientation;
    }
    at += 2 + length;
  }
  return 1;
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

void merge_chroma(frame& f, const std::vector<uint8_t>& u, const std::vector<uint8_t>& v) {
  libyuv::MergeUVPlane(u.data(), f.chroma_width(), v.data(), f.chroma_width(), f.chroma(),
                       f.padded_width, f.chroma_width(), f.chroma_height());
}

// The chroma planes apart, U then V.
struct planar_chroma {
  std::vector<uint8_t> u, v;
  explicit planar_chroma(const frame& f)
      : u(size_t(f.chroma_width()) * f.chroma_height()), v(u.size()) {}
  void split(const frame& f) {
    libyuv::SplitUVPlane(f.chroma(), f.padded_width, u.data(), f.chroma_width(), v.data(),
                         f.chroma_width(), f.chroma_width(), f.chroma_height());
  }
};

// --- colours -------------------------------------------------------------------------------------

// BT.601 in units of 1/65536. Precise enough that what to_rgb() makes of samples, from_rgb() turns
// into the same samples again, wherever the colour exists in RGB at all.
struct from_yuv {
  int black;  // luma code
  int y, v_to_r, u_to_g, v_to_g, u_to_b;
};
constexpr from_yuv kFromFullRange = {0, 65536, 91881, 22554, 46802, 116130};
constexpr from_yuv kFromNarrowRange = {16, 76309, 104597, 25675, 53279, 132201};
constexpr int kRToY = 19595, kGToY = 38470, kBToY = 7471;
constexpr int kRToU = 11058, kGToU = 21710, kBToU = 32768;
constexpr int kRToV = 32768, kGToV = 27439, kBToV = 5329;

// value / 2^bits, rounded, as a byte.
template <int bits>
uint8_t whole(int value) {
  return uint8_t(std::clamp((value + (1 << (bits - 1))) >> bits, 0, 255));
}

// --- byte streams --------------------------------------------------------------------------------

class input_stream {
 public:
  explicit input_stream(const std::string& path) : name_(display_name(path, true)) {
    owned_ = path != "-";
    file_ = owned_ ? std::fopen(path.c_str(), "rb") : stdin;
    if (!file_) throw error(name_, std::string("cannot be read: ") + std::strerror(errno));
  }
  input_stream(const uint8_t* bytes, size_t size, const std::string& name) : name_(name) {
    file_ = fmemopen(const_cast<uint8_t*>(bytes), size, "rb");
    if (!file_) throw error(name_, std::string("cannot be read: ") + std::strerror(errno));
  }
  ~input_stream() {
    if (owned_) std::fclose(file_);
  }
  input_stream(const input_stream&) = delete;
  input_stream& operator=(const input_stream&) = delete;

  const std::string& name() const { return name_; }
  size_t read(void* bytes, size_t size) { return std::fread(bytes, 1, size, file_); }
  bool failed() const { return std::ferror(file_); }

  // Up to the line feed, which is dropped. False at the end of the file or beyond `limit`.
  bool read_line(std::string& line, size_t limit) {
    line.clear();
    for (int c; (c = std::getc(file_)) != EOF;) {
      if (c == '\n') return true;
      if (line.size() == limit) return false;
      line.push_back(char(c));
    }
    return false;
  }
  // Bytes in the file, or -1 when it has no end that can be sought.
  int64_t size() {
    const off_t here = ftello(file_);
    if (here < 0 || fseeko(file_, 0, SEEK_END) != 0) return -1;
    const int64_t end = ftello(file_);
    fseeko(file_, here, SEEK_SET);
    return end;
  }

 private:
  std::string name_;
  std::FILE* file_ = nullptr;
  bool owned_ = true;
};

// Takes the geometry of f over when it does not fit.
void reshape(frame& f, int width, int height) {
  if (f.width != width || f.height != height) f = make_frame(width, height);
}

// --- readers -------------------------------------------------------------------------------------

class single_reader : public frame_reader {
 public:
  explicit single_reader(frame f) : frame_(std::move(f)) {}
  bool next(frame& f) override {
    if (given_) return false;
    given_ = true;
    f = std::move(frame_);
    return true;
  }
  int64_t frame_count() const override { return 1; }

 private:
  frame frame_;
  bool given_ = false;
};

class y4m_reader : public frame_reader {
 public:
  explicit y4m_reader(std::unique_ptr<input_stream> in) : in_(std::move(in)) {
    constexpr size_t kLongest = 4096;
    std::string line;
    if (!in_->read_line(line, kLongest) || line.rfind("YUV4MPEG2", 0) != 0 ||
        (line.size() > 9 && line[9] != ' ')) {
      fail("not a y4m stream (no YUV4MPEG2 line)");
    }
    int64_t width = 0, height = 0;
    for (size_t at = 9; at < line.size();) {
      at++;  // the blank
      size_t end = line.find(' ', at);
      if (end == std::string::npos) end = line.size();
      const std::string item = line.substr(at, end - at);
      at = end;
      if (item.empty()) continue;
      const std::string value = item.substr(1);
      if (item[0] == 'W') width = number(value);
      if (item[0] == 'H') height = number(value);
      if (item[0] == 'C') {
        mono_ = value == "mono";
        if (!mono_ && value != "420" && value != "420jpeg" && value != "420mpeg2" &&
            value != "420paldv") {
          fail("chroma format C" + value.substr(0, 20) +
               " is not supported (420, 420jpeg, 420mpeg2, 420paldv and mono are)");
        }
      }
      if (item == "XCOLORRANGE=FULL") full_range_ = true;
    }
    if (width < 1 || height < 1) fail("the YUV4MPEG2 line has no valid W and H");
    need_size(width, height, in_->name());
    width_ = int(width);
    height_ = int(height);
    info.y4m_header = line;
    const int64_t size = in_->size();
    const int64_t frame_bytes = 6 + int64_t(width_) * height_ +
                                (mono_ ? 0 : 2 * int64_t((width_ + 1) / 2) * ((height_ + 1) / 2));
    if (size > 0) count_ = (size - int64_t(line.size()) - 1) / frame_bytes;
  }

  bool next(frame& f) override {
    std::string line;
    if (!in_->read_line(line, 1024)) {
      if (in_->failed()) fail(std::string("cannot be read: ") + std::strerror(errno));
      if (!line.empty()) fail("frame " + std::to_string(index_) + " has no FRAME line");
      if (index_ == 0) fail("holds no frame");
      return false;
    }
    if (line != "FRAME" && line.rfind("FRAME ", 0) != 0) {
      fail("frame " + std::to_string(index_) + " has no FRAME line");
    }
    reshape(f, width_, height_);
    f.full_range = full_range_;
    f.gray = mono_;
    for (int y = 0; y < height_; y++) need(f.luma() + size_t(y) * f.padded_width, width_);
    if (mono_) {
      std::memset(f.chroma(), 128, f.luma_size() / 2);
    } else {
      planar_chroma planes(f);
      need(planes.u.data(), planes.u.size());
      need(planes.v.data(), planes.v.size());
      merge_chroma(f, planes.u, planes.v);
    }
    pad_edges(f);
    index_++;
    return true;
  }
  int64_t frame_count() const override { return count_; }

 private:
  static int64_t number(const std::string& digits) {
    if (digits.empty() || digits.size() > 9) return 0;
    int64_t value = 0;
    for (const char c : digits) {
      if (c < '0' || c > '9') return 0;
      value = value * 10 + (c - '0');
    }
    return value;
  }
  void need(uint8_t* bytes, size_t size) {
    if (in_->read(bytes, size) != size) fail("ends within frame " + std::to_string(index_));
  }
  [[noreturn]] void fail(const std::string& cause) const { throw error(in_->name(), cause); }

  std::unique_ptr<input_stream> in_;
  int width_ = 0;
  int height_ = 0;
  bool mono_ = false;
  bool full_range_ = false;  // the format's default is the narrow range
  int64_t count_ = 0;
  int64_t index_ = 0;
};

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
    chroma_stride_ =
        kind == file_kind::i420 ? (stride_ + 1) / 2 : std::max(stride_, (width_ + 1) / 2 * 2);
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

// --- writers -------------------------------------------------------------------------------------

class single_writer : public frame_writer {
 public:
  single_writer(const std::string& path, file_kind kind, int quality, const stream_info& info)
      : file_(path), kind_(kind), quality_(quality), info_(info) {}
  void write(const frame& f) override {
    if (written_) {
      throw error(display_name(file_.path(), false),
                  std::string("a ") + file_kind_name(kind_) +
                      " file holds one frame; name a .y4m or raw file for a stream");
    }
    written_ = true;
    const std::vector<uint8_t> bytes =
        kind_ == file_kind::png ? encode_png(f) : encode_jpeg(f, quality_, info_);
    file_.write(bytes.data(), bytes.size());
  }
  void finish() override { file_.commit(); }

 private:
  output_file file_;
  file_kind kind_;
  int quality_;
  stream_info info_;
  bool written_ = false;
};

class y4m_writer : public frame_writer {
 public:
  y4m_writer(const std::string& path, const stream_info& info)
      : file_(path), header_(info.y4m_header) {}
  void write(const frame& f) override {
    if (!started_) {
      if (header_.empty()) {
        header_ = "YUV4MPEG2 W" + std::to_string(f.width) + " H" + std::to_string(f.height) +
                  " F25:1 Ip A1:1 C420jpeg" + (f.full_range ? " XCOLORRANGE=FULL" : "");
      }
      mono_ = header_.find(" Cmono") != std::string::npos;
      const std::string line = header_ + "\n";
      file_.write(line.data(), line.size());
      started_ = true;
    }
    file_.write("FRAME\n", 6);
    for (int y = 0; y < f.height; y++) {
      file_.write(f.luma() + size_t(y) * f.padded_width, size_t(f.width));
    }
    if (mono_) return;
    planar_chroma planes(f);
    planes.split(f);
    file_.write(planes.u.data(), planes.u.size());
    file_.write(planes.v.data(), planes.v.size());
  }
  void finish() override { file_.commit(); }

 private:
  output_file file_;
  std::string header_;
  bool started_ = false;
  bool mono_ = false;
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
    const int chroma_stride = kind_ == file_kind::i420 ? (stride + 1) / 2 : std::max(stride, 2 * w);
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

// Turns what goes to a file that cannot say how its picture is stored.
class turning_writer : public frame_writer {
 public:
  turning_writer(std::unique_ptr<frame_writer> file, int orientation)
      : file_(std::move(file)), orientation_(orientation) {}
  void write(const frame& f) override { file_->write(upright(f, orientation_)); }
  void finish() override { file_->finish(); }

 private:
  std::unique_ptr<frame_writer> file_;
  int orientation_;
};

file_kind kind_of_content(const std::vector<uint8_t>& bytes) {
  static const uint8_t kPng[] = {0x89, 'P', 'N', 'G'};
  if (bytes.size() >= 4 && std::memcmp(bytes.data(), kPng, 4) == 0) return file_kind::png;
  if (bytes.size() >= 3 && bytes[0] == 0xff && bytes[1] == 0xd8 && bytes[2] == 0xff) {
    return file_kind::jpeg;
  }
  return file_kind::unknown;
}

}  // namespace

const char* file_kind_name(file_kind kind) {
  switch (kind) {
    case file_kind::png:
      return "png";
    case file_kind::jpeg:
      return "jpeg";
    case file_kind::y4m:
      return "y4m";
    case file_kind::nv12:
      return "nv12";
    case file_kind::nv21:
      return "nv21";
    case file_kind::i420:
      return "i420";
    case file_kind::unknown:
      break;
  }
  return "unknown";
}

file_kind file_kind_of(const std::string& path) {
  if (path == "-") return file_kind::y4m;
  const size_t dot = path.rfind('.');
  if (dot == std::string::npos || path.find('/', dot) != std::string::npos) {
    return file_kind::unknown;
  }
  std::string ending = path.substr(dot + 1);
  for (char& c : ending) c = char(std::tolower(uint8_t(c)));
  if (ending == "png") return file_kind::png;
  if (ending == "jpg" || ending == "jpeg") return file_kind::jpeg;
  if (ending == "y4m") return file_kind::y4m;
  if (ending == "nv12" || ending == "yuv") return file_kind::nv12;
  if (ending == "nv21") return file_kind::nv21;
  if (ending == "i420") return file_kind::i420;
  return file_kind::unknown;
}

bool is_raw(file_kind kind) {
  return kind == file_kind::nv12 || kind == file_kind::nv21 || kind == file_kind::i420;
}

std::unique_ptr<frame_reader> open_reader(const std::string& path, const picture_options& options) {
  file_kind kind = options.read_as;
  if (kind == file_kind::unknown) kind = file_kind_of(path);
  const std::string name = display_name(path, true);
  if (is_raw(kind)) return std::make_unique<raw_reader>(path, kind, options);
  if (kind == file_kind::y4m) {
    return std::make_unique<y4m_reader>(std::make_unique<input_stream>(path));
  }
  const std::vector<uint8_t> bytes = read_file(path);
  if (bytes.empty()) throw error(name, "the file is empty");
  // A wrong ending is common and harmless where the content is plain.
  const file_kind content = kind_of_content(bytes);
  if (content != file_kind::unknown) kind = content;
  if (kind == file_kind::unknown) {
    throw error(name, "unknown kind of file (png, jpeg, y4m, nv12, nv21, i420; see --in-format)");
  }
  stream_info info;
  frame f = kind == file_kind::png ? decode_png(bytes.data(), bytes.size(), name)
                                   : decode_jpeg(bytes.data(), bytes.size(), name, &info);
  auto reader = std::make_unique<single_reader>(std::move(f));
  reader->info = std::move(info);
  return reader;
}

std::unique_ptr<frame_reader> open_y4m_memory(const uint8_t* bytes, size_t size,
                                              const std::string& name) {
  if (size == 0) throw error(name, "the file is empty");
  return std::make_unique<y4m_reader>(std::make_unique<input_stream>(bytes, size, name));
}

std::unique_ptr<frame_writer> open_writer(const std::string& path, const picture_options& options,
                                          const stream_info& info) {
  file_kind kind = options.write_as;
  if (kind == file_kind::unknown) kind = file_kind_of(path);
  if (info.orientation != 1 && kind != file_kind::jpeg) {
    stream_info turned = info;
    turned.orientation = 1;
    return std::make_unique<turning_writer>(open_writer(path, options, turned), info.orientation);
  }
  switch (kind) {
    case file_kind::png:
    case file_kind::jpeg:
      return std::make_unique<single_writer>(path, kind, options.quality, info);
    case file_kind::y4m:
      return std::make_unique<y4m_writer>(path, info);
    case file_kind::nv12:
    case file_kind::nv21:
    case file_kind::i420:
      return std::make_unique<raw_writer>(path, kind, options.out_stride);
    case file_kind::unknown:
      break;
  }
  throw error(path, "unknown kind of file (png, jpg, y4m, nv12, nv21, i420; see --out-format)");
}

frame read_picture(const std::string& path, const picture_options& options) {
  const std::unique_ptr<frame_reader> reader = open_reader(path, options);
  frame f, second;
  reader->next(f);
  if (reader->next(second)) throw error(display_name(path, true), "holds more than one frame");
  if (reader->info.orientation != 1) return upright(f, reader->info.orientation);
  return f;
}

frame upright(const frame& f, int orientation) {
  const bool swap = orientation >= 5;
  const bool mirror_x =
      orientation == 2 || orientation == 3 || orientation == 7 || orientation == 8;
  const bool mirror_y =
      orientation == 3 || orientation == 4 || orientation == 6 || orientation == 7;
  frame out = make_frame(swap ? f.height : f.width, swap ? f.width : f.height);
  out.gray = f.gray;
  out.full_range = f.full_range;
  // Where a pixel of the result lies in f.
  const auto source = [&](int x, int y) {
    if (swap) std::swap(x, y);
    return std::pair(mirror_x ? f.width - 1 - x : x, mirror_y ? f.height - 1 - y : y);
  };
  for (int y = 0; y < out.height; y++) {
    for (int x = 0; x < out.width; x++) {
      const auto [from_x, from_y] = source(x, y);
      out.luma()[size_t(y) * out.padded_width + x] =
          f.luma()[size_t(from_y) * f.padded_width + from_x];
    }
  }
  // The mean over a sample's four pixels: the sample itself, unless an odd size moves the pairs.
  for (int y = 0; y < out.chroma_height(); y++) {
    for (int x = 0; x < out.chroma_width(); x++) {
      int u = 2, v = 2;
      for (int k = 0; k < 4; k++) {
        const auto [from_x, from_y] = source(std::min(2 * x + (k & 1), out.width - 1),
                                             std::min(2 * y + (k >> 1), out.height - 1));
        const uint8_t* const pair =
            f.chroma() + size_t(from_y / 2) * f.padded_width + size_t(from_x / 2) * 2;
        u += pair[0];
        v += pair[1];
      }
      uint8_t* const pair = out.chroma() + size_t(y) * out.padded_width + size_t(x) * 2;
      pair[0] = uint8_t(u >> 2);
      pair[1] = uint8_t(v >> 2);
    }
  }
  pad_edges(out);
  return out;
}

void write_picture(const std::string& path, const frame& f, const picture_options& options) {
  const std::unique_ptr<frame_writer> writer = open_writer(path, options, {});
  writer->write(f);
  writer->finish();
}

frame decode_png(const uint8_t* bytes, size_t size, const std::string& name) {
  png_guard png;
  if (!png_image_begin_read_from_memory(&png.image, bytes, size)) {
    throw error(name, std::string("not a readable PNG file: ") + png.image.message);
  }
  const int64_t width = png.image.width, height = png.image.height;
  need_size(width, height, name);
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

frame decode_jpeg(const uint8_t* bytes, size_t size, const std::string& name, stream_info* info) {
  const jpeg_guard jpeg(tjInitDecompress());
  const auto fail = [&] {
    throw error(name, std::string("not a readable JPEG file: ") + tjGetErrorStr2(jpeg.handle));
  };
  int width = 0, height = 0, subsampling = 0, colour = 0;
  if (tjDecompressHeader3(jpeg.handle, bytes, size, &width, &height, &subsampling, &colour) != 0) {
    fail();
  }
  need_size(width, height, name);
  if (colour == TJCS_CMYK || colour == TJCS_YCCK) throw error(name, "CMYK JPEG is not supported");
  if (info) {
    info->jpeg_markers = jpeg_markers(bytes, size);
    info->orientation = orientation_of(info->jpeg_markers);
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
  if (result == 0) {
    // The copied segments go behind the start marker and the JFIF segment that follows it.
    size_t head = 2;
    if (size > 6 && bytes[2] == 0xff && bytes[3] == 0xe0) head += 2 + (bytes[4] << 8 | bytes[5]);
    out.assign(bytes, bytes + head);
    out.insert(out.end(), info.jpeg_markers.begin(), info.jpeg_markers.end());
    out.insert(out.end(), bytes + head, bytes + size);
  }
  tjFree(bytes);
  if (result != 0) throw error("JPEG", message);
  return out;
}

rgb_image to_rgb(const frame& f) {
  rgb_image image;
  image.width = f.width;
  image.height = f.height;
  image.data.resize(size_t(f.width) * f.height * 3);
  const from_yuv& m = f.full_range ? kFromFullRange : kFromNarrowRange;
  uint8_t* out = image.data.data();
  for (int y = 0; y < f.height; y++) {
    const uint8_t* const luma = f.luma() + size_t(y) * f.padded_width;
    const uint8_t* const chroma = f.chroma() + size_t(y / 2) * f.padded_width;
    for (int x = 0; x < f.width; x++, out += 3) {
      const int light = m.y * (luma[x] - m.black);
      const int u = chroma[x & ~1] - 128, v = chroma[x | 1] - 128;
      out[0] = whole<16>(light + m.v_to_r * v);
      out[1] = whole<16>(light - m.u_to_g * u - m.v_to_g * v);
      out[2] = whole<16>(light + m.u_to_b * u);
    }
  }
  return image;
}

frame from_rgb(const rgb_image& image) {
  frame f = make_frame(image.width, image.height);
  const uint8_t* in = image.data.data();
  for (int y = 0; y < f.height; y++) {
    uint8_t* const luma = f.luma() + size_t(y) * f.padded_width;
    for (int x = 0; x < f.width; x++, in += 3)
      luma[x] = whole<16>(kRToY * in[0] + kGToY * in[1] + kBToY * in[2]);
  }
  const size_t stride = size_t(image.width) * 3;
  for (int y = 0; y < f.chroma_height(); y++) {
    // At odd sizes the last pixel counts twice.
    const uint8_t* const top = image.data.data() + size_t(2 * y) * stride;
    const uint8_t* const low = 2 * y + 1 < f.height ? top + stride : top;
    uint8_t* const chroma = f.chroma() + size_t(y) * f.padded_width;
    for (int x = 0; x < f.chroma_width(); x++) {
      const int left = 6 * x, right = 2 * x + 1 < f.width ? left + 3 : left;
      int sum[3];
      for (int c = 0; c < 3; c++)
        sum[c] = top[left + c] + top[right + c] + low[left + c] + low[right + c];
      constexpr int kGrey = 128 << 18;
      chroma[2 * x] = whole<18>(kGrey + (kBToU * sum[2] - kRToU * sum[0] - kGToU * sum[1]));
      chroma[2 * x + 1] = whole<18>(kGrey + (kRToV * sum[0] - kGToV * sum[1] - kBToV * sum[2]));
    }
  }
  pad_edges(f);
  return f;
}

}  // namespace vorn::tool
