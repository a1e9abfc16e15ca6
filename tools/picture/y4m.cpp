// y4m: a line of text, then frames of three planes each.
#include <cerrno>
#include <cstring>

#include "tools/error.h"
#include "tools/picture/formats.h"
#include "tools/picture/output_file.h"

namespace vorn::tool {
namespace {

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
    std::string seen;  // letters of the items so far
    for (size_t at = 9; at < line.size();) {
      at++;  // the blank
      size_t end = line.find(' ', at);
      if (end == std::string::npos) end = line.size();
      const std::string item = line.substr(at, end - at);
      at = end;
      if (item.empty()) continue;
      const std::string value = item.substr(1);
      // Twice, one of them would be written and the other one read.
      const bool once = item[0] == 'W' || item[0] == 'H' || item[0] == 'C';
      if (once && seen.find(item[0]) != std::string::npos)
        fail(std::string("the YUV4MPEG2 line has two ") + item[0]);
      seen += item[0];
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
    if (size > 0 && size < frame_bytes) fail("ends within frame 0");  // before memory is taken
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

}  // namespace

std::unique_ptr<frame_reader> open_y4m_reader(std::unique_ptr<input_stream> in) {
  return std::make_unique<y4m_reader>(std::move(in));
}

std::unique_ptr<frame_writer> open_y4m_writer(const std::string& path, const stream_info& info) {
  return std::make_unique<y4m_writer>(path, info);
}

}  // namespace vorn::tool
