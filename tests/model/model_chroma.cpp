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

}  // namespace model
