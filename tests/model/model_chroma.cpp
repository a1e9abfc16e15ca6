#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <random>

#include "tests/model/model.h"

namespace model {

// Uniform integers in [low, high]: the low bits of one draw, as many as the range needs, drawn
// again until they fall into it.
static int uniform(std::mt19937& engine, int low, int high) {
  const uint32_t range = static_cast<uint32_t>(high - low) + 1;
  if (range == 1) return low;
  uint32_t bits = 1;
  while ((1u << bits) < range) ++bits;
  for (;;) {
    const uint32_t u = static_cast<uint32_t>(engine()) & ((1u << bits) - 1);
    if (u < range) return static_cast<int>(u) + low;
  }
}

void random_table(short* table, int count, unsigned seed, short low, short high) {
  std::mt19937 engine(seed);
  for (int i = 0; i < count; ++i) table[i] = static_cast<short>(uniform(engine, low, high));
}

int add_noise(plane image, unsigned seed, int low, int high) {
  const int w = image.width, h = image.height;
  std::vector<int> noise(static_cast<size_t>(4) * w), offset(h);
  std::mt19937 engine(seed + static_cast<unsigned>(w >> 4));
  for (int& n : noise) n = uniform(engine, low, high);
  engine.seed(seed + static_cast<unsigned>(w >> 2));
  for (int& o : offset) o = uniform(engine, 0, 3 * w - 1);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x)
      image.at(y, x) =
          static_cast<uint8_t>(std::min(255, std::max(0, image.at(y, x) + noise[offset[y] + x])));
  return 0;
}

void range_weights(float coefficient, int64_t weights[512]) {
  const double g = static_cast<double>(coefficient);
  for (int i = 0; i < 512; ++i) {
    const double square = i * (0.25 * i);
    const double scaled = square * g;
    const double t = 1.0 - scaled;
    const double cube = t * t * t;
    weights[i] = std::isfinite(g)
                     ? static_cast<int64_t>(0.5 + 255.0 * std::min(std::max(cube, 0.0), 1.0))
                     : 0;  // range_factor 0: no neighbour counts
  }
}

void split(const uint8_t* uv, uint8_t* u, uint8_t* v, int begin, int end, int s) {
  const int whole = begin + (end - begin) / 32 * 32;  // up to here only the low byte of s counts
  for (int i = begin; i < end; ++i) {
    const int gain = i < whole ? static_cast<int8_t>(static_cast<uint8_t>(s & 255)) : s;
    const int scaled = wrap_add(wrap_mul(uv[i] - 128, gain), 8) >> 4;
    uint8_t* to = i % 2 == 0 ? u : v;
    to[i / 2] = static_cast<uint8_t>(std::min(255, std::max(0, uv[i] + (s == 0 ? 0 : scaled))));
  }
}

void split_sliced(const uint8_t* uv, uint8_t* u, uint8_t* v, int width, int rows, int s) {
  const int q = rows / 4 * width;
  for (int k = 0; k < 4; ++k) split(uv, u, v, k * q, k < 3 ? (k + 1) * q : rows * width, s);
}

namespace {

struct random_tables {
  short dither[8192];
  short offset[2048];
  random_tables() {
    random_table(dither, 8192, 255, -1, 2);
    for (short& d : dither)
      if (d > 1) d = 0;
    random_table(offset, 2048, 1024, 0, 2048);
  }
};

const random_tables& tables() {
  static const random_tables t;
  return t;
}

// 4 * radial[k], k the distance from the centre in quarters of the way to the corner.
int radial_factor(int width, int height, int x, int y) {
  static const int radial[5] = {128, 108, 108, 91, 76};
  const int cx = width >> 1, cy = height >> 1;
  const int distance = std::abs(x - cx) + std::abs(y - cy);
  return 4 * radial[cx + cy == 0 ? 0 : 4 * distance / (cx + cy)];
}

// Calls visit(ty, tx) for the window's taps around (y, x): a grid of the step that starts at the
// radius, or at the plane's first sample where that is nearer.
template <typename Visit>
void taps(direction along, plane p, int y, int x, const chroma_param& c, Visit visit) {
  if (c.step < 1 || c.radius < 1) return;
  const int at = along == direction::horizontal ? x : y;
  const int size = along == direction::horizontal ? p.width : p.height;
  const int64_t last = std::min<int64_t>(c.radius, size - 1 - at);
  for (int64_t t = -std::min(c.radius, at); t <= last; t += c.step) {
    if (t == 0) continue;
    const int other = at + static_cast<int>(t);
    along == direction::horizontal ? visit(y, other) : visit(other, x);
  }
}

int weight_index(int64_t difference, int factor) {
  const int64_t e = difference * factor;
  if (e >= 261376) return 511;
  return static_cast<int>(std::max<int64_t>(0, (e + 256) >> 9));
}

// |a - b| * edge, in 32 bits that wrap.
int weighted(int a, int b, int edge) {
  return wrap_mul(std::abs(a - b), edge);
}

// The difference of two pixels in signed 16 bits, larger the further the centre is from grey.
int16_t colour_difference(plane guide, plane u, plane v, int y, int x, int ty, int tx,
                          const chroma_param& p) {
  const int u0 = u.at(y, x), v0 = v.at(y, x), du = u0 - 128, dv = v0 - 128;
  const int sum = wrap_add(wrap_add(std::abs(guide.at(y, x) - guide.at(ty, tx)),
                                    weighted(u0, u.at(ty, tx), p.edge_u) >> 3),
                           weighted(v0, v.at(ty, tx), p.edge_v) >> 3);
  const auto d = static_cast<int16_t>(static_cast<uint16_t>(sum));
  const int magnified = d + ((d * (du * du + dv * dv)) >> 11);
  return static_cast<int16_t>(static_cast<uint16_t>(magnified));
}

struct totals {
  int64_t weight, u, v;
};

totals window_totals(direction along, plane guide, plane u, plane v, int y, int x, int centre,
                     const chroma_param& p, const int64_t* weights) {
  const int factor = radial_factor(u.width, u.height, x, y);
  totals sum = {centre, int64_t{centre} * u.at(y, x), int64_t{centre} * v.at(y, x)};
  taps(along, u, y, x, p, [&](int ty, int tx) {
    const int64_t w =
        weights[weight_index(colour_difference(guide, u, v, y, x, ty, tx, p), factor)];
    sum.weight += w;
    sum.u += w * u.at(ty, tx);
    sum.v += w * v.at(ty, tx);
  });
  return sum;
}

// sum / weight by the table of 2^20 / n over the totals in units of 2^11.
uint8_t by_reciprocal(int64_t sum, int64_t weight) {
  const int64_t n = (weight + 1024) >> 11;
  const int64_t reciprocal = n == 0 ? 0
                             : n > 4092
                                 ? 256
                                 : static_cast<int64_t>(1048576.0f / static_cast<float>(n) + 0.5f);
  const int64_t value = reciprocal * ((sum + 1024) >> 11);
  return static_cast<uint8_t>(value < 266862592 ? (value + 524288) >> 20 : 255);
}

}  // namespace

