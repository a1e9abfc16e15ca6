// What the readers and writers of the single formats share, and how picture_io.cpp opens them.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tools/picture/input_stream.h"
#include "tools/picture/picture_io.h"

namespace vorn::tool {

// How messages name a path: "-" is a standard stream.
std::string display_name(const std::string& path, bool reading);
// "1920x1080".
std::string size_text(int64_t width, int64_t height);
// An `error` for sizes that the library cannot take.
void need_size(int64_t width, int64_t height, const std::string& name);
// Takes another geometry over when f does not have it.
void reshape(frame& f, int width, int height);

// The chroma planes apart, U then V.
struct planar_chroma {
  std::vector<uint8_t> u, v;
  explicit planar_chroma(const frame& f);  // planes of f's size
  void split(const frame& f);
};

// The two planes, tightly packed, into f's chroma.
void merge_chroma(frame& f, const std::vector<uint8_t>& u, const std::vector<uint8_t>& v);

std::unique_ptr<frame_reader> open_y4m_reader(std::unique_ptr<input_stream> in);
std::unique_ptr<frame_writer> open_y4m_writer(const std::string& path, const stream_info& info);
std::unique_ptr<frame_reader> open_raw_reader(const std::string& path, file_kind kind,
                                              const picture_options& options);
// stride: bytes from one luma row to the next, 0 for the width.
std::unique_ptr<frame_writer> open_raw_writer(const std::string& path, file_kind kind, int stride);

}  // namespace vorn::tool
