// Raw camera files: a known scene, written as a DNG file, comes out in its colours; its noise comes
// through; what is no whole Bayer frame ends in one clear error.
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "tools/error.h"
#include "tools/lab/noise_meter.h"
#include "tools/picture/camera_raw.h"
#include "tools/picture/metadata.h"

namespace vorn::tool {
namespace {

using colour = std::array<double, 3>;  // linear light 0..1: red, green, blue
using matrix = std::array<colour, 3>;

// How the camera sees linear sRGB, before its neutral's factors; rows add up to 1.
constexpr matrix kCamera = {{{0.7, 0.25, 0.05}, {0.15, 0.75, 0.1}, {0.05, 0.3, 0.65}}};
constexpr matrix kXyzToRgb = {{{3.2404542, -1.5371385, -0.4985314},
                               {-0.9692660, 1.8760108, 0.0415560},
                               {0.0556434, -0.2040259, 1.0572252}}};
constexpr colour kNeutral = {0.5, 1, 0.625};  // what grey is in the raw samples
constexpr int kBlack = 512, kWhite = 15871;

// Sample of one colour of the mosaic for light that is given in linear sRGB.
double sample(const colour& light, int c) {
  double v = 0;
  for (int k = 0; k < 3; ++k) v += kCamera[c][k] * light[k];
  return kBlack + v * kNeutral[c] * (kWhite - kBlack);
}

// A little-endian DNG file: one strip of 16-bit samples in the mosaic red, green, green, blue.
struct dng {
  int width = 0, height = 0;
  int orientation = 1;
  uint32_t iso = 800;
  int photometric = 32803;  // a mosaic
  std::vector<uint8_t> pattern = {0, 1, 1, 2};
  uint32_t claimed_width = 0, claimed_height = 0;  // 0: the truth
  std::vector<uint16_t> samples;

  struct entry {
    int tag, type;
    uint32_t count;
    std::vector<uint8_t> value;
  };
  static void put(std::vector<uint8_t>& out, uint32_t v, int bytes) {
    for (int i = 0; i < bytes; ++i) out.push_back(uint8_t(v >> (8 * i)));
  }
  static entry numbers(int tag, int bytes, const std::vector<uint32_t>& list) {
    entry e{tag, bytes == 1 ? 1 : bytes == 2 ? 3 : 4, uint32_t(list.size()), {}};
    for (const uint32_t v : list) put(e.value, v, bytes);
    return e;
  }
  static entry fractions(int tag, bool sign, const std::vector<double>& list) {
    entry e{tag, sign ? 10 : 5, uint32_t(list.size()), {}};
    for (const double v : list) {
      put(e.value, uint32_t(int32_t(std::lround(v * 100000))), 4);
      put(e.value, 100000, 4);
    }
    return e;
  }
  // A directory at `at`, its long values behind it.
  static std::vector<uint8_t> directory(const std::vector<entry>& entries, uint32_t at) {
    std::vector<uint8_t> out, behind;
    put(out, uint32_t(entries.size()), 2);
    const uint32_t end = at + 2 + 12 * uint32_t(entries.size()) + 4;
    for (const entry& e : entries) {
      put(out, uint32_t(e.tag), 2);
      put(out, uint32_t(e.type), 2);
      put(out, e.count, 4);
      std::vector<uint8_t> value = e.value;
      if (value.size() > 4) {
        put(out, end + uint32_t(behind.size()), 4);
        behind.insert(behind.end(), value.begin(), value.end());
      } else {
        value.resize(4);
        out.insert(out.end(), value.begin(), value.end());
      }
    }
    put(out, 0, 4);
    out.insert(out.end(), behind.begin(), behind.end());
    return out;
  }

