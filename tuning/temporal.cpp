// The blend over time of vorn_temporal.h; no exception leaves from here.
//
// Luma is cut into blocks of 8x8. A block is still when the mean of its absolute differences to the
// former result, and the difference of the block means of luma and of both chroma planes, stay
// within what the noise explains. A still block takes 11/16 of the former result; towards 1.5 times
// the limit that share falls to nothing, and a block takes the least share of the blocks around it,
// between whose centres shares are interpolated. No sample moves by more than two deviations of
// that noise, so what the test misses leaves no ghost. A frame in which most blocks move is a cut
// and stays as it is.
#include "vorn_temporal.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <new>
#include <utility>
#include <vector>

namespace {

constexpr int kBlock = 8;
constexpr int kMostShare = 11;  // of 16
// Noise in 1/16 grey levels per unit of luma strength: strengths are about 22 times its deviation.
// The filter leaves nearly all of it in texture, where nothing resembles a block enough to average
// with.
constexpr int kLeft16Numerator = 8, kLeft16Denominator = 11;
constexpr int kLeastLeft16 = 12;

// One channel of a frame; samples of a row are `step` bytes apart.
struct channel {
  uint8_t* data;
  int width, height;
  ptrdiff_t stride;
  int step;

  uint8_t* row(int y) const { return data + y * stride; }
};

// Y and the two chroma channels, in the order in which they lie.
struct channels {
  channel luma, first, second;
};

bool is_usable(const vorn_ycnr_planes& p) {
  if (p.layout < VORN_LAYOUT_NV12 || p.layout > VORN_LAYOUT_I420) return false;
  if (p.width < 1 || p.height < 1 || int64_t(p.width) * p.height > int64_t{1} << 30) return false;
  const bool planar = p.layout == VORN_LAYOUT_I420;
  const int chroma_row = (p.width + 1) / 2 * (planar ? 1 : 2);
  if (p.plane[0] == nullptr || p.stride[0] < p.width) return false;
  for (int i = 1; i < (planar ? 3 : 2); ++i)
    if (p.plane[i] == nullptr || p.stride[i] < chroma_row) return false;
  return true;
}

channels channels_of(const vorn_ycnr_planes& p) {
  const int width = (p.width + 1) / 2, height = (p.height + 1) / 2;
  const bool planar = p.layout == VORN_LAYOUT_I420;
  uint8_t* const second = planar ? p.plane[2] : p.plane[1] + 1;
  return {{p.plane[0], p.width, p.height, p.stride[0], 1},
          {p.plane[1], width, height, p.stride[1], planar ? 1 : 2},
          {second, width, height, p.stride[planar ? 2 : 1], planar ? 1 : 2}};
}

int residual16(const ycnr_ynr_tuning_param& luma) {
  const int strength = luma.enable == 1 ? std::clamp(luma.pIntensity[0], 0, 400) : 60;
  return std::max(kLeastLeft16, strength * kLeft16Numerator / kLeft16Denominator);
}

struct block_sums {
  int absolute = 0, sum = 0, count = 0;  // differences of one channel
};

// A whole block, with bounds that a compiler can turn into vectors.
template <int side, int step>
block_sums compare_whole(const channel& now, const channel& former, int x0, int y0) {
  block_sums s;
  for (int y = y0; y < y0 + side; ++y) {
    const uint8_t* const a = now.row(y) + x0 * step;
    const uint8_t* const b = former.row(y) + x0 * step;
    for (int x = 0; x < side; ++x) {
      const int d = a[x * step] - b[x * step];
      s.absolute += std::abs(d);
      s.sum += d;
    }
  }
  s.count = side * side;
  return s;
}

block_sums compare_block(const channel& now, const channel& former, int x0, int y0, int side) {
  if (x0 + side <= now.width && y0 + side <= now.height) {
    if (side == kBlock) return compare_whole<kBlock, 1>(now, former, x0, y0);
    return now.step == 1 ? compare_whole<kBlock / 2, 1>(now, former, x0, y0)
                         : compare_whole<kBlock / 2, 2>(now, former, x0, y0);
  }
  block_sums s;
  const int x1 = std::min(x0 + side, now.width), y1 = std::min(y0 + side, now.height);
  for (int y = y0; y < y1; ++y) {
    const uint8_t* const a = now.row(y);
    const uint8_t* const b = former.row(y);
    for (int x = x0; x < x1; ++x) {
      const int d = a[x * now.step] - b[x * former.step];
      s.absolute += std::abs(d);
      s.sum += d;
    }
  }
  s.count = (x1 - x0) * (y1 - y0);
  return s;
}

// Share of the former frame for a measure: all within the limit, none from 1.5 limits on. Both are
// in 1/16 grey levels summed over `count` samples.
int share_within(int measure, int limit16, int count) {
  const int limit = limit16 * count / 16;
  if (measure <= limit) return kMostShare;
  return std::max(0, kMostShare - (measure - limit) * 2 * kMostShare / std::max(1, limit));
}

// Of the block at column x0, row y0 of luma.
int share_of(const channels& now, const channels& former, int x0, int y0, int left16) {
  const block_sums y = compare_block(now.luma, former.luma, x0, y0, kBlock);
  const block_sums u = compare_block(now.first, former.first, x0 / 2, y0 / 2, kBlock / 2);
  const block_sums v = compare_block(now.second, former.second, x0 / 2, y0 / 2, kBlock / 2);
  // The mean absolute difference of two frames with noise of deviation s is 1.13 s; block means
  // scatter by 0.2 s where the noise is white, and more where it is coarse.
  const int mean_limit = left16 / 3;
  return std::min({share_within(y.absolute, left16 * 11 / 8, y.count),
                   share_within(std::abs(y.sum), mean_limit, y.count),
                   share_within(std::abs(u.sum), mean_limit, u.count),
                   share_within(std::abs(v.sum), mean_limit, v.count)});
}

// A row of bytes and its former result, with a share in 1/256 for each. Nothing leaves 16 bits: a
// change is at most 36 and a share 176.
void blend_row(uint8_t* now, const uint8_t* former, const int16_t* shares, int count,
               int16_t most) {
  for (int x = 0; x < count; ++x) {
    const auto difference = static_cast<int16_t>(former[x] - now[x]);
    const int16_t within = std::min(most, std::max(static_cast<int16_t>(-most), difference));
    const auto change = static_cast<int16_t>(within * shares[x]);
    // To the nearest, halves away from zero.
    const auto sign = static_cast<int16_t>(change >> 15);
    const auto size = static_cast<int16_t>((change ^ sign) - sign);
    const auto rounded = static_cast<int16_t>((size + 128) >> 8);
    now[x] = static_cast<uint8_t>(now[x] + ((rounded ^ sign) - sign));
  }
}

// Shares of a row's bytes from those of its blocks: straight between the centres. Of every block
// `length` bytes follow its centre; parts are their distances from it in 1/16 of a block.
void spread_shares(const int16_t* blocks, int columns, const std::array<int16_t, kBlock>& parts,
                   int length, int16_t* shares) {
  std::fill_n(shares, length / 2, blocks[0]);
  shares += length / 2;
  for (int i = 0; i < columns; ++i) {
    const int16_t here = blocks[i], next = blocks[std::min(i + 1, columns - 1)];
    for (int k = 0; k < kBlock; ++k)  // those beyond length are written over
      shares[k] = static_cast<int16_t>((here * (2 * kBlock - parts[k]) + next * parts[k]) >> 4);
    shares += length;
  }
}

// Two of a row or column of blocks, and how far between their centres a luma pixel lies, in 1/16.
struct between {
  int before, after, share;

