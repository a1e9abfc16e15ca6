#include "tools/picture/metadata.h"

namespace vorn::tool {

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
  const bool little = tiff[0] == 'I';
  const auto number = [&](size_t at, int count) {
    uint32_t value = 0;
    for (int i = 0; i < count; i++)
      value = value << 8 | tiff[at + size_t(little ? count - 1 - i : i)];
    return value;
  };
  const size_t directory = number(4, 4);
  if (directory > size - 2) return {};
  constexpr size_t kEntry = 12;
  constexpr uint32_t kOrientation = 0x0112, kShort = 3;
  for (uint32_t i = 0; i < number(directory, 2); i++) {
    const size_t entry = directory + 2 + i * kEntry;
    if (entry + kEntry > size) return {};
    if (number(entry, 2) == kOrientation && number(entry + 2, 2) == kShort)
      return {entry + 8, little};
  }
  return {};
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
