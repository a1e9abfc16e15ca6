// What a picture file says beside its samples, and how the two picture formats hold it.
//
// JPEG to JPEG and PNG to PNG keep the file's own segments and chunks. Between the two, colour
// profile, EXIF data and density are carried over. All other formats hold none of it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace vorn::tool {

// camera_raw: read alone.
enum class file_kind { unknown, png, jpeg, y4m, nv12, nv21, i420, camera_raw };

// Dots per unit of length, as the formats count them.
struct pixel_density {
  enum unit_t { none, inch, centimetre, metre } unit = none;
  uint32_t x = 0, y = 0;
};

struct picture_metadata {
  file_kind from = file_kind::unknown;
  std::vector<uint8_t> profile;  // ICC
  std::vector<uint8_t> exif;     // TIFF data, without the "Exif" in front
  pixel_density density;
  int bits = 8;              // per sample in the file
  bool transparent = false;  // the picture lies over white now
  bool other = false;        // text and what else only a file of the same kind takes
  // Verbatim, with lengths and checksums: chunks of PNG; APP1, APP2, APP13 and COM segments of
  // JPEG.
  std::vector<uint8_t> png_chunks, jpeg_segments;
};

// What a file of this kind cannot hold of it, in words: "colour profile", "16 bits per sample".
std::vector<std::string> lost_in(const picture_metadata& metadata, file_kind kind);

// ---- EXIF ----

// Where the orientation's value is in TIFF data (first directory), and its byte order; 0 where
// there is none or the bytes make no sense.
struct exif_orientation_place {
  size_t at = 0;
  bool little = false;
};
exif_orientation_place find_exif_orientation(const uint8_t* tiff, size_t size);
// 1..8 as EXIF numbers it; 1 where it is not told.
int exif_orientation(const std::vector<uint8_t>& tiff);
// The ISO sensitivity that the EXIF data tells (tag 0x8827 of the Exif directory), 0 where none,
// or beyond what the tag can say.
int exif_iso(const std::vector<uint8_t>& tiff);
// TIFF data that says the picture is stored upright.
std::vector<uint8_t> upright_exif(std::vector<uint8_t> tiff);

// ---- PNG ----

// Of a whole file; never throws for bad bytes, which libpng judges.
picture_metadata png_metadata(const uint8_t* bytes, size_t size);
// Puts the metadata's chunks into a file that libpng made.
std::vector<uint8_t> with_png_metadata(const std::vector<uint8_t>& file,
                                       const picture_metadata& metadata);

// ---- JPEG ----

// Of a whole file, and what tells a file that is not worth decoding.
struct jpeg_outline {
  picture_metadata metadata;
  int orientation = 1;
  bool huffman = false;  // every block of every scan takes a bit or more
  int scans = 0;
};
jpeg_outline outline_of_jpeg(const uint8_t* bytes, size_t size);
// Puts the metadata's segments behind the head of a file that the encoder made.
std::vector<uint8_t> with_jpeg_metadata(const uint8_t* bytes, size_t size,
                                        const picture_metadata& metadata);

}  // namespace vorn::tool
