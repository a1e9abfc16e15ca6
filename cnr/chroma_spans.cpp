// The walk of a pass over the fast kernels. Lines along the pass's axis share their taps, so:
//
//     vertical      every row is one span
//     horizontal    [ R border | one span per row      | R border ]
//                   the borders have taps of their own in every column: blocks of rows are turned
//                   on their side, and each column becomes a span
#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "cnr/chroma_pass.h"
#include "pyramid/kernels/pyramid_kernels.h"

namespace vorn {
namespace {

constexpr int kSegment = 1024;      // longest span, but for a remainder below kStripRows
constexpr int kStripRows = 64;      // rows of a block that is turned on its side
constexpr int kStripColumns = 128;  // two borders of radius 64
static_assert(kDitherSlack >= kSegment + kStripRows, "a span's dither is contiguous");

// Byte offsets from a pixel to its taps. Returns their number, at most kMaxFastTaps.
int list_taps(const chroma_pass& pass, int position, int length, ptrdiff_t pitch,
              ptrdiff_t (&offsets)[kMaxFastTaps]) {
  const tap_range taps = taps_at(position, length, pass.radius, pass.step);
  int count = 0;
  for (int64_t t = taps.first; t <= taps.last; t += pass.step)
    if (t != 0) offsets[count++] = t * pitch;
  return count;
}

constexpr int kFill = 16;  // radial factors are written by so many, and up to kFill - 1 too many

// Radial factors of `count` pixels along an axis from `begin` on. The factor changes with the
// distance from the centre at most four times on either side: filled by runs.
void fill_radial(int16_t* out, int begin, int count, int centre, int64_t across, int64_t reach) {
  for (int i = 0; i < count;) {
    const int at = begin + i;
    const int64_t distance = std::abs(at - centre) + across;
    const int k = reach ? static_cast<int>(std::min<int64_t>(4 * distance / reach, 4)) : 0;
    int64_t last;  // of the run
    if (at < centre) {
      const int64_t nearest = (k * reach + 3) / 4 - across;
      last = centre - std::max<int64_t>(nearest, 0);
    } else {
      last = k == 4 || reach == 0 ? INT32_MAX : centre + ((k + 1) * reach + 3) / 4 - 1 - across;
    }
    const int run = static_cast<int>(std::min<int64_t>(last - at + 1, count - i));
    const auto factor = static_cast<int16_t>(std::min(kRadial[k] << 8, 32767));
    for (int j = 0; j < run; j += kFill) std::fill_n(out + i + j, kFill, factor);
    i += run;
  }
}

// The radial factors of a level by distance from its centre, mirrored: every row is a piece left
// and a piece right of the middle, each as far from it as the row from the centre.
struct radial_line {
  static constexpr int kLongest = 8192;
  alignas(64) int16_t of[kLongest + kFill];
  int middle;  // entry of distance 0; 0 where the line is too long

  explicit radial_line(const chroma_pass& pass) : middle((pass.width >> 1) + (pass.height >> 1)) {
    if (2 * int64_t{middle} >= kLongest) middle = 0;
    fill_radial(of, -middle, 2 * middle + 1, 0, 0, middle);
  }
  // Of `count` pixels of row y from column x on.
  void row(const chroma_pass& pass, int x, int y, int count, int16_t* out) const {
    const int centre_x = pass.width >> 1, centre_y = pass.height >> 1;
    const int across = std::abs(y - centre_y);
    if (middle == 0)
      return fill_radial(out, x, count, centre_x, across,
                         static_cast<int64_t>(centre_x) + centre_y);
    const int left = std::max(0, std::min(centre_x - x, count));
    const auto first = static_cast<size_t>(middle + x - centre_x);  // at least `across`
    std::copy_n(of + (first - static_cast<size_t>(across)), left, out);
    std::copy_n(of + (first + static_cast<size_t>(left + across)), count - left, out + left);
  }
};

// The distances that rows of a vertical pass leave for the rows 1 and 3 below; see chroma_span. A
// row's own stand in entries that its successors do not read from.
class row_distances {
 public:
  // For row y, whose taps are as shared ones have to be or not.
  void prepare(int y, bool shared, chroma_span* span) {
    if (!shared) {
      first_ = y + 1;
      return;
    }
    span->below[0] = one_[y & 1];
    span->below[1] = three_[y & 3];
    if (y - 1 >= first_) span->above[0] = one_[(y - 1) & 1];
    if (y - 3 >= first_) span->above[1] = three_[(y - 3) & 3];
  }
  void restart(int y) { first_ = y; }

