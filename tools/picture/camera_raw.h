// Files of camera sensors: a Bayer mosaic of linear samples, decoded by LibRaw and developed in one
// fixed way, so that two frames of a camera differ by nothing but their light and noise.
//
// The development, in this order: black level of the file off; white balance as shot (daylight of
// the camera's matrix where the file has none), the smallest of its factors being 1; clipped at the
// sensor's white, whatever the picture's brightest sample; demosaicing by variable gradients of the
// neighbours (patterned pixel grouping); the camera's matrix to linear sRGB; the sRGB curve to 8
// bits; BT.601 full range to 4:2:0 like other RGB pictures. Nothing is sharpened, denoised or
// brightened, no lens is corrected.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "tools/picture/picture_io.h"

namespace vorn::tool {

// Most pixels that are developed; about 20 bytes of memory go for each.
constexpr int64_t kMostRawPixels = 250'000'000;

// The developed picture as the sensor stores it; info tells how it is to be turned and, as EXIF
// data, the ISO sensitivity. An `error` for files that LibRaw cannot read whole, for mosaics other
// than a Bayer one (three-layer sensors, 6x6 patterns, four colours, demosaiced data), for sizes
// beyond kMostRawPixels or that the bytes cannot hold, and in builds without LibRaw.
frame decode_camera_raw(const uint8_t* bytes, size_t size, const std::string& name,
                        stream_info* info);
// Whether this build reads them.
bool reads_camera_raw();

}  // namespace vorn::tool
