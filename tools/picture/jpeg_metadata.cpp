// Segments of JPEG files: 0xff, a code, a length, bytes; the scans' data in between.
#include <algorithm>
#include <cstring>
#include <map>

#include "tools/picture/metadata.h"

namespace vorn::tool {
namespace {

constexpr uint8_t kExif[] = {'E', 'x', 'i', 'f', 0, 0};
constexpr uint8_t kProfile[] = {'I', 'C', 'C', '_', 'P', 'R', 'O', 'F', 'I', 'L', 'E', 0};
constexpr uint8_t kOtherPictures[] = {'M', 'P', 'F', 0};  // places in a file that is no more
constexpr uint8_t kJfif[] = {'J', 'F', 'I', 'F', 0};
constexpr int kApp0 = 0xe0, kApp1 = 0xe1, kApp2 = 0xe2, kApp13 = 0xed, kComment = 0xfe;
constexpr int kStartOfScan = 0xda, kEndOfImage = 0xd9;
constexpr size_t kLongest = 65535;  // a segment's length field counts itself

struct segment {
  int code = 0;
  const uint8_t* content = nullptr;
  size_t size = 0;
  template <size_t n>
  bool starts_with(const uint8_t (&head)[n]) const {
    return size >= n && std::memcmp(content, head, n) == 0;
  }
};

// The next marker's code at or after `at`, which is set behind it; 0 at the end. Data of a scan
// holds 0xff only before 0 and before restart markers.
int next_marker(const uint8_t* bytes, size_t size, size_t& at) {
  while (at + 1 < size) {
    const void* const found = std::memchr(bytes + at, 0xff, size - 1 - at);
    if (!found) return 0;
    at = size_t(static_cast<const uint8_t*>(found) - bytes) + 1;
    const int code = bytes[at];
    if (code == 0 || code == 0xff || (code >= 0xd0 && code <= 0xd7)) continue;
    ++at;
    return code;
  }
  return 0;
}

template <typename Take>
void each_segment(const uint8_t* bytes, size_t size, const Take& take) {
  size_t at = 2;
  for (int code; (code = next_marker(bytes, size, at)) != 0 && code != kEndOfImage;) {
    if (at + 2 > size) return;
    const size_t length = size_t(bytes[at]) << 8 | bytes[at + 1];
    if (length < 2 || length > size - at) return;
    take(segment{code, bytes + at + 2, length - 2});
    at += length;
  }
}

void put_segment(std::vector<uint8_t>& out, int code, const std::vector<uint8_t>& content) {
  const size_t length = content.size() + 2;
  out.insert(out.end(), {0xff, uint8_t(code), uint8_t(length >> 8), uint8_t(length)});
  out.insert(out.end(), content.begin(), content.end());
}

void put_exif(std::vector<uint8_t>& out, const std::vector<uint8_t>& exif) {
  std::vector<uint8_t> content(kExif, kExif + sizeof kExif);
  content.insert(content.end(), exif.begin(), exif.end());
  if (content.size() + 2 <= kLongest) put_segment(out, kApp1, content);
}

// In as many segments as it takes, numbered from 1.
void put_profile(std::vector<uint8_t>& out, const std::vector<uint8_t>& profile) {
  constexpr size_t kPart = kLongest - 2 - sizeof kProfile - 2;
  const size_t parts = (profile.size() + kPart - 1) / kPart;
  if (parts > 255) return;
  for (size_t i = 0; i < parts; ++i) {
    std::vector<uint8_t> content(kProfile, kProfile + sizeof kProfile);
    content.push_back(uint8_t(i + 1));
    content.push_back(uint8_t(parts));
    const size_t end = std::min(profile.size(), (i + 1) * kPart);
    content.insert(content.end(), profile.begin() + ptrdiff_t(i * kPart),
                   profile.begin() + ptrdiff_t(end));
    put_segment(out, kApp2, content);
  }
}

// Units as JFIF has them: 1 per inch, 2 per centimetre. A metre's are given per inch.
void put_density(uint8_t* jfif, const pixel_density& density) {
  const bool metre = density.unit == pixel_density::metre;
  const auto value = [&](uint32_t v) {
    return uint32_t(std::clamp(metre ? v * 0.0254 + 0.5 : double(v), 1.0, 65535.0));
  };
  const uint32_t x = value(density.x), y = value(density.y);
  jfif[7] = density.unit == pixel_density::centimetre ? 2 : 1;
  jfif[8] = uint8_t(x >> 8), jfif[9] = uint8_t(x);
  jfif[10] = uint8_t(y >> 8), jfif[11] = uint8_t(y);
}

}  // namespace

jpeg_outline outline_of_jpeg(const uint8_t* bytes, size_t size) {
  jpeg_outline outline;
  picture_metadata& m = outline.metadata;
  m.from = file_kind::jpeg;
  std::map<int, std::vector<uint8_t>> profile;  // parts by number
  each_segment(bytes, size, [&](const segment& s) {
    if (s.code == kStartOfScan) ++outline.scans;
    if (s.code >= 0xc0 && s.code <= 0xc2) outline.huffman = true;
    if (outline.scans > 0) return;
    if (s.code == kApp0 && s.starts_with(kJfif) && s.size >= 12 && s.content[7] != 0) {
      m.density = {s.content[7] == 2 ? pixel_density::centimetre : pixel_density::inch,
                   uint32_t(s.content[8] << 8 | s.content[9]),
                   uint32_t(s.content[10] << 8 | s.content[11])};
    }
    const bool described =
        s.code == kApp1 || s.code == kApp2 || s.code == kApp13 || s.code == kComment;
    if (!described || s.starts_with(kOtherPictures)) return;
    put_segment(m.jpeg_segments, s.code, {s.content, s.content + s.size});
    if (s.code == kApp1 && s.starts_with(kExif)) {
      if (m.exif.empty()) m.exif.assign(s.content + sizeof kExif, s.content + s.size);
    } else if (s.code == kApp2 && s.starts_with(kProfile) && s.size > sizeof kProfile + 2) {
      profile[s.content[sizeof kProfile]].assign(s.content + sizeof kProfile + 2,
                                                 s.content + s.size);
    } else {
      m.other = true;
    }
  });
  for (const auto& [number, part] : profile)
    m.profile.insert(m.profile.end(), part.begin(), part.end());
  outline.orientation = exif_orientation(m.exif);
  return outline;
}

std::vector<uint8_t> with_jpeg_metadata(const uint8_t* bytes, size_t size,
                                        const picture_metadata& metadata) {
  std::vector<uint8_t> carried = metadata.jpeg_segments;
  if (metadata.from != file_kind::jpeg) {
    if (!metadata.exif.empty()) put_exif(carried, upright_exif(metadata.exif));
    if (!metadata.profile.empty()) put_profile(carried, metadata.profile);
  }
  // They go behind the start marker and the JFIF segment that follows it.
  size_t head = 2;
  const bool jfif = size > 20 && bytes[2] == 0xff && bytes[3] == kApp0;
  if (jfif) head += 2 + (size_t(bytes[4]) << 8 | bytes[5]);
  std::vector<uint8_t> out(bytes, bytes + head);
  if (jfif && metadata.density.unit != pixel_density::none) put_density(&out[6], metadata.density);
  out.insert(out.end(), carried.begin(), carried.end());
  out.insert(out.end(), bytes + head, bytes + size);
  return out;
}

}  // namespace vorn::tool