  between(int pixel, int blocks) {
    const int at = std::max(0, 2 * pixel + 1 - kBlock);
    before = std::min(at / (2 * kBlock), blocks - 1);
    after = std::min(before + 1, blocks - 1);
    share = at % (2 * kBlock);
  }
};

}  // namespace

struct vorn_temporal {
  std::vector<uint8_t> former;  // of the frame's layout without gaps between rows; empty: none
  int32_t layout = 0, width = 0, height = 0;
  std::vector<uint8_t> shares, least;  // per block, of 16
  std::vector<int16_t> row_shares;     // of one row of pixels, per block, in 1/256
  std::vector<int16_t> byte_shares;    // the same per byte of a plane's row

  int columns() const { return (width + kBlock - 1) / kBlock; }
  int rows() const { return (height + kBlock - 1) / kBlock; }

  vorn_ycnr_planes former_planes() {
    vorn_ycnr_planes p = {};
    p.layout = layout;
    p.width = width;
    p.height = height;
    const int chroma_width = (width + 1) / 2, chroma_height = (height + 1) / 2;
    const bool planar = layout == VORN_LAYOUT_I420;
    p.plane[0] = former.data();
    p.stride[0] = width;
    p.plane[1] = p.plane[0] + size_t(width) * height;
    p.stride[1] = p.stride[2] = chroma_width * (planar ? 1 : 2);
    p.plane[2] = planar ? p.plane[1] + size_t(chroma_width) * chroma_height : nullptr;
    return p;
  }

  void begin(const vorn_ycnr_planes& frame) {
    former.clear();  // where memory ends here, the next frame begins anew
    layout = frame.layout;
    width = frame.width;
    height = frame.height;
    shares.resize(size_t(columns()) * rows());
    least.resize(shares.size());
    row_shares.resize(size_t(columns()));
    byte_shares.resize(size_t(columns() + 2) * kBlock);
    former.resize(size_t(width) * height +
                  2 * ((size_t(width) + 1) / 2) * ((size_t(height) + 1) / 2));
  }