  std::vector<uint8_t> file() const {
    constexpr uint32_t kExifAt = 4000, kSamplesAt = 4096;
    std::vector<double> from_xyz;
    for (int c = 0; c < 3; ++c)
      for (int k = 0; k < 3; ++k) {
        double v = 0;
        for (int j = 0; j < 3; ++j) v += kCamera[c][j] * kXyzToRgb[j][k];
        from_xyz.push_back(v);  // its daylight is not what was shot
      }
    const uint32_t w = claimed_width ? claimed_width : uint32_t(width);
    const uint32_t h = claimed_height ? claimed_height : uint32_t(height);
    const uint32_t side = pattern.size() == 4 ? 2 : 6;
    std::vector<uint32_t> mosaic(pattern.begin(), pattern.end());
    const std::string make = "Camera maker";
    std::vector<entry> entries = {numbers(254, 4, {0}),
                                  numbers(256, 4, {w}),
                                  numbers(257, 4, {h}),
                                  numbers(258, 2, {16}),
                                  numbers(259, 2, {1}),
                                  numbers(262, 2, {uint32_t(photometric)}),
                                  {271, 2, uint32_t(make.size() + 1), {make.begin(), make.end()}},
                                  {272, 2, uint32_t(make.size() + 1), {make.begin(), make.end()}},
                                  numbers(273, 4, {kSamplesAt}),
                                  numbers(274, 2, {uint32_t(orientation)}),
                                  numbers(277, 2, {1}),
                                  numbers(278, 4, {h}),
                                  numbers(279, 4, {w * h * 2}),
                                  numbers(284, 2, {1}),
                                  numbers(33421, 2, {side, side}),
                                  numbers(33422, 1, mosaic),
                                  numbers(34665, 4, {kExifAt}),
                                  numbers(50706, 1, {1, 4, 0, 0}),
                                  {50708, 2, uint32_t(make.size() + 1), {make.begin(), make.end()}},
                                  numbers(50714, 4, {kBlack}),
                                  numbers(50717, 4, {kWhite}),
                                  fractions(50721, true, from_xyz),
                                  fractions(50728, false, {kNeutral[0], kNeutral[1], kNeutral[2]}),
                                  numbers(50778, 2, {21})};
    for (entry& e : entries)
      if (e.type == 2) e.value.push_back(0);
    std::vector<uint8_t> out = {'I', 'I', 42, 0, 8, 0, 0, 0};
    const std::vector<uint8_t> first = directory(entries, 8);
    out.insert(out.end(), first.begin(), first.end());
    out.resize(kExifAt);
    const std::vector<uint8_t> exif = directory({numbers(34855, 2, {iso})}, kExifAt);
    out.insert(out.end(), exif.begin(), exif.end());
    out.resize(kSamplesAt);
    for (const uint16_t s : samples) put(out, s, 2);
    return out;
  }
};

// Flat patches of 32x32 pixels beside each other, with noise of this deviation in raw samples.
dng chart(const std::vector<colour>& patches, double noise = 0, int rows = 32) {
  dng d;
  d.width = 32 * int(patches.size());
  d.height = rows;
  std::mt19937 random(1);
  std::normal_distribution<double> normal;
  for (int y = 0; y < d.height; ++y)
    for (int x = 0; x < d.width; ++x) {
      const int c = y % 2 + x % 2;
      const double v =
          sample(patches[size_t(x / 32)], c) + (noise > 0 ? noise * normal(random) : 0);
      d.samples.push_back(uint16_t(std::lround(std::min(std::max(v, 0.), 65535.))));
    }
  return d;
}

int srgb(double v) {
  return int(
      std::lround(255 * (v <= 0.0031308 ? 12.92 * v : 1.055 * std::pow(v, 1 / 2.4) - 0.055)));
}

frame develop(const dng& d, stream_info* info = nullptr) {
  const std::vector<uint8_t> file = d.file();
  return decode_camera_raw(file.data(), file.size(), "f.dng", info);
}

TEST(CameraRaw, ColoursAreThoseOfTheScene) {
  // The last two: a scene of deep shadow alone would be brightened by many; clipped white is white.
  const std::vector<colour> patches = {{0.18, 0.18, 0.18}, {0.5, 0.1, 0.05}, {0.1, 0.3, 0.08},
                                       {0.05, 0.08, 0.4},  {0.9, 0.9, 0.9},  {0.002, 0.002, 0.002},
                                       {0.35, 0.2, 0.13},  {1.4, 1.4, 1.4}};
  const frame f = develop(chart(patches));
  ASSERT_EQ(f.width, 32 * int(patches.size()));
  ASSERT_EQ(f.height, 32);
  const rgb_image got = to_rgb(f);
  for (size_t i = 0; i < patches.size(); ++i)
    for (int c = 0; c < 3; ++c)
      EXPECT_NEAR(got.data[(16 * size_t(f.width) + 32 * i + 16) * 3 + size_t(c)],
                  srgb(std::min(patches[i][size_t(c)], 1.)), 2)
          << "patch " << i << " channel " << c;
  // Brightness is the sensor's, whatever else is in the picture.
  for (const double v : {0.02, 0.9})
    EXPECT_NEAR(develop(chart({{v, v, v}})).luma()[16 * 32 + 16], srgb(v), 1);
}

TEST(CameraRaw, NoiseComesThroughInProportion) {
  const auto deviation = [](double noise) {
    const noise_curve curve =
        measure_noise({develop(chart(std::vector<colour>(8, {0.18, 0.18, 0.18}), noise, 256))},
                      noise_scene::flat);
    return std::array<double, 2>{curve.y, curve.u};
  };
  const auto one = deviation(60), two = deviation(120);
  // White noise of the green samples alone, on sRGB's slope at 0.18, would be 1.4 grey levels in
  // luma; interpolated neighbours and the matrix move that, and nothing takes it away.
  EXPECT_GT(one[0], 0.8);
  EXPECT_LT(one[0], 2.8);
  EXPECT_NEAR(two[0] / one[0], 2, 0.15);
  EXPECT_NEAR(two[1] / one[1], 2, 0.25);
}

TEST(CameraRaw, IsoAndOrientationAreTheFiles) {
  dng d = chart({{0.5, 0.1, 0.05}, {0.1, 0.3, 0.08}});
  d.orientation = 6;
  stream_info info;
  const frame f = develop(d, &info);
  EXPECT_EQ(exif_iso(info.metadata.exif), 800);
  EXPECT_EQ(exif_orientation(info.metadata.exif), 6);
  EXPECT_EQ(info.orientation, 6);
  EXPECT_EQ(f.width, 64);  // as it is stored
  d.iso = 0;
  develop(d, &info);
  EXPECT_EQ(exif_iso(info.metadata.exif), 0);
}

std::string fault_of(const std::vector<uint8_t>& file) {
  try {
    decode_camera_raw(file.data(), file.size(), "f.dng", nullptr);
  } catch (const error& e) {
    return e.what();
  }
  return "no fault";
}

TEST(CameraRaw, WhatIsNoWholeBayerFrameIsRefused) {
  const dng good = chart({{0.2, 0.2, 0.2}, {0.5, 0.5, 0.5}});
  const std::vector<uint8_t> file = good.file();
  ASSERT_EQ(fault_of(file), "no fault");
  for (const size_t size : {size_t(1), size_t(100), size_t(3000), file.size() / 2, file.size() - 2})
    EXPECT_NE(fault_of({file.begin(), file.begin() + long(size)}).find("f.dng: not a readable raw"),
              std::string::npos)
        << size << " bytes: " << fault_of({file.begin(), file.begin() + long(size)});
  EXPECT_NE(fault_of(std::vector<uint8_t>(5000, 'x')).find("not a readable raw"),
            std::string::npos);

  dng d = good;
  d.claimed_width = 20000;
  d.claimed_height = 20000;
  EXPECT_NE(fault_of(d.file()).find("20000x20000 is too large"), std::string::npos)
      << fault_of(d.file());
  d.claimed_width = d.claimed_height = 10000;
  EXPECT_NE(fault_of(d.file()).find("too short for 10000x10000"), std::string::npos)
      << fault_of(d.file());

  d = good;
  d.pattern = {1, 1, 0, 1, 1, 2, 1, 1, 2, 1, 1, 0, 2, 0, 1, 0, 2, 1,
               1, 1, 2, 1, 1, 0, 1, 1, 0, 1, 1, 2, 0, 2, 1, 2, 0, 1};
  EXPECT_NE(fault_of(d.file()).find("6x6"), std::string::npos) << fault_of(d.file());
  d = good;
  d.photometric = 34892;  // demosaiced
  EXPECT_NE(fault_of(d.file()).find("without a mosaic"), std::string::npos) << fault_of(d.file());
}

}  // namespace
}  // namespace vorn::tool
