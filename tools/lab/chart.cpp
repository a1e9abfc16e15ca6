#include "tools/lab/chart.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>

namespace vorn::tool {
namespace {

struct rgb {
  float r, g, b;  // code values 0..255
};

struct rect {
  int x, y, width, height;
};

constexpr int kSteps = 12;
constexpr float kSquare = 0.33f;  // half of a slanted square, share of its tile's shorter side
constexpr std::array<rgb, kSteps> kColours = {{
    {200, 30, 40},    // red
    {30, 140, 60},    // green
    {35, 50, 170},    // blue
    {20, 170, 190},   // cyan
    {190, 50, 150},   // magenta
    {235, 205, 30},   // yellow
    {115, 80, 66},    // dark skin
    {196, 150, 130},  // light skin
    {92, 122, 158},   // sky
    {88, 108, 64},    // foliage
    {222, 120, 40},   // orange
    {110, 20, 70},    // wine
}};

class drawing {
 public:
  drawing(int width, int height) : width(width), height(height), pixels(size_t(width) * height) {}
  rgb& at(int x, int y) { return pixels[size_t(y) * width + x]; }
  void mix_in(int x, int y, const rgb& c, float share) {
    rgb& p = at(x, y);
    p.r += share * (c.r - p.r);
    p.g += share * (c.g - p.g);
    p.b += share * (c.b - p.b);
  }
  int width, height;
  std::vector<rgb> pixels;
};

// A fixed sequence of numbers.
class random_numbers {
 public:
  explicit random_numbers(uint64_t seed) : state_(seed) {}
  float uniform() {  // 0 < result <= 1
    state_ += 0x9e3779b97f4a7c15u;
    uint64_t z = state_;
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9u;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebu;
    z ^= z >> 31;
    return static_cast<float>((z >> 40) + 1) * (1.0f / 16777216.0f);
  }
  float between(float low, float high) { return low + (high - low) * uniform(); }

