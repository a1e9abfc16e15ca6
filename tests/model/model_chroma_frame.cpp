// The chroma of a whole frame, from the passes of model_chroma.cpp.
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "tests/model/model.h"

namespace model {

namespace {

// Fourteen planes in one block: seven of level 0, seven of level 1, and one spare byte of 128.
struct scratch {
  std::vector<uint8_t> memory;
  plane image[14];
  scratch(int width, int height) {
    const int w0 = width >> 1, h0 = height >> 1, w1 = width >> 2, h1 = height >> 2;
    const size_t q = static_cast<size_t>(w0) * h0, r = static_cast<size_t>(w1) * h1;
    memory.assign(7 * q + 7 * r + 1, 0);
    memory.back() = 128;
    for (int k = 0; k < 7; ++k) {
      image[2 * k] = {memory.data() + k * q, w0, h0, w0};
      image[2 * k + 1] = {memory.data() + 7 * q + k * r, w1, h1, w1};
    }
  }
};

bool usable(int width, int height, bool two_levels) {
  if (width % 2 != 0 || width < 2 || height < 2) return false;
  return !two_levels || ((width >> 2) >= 1 && (height >> 2) >= 1);
}

plane luma_of(int width, int height, const uint8_t* frame) {
  return {const_cast<uint8_t*>(frame), width, height, width};
}

// Level 1 across and along, and the change added to level 0.
void coarse_pass(const scratch& s, const chroma_param& p) {
  const auto& i = s.image;
  filter(direction::horizontal, i[1], i[3], i[5], i[7], i[9], p);
  filter(direction::vertical, i[1], i[7], i[9], i[11], i[13], p);
  subtract_add128(i[11], i[3], i[11]);
  subtract_add128(i[13], i[5], i[13]);
  if (2 * i[11].height >= i[10].height) {
    up2_merge1(i[11], i[10], i[2]);
    up2_merge1(i[13], i[12], i[4]);
  } else {
    up_odd(i[11], i[10]);
    up_odd(i[13], i[12]);
    add_sub128(i[2], i[10], i[2]);
    add_sub128(i[4], i[12], i[4]);
  }
}

// Sum of the second differences, or of the steps right and down, over a block of U or V or luma.
int differences(plane p, int x, int y, int side, bool second) {
  int sum = 0;
  for (int k = 0; k < side * side; ++k) {
    const int r = y + k / side, c = x + k % side, at = p.at(r, c);
    sum += second ? std::abs(2 * at - p.at(r, c - 1) - p.at(r, c + 1)) +
                        std::abs(2 * at - p.at(r - 1, c) - p.at(r + 1, c))
                  : std::abs(p.at(r, c + 1) - at) + std::abs(p.at(r + 1, c) - at);
  }
  return sum;
}

// Differences on level 1 over those on level 0, in 1/256, over the calmest quarter of the blocks.
int coarseness(const scratch& s) {
  const auto& i = s.image;
  struct sampled {
    int activity, fine, coarse;
  };
  std::vector<sampled> blocks;
  const int columns = (i[3].width - 1) / 4 - 1, rows = (i[3].height - 1) / 4 - 1;
  int step = 1;
  while ((columns / step + 1) * (rows / step + 1) > 4096) ++step;
  for (int y = 1; y <= rows; y += step)
    for (int x = 1; x <= columns; x += step)
      blocks.push_back(
          {std::min(1023, differences(i[0], 8 * x, 8 * y, 8, false) / 2),
           differences(i[2], 8 * x, 8 * y, 8, true) + differences(i[4], 8 * x, 8 * y, 8, true),
           differences(i[3], 4 * x, 4 * y, 4, true) + differences(i[5], 4 * x, 4 * y, 4, true)});
  if (blocks.empty()) return 128;
  std::sort(blocks.begin(), blocks.end(),
            [](const sampled& a, const sampled& b) { return a.activity < b.activity; });
  const int calm = blocks[(blocks.size() + 3) / 4 - 1].activity;
  int64_t fine = 0, coarse = 0;
  for (const sampled& b : blocks) {
    if (b.activity > calm) break;
    fine += b.fine;
    coarse += b.coarse;
  }
  return fine == 0 ? 128 : static_cast<int>(1024 * coarse / fine);
}

// The pass of the fine mode that takes out blotches.
void blotch_pass(const scratch& s, float square, int grain) {
  const int share = std::max(38, std::min(102, 38 + (grain - 128) * 77 / 256));
  const float inverse = 256.0f / static_cast<float>(share);
  coarse_pass(s, {inverse * inverse / square, 8, 2, 14, 3, 0});
}

// The fine mode's filter of one plane by itself.
void filter_plane(plane p, int range_factor, int grain) {
  const int share = std::max(128, std::min(256, 256 - (grain - 128) * 136 / 256));
  const int strength =
      range_factor < 1 ? 0 : static_cast<int>(12 * std::sqrt(range_factor)) * share / 256;
  std::vector<uint8_t> from(p.data, p.data + p.width * p.height);
  if (strength > 0)
    luma({from.data(), p.width, p.height, p.width}, p,
         {1, 2, {strength, strength / 2}, {7, 7}, 64, 0, 0}, nullptr, true);
}

void halve(const scratch& s) {
  for (const int k : {0, 2, 4}) down2(s.image[k], s.image[k + 1]);
}

}  // namespace

int chroma(int width, int height, const uint8_t* src, uint8_t* dst,
           const ycnr_cnr_tuning_param& tuning, bool fine) {
  if (!usable(width, height, tuning.scale == 1 || tuning.scale == 2)) return -1;
  scratch s(width, height);
  const auto& i = s.image;
  const size_t luma_bytes = static_cast<size_t>(width) * height;

  const bool single_planes = fine && i[2].width >= 4 && i[2].height >= 4;
  const float factor =
      static_cast<float>(tuning.range_factor - (single_planes ? tuning.range_factor / 2 : 0));
  const float square = factor * factor;
  const int step = wrap_mul(tuning.step, 2);
  chroma_param p = {1.0f / square,
                    step == 0 ? 0 : tuning.smooth_radius / step * step,
                    step,
                    tuning.color_edge_u,
                    tuning.color_edge_v,
                    -1};

  split_sliced(src + luma_bytes, i[2].data, i[4].data, width, height / 2, tuning.saturation);
  down2(luma_of(width, height, src), i[0]);
  int grain = 128;
  if (fine && tuning.scale >= 0 && tuning.scale <= 2 && i[3].width > 0 && i[3].height > 0) {
    halve(s);
    grain = coarseness(s);
    blotch_pass(s, square, grain);
  }
  if (tuning.scale == 1) {
    halve(s);
    filter(direction::horizontal, i[1], i[3], i[5], i[7], i[9], p);
    filter(direction::vertical, i[1], i[7], i[9], i[3], i[5], p);
    up_sliced(i[3], i[2]);
    up_sliced(i[5], i[4]);
  }
  if (tuning.scale == 2) {
    halve(s);
    coarse_pass(s, p);
    p.radius = 3;
    p.step = 2;
  }
  if (fine || tuning.scale == 2) p.level_mode = 0;
  if (tuning.scale == 0 || tuning.scale == 2) {
    filter(direction::horizontal, i[0], i[2], i[4], i[6], i[8], p);
    filter(direction::vertical, i[0], i[6], i[8], i[10], i[12], p);
    if (fine) {
      filter(direction::vertical, i[0], i[2], i[4], i[6], i[8], p);
      filter(direction::horizontal, i[0], i[6], i[8], i[2], i[4], p);
    }
    for (const int k : {2, 4})
      for (int n = 0; n < i[k].width * i[k].height; ++n)
        i[k].data[n] =
            static_cast<uint8_t>(((fine ? i[k].data : i[k + 8].data)[n] + i[k + 8].data[n]) / 2);
  }
  if (single_planes && tuning.scale >= 0 && tuning.scale <= 2)
    for (const int k : {2, 4}) filter_plane(i[k], tuning.range_factor, grain);
  for (int k = 0; k < height / 2 * width; ++k)
    dst[luma_bytes + k] = i[k % 2 == 0 ? 2 : 4].data[k / 2];
  return 0;
}

int chroma_masked(int width, int height, const uint8_t* src, uint8_t* dst, plane mask,
                  const chroma_param& p, int scale, int saturation) {
  if (!usable(width, height, scale != 0)) return -1;
  scratch s(width, height);
  const auto& i = s.image;
  const size_t luma_bytes = static_cast<size_t>(width) * height;
  uint8_t* dst_uv = dst + luma_bytes;

  split(src + luma_bytes, i[2].data, i[4].data, 0, height / 2 * width, saturation);
  down2(luma_of(width, height, src), i[0]);
  if (scale != 0) {
    down2(i[0], i[1]);
    down2(i[2], i[3]);
    down2(i[4], i[5]);
    filter_masked(direction::horizontal, i[1], i[3], i[5], i[7], i[9], p, mask);
    filter_masked(direction::vertical, i[1], i[7], i[9], i[3], i[5], p, mask);
    up_interleaved(i[3], i[5], i[2].width, i[2].height, dst_uv);
  } else {
    filter_masked(direction::horizontal, i[0], i[2], i[4], i[6], i[8], p, mask);
    filter_masked(direction::vertical, i[0], i[6], i[8], i[2], i[4], p, mask);
    for (int k = 0; k < height / 2 * width; ++k) dst_uv[k] = i[k % 2 == 0 ? 2 : 4].data[k / 2];
  }
  return 0;
}

int process(int width, int height, uint8_t* src, uint8_t* dst, const ycnr_ynr_tuning_param& ynr,
            const ycnr_cnr_tuning_param& cnr, bool fine) {
  const size_t bytes = static_cast<size_t>(width) * height * 3 / 2;
  std::memcpy(dst, src, bytes);
  const bool run_luma = ynr.enable == 1 && (cnr.enable == 0 || cnr.enable == 1);
  const bool run_chroma = cnr.enable == 1 && (ynr.enable == 0 || ynr.enable == 1);
  // A frame that one of the two cannot take is refused as a whole.
  if (run_chroma && !usable(width, height, cnr.scale == 1 || cnr.scale == 2)) return -1;
  if (run_luma) {
    ycnr_ynr_tuning_param used = ynr;
    for (int l = 0; fine && l < 2; ++l)
      if (int& strength = used.pIntensity[l]; strength >= 1)
        strength = static_cast<int>(std::clamp(
            std::floor((strength * (l == 0 ? 21.0 : 18.0) + 10) / 20), 1.0, double{INT32_MAX}));
    if (luma({src, width, height, width}, {dst, width, height, width}, used, nullptr, fine) != 0)
      return -1;
    if (run_chroma) std::memcpy(src, dst, bytes);
  }
  if (run_chroma) return chroma(width, height, src, dst, cnr, fine);
  return 0;
}

}  // namespace model
