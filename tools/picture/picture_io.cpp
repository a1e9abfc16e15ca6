#include "tools/picture/picture_io.h"

#include <cctype>
#include <cstring>

#include "tools/error.h"
#include "tools/picture/camera_raw.h"
#include "tools/picture/formats.h"
#include "tools/picture/output_file.h"

namespace vorn::tool {
namespace {

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
    const std::vector<uint8_t> bytes = kind_ == file_kind::png
                                           ? with_png_metadata(encode_png(f), info_.metadata)
                                           : encode_jpeg(f, quality_, info_);
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
    case file_kind::camera_raw:
      return "dng";
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
  // The makers' kinds of a sensor's frame; what is in them is LibRaw's to find.
  for (const char* const raw :
       {"dng", "cr2", "cr3", "crw", "nef", "nrw", "arw", "sr2", "srf", "srw", "orf", "rw2", "rwl",
        "raf", "pef", "dcr", "kdc", "erf", "mrw", "mef", "mos", "iiq", "3fr", "fff", "x3f"})
    if (ending == raw) return file_kind::camera_raw;
  return file_kind::unknown;
}

bool is_raw(file_kind kind) {
  return kind == file_kind::nv12 || kind == file_kind::nv21 || kind == file_kind::i420;
}

namespace {

std::unique_ptr<frame_reader> open_named(const std::string& path, const picture_options& options,
                                         const std::string& name) {
  file_kind kind = options.read_as;
  if (kind == file_kind::unknown) kind = file_kind_of(path);
  if (is_raw(kind)) return open_raw_reader(path, kind, options);
  if (kind == file_kind::y4m) {
    return open_y4m_reader(std::make_unique<input_stream>(path));
  }
  const std::vector<uint8_t> bytes = read_file(path);
  if (bytes.empty()) throw error(name, "the file is empty");
  // A wrong ending is common and harmless where the content is plain.
  const file_kind content = kind_of_content(bytes);
  if (content != file_kind::unknown) kind = content;
  if (kind == file_kind::unknown) {
    throw error(name,
                "unknown kind of file (png, jpeg, y4m, nv12, nv21, i420, dng; see --in-format)");
  }
  stream_info info;
  const auto decode = kind == file_kind::png          ? decode_png
                      : kind == file_kind::camera_raw ? decode_camera_raw
                                                      : decode_jpeg;
  frame f = decode(bytes.data(), bytes.size(), name, &info);
  auto reader = std::make_unique<single_reader>(std::move(f));
  reader->info = std::move(info);
  return reader;
}

}  // namespace

std::unique_ptr<frame_reader> open_reader(const std::string& path, const picture_options& options) {
  const std::string name = display_name(path, true);
  return naming_memory(name, [&] { return open_named(path, options, name); });
}

std::unique_ptr<frame_reader> open_y4m_memory(const uint8_t* bytes, size_t size,
                                              const std::string& name) {
  if (size == 0) throw error(name, "the file is empty");
  return open_y4m_reader(std::make_unique<input_stream>(bytes, size, name));
}

file_kind written_kind(const std::string& path, const picture_options& options) {
  return options.write_as != file_kind::unknown ? options.write_as : file_kind_of(path);
}

std::unique_ptr<frame_writer> open_writer(const std::string& path, const picture_options& options,
                                          const stream_info& info) {
  const file_kind kind = written_kind(path, options);
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
      return open_y4m_writer(path, info);
    case file_kind::nv12:
    case file_kind::nv21:
    case file_kind::i420:
      return open_raw_writer(path, kind, options.out_stride);
    case file_kind::camera_raw:
      throw error(path, "raw camera files are read, not written; see --out-format");
    case file_kind::unknown:
      break;
  }
  throw error(path, "unknown kind of file (png, jpg, y4m, nv12, nv21, i420; see --out-format)");
}

bool next_upright(frame_reader& reader, frame& f) {
  if (!reader.next(f)) return false;
  if (reader.info.orientation != 1) f = upright(f, reader.info.orientation);
  return true;
}

frame read_picture(const std::string& path, const picture_options& options) {
  const std::string name = display_name(path, true);
  return naming_memory(name, [&] {
    const std::unique_ptr<frame_reader> reader = open_reader(path, options);
    frame f, second;
    next_upright(*reader, f);
    if (reader->next(second)) throw error(name, "holds more than one frame");
    return f;
  });
}

void write_picture(const std::string& path, const frame& f, const picture_options& options) {
  const std::unique_ptr<frame_writer> writer = open_writer(path, options, {});
  writer->write(f);
  writer->finish();
}

}  // namespace vorn::tool