 private:
  uint64_t state_;
};

// Sine of a turn (1 = full circle), a parabola refined once; its error of 0.001 is no matter here.
float sine_of_turn(float turns) {
  const float t = turns - std::floor(turns);
  const float h = t < 0.5f ? t : t - 0.5f;  // half wave
  const float p = 16 * h * (0.5f - h);
  const float s = 0.775f * p + 0.225f * p * p;
  return t < 0.5f ? s : -s;
}

void fill(drawing* canvas, const rect& box, const rgb& colour) {
  for (int y = box.y; y < box.y + box.height; ++y)
    for (int x = box.x; x < box.x + box.width; ++x) canvas->at(x, y) = colour;
}

// ---- layout -------------------------------------------------------------------------------------

// Boundary i of n equal parts of a length, even so that chroma samples never straddle it.
int part(int length, int i, int n) {
  return static_cast<int>(static_cast<int64_t>(length) * i / n) & ~1;
}

rect cell(const rect& area, int column, int columns, int row, int rows) {
  const int x0 = part(area.width, column, columns), x1 = part(area.width, column + 1, columns);
  const int y0 = part(area.height, row, rows), y1 = part(area.height, row + 1, rows);
  const bool last_column = column + 1 == columns, last_row = row + 1 == rows;
  return {area.x + x0, area.y + y0, (last_column ? area.width : x1) - x0,
          (last_row ? area.height : y1) - y0};
}

struct chart_layout {
  rect greys, colours, ramps, edges, leaves, faint_leaves;
};

chart_layout layout(int width, int height) {
  const int top = part(height, 1, 6), body = part(height, 2, 6);
  const int left = part(width, 1, 3), right = part(width, 2, 3);
  const int split = body + part(height - body, 3, 5);
  return {{0, 0, width, top},
          {0, top, width, body - top},
          {0, body, left, height - body},
          {left, body, right - left, height - body},
          {right, body, width - right, split - body},
          {right, split, width - right, height - split}};
}

// ---- the parts ----------------------------------------------------------------------------------

rgb grey_step(int i) {
  const float level = 12.0f + 21.0f * static_cast<float>(i);  // 12, 33, ... 243
  return {level, level, level};
}

void draw_patches(drawing* canvas, const chart_layout& at) {
  for (int i = 0; i < kSteps; ++i) {
    fill(canvas, cell(at.greys, i, kSteps, 0, 1), grey_step(i));
    fill(canvas, cell(at.colours, i, kSteps, 0, 1), kColours[i]);
  }
}

void draw_ramps(drawing* canvas, const rect& area) {
  const rect grey = cell(area, 0, 1, 0, 3), colour = cell(area, 0, 1, 1, 3),
             sweep = cell(area, 0, 1, 2, 3);
  for (int y = 0; y < grey.height; ++y) {
    for (int x = 0; x < grey.width; ++x) {
      const float level = 255.0f * static_cast<float>(x) / static_cast<float>(grey.width - 1);
      canvas->at(grey.x + x, grey.y + y) = {level, level, level};
    }
  }
  // Hue runs along the row, saturation falls from top to bottom.
  for (int y = 0; y < colour.height; ++y) {
    const float saturation = 90.0f * static_cast<float>(colour.height - y) / colour.height;
    for (int x = 0; x < colour.width; ++x) {
      const float hue = static_cast<float>(x) / static_cast<float>(colour.width);
      canvas->at(colour.x + x, colour.y + y) = {128 + saturation * sine_of_turn(hue + 0.25f),
                                                128 + saturation * sine_of_turn(hue + 0.9166667f),
                                                128 + saturation * sine_of_turn(hue + 0.5833333f)};
    }
  }
  // Vertical waves from 32 pixels per period down to 2.5; contrast falls from top to bottom.
  for (int y = 0; y < sweep.height; ++y) {
    const float contrast = 80.0f * static_cast<float>(sweep.height - y) / sweep.height;
    float phase = 0;
    for (int x = 0; x < sweep.width; ++x) {
      const float t = static_cast<float>(x) / static_cast<float>(sweep.width);
      phase += 1.0f / 32.0f + (1.0f / 2.5f - 1.0f / 32.0f) * t * t;
      const float level = 128 + contrast * sine_of_turn(phase);
      canvas->at(sweep.x + x, sweep.y + y) = {level, level, level};
    }
  }
}

// Tilted squares of other colours on a ground: edges 5 degrees off the grid, one pixel wide.
void draw_edges(drawing* canvas, const rect& area) {
  struct pair {
    rgb ground, square;
  };
  constexpr std::array<pair, 6> kPairs = {{
      {{40, 40, 40}, {210, 210, 210}},
      {{110, 110, 110}, {160, 160, 160}},
      {{150, 150, 150}, {135, 135, 135}},
      {{170, 60, 50}, {60, 90, 170}},
      {{90, 140, 80}, {180, 90, 140}},
      {{60, 60, 60}, {72, 72, 72}},
  }};
  constexpr float kSlope = 0.0875f;  // tangent of 5 degrees
  for (size_t i = 0; i < kPairs.size(); ++i) {
    const rect box = cell(area, static_cast<int>(i % 2), 2, static_cast<int>(i / 2), 3);
    fill(canvas, box, kPairs[i].ground);
    const float half = kSquare * static_cast<float>(std::min(box.width, box.height));
    for (int y = 0; y < box.height; ++y) {
      for (int x = 0; x < box.width; ++x) {
        const float dx = static_cast<float>(x) + 0.5f - 0.5f * static_cast<float>(box.width);
        const float dy = static_cast<float>(y) + 0.5f - 0.5f * static_cast<float>(box.height);
        const float across = std::fabs(dx + kSlope * dy), down = std::fabs(dy - kSlope * dx);
        const float cover_x = std::clamp(half - across + 0.5f, 0.0f, 1.0f);
        const float cover_y = std::clamp(half - down + 0.5f, 0.0f, 1.0f);
        canvas->mix_in(box.x + x, box.y + y, kPairs[i].square, cover_x * cover_y);
      }
    }
  }
}

// Discs with radii distributed as 1 / r^3, each over the ones before: the statistics of natural
// texture at every scale. Levels lie in centre +- spread, colours in +- chroma around them.
void draw_leaves(drawing* canvas, const rect& box, uint64_t seed, float centre, float spread,
                 float chroma) {
  constexpr float kSmallest = 1.2f, kLargest = 48.0f;
  random_numbers dice(seed);
  fill(canvas, box, {centre, centre, centre});
  const float area = static_cast<float>(box.width) * static_cast<float>(box.height);
  const int count = static_cast<int>(area / 5.0f);
  for (int i = 0; i < count; ++i) {
    const float u = dice.uniform();
    // The inverse of the radius distribution between the two limits.
    const float low = 1 / (kLargest * kLargest), high = 1 / (kSmallest * kSmallest);
    const float radius = 1 / std::sqrt(low + (high - low) * u);
    const float mx = dice.between(-radius, static_cast<float>(box.width) + radius);
    const float my = dice.between(-radius, static_cast<float>(box.height) + radius);
    const float level = dice.between(centre - spread, centre + spread);
    const rgb colour = {level + dice.between(-chroma, chroma),
                        level + dice.between(-chroma, chroma),
                        level + dice.between(-chroma, chroma)};
    const int x0 = std::max(0, static_cast<int>(std::floor(mx - radius - 1)));
    const int x1 = std::min(box.width - 1, static_cast<int>(std::floor(mx + radius + 1)));
    const int y0 = std::max(0, static_cast<int>(std::floor(my - radius - 1)));
    const int y1 = std::min(box.height - 1, static_cast<int>(std::floor(my + radius + 1)));
    for (int y = y0; y <= y1; ++y) {
      for (int x = x0; x <= x1; ++x) {
        const float dx = static_cast<float>(x) + 0.5f - mx;
        const float dy = static_cast<float>(y) + 0.5f - my;
        const float cover = std::clamp(radius - std::sqrt(dx * dx + dy * dy) + 0.5f, 0.0f, 1.0f);
        if (cover > 0) canvas->mix_in(box.x + x, box.y + y, colour, cover);
      }
    }
  }
}

uint8_t rounded(float value) {
  return static_cast<uint8_t>(std::clamp(value + 0.5f, 0.0f, 255.0f));
}

float luma_of(const rgb& c) {
  return 0.299f * c.r + 0.587f * c.g + 0.114f * c.b;
}

// BT.601 full range; chroma is the mean of its four pixels.
void convert(const drawing& canvas, frame& f) {
  const auto pixel = [&](int x, int y) -> const rgb& {
    return canvas.pixels[size_t(std::min(y, canvas.height - 1)) * canvas.width +
                         std::min(x, canvas.width - 1)];
  };
  for (int y = 0; y < f.padded_height; ++y)
    for (int x = 0; x < f.padded_width; ++x)
      f.luma()[size_t(y) * f.padded_width + x] = rounded(luma_of(pixel(x, y)));
  for (int y = 0; y < f.padded_height; y += 2) {
    uint8_t* row = f.chroma() + size_t(y / 2) * f.padded_width;
    for (int x = 0; x < f.padded_width; x += 2) {
      float u = 0, v = 0;
      for (int k = 0; k < 4; ++k) {
        const rgb& c = pixel(x + (k & 1), y + (k >> 1));
        u += (c.b - luma_of(c)) * (0.5f / (1 - 0.114f));
        v += (c.r - luma_of(c)) * (0.5f / (1 - 0.299f));
      }
      row[x] = rounded(128 + 0.25f * u);
      row[x + 1] = rounded(128 + 0.25f * v);
    }
  }
}

}  // namespace

frame draw_chart(int width, int height) {
  drawing canvas(width, height);
  const chart_layout at = layout(width, height);
  draw_patches(&canvas, at);
  draw_ramps(&canvas, at.ramps);
  draw_edges(&canvas, at.edges);
  draw_leaves(&canvas, at.leaves, 11, 120, 90, 30);
  draw_leaves(&canvas, at.faint_leaves, 12, 135, 18, 0);
  frame f = make_frame(width, height);
  convert(canvas, f);
  return f;
}

std::vector<chart_patch> chart_patches(int width, int height) {
  const chart_layout at = layout(width, height);
  std::vector<chart_patch> patches;
  for (const rect& row : {at.greys, at.colours}) {
    for (int i = 0; i < kSteps; ++i) {
      const rect box = cell(row, i, kSteps, 0, 1);
      const int dx = (box.width / 5) & ~1, dy = (box.height / 5) & ~1;
      patches.push_back(
          {box.x + dx, box.y + dy, (box.width - 2 * dx) & ~1, (box.height - 2 * dy) & ~1});
    }
  }
  return patches;
}

std::vector<chart_region> chart_regions(int width, int height) {
  const chart_layout at = layout(width, height);
  std::vector<chart_region> regions;
  const std::vector<chart_patch> flat = chart_patches(width, height);
  for (int i = 0; i < kSteps; ++i) regions.push_back({chart_kind::grey, flat[size_t(i)]});
  // The left side of a square, 0.6 of its length. Its profile takes 12 pixels to either side and
  // what the slope adds; the tile ends beyond.
  for (int i = 0; i < 2; ++i) {
    const rect box = cell(at.edges, i, 2, 0, 3);
    const float side = static_cast<float>(std::min(box.width, box.height));
    const int half = static_cast<int>(kSquare * side), length = half * 6 / 5;
    const int reach = std::min(24, static_cast<int>((0.5f - kSquare) * side) - 2);
    if (reach < 14) continue;
    regions.push_back({chart_kind::edge,
                       {(box.x + box.width / 2 - half - reach) & ~1,
                        (box.y + (box.height - length) / 2) & ~1, 2 * reach, length & ~1}});
  }
  constexpr int kBorder = 4, kTile = 32;  // a tile of the spectra
  for (const rect& box : {at.leaves, at.faint_leaves}) {
    const chart_patch place = {box.x + kBorder, box.y + kBorder, (box.width - 2 * kBorder) & ~1,
                               (box.height - 2 * kBorder) & ~1};
    if (place.width >= kTile && place.height >= kTile)
      regions.push_back({chart_kind::leaves, place});
  }
  return regions;
}

}  // namespace vorn::tool
