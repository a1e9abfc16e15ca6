#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "tests/model/model.h"

namespace model {

plane of(const _tag_uni_image& image) {
  return {image.plane[0], image.width, image.height, image.stride[0]};
}

int wrap_mul(int a, int b) {
  return static_cast<int>(static_cast<unsigned>(a) * static_cast<unsigned>(b));
}

int wrap_add(int a, int b) {
  return static_cast<int>(static_cast<unsigned>(a) + static_cast<unsigned>(b));
}

namespace {

// 1 2 1 over four, first down the three rows of one column, then across three such sums.
int column(int up, int centre, int low) {
  return up + 2 * centre + low;
}

uint8_t binomial(int left, int centre, int right) {
  return static_cast<uint8_t>((left + 2 * centre + right + 8) / 16);
}

int mirrored(int i, int size) {
  return i < 0 ? 1 : i == size ? size - 2 : i;
}

int average(int a, int b) {
  return (a + b + 1) / 2;
}

}  // namespace

// Columns: 2x + 1 lies inside for a width of half the source's. Left of column 0 stands column 0
// again, but in a plane of less than eight outputs per row the byte before the row, whatever it is
// (in the very first row, which has none, column 0).
void down2(plane src, plane dst) {
  const auto at = [&](int row, int x) -> int {
    if (x >= 0) return src.at(row, x);
    return src.at(row, dst.width >= 8 || row == 0 ? 0 : -1);
  };
  for (int y = 0; y < dst.height; ++y) {
    const int up = y == 0 ? 0 : 2 * y - 1, low = 2 * y == src.height - 1 ? 2 * y : 2 * y + 1;
    const auto sum = [&](int x) { return column(at(up, x), at(2 * y, x), at(low, x)); };
    for (int x = 0; x < dst.width; ++x)
      dst.at(y, x) = binomial(sum(2 * x - 1), sum(2 * x), sum(2 * x + 1));
  }
}

void blur(plane src, plane dst) {
  for (int y = 0; y < src.height; ++y) {
    const int up = mirrored(y - 1, src.height), low = mirrored(y + 1, src.height);
    const auto sum = [&](int i) {
      const int x = mirrored(i, src.width);
      return column(src.at(up, x), src.at(y, x), src.at(low, x));
    };
    for (int x = 0; x < src.width; ++x) dst.at(y, x) = binomial(sum(x - 1), sum(x), sum(x + 1));
  }
}

int merge(int up, int detail) {
  return std::min(std::abs(up + detail - 128), 255);
}

void subtract_add128(plane a, plane b, plane out) {
  for (int y = 0; y < a.height; ++y)
    for (int x = 0; x < a.width; ++x)
      out.at(y, x) = static_cast<uint8_t>(std::min(std::abs(a.at(y, x) - b.at(y, x) + 128), 255));
}

void add_sub128(plane a, plane d, plane out) {
  for (int y = 0; y < a.height; ++y)
    for (int x = 0; x < a.width; ++x)
      out.at(y, x) = static_cast<uint8_t>(merge(a.at(y, x), d.at(y, x)));
}

int enlarged(plane s, int y, int x) {
  const int r = y / 2, i = x / 2;
  const int row = x % 2 == 0 ? s.at(r, i) : average(s.at(r, i), s.at(r, i + 1));
  if (y % 2 == 0) return row;
  const int below = x % 2 == 0 ? s.at(r + 1, i) : average(s.at(r + 1, i), s.at(r + 1, i + 1));
  return average(row, below);
}

namespace {

// Row y of the enlarged plane: the last column repeats the one before it, whatever its parity.
int enlarged_closed(plane s, int y, int x, int width) {
  return enlarged(s, y, x == width - 1 ? width - 2 : x);
}

void enlarge_row(plane small, plane out, int y) {
  for (int x = 0; x < out.width; ++x)
    out.at(y, x) = static_cast<uint8_t>(enlarged_closed(small, y, x, out.width));
}

void copy_row(plane p, int to, int from) {
  std::memcpy(&p.at(to, 0), &p.at(from, 0), p.width);
}

}  // namespace

void up2(plane small, plane out) {
  for (int y = 0; y < out.height; ++y)
    if (y <= 2 * small.height - 2)
      enlarge_row(small, out, y);
    else
      std::memcpy(&out.at(y, 0), &out.at(y - 1, 0), out.stride);  // padding included
}

// The columns that a step of sixteen covers never reach the scratch plane, and when they end at
// the last column exactly, that column stays as it was in all rows but the last two.
void up2_merge1(plane small, plane up, plane detail) {
  const int w = up.width, h = up.height;
  const plane result = {detail.data, w, h, up.stride};  // addressed with up's stride
  const int whole = (w - 1) & ~15;
  for (int pair = 0; pair < h - 2; pair += 2)
    for (int y = pair; y < pair + 2; ++y) {
      for (int x = 0; x < w - 1; ++x) {
        const int value = enlarged(small, y, x);
        if (x >= whole) up.at(y, x) = static_cast<uint8_t>(value);
        result.at(y, x) = static_cast<uint8_t>(merge(value, result.at(y, x)));
      }
      if (whole != w - 1)
        result.at(y, w - 1) =
            static_cast<uint8_t>(merge(enlarged(small, y, w - 2), result.at(y, w - 1)));
    }
  if (w < 2) return;
  // For an odd height row h - 2 was merged above already and is merged again.
  for (int x = 0; x < w; ++x) {
    const int value = enlarged_closed(small, h - 2, x, w);
    if (x < w - 1) up.at(h - 2, x) = static_cast<uint8_t>(value);
    result.at(h - 2, x) = static_cast<uint8_t>(merge(value, result.at(h - 2, x)));
    result.at(h - 1, x) = static_cast<uint8_t>(merge(value, result.at(h - 1, x)));
  }
}

void up2_merge(plane small, plane detail, plane out) {
  const int w = out.width, h = out.height;
  const plane d = {detail.data, w, h, out.stride};
  for (int y = 0; y < h; ++y) {
    const bool closing = y >= h - 2;
    if (!closing && h <= 2) continue;
    for (int x = 0; x < w; ++x) {
      if (x == w - 1 && (w - 1) % 16 == 0 && !closing) continue;
      const int value = enlarged_closed(small, closing ? h - 2 : y, x, w);
      out.at(y, x) = static_cast<uint8_t>(merge(value, d.at(y, x)));
    }
  }
}

void up_rows(plane small, plane out, int row_begin, int row_end) {
  for (int y = row_begin; y < row_end - 2; y += 2) {
    enlarge_row(small, out, y);
    enlarge_row(small, out, y + 1);
  }
  enlarge_row(small, out, out.height - 2);
  copy_row(out, out.height - 1, out.height - 2);
}

void up_sliced(plane small, plane out) {
  const int step = ((out.height - 1) / 4) & ~1;
  for (int k = 0; k < 4; ++k)
    up_rows(small, out, k * step, k < 3 ? (k + 1) * step : out.height - 1);
}

void up_odd(plane small, plane out) {
  for (int y = 0; y < 2 * small.height - 1; ++y) enlarge_row(small, out, y);
  for (int y = 2 * small.height - 1; y < out.height; ++y) copy_row(out, y, y - 1);
}

void up_interleaved(plane small_u, plane small_v, int width, int height, uint8_t* uv) {
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) {
      const int row = y == height - 1 ? height - 2 : y;
      uint8_t* pair = uv + (static_cast<ptrdiff_t>(y) * width + x) * 2;
      pair[0] = static_cast<uint8_t>(enlarged_closed(small_u, row, x, width));
      pair[1] = static_cast<uint8_t>(enlarged_closed(small_v, row, x, width));
    }
}

void split_and_down(const uint8_t* uv, plane u, plane v, plane luma, plane dst) {
  for (int y = 0; y < dst.height; ++y) {
    const int up = y == 0 ? 0 : 2 * y - 1, low = 2 * y == luma.height - 1 ? 2 * y : 2 * y + 1;
    const auto sum = [&](int i) {
      const int x = std::clamp(i, 0, luma.width - 1);
      return column(luma.at(up, x), luma.at(2 * y, x), luma.at(low, x));
    };
    for (int x = 0; x < dst.width; ++x) {
      u.data[y * dst.width + x] = uv[y * luma.width + 2 * x];
      v.data[y * dst.width + x] = uv[y * luma.width + 2 * x + 1];
      dst.at(y, x) = binomial(sum(2 * x - 1), sum(2 * x), sum(2 * x + 1));
    }
  }
}

}  // namespace model
