#include "tools/picture/camera_raw.h"

#ifdef VORN_TOOL_LIBRAW
#include <dlfcn.h>
#include <libraw/libraw.h>
#endif

#include <cmath>
#include <memory>

#include "tools/error.h"
#include "tools/picture/formats.h"

namespace vorn::tool {

#ifndef VORN_TOOL_LIBRAW

bool reads_camera_raw() {
  return false;
}

frame decode_camera_raw(const uint8_t*, size_t, const std::string& name, stream_info*) {
  throw error(name, "a camera's raw file; this build reads none, it was made without LibRaw");
}

#else

bool reads_camera_raw() {
  return true;
}

namespace {

// LibRaw goes on after samples that are missing and only calls back.
void count_fault(void* count, const char*, int) {
  ++*static_cast<int*>(count);
}

// LibRaw's code as an `error`; negative codes are its own, positive ones the system's.
void need(int code, const std::string& name) {
  if (code == LIBRAW_SUCCESS) return;
  if (code == LIBRAW_UNSUFFICIENT_MEMORY) throw std::bad_alloc();
  throw error(name, std::string("not a readable raw file: ") + libraw_strerror(code));
}

void need_bayer(const LibRaw& raw, const std::string& name) {
  const libraw_iparams_t& about = raw.imgdata.idata;
  const auto no_bayer = [&](const char* what) {
    throw error(name, std::string(what) + " instead of a Bayer mosaic: not developed");
  };
  if (about.is_foveon) no_bayer("three colours in every pixel");
  if (about.filters == LIBRAW_XTRANS) no_bayer("a mosaic of 6x6 pixels");
  if (about.filters < 1000) no_bayer("data without a mosaic");
  if (about.colors != 3) no_bayer("a mosaic of other colours");
  // Two rows of a mosaic are a byte; a Bayer mosaic repeats after them.
  const unsigned two_rows = about.filters & 0xff;
  if (about.filters != two_rows * 0x01010101u) no_bayer("a mosaic with a longer period");
}

// Before memory is taken: what the header claims.
void need_raw_size(const LibRaw& raw, size_t bytes, const std::string& name) {
  const libraw_image_sizes_t& s = raw.imgdata.sizes;
  const int64_t pixels = int64_t{s.raw_width} * s.raw_height;
  if (pixels > kMostRawPixels || !frame_size_ok(s.raw_width, s.raw_height))
    throw error(name, size_text(s.raw_width, s.raw_height) + " is too large; up to " +
                          std::to_string(kMostRawPixels / 1'000'000) + " megapixels are developed");
  // The lossless kinds take a bit a sample at the very least.
  if (pixels / 16 > int64_t(bytes))
    throw error(name,
                "not a readable raw file: too short for " + size_text(s.raw_width, s.raw_height));
}

void set_development(libraw_output_params_t& p) {
  p.use_camera_wb = 1;
  p.use_auto_wb = 0;
  p.use_camera_matrix = 1;  // a DNG file's own matrix, LibRaw's table for the other kinds
  p.highlight = 0;          // clipped
  p.no_auto_bright = 1;
  p.adjust_maximum_thr = 0;  // white is the sensor's, not the brightest sample of this picture
  p.user_qual = 2;           // patterned pixel grouping
  p.output_color = 1;        // sRGB
  p.gamm[0] = 1 / 2.4;       // and its curve: exponent, slope at black
  p.gamm[1] = 12.92;
  p.output_bps = 8;
  p.user_flip = 0;  // as it is stored
  p.threshold = 0;
  p.med_passes = 0;
  p.fbdd_noiserd = 0;
}

// LibRaw shares work out by OpenMP, whose runtime ends the program where no second thread is to be
// had. The calling thread works alone, then; no name of that runtime is linked.
void take_no_threads() {
  using set_count = void (*)(int);
  if (void* const set = dlsym(RTLD_DEFAULT, "omp_set_num_threads"))
    reinterpret_cast<set_count>(set)(1);
}

// The orientation as EXIF numbers it, from LibRaw's: bits for mirrored, upside down, transposed.
int orientation_of(int flip) {
  switch (flip) {
    case 3:
      return 3;
    case 5:
      return 8;
    case 6:
      return 6;
    default:
      return 1;
  }
}

// TIFF data, little-endian, of two directories: orientation, and the ISO in the one for EXIF. The
// ISO is left out where its 16 bits cannot hold it.
std::vector<uint8_t> exif_of(int orientation, double iso) {
  std::vector<uint8_t> out = {'I', 'I', 42, 0, 8, 0, 0, 0};
  const auto put = [&out](uint32_t value, int bytes) {
    for (int i = 0; i < bytes; ++i) out.push_back(uint8_t(value >> (8 * i)));
  };
  const auto entry = [&put](uint32_t tag, uint32_t type, uint32_t value) {
    put(tag, 2);
    put(type, 2);
    put(1, 4);
    put(value, 4);
  };
  constexpr uint32_t kShort = 3, kLong = 4;
  const bool has_iso = iso >= 1 && iso <= 65535;
  put(has_iso ? 2 : 1, 2);
  entry(0x0112, kShort, uint32_t(orientation));
  if (has_iso) entry(0x8769, kLong, 8 + 2 + 2 * 12 + 4);
  put(0, 4);
  if (!has_iso) return out;
  put(1, 2);
  entry(0x8827, kShort, uint32_t(std::lround(iso)));
  put(0, 4);
  return out;
}

}  // namespace

frame decode_camera_raw(const uint8_t* bytes, size_t size, const std::string& name,
                        stream_info* info) {
  take_no_threads();
  const auto raw = std::make_unique<LibRaw>();  // some hundred kilobytes
  int faults = 0;
  raw->set_dataerror_handler(count_fault, &faults);
  // LibRaw does not write to the buffer that it reads.
  need(raw->open_buffer(const_cast<uint8_t*>(bytes), size), name);
  need_raw_size(*raw, size, name);
  need_bayer(*raw, name);
  const libraw_image_sizes_t& sizes = raw->imgdata.sizes;
  need_size(sizes.iwidth, sizes.iheight, name);
  need(raw->unpack(), name);
  if (faults > 0) throw error(name, "not a readable raw file: samples are missing or damaged");
  const int orientation = orientation_of(sizes.flip);
  set_development(raw->imgdata.params);
  need(raw->dcraw_process(), name);

  rgb_image image;
  int colours = 0, bits = 0;
  raw->get_mem_image_format(&image.width, &image.height, &colours, &bits);
  if (colours != 3 || bits != 8) throw error(name, "not a readable raw file: no colour picture");
  need_size(image.width, image.height, name);
  const int stride = image.width * 3;
  image.data.resize(size_t(stride) * image.height);
  need(raw->copy_mem_image(image.data.data(), stride, /*bgr=*/0), name);
  if (info) {
    info->orientation = orientation;
    info->metadata.exif = exif_of(orientation, raw->imgdata.other.iso_speed);
  }
  return from_rgb(image);
}

#endif

}  // namespace vorn::tool
