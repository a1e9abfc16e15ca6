// The tool's file readers on arbitrary bytes: a result or an `error`, nothing else. One target per
// reader; VORN_FUZZ_READER picks it.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "tools/error.h"
#include "tools/picture/picture_io.h"
#include "tools/tuning/tuning_set.h"

namespace vorn::tool {
namespace {

// Frames must be what the writers and the library rely on.
void check_frame(const frame& f) {
  if (f.padded_width != f.width + f.width % 2 || f.padded_height != f.height + f.height % 2 ||
      f.data.size() != f.luma_size() / 2 * 3) {
    abort();
  }
}

[[maybe_unused]] void png(const uint8_t* bytes, size_t size) {
  stream_info info;
  const frame f = decode_png(bytes, size, "f", &info);
  check_frame(f);
  with_png_metadata(encode_png(f), info.metadata);
  encode_jpeg(f, 90, info);
}

[[maybe_unused]] void jpeg(const uint8_t* bytes, size_t size) {
  stream_info info;
  const frame f = decode_jpeg(bytes, size, "f", &info);
  check_frame(f);
  check_frame(upright(f, info.orientation));
  encode_jpeg(f, 90, info);
}

[[maybe_unused]] void y4m(const uint8_t* bytes, size_t size) {
  const auto reader = open_y4m_memory(bytes, size, "f");
  frame f;
  while (reader->next(f)) check_frame(f);
}

// What was read and written again reads the same.
[[maybe_unused]] void tuning_json(const uint8_t* bytes, size_t size) {
  const tuning_set set = parse_tuning_set(std::string(bytes, bytes + size), "f");
  const std::string text = tuning_set_to_json(set);
  if (tuning_set_to_json(parse_tuning_set(text, "f")) != text) abort();
}

[[maybe_unused]] void tuning_text(const uint8_t* bytes, size_t size) {
  tuning t = {}, again = {};
  const bool luma = parse_dump_text(std::string(bytes, bytes + size), "f", t);
  const std::string text = luma ? luma_to_dump_text(t) : chroma_to_dump_text(t);
  if (parse_dump_text(text, "f", again) != luma) abort();
  if ((luma ? luma_to_dump_text(again) : chroma_to_dump_text(again)) != text) abort();
}

}  // namespace
}  // namespace vorn::tool

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  vorn::tool::limit_frame_size(1 << 20);
  try {
    vorn::tool::VORN_FUZZ_READER(data, size);
  } catch (const vorn::tool::error&) {
  }
  return 0;
}
