// One picture in memory the way the library takes it: contiguous NV12 of an even size, the caller's
// picture in its top left corner. Odd pictures are padded by repeating the last column and row and
// cropped again when written.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vorn::tool {

struct frame {
  int width = 0;  // of the picture
  int height = 0;
  int padded_width = 0;  // of the buffer: the next even numbers
  int padded_height = 0;
  bool gray = false;          // the picture has no colour: chroma is 128 everywhere
  bool full_range = true;     // samples span 0..255; false: luma 16..235, chroma 16..240
  std::vector<uint8_t> data;  // padded_width * padded_height * 3 / 2 bytes, Y rows, then U V pairs

  uint8_t* luma() { return data.data(); }
  const uint8_t* luma() const { return data.data(); }
  uint8_t* chroma() { return data.data() + luma_size(); }
  const uint8_t* chroma() const { return data.data() + luma_size(); }
  size_t luma_size() const { return size_t(padded_width) * padded_height; }
  // Pairs per chroma row and chroma rows; all of them belong to the picture. A row of either plane
  // is padded_width bytes.
  int chroma_width() const { return padded_width / 2; }
  int chroma_height() const { return padded_height / 2; }
};

// Whether the library can take a frame of this size: width * height * 3 < 2^31, both at least 1.
bool frame_size_ok(int64_t width, int64_t height);
// Lowers that bound, for fuzzing in little memory.
void limit_frame_size(int64_t pixels);

// A frame of black luma and neutral chroma. The size must be ok.
frame make_frame(int width, int height);

// Repeats the last luma column and row of the picture into the padding.
void pad_edges(frame& f);

}  // namespace vorn::tool
