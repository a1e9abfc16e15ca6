// Reading and writing pictures and streams of pictures: PNG, JPEG, y4m, raw NV12, NV21 and
// I420; and reading the raw files of cameras (camera_raw.h).
//
// Colour. RGB pictures are converted with the full-range BT.601 matrix (that of JPEG), chroma
// averaged over 2x2 pixels; writing RGB, every chroma sample serves its 2x2 pixels unchanged. So a
// frame comes back from a PNG file as it was, but for colours outside of RGB, which are clipped.
// JPEG files that are YCbCr 4:2:0 keep their own samples, both ways. y4m
// and raw samples are taken as they are, whatever their range.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tools/picture/frame.h"
#include "tools/picture/metadata.h"

namespace vorn::tool {

// "png", "jpeg", ...
const char* file_kind_name(file_kind kind);
// From the name's ending; "-" is y4m, ".yuv" is nv12 as in the library's dumps.
file_kind file_kind_of(const std::string& path);
bool is_raw(file_kind kind);

// How to read and write what a name does not say. Shared by the options of all subcommands.
struct picture_options {
  file_kind read_as = file_kind::unknown;  // overrides the name's ending
  file_kind write_as = file_kind::unknown;
  int width = 0;  // of raw files; 0: from a "_WxH" in the name
  int height = 0;
  int stride = 0;      // bytes from one luma row to the next in raw input; 0: no padding
  int out_stride = 0;  // the same for raw output
  int quality = 95;    // of JPEG output
};

// What a stream carries beside its frames, so that a rewritten file keeps it.
struct stream_info {
  std::string y4m_header;  // first line of a y4m stream, without the line feed
  picture_metadata metadata;
  // How a JPEG file's picture is stored, as EXIF numbers it; 1 is upright. JPEG output keeps the
  // picture as it is stored, and says so with the same EXIF; all other output is turned upright.
  int orientation = 1;
};

// f turned upright. Sizes are swapped by orientations 5 to 8.
frame upright(const frame& f, int orientation);

// Gives the frames of a file one after the other. Faults are `error`s that name the file.
class frame_reader {
 public:
  virtual ~frame_reader() = default;
  // The next frame, or false at the end. Reuses f's memory where it can.
  virtual bool next(frame& f) = 0;
  // Frames in the file, 0 when only reading it all would tell.
  virtual int64_t frame_count() const = 0;
  stream_info info;
};

// Takes frames and keeps the file under a temporary name until finish() has written it all.
class frame_writer {
 public:
  virtual ~frame_writer() = default;
  virtual void write(const frame& f) = 0;
  // Without this call (after an error, say) nothing is left behind.
  virtual void finish() = 0;
};

// The next frame turned upright, as pictures are compared, measured and shown.
bool next_upright(frame_reader& reader, frame& f);

// path "-" is standard input.
std::unique_ptr<frame_reader> open_reader(const std::string& path, const picture_options& options);
// The kind that a writer of this path gives; unknown when neither name nor options tell.
file_kind written_kind(const std::string& path, const picture_options& options);
// path "-" is standard output. A PNG or JPEG file takes one frame.
std::unique_ptr<frame_writer> open_writer(const std::string& path, const picture_options& options,
                                          const stream_info& info);

// The only frame of a file, upright; a file with several is an error.
frame read_picture(const std::string& path, const picture_options& options = {});
void write_picture(const std::string& path, const frame& f, const picture_options& options = {});

// The readers behind the files, on memory. name is for messages.
frame decode_png(const uint8_t* bytes, size_t size, const std::string& name,
                 stream_info* info = nullptr);
frame decode_jpeg(const uint8_t* bytes, size_t size, const std::string& name, stream_info* info);
std::vector<uint8_t> encode_png(const frame& f);
std::vector<uint8_t> encode_jpeg(const frame& f, int quality, const stream_info& info);
std::unique_ptr<frame_reader> open_y4m_memory(const uint8_t* bytes, size_t size,
                                              const std::string& name);

// A picture of interleaved 8-bit RGB, for charts and sheets.
struct rgb_image {
  int width = 0;
  int height = 0;
  std::vector<uint8_t> data;  // width * height * 3
};
rgb_image to_rgb(const frame& f);
frame from_rgb(const rgb_image& image);
std::vector<uint8_t> encode_png(const rgb_image& image);

}  // namespace vorn::tool
