// Chunks of PNG files: length, name, bytes, checksum. libpng's simplified interface, which the
// samples go through, passes none of these on.
#include <zlib.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "tools/picture/metadata.h"

namespace vorn::tool {
namespace {

constexpr size_t kSignature = 8, kFrame = 12;  // a chunk's bytes beside its content
constexpr size_t kMostCarried = size_t(16) << 20;

struct chunk {
  std::string name;
  const uint8_t* content = nullptr;
  size_t size = 0;
  const uint8_t* whole = nullptr;  // with length, name and checksum
};

uint32_t big_endian(const uint8_t* p) {
  return uint32_t{p[0]} << 24 | uint32_t{p[1]} << 16 | uint32_t{p[2]} << 8 | p[3];
}

void put_big_endian(std::vector<uint8_t>& out, uint32_t value) {
  for (int shift = 24; shift >= 0; shift -= 8) out.push_back(uint8_t(value >> shift));
}

// Calls take(chunk) for every chunk whose checksum is right.
template <typename Take>
void each_chunk(const uint8_t* bytes, size_t size, const Take& take) {
  for (size_t at = kSignature; at + kFrame <= size;) {
    const size_t length = big_endian(bytes + at);
    if (length > size - at - kFrame) return;
    const uint8_t* const name = bytes + at + 4;
    const uint32_t sum = uint32_t(crc32(0, name, uInt(length + 4)));
    if (sum == big_endian(name + 4 + length))
      take(chunk{std::string(name, name + 4), name + 4, length, bytes + at});
    at += kFrame + length;
  }
}

// Everything a zlib stream holds, empty when it is broken or longer than kMostCarried.
std::vector<uint8_t> inflated(const uint8_t* bytes, size_t size) {
  std::vector<uint8_t> out;
  z_stream stream = {};
  if (inflateInit(&stream) != Z_OK) return out;
  stream.next_in = const_cast<uint8_t*>(bytes);
  stream.avail_in = uInt(size);
  int result = Z_OK;
  while (result == Z_OK && out.size() < kMostCarried) {
    const size_t filled = out.size();
    out.resize(filled + (size_t(1) << 16));
    stream.next_out = out.data() + filled;
    stream.avail_out = uInt(out.size() - filled);
    result = inflate(&stream, Z_NO_FLUSH);
    out.resize(out.size() - stream.avail_out);
  }
  inflateEnd(&stream);
  if (result != Z_STREAM_END) out.clear();
  return out;
}

// A profile's chunk: name, 0, compression method 0, zlib stream.
std::vector<uint8_t> profile_of(const chunk& c) {
  const void* const end = std::memchr(c.content, 0, std::min<size_t>(c.size, 80));
  if (!end) return {};
  const size_t head = size_t(static_cast<const uint8_t*>(end) - c.content) + 2;
  if (head >= c.size) return {};
  return inflated(c.content + head, c.size - head);
}

void put_chunk(std::vector<uint8_t>& out, const char* name, const std::vector<uint8_t>& content) {
  put_big_endian(out, uint32_t(content.size()));
  const size_t start = out.size();
  out.insert(out.end(), name, name + 4);
  out.insert(out.end(), content.begin(), content.end());
  put_big_endian(out, uint32_t(crc32(0, &out[start], uInt(out.size() - start))));
}

void put_profile(std::vector<uint8_t>& out, const std::vector<uint8_t>& profile) {
  static const char kHead[] = "ICC profile\0";  // and the method's 0 behind it
  std::vector<uint8_t> content(kHead, kHead + sizeof kHead);
  const size_t head = content.size();
  uLongf size = compressBound(uLong(profile.size()));
  content.resize(head + size);
  if (compress2(&content[head], &size, profile.data(), uLong(profile.size()), 9) != Z_OK) return;
  content.resize(head + size);
  put_chunk(out, "iCCP", content);
}

void put_density(std::vector<uint8_t>& out, const pixel_density& density) {
  constexpr double kInchesPerMetre = 1 / 0.0254;
  const double factor = density.unit == pixel_density::inch         ? kInchesPerMetre
                        : density.unit == pixel_density::centimetre ? 100
                                                                    : 1;
  std::vector<uint8_t> content;
  put_big_endian(content, uint32_t(density.x * factor + 0.5));
  put_big_endian(content, uint32_t(density.y * factor + 0.5));
  content.push_back(1);  // per metre
  put_chunk(out, "pHYs", content);
}

}  // namespace

picture_metadata png_metadata(const uint8_t* bytes, size_t size) {
  picture_metadata m;
  m.from = file_kind::png;
  each_chunk(bytes, size, [&](const chunk& c) {
    if (c.name == "IHDR" && c.size == 13) {
      m.bits = c.content[8];
      m.transparent = c.content[9] == 4 || c.content[9] == 6;
    }
    if (c.name == "tRNS") m.transparent = true;
    const bool text = c.name == "tEXt" || c.name == "zTXt" || c.name == "iTXt";
    if (c.name == "iCCP") m.profile = profile_of(c);
    if (c.name == "eXIf") m.exif.assign(c.content, c.content + c.size);
    if (c.name == "pHYs" && c.size == 9 && c.content[8] == 1)
      m.density = {pixel_density::metre, big_endian(c.content), big_endian(c.content + 4)};
    if (text) m.other = true;
    const bool described = text || c.name == "iCCP" || c.name == "eXIf" || c.name == "pHYs";
    if (described && m.png_chunks.size() + c.size < kMostCarried)
      m.png_chunks.insert(m.png_chunks.end(), c.whole, c.whole + kFrame + c.size);
  });
  return m;
}

std::vector<uint8_t> with_png_metadata(const std::vector<uint8_t>& file,
                                       const picture_metadata& metadata) {
  std::vector<uint8_t> carried = metadata.png_chunks;
  if (metadata.from != file_kind::png) {
    if (!metadata.profile.empty()) put_profile(carried, metadata.profile);
    if (!metadata.exif.empty()) put_chunk(carried, "eXIf", upright_exif(metadata.exif));
    if (metadata.density.unit != pixel_density::none) put_density(carried, metadata.density);
  }
  if (carried.empty()) return file;
  std::vector<uint8_t> out(file.begin(), file.begin() + kSignature);
  each_chunk(file.data(), file.size(), [&](const chunk& c) {
    // A profile says it all; the encoder's own word on colours would contradict it.
    const bool colours = c.name == "sRGB" || c.name == "gAMA" || c.name == "cHRM";
    if (!colours || metadata.profile.empty())
      out.insert(out.end(), c.whole, c.whole + kFrame + c.size);
    if (c.name == "IHDR") out.insert(out.end(), carried.begin(), carried.end());
  });
  return out;
}

}  // namespace vorn::tool