  void keep(const vorn_ycnr_planes& frame) {
    const vorn_ycnr_planes own = former_planes();
    const int planes = layout == VORN_LAYOUT_I420 ? 3 : 2;
    for (int i = 0; i < planes; ++i) {
      const int length = own.stride[i], lines = i == 0 ? height : (height + 1) / 2;
      for (int y = 0; y < lines; ++y)
        std::copy_n(frame.plane[i] + ptrdiff_t(y) * frame.stride[i], length,
                    own.plane[i] + size_t(y) * length);
    }
  }

  // Fills in shares; returns the blocks that move.
  int judge(const channels& now, const channels& before, int left16) {
    int moving = 0;
    for (int row = 0; row < rows(); ++row) {
      for (int column = 0; column < columns(); ++column) {
        const int share = share_of(now, before, column * kBlock, row * kBlock, left16);
        shares[size_t(row) * columns() + column] = static_cast<uint8_t>(share);
        moving += share == 0;
      }
    }
    return moving;
  }

  void spread() {
    for (int row = 0; row < rows(); ++row)
      for (int column = 0; column < columns(); ++column) {
        uint8_t smallest = kMostShare;
        for (int y = std::max(0, row - 1); y <= std::min(rows() - 1, row + 1); ++y)
          for (int x = std::max(0, column - 1); x <= std::min(columns() - 1, column + 1); ++x)
            smallest = std::min(smallest, shares[size_t(y) * columns() + x]);
        least[size_t(row) * columns() + column] = smallest;
      }
  }

  void blend(const vorn_ycnr_planes& now, const vorn_ycnr_planes& before, int i, int most) {
    constexpr std::array<int16_t, kBlock> kLuma = {1, 3, 5, 7, 9, 11, 13, 15},
                                          kPairs = {1, 1, 5, 5, 9, 9, 13, 13},
                                          kPlane = {1, 5, 9, 13, 0, 0, 0, 0};
    const bool planar = i > 0 && layout == VORN_LAYOUT_I420;
    const auto& parts = i == 0 ? kLuma : planar ? kPlane : kPairs;
    const int pixels = i == 0 ? 1 : 2;  // per row and column
    const int lines = (height + pixels - 1) / pixels;
    const int bytes = (width + pixels - 1) / pixels * (i == 0 || planar ? 1 : 2);
    for (int y = 0; y < lines; ++y) {
      const between at(y * pixels, rows());
      const uint8_t* const top = least.data() + size_t(at.before) * columns();
      const uint8_t* const bottom = least.data() + size_t(at.after) * columns();
      for (int k = 0; k < columns(); ++k)
        row_shares[k] =
            static_cast<int16_t>(top[k] * (2 * kBlock - at.share) + bottom[k] * at.share);
      spread_shares(row_shares.data(), columns(), parts, planar ? kBlock / 2 : kBlock,
                    byte_shares.data());
      blend_row(now.plane[i] + ptrdiff_t(y) * now.stride[i],
                before.plane[i] + ptrdiff_t(y) * before.stride[i], byte_shares.data(), bytes,
                static_cast<int16_t>(most));
    }
  }
};

vorn_temporal* vorn_tuning_temporal_new(void) {
  return new (std::nothrow) vorn_temporal;
}

void vorn_tuning_temporal_free(vorn_temporal* stream) {
  delete stream;
}

void vorn_tuning_temporal_reset(vorn_temporal* stream) {
  if (stream != nullptr) stream->former.clear();
}

int32_t vorn_tuning_temporal_run(vorn_temporal* stream, const vorn_ycnr_planes* frame,
                                 const ycnr_ynr_tuning_param* luma) {
  if (stream == nullptr || frame == nullptr || luma == nullptr || !is_usable(*frame))
    return VORN_TUNING_ARGUMENT;
  vorn_temporal& s = *stream;
  if (s.former.empty() || s.layout != frame->layout || s.width != frame->width ||
      s.height != frame->height) {
    try {
      s.begin(*frame);
    } catch (const std::bad_alloc&) {
      s.former.clear();
      return VORN_TUNING_MEMORY;
    }
    s.keep(*frame);
    return VORN_TEMPORAL_FIRST;
  }
  const vorn_ycnr_planes former = s.former_planes();
  const channels now = channels_of(*frame), before = channels_of(former);
  const int left16 = residual16(*luma);
  const int64_t moving = s.judge(now, before, left16);
  const bool cut = moving * 10 > int64_t(s.columns()) * s.rows() * 7;
  if (!cut) {
    s.spread();
    const int most = std::max(2, left16 * 2 / 16);
    const int planes = s.layout == VORN_LAYOUT_I420 ? 3 : 2;
    for (int i = 0; i < planes; ++i) s.blend(*frame, former, i, most);
  }
  s.keep(*frame);
  return cut ? VORN_TEMPORAL_FIRST : VORN_TEMPORAL_BLENDED;
}