 private:
  static constexpr int kLongest = kSegment + kStripRows;
  alignas(64) int16_t one_[2][kLongest], three_[4][kLongest];
  int first_ = 0;  // the first row in sequence that left something
};

// A row of a segment on its way into pairs.
struct pair_line {
  alignas(64) uint8_t a[kSegment + kStripRows], b[kSegment + kStripRows];
};

// Columns begin..end-1 of row y, which share the span's taps; at least kMinSpan of them. With
// `left`, which is for rows in sequence, and `line` no more than a segment.
void filter_line(const chroma_pass& pass, direction dir, const radial_line& factors, int y,
                 int begin, int end, const ptrdiff_t* taps, int tap_count,
                 row_distances* left = nullptr, pair_line* line = nullptr) {
  alignas(64) int16_t radial[kSegment + kStripRows + kFill];
  const int64_t start = dither_start(pass, dir, y);
  const auto kernel = active_chroma_kernels().filter;
  for (int x = begin; x < end;) {
    const int count = end - x > kSegment + kStripRows ? kSegment : end - x;
    factors.row(pass, x, y, count, radial);
    const ptrdiff_t at = static_cast<ptrdiff_t>(y) * pass.width + x;
    chroma_span span = {pass.guide + at,
                        pass.src_a + at,
                        pass.src_b + at,
                        line ? line->a : pass.dst_a + at,
                        line ? line->b : pass.dst_b + at,
                        taps,
                        tap_count,
                        radial,
                        chroma_dither().dither + ((start + x) & (kDitherEntries - 1)),
                        pass.level_mode + 2,
                        count};
    if (left) left->prepare(y, tap_count == 4, &span);
    kernel(span, pass.weights);
    if (line)
      active_pyramid_kernels().interleave(pass.swapped ? line->b : line->a,
                                          pass.swapped ? line->a : line->b, pass.pairs + 2 * at,
                                          count);
    x += count;
  }
}

// Bytes of an 8 x 8 tile, one word per line, mirrored about the diagonal. Little-endian.
void transpose_tile(uint64_t (&line)[8]) {
  const auto exchange = [](uint64_t& a, uint64_t& b, int shift, uint64_t mask) {
    const uint64_t t = ((a >> shift) ^ b) & mask;
    b ^= t;
    a ^= t << shift;
  };
  for (int i = 0; i < 4; ++i) exchange(line[i], line[i + 4], 32, 0x00000000FFFFFFFFu);
  for (int i : {0, 1, 4, 5}) exchange(line[i], line[i + 2], 16, 0x0000FFFF0000FFFFu);
  for (int i : {0, 2, 4, 6}) exchange(line[i], line[i + 1], 8, 0x00FF00FF00FF00FFu);
}

// A block on its side: column c of the block is line c, kStripRows bytes apart.
using strip_plane = uint8_t[kStripColumns * kStripRows];

// Lines of `columns` columns out of `rows` rows; `lanes` rows, a multiple of 8, are filled, those
// past the last with the last row.
void turn(const uint8_t* const (&row)[kStripRows], int lanes, int columns, strip_plane& out) {
  if (columns < 8) {
    for (int c = 0; c < columns; ++c)
      for (int r = 0; r < lanes; ++r) out[c * kStripRows + r] = row[r][c];
    return;
  }
  for (int r = 0; r < lanes; r += 8) {
    for (int c = 0; c < columns; c += 8) {
      if (c > columns - 8) c = columns - 8;
      uint64_t line[8];
      for (int i = 0; i < 8; ++i) std::memcpy(&line[i], row[r + i] + c, 8);
      transpose_tile(line);
      for (int i = 0; i < 8; ++i) std::memcpy(&out[(c + i) * kStripRows + r], &line[i], 8);
    }
  }
}

// The way back, into rows of a plane.
void turn_back(const strip_plane& in, int rows, int columns, uint8_t* out, int stride) {
  if (columns < 8) {
    for (int r = 0; r < rows; ++r)
      for (int c = 0; c < columns; ++c)
        out[static_cast<ptrdiff_t>(r) * stride + c] = in[c * kStripRows + r];
    return;
  }
  for (int r = 0; r < rows; r += 8) {
    for (int c = 0; c < columns; c += 8) {
      if (c > columns - 8) c = columns - 8;
      uint64_t line[8];
      for (int i = 0; i < 8; ++i) std::memcpy(&line[i], &in[(c + i) * kStripRows + r], 8);
      transpose_tile(line);
      for (int i = 0; i < 8 && r + i < rows; ++i)
        std::memcpy(out + static_cast<ptrdiff_t>(r + i) * stride + c, &line[i], 8);
    }
  }
}

// Horizontal pass over columns begin..end-1 of some rows, which reach columns from..to-1; at most
// kStripColumns of those.
void filter_strip(const chroma_pass& pass, int row_begin, int row_end, int begin, int end, int from,
                  int to) {
  alignas(64) strip_plane guide, src_a, src_b, dither, dst_a, dst_b;
  alignas(64) int16_t radial[kStripRows + kFill];
  ptrdiff_t taps[kMaxFastTaps];
  const int centre_x = pass.width >> 1;
  const int centre_y = pass.height >> 1;
  const auto kernel = active_chroma_kernels().filter;
  for (int y = row_begin; y < row_end; y += kStripRows) {
    const int rows = std::min(kStripRows, row_end - y);
    const int lanes = (rows + kMinSpan - 1) / kMinSpan * kMinSpan;
    const uint8_t* row[kStripRows];
    const auto turn_plane = [&](const uint8_t* plane, strip_plane& out) {
      for (int r = 0; r < lanes; ++r)
        row[r] = plane + static_cast<ptrdiff_t>(y + std::min(r, rows - 1)) * pass.width + from;
      turn(row, lanes, to - from, out);
    };
    turn_plane(pass.guide, guide);
    turn_plane(pass.src_a, src_a);
    turn_plane(pass.src_b, src_b);
    for (int r = 0; r < lanes; ++r) {
      const int64_t start =
          dither_start(pass, direction::horizontal, y + std::min(r, rows - 1)) + begin;
      row[r] =
          reinterpret_cast<const uint8_t*>(chroma_dither().dither) + (start & (kDitherEntries - 1));
    }
    turn(row, lanes, end - begin, dither);
    for (int x = begin; x < end; ++x) {
      const int tap_count = list_taps(pass, x, pass.width, kStripRows, taps);
      fill_radial(radial, y, lanes, centre_y, std::abs(x - centre_x),
                  static_cast<int64_t>(centre_x) + centre_y);
      const int in = (x - from) * kStripRows;
      const int out = (x - begin) * kStripRows;
      kernel({guide + in, src_a + in, src_b + in, dst_a + out, dst_b + out, taps, tap_count, radial,
              reinterpret_cast<const int8_t*>(dither) + out, pass.level_mode + 2, lanes},
             pass.weights);
    }
    const ptrdiff_t at = static_cast<ptrdiff_t>(y) * pass.width + begin;
    turn_back(dst_a, rows, end - begin, pass.dst_a + at, pass.width);
    turn_back(dst_b, rows, end - begin, pass.dst_b + at, pass.width);
  }
}

// The horizontal pass.
void filter_rows_across(const chroma_pass& pass, int row_begin, int row_end) {
  const int width = pass.width;
  if (width <= kStripColumns) return filter_strip(pass, row_begin, row_end, 0, width, 0, width);
  const int radius = pass.step < 1 ? 0 : std::min(std::max(pass.radius, 0), width);
  const radial_line factors(pass);
  if (radius > kStripColumns / 2 || width - 2 * radius < kMinSpan) {
    // Wide windows: the borders by the rule.
    const int inner_end = width - radius;
    for (int y = row_begin; y < row_end; ++y) {
      if (inner_end - radius < kMinSpan) {
        filter_by_rule(pass, direction::horizontal, y, 0, width);
        continue;
      }
      ptrdiff_t taps[kMaxFastTaps];
      const int count = list_taps(pass, radius, width, 1, taps);
      filter_by_rule(pass, direction::horizontal, y, 0, radius);
      filter_line(pass, direction::horizontal, factors, y, radius, inner_end, taps, count);
      filter_by_rule(pass, direction::horizontal, y, inner_end, width);
    }
    return;
  }
  ptrdiff_t taps[kMaxFastTaps];
  const int tap_count = list_taps(pass, radius, width, 1, taps);
  for (int y = row_begin; y < row_end; ++y)
    filter_line(pass, direction::horizontal, factors, y, radius, width - radius, taps, tap_count);
  if (radius == 0) return;
  filter_strip(pass, row_begin, row_end, 0, radius, 0, 2 * radius);
  filter_strip(pass, row_begin, row_end, width - radius, width, width - 2 * radius, width);
}

}  // namespace

bool spans_fit(const chroma_pass& pass, direction dir) {
  const bool along_row = dir == direction::horizontal;
  if (!along_row && pass.width < kMinSpan) return false;
  if (!edges_fit_kernels(pass.weights.edge_a, pass.weights.edge_b)) return false;
  if (pass.level_mode != -1 && pass.level_mode != 0) return false;
  if (pass.radius < 1 || pass.step < 1) return true;
  const int64_t length = along_row ? pass.width : pass.height;
  const int64_t reach = std::min(2 * static_cast<int64_t>(pass.radius), length);
  return reach / pass.step + 1 <= kMaxFastTaps;
}

void filter_spans(const chroma_pass& pass, direction dir, int row_begin, int row_end) {
  if (dir == direction::horizontal) return filter_rows_across(pass, row_begin, row_end);
  const radial_line factors(pass);
  ptrdiff_t taps[kMaxFastTaps];
  row_distances left;
  pair_line line;
  const bool shared = pass.radius == 3 && pass.step == 2;  // four taps are then those of `left`
  for (int x = 0, end; x < pass.width; x = end) {
    end = pass.width - x > kSegment + kStripRows ? x + kSegment : pass.width;
    left.restart(row_begin);
    for (int y = row_begin; y < row_end; ++y) {
      const int count = list_taps(pass, y, pass.height, pass.width, taps);
      filter_line(pass, dir, factors, y, x, end, taps, count, shared ? &left : nullptr,
                  pass.pairs ? &line : nullptr);
    }
  }
}

}  // namespace vorn