void filter(direction along, plane guide, plane u, plane v, plane out_u, plane out_v,
            const chroma_param& p) {
  int64_t weights[512];
  range_weights(p.coefficient, weights);
  const random_tables& t = tables();
  for (int y = 0; y < u.height; ++y) {
    int start;  // of the dither in this row
    if (along == direction::vertical)
      start = t.offset[y & 2047] + p.level_mode + 1;
    else if (y + p.level_mode < 0)
      start = t.dither[8191] + 1;  // the entry before the offsets
    else
      start = t.offset[(y + p.level_mode) & 2047] + 1;
    for (int x = 0; x < u.width; ++x) {
      const totals sum = window_totals(along, guide, u, v, y, x, 256, p, weights);
      const int64_t n = t.dither[(start + x) & 8191];
      const int64_t bias = sum.weight / 4 * (n + p.level_mode + 2);
      out_u.at(y, x) = static_cast<uint8_t>(std::min<int64_t>((sum.u + bias) / sum.weight, 255));
      out_v.at(y, x) = static_cast<uint8_t>(std::min<int64_t>((sum.v + bias) / sum.weight, 255));
    }
  }
}

void filter_interleaved(plane guide, plane u, plane v, uint8_t* uv, const chroma_param& p) {
  int64_t weights[512];
  range_weights(p.coefficient, weights);
  for (int y = 0; y < u.height; ++y)
    for (int x = 0; x < u.width; ++x) {
      const totals sum = window_totals(direction::vertical, guide, u, v, y, x, 32768, p, weights);
      uint8_t* pair = uv + (static_cast<ptrdiff_t>(y) * u.width + x) * 2;
      pair[0] = by_reciprocal(sum.u, sum.weight);
      pair[1] = by_reciprocal(sum.v, sum.weight);
    }
}

void filter_masked(direction along, plane guide, plane u, plane v, plane out_u, plane out_v,
                   const chroma_param& p, plane mask) {
  int64_t weights[512];
  range_weights(p.coefficient, weights);
  const int ratio = mask.width == 0 ? 0 : u.width / mask.width;
  for (int y = 0; y < u.height; ++y)
    for (int x = 0; x < u.width; ++x) {
      const int mk = ratio == 0 ? mask.data[0] : mask.data[y / ratio * mask.width + x / ratio];
      const int u0 = u.at(y, x), v0 = v.at(y, x), du = u0 - 128, dv = v0 - 128;
      out_u.at(y, x) = static_cast<uint8_t>(u0);
      out_v.at(y, x) = static_cast<uint8_t>(v0);
      if (mk == 0) continue;
      const int factor = radial_factor(u.width, u.height, x, y);
      int64_t weight = 32768, su = 32768 * u0, sv = 32768 * v0;
      taps(along, u, y, x, p, [&](int ty, int tx) {
        const int d = wrap_add(wrap_add(std::abs(guide.at(y, x) - guide.at(ty, tx)),
                                        weighted(u0, u.at(ty, tx), p.edge_u) / 8),
                               weighted(v0, v.at(ty, tx), p.edge_v) / 8);
        const int64_t dm = wrap_add(mk >> 1, wrap_mul(64, d)) / mk;
        const int64_t magnified = dm + ((dm * (du * du + dv * dv)) >> 11);
        const int64_t w = weights[weight_index(magnified, factor)];
        weight += w;
        su += w * u.at(ty, tx);
        sv += w * v.at(ty, tx);
      });
      out_u.at(y, x) = by_reciprocal(su, weight);
      out_v.at(y, x) = by_reciprocal(sv, weight);
    }
}

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

}  // namespace

namespace {

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
