#include "api/planes.h"

#include <climits>
#include <cstddef>
#include <cstring>

#include "runtime/stage.h"

namespace vorn {

namespace {

int chroma_planes(const vorn_ycnr_planes& frame) {
  return frame.layout == VORN_LAYOUT_I420 ? 2 : 1;
}

// Of a plane of chroma; both round up.
int chroma_columns(const vorn_ycnr_planes& frame) {
  return frame.width / 2 + frame.width % 2;
}

int row_count(const vorn_ycnr_planes& frame, int plane) {
  return plane == 0 ? frame.height : frame.height / 2 + frame.height % 2;
}

int row_bytes(const vorn_ycnr_planes& frame, int plane) {
  if (plane == 0) return frame.width;
  return chroma_columns(frame) * (frame.layout == VORN_LAYOUT_I420 ? 1 : 2);
}

unsigned char* row_of(const vorn_ycnr_planes& frame, int plane, int row) {
  return frame.plane[plane] + std::ptrdiff_t{frame.stride[plane]} * row;
}

// Runs rows(begin, end) over rows 0..height of width bytes, which read and write as much again.
template <typename Rows>
void over_rows(pool* workers, int height, int width, const Rows& rows) {
  if (run_rows(workers, height, 1, 2 * width, rows) != 0) rows(0, height);
}

void copy_plane(const vorn_ycnr_planes& src, const vorn_ycnr_planes& dst, int plane) {
  const int rows = row_count(src, plane);
  const size_t bytes = bytes_of(row_bytes(src, plane));
  // Rows that move away from the plane's start are moved last row first, so that none is written
  // before it has been read.
  const bool backwards = dst.stride[plane] > src.stride[plane];
  for (int i = 0; i < rows; ++i) {
    const int row = backwards ? rows - 1 - i : i;
    std::memmove(row_of(dst, plane, row), row_of(src, plane, row), bytes);
  }
}

void pack_chroma_row(const vorn_ycnr_planes& frame, int row, unsigned char* pairs) {
  const int count = chroma_columns(frame);
  const unsigned char* first = row_of(frame, 1, row);
  if (frame.layout == VORN_LAYOUT_NV12) {
    std::memcpy(pairs, first, 2 * bytes_of(count));
  } else if (frame.layout == VORN_LAYOUT_NV21) {
    for (int x = 0; x < count; ++x) {
      pairs[2 * x] = first[2 * x + 1];
      pairs[2 * x + 1] = first[2 * x];
    }
  } else {
    const unsigned char* v = row_of(frame, 2, row);
    for (int x = 0; x < count; ++x) {
      pairs[2 * x] = first[x];
      pairs[2 * x + 1] = v[x];
    }
  }
}

void unpack_chroma_row(const unsigned char* pairs, const vorn_ycnr_planes& frame, int row) {
  const int count = chroma_columns(frame);
  unsigned char* first = row_of(frame, 1, row);
  if (frame.layout == VORN_LAYOUT_NV12) {
    std::memcpy(first, pairs, 2 * bytes_of(count));
  } else if (frame.layout == VORN_LAYOUT_NV21) {
    for (int x = 0; x < count; ++x) {
      first[2 * x] = pairs[2 * x + 1];
      first[2 * x + 1] = pairs[2 * x];
    }
  } else {
    unsigned char* v = row_of(frame, 2, row);
    for (int x = 0; x < count; ++x) {
      first[x] = pairs[2 * x];
      v[x] = pairs[2 * x + 1];
    }
  }
}

}  // namespace

bool usable_planes(const vorn_ycnr_planes& frame) {
  if (frame.layout < VORN_LAYOUT_NV12 || frame.layout > VORN_LAYOUT_I420) return false;
  if (frame.width < 1 || frame.height < 1 || frame.width == INT_MAX) return false;
  for (int plane = 0; plane <= chroma_planes(frame); ++plane)
    if (!frame.plane[plane] || frame.stride[plane] < row_bytes(frame, plane)) return false;
  return true;
}

bool matching_planes(const vorn_ycnr_planes& a, const vorn_ycnr_planes& b) {
  return usable_planes(a) && usable_planes(b) && a.layout == b.layout && a.width == b.width &&
         a.height == b.height;
}

void copy_planes(const vorn_ycnr_planes& src, const vorn_ycnr_planes& dst, int first) {
  for (int plane = first; plane <= chroma_planes(src); ++plane)
    if (src.plane[plane] != dst.plane[plane] || src.stride[plane] != dst.stride[plane])
      copy_plane(src, dst, plane);
}

void pack_luma(pool* workers, const vorn_ycnr_planes& frame, unsigned char* luma, int width,
               int height) {
  over_rows(workers, height, width, [&](int begin, int end) {
    for (int y = begin; y < end; ++y) {
      const unsigned char* from = row_of(frame, 0, y < frame.height ? y : frame.height - 1);
      unsigned char* to = luma + bytes_of(y) * bytes_of(width);
      std::memcpy(to, from, bytes_of(frame.width));
      std::memset(to + frame.width, from[frame.width - 1], bytes_of(width - frame.width));
    }
  });
}

void pack_chroma(pool* workers, const vorn_ycnr_planes& frame, unsigned char* pairs, int width,
                 int height) {
  const int rows = row_count(frame, 1), columns = chroma_columns(frame);
  over_rows(workers, height, width, [&](int begin, int end) {
    for (int y = begin; y < end; ++y) {
      unsigned char* to = pairs + bytes_of(y) * bytes_of(width);
      pack_chroma_row(frame, y < rows ? y : rows - 1, to);
      for (int x = columns; x < width / 2; ++x) std::memcpy(to + 2 * x, to + 2 * columns - 2, 2);
    }
  });
}

void unpack_luma(pool* workers, const unsigned char* luma, const vorn_ycnr_planes& frame,
                 int width) {
  over_rows(workers, frame.height, frame.width, [&](int begin, int end) {
    for (int y = begin; y < end; ++y)
      std::memcpy(row_of(frame, 0, y), luma + bytes_of(y) * bytes_of(width), bytes_of(frame.width));
  });
}

void unpack_chroma(pool* workers, const unsigned char* pairs, const vorn_ycnr_planes& frame,
                   int width, int height) {
  over_rows(workers, height, width, [&](int begin, int end) {
    for (int y = begin; y < end; ++y)
      unpack_chroma_row(pairs + bytes_of(y) * bytes_of(width), frame, y);
  });
}

bool is_packed(const vorn_ycnr_planes& frame) {
  return frame.layout == VORN_LAYOUT_NV12 && frame.width % 2 == 0 && frame.height % 2 == 0 &&
         frame.stride[0] == frame.width && frame.stride[1] == frame.width &&
         frame.plane[1] == frame.plane[0] + bytes_of(frame.width) * bytes_of(frame.height);
}

}  // namespace vorn
