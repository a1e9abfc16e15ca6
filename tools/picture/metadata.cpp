#include "tools/picture/metadata.h"

namespace vorn::tool {
namespace {

constexpr uint32_t kShort = 3, kLong = 4;  // types of TIFF values

struct tiff_bytes {
  const uint8_t* data;
  size_t size;
  bool little;

  uint32_t number(size_t at, int count) const {
    uint32_t value = 0;
    for (int i = 0; i < count; i++)
      value = value << 8 | data[at + size_t(little ? count - 1 - i : i)];
    return value;
  }
  // Place of a tag's value in a directory, 0 where it is not, has another type, or where the bytes
  // make no sense. Four bytes from there are inside.
  size_t value_of(uint32_t tag, uint32_t type, size_t directory) const {
    constexpr size_t kEntry = 12;
    if (directory > size - 2) return 0;
    for (uint32_t i = 0; i < number(directory, 2); i++) {
      const size_t entry = directory + 2 + i * kEntry;
      if (entry + kEntry > size) return 0;
      if (number(entry, 2) == tag && number(entry + 2, 2) == type) return entry + 8;
    }
    return 0;
  }
};

}  // namespace

std::vector<std::string> lost_in(const picture_metadata& metadata, file_kind kind) {
  std::vector<std::string> lost;
  if (metadata.bits > 8) lost.push_back("16 bits per sample (8 are filtered and written)");
  if (metadata.transparent) lost.push_back("transparency (white lies beneath)");
  const bool picture = kind == file_kind::png || kind == file_kind::jpeg;
  if (!picture) {
    if (!metadata.profile.empty()) lost.push_back("colour profile");
    if (!metadata.exif.empty()) lost.push_back("EXIF data");
    if (metadata.density.unit != pixel_density::none) lost.push_back("density");
  }
  if (metadata.other && kind != metadata.from) lost.push_back("text and other descriptions");
  return lost;
}

exif_orientation_place find_exif_orientation(const uint8_t* tiff, size_t size) {
  if (size < 8) return {};
  const tiff_bytes bytes{tiff, size, tiff[0] == 'I'};
  constexpr uint32_t kOrientation = 0x0112;
  const size_t at = bytes.value_of(kOrientation, kShort, bytes.number(4, 4));
  return at > 0 ? exif_orientation_place{at, bytes.little} : exif_orientation_place{};
}

int exif_iso(const std::vector<uint8_t>& tiff) {
  if (tiff.size() < 8) return 0;
  const tiff_bytes bytes{tiff.data(), tiff.size(), tiff[0] == 'I'};
  constexpr uint32_t kExifDirectory = 0x8769, kIso = 0x8827;
  const size_t directory = bytes.value_of(kExifDirectory, kLong, bytes.number(4, 4));
  const size_t at = directory > 0 ? bytes.value_of(kIso, kShort, bytes.number(directory, 4)) : 0;
  // The highest number stands for itself and all above.
  constexpr uint32_t kBeyond = 65535;
  const uint32_t iso = at > 0 ? bytes.number(at, 2) : 0;
  return iso < kBeyond ? int(iso) : 0;
}

int exif_orientation(const std::vector<uint8_t>& tiff) {
  const exif_orientation_place place = find_exif_orientation(tiff.data(), tiff.size());
  if (place.at == 0) return 1;
  const int low = tiff[place.at + (place.little ? 0 : 1)];
  const int high = tiff[place.at + (place.little ? 1 : 0)];
  return high == 0 && low >= 1 && low <= 8 ? low : 1;
}

std::vector<uint8_t> upright_exif(std::vector<uint8_t> tiff) {
  const exif_orientation_place place = find_exif_orientation(tiff.data(), tiff.size());
  if (place.at > 0) {
    tiff[place.at] = place.little ? 1 : 0;
    tiff[place.at + 1] = place.little ? 0 : 1;
  }
  return tiff;
}

}  // namespace vorn::tool
