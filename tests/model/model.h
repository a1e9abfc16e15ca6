// A second, slow description of everything the library computes: one output sample at a time,
// no threads, no vectors, no code shared with the library beyond its public records. The frame
// tests demand the library's bytes to be these.
//
// Planes are views into memory that is laid out as the library lays it out, because a few rules
// read one sample past a row and take whatever stands there.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "vorn_ycnr.h"

namespace model {

struct plane {
  uint8_t* data;
  int width;
  int height;
  int stride;
  uint8_t& at(int y, int x) const { return data[static_cast<ptrdiff_t>(y) * stride + x]; }
};

// The first plane of an image record.
plane of(const _tag_uni_image& image);

// A product and a sum of 32-bit integers that wrap.
int wrap_mul(int a, int b);
int wrap_add(int a, int b);

// --- Resampling, shared by both algorithms ---

void down2(plane src, plane dst);  // 2:1, size from dst
void blur(plane src, plane dst);   // full size, mirrored edges
int merge(int up, int detail);     // min(|up + detail - 128|, 255)
void subtract_add128(plane a, plane b, plane out);
void add_sub128(plane a, plane d, plane out);
int enlarged(plane small, int y, int x);  // bilinear sample (y, x) of the double-size plane
void up2(plane small, plane out);         // the luma pyramid's enlarging
void up2_merge(plane small, plane detail, plane out);
void up2_merge1(plane small, plane up, plane detail);
void up_rows(plane small, plane out, int row_begin, int row_end);  // one slice, and rows H-2, H-1
void up_sliced(plane small, plane out);                            // all four slices
void up_odd(plane small, plane out);
void up_interleaved(plane small_u, plane small_v, int width, int height, uint8_t* uv);
// One interleaved frame to three planes at chroma size; every border replicated.
void split_and_down(const uint8_t* uv, plane u, plane v, plane luma, plane luma_dst);

// --- Luma ---

float refined_reciprocal(float x);
void weight_map(int* map, float sigma, int count);
void pre_mask(plane mask, int width, int height, int strength);
void pre_mask_sliced(plane mask, int width, int height);
void expand_border(plane whole, int n);

enum class rule { scalar, vector };

// Replaces the 4x4 block of src at (y, x) by its weighted mean over `rings` rings of neighbours
// and writes it to out[16]. Distances are taken on guide (src itself, or an image of its layout).
void block(plane src, plane guide, int y, int x, int rings, const int* map, int m, rule how,
           uint8_t out[16]);

// One level with window 3, 5 or 7 (any other: a copy). mask may be null.
void window(plane src, plane dst, const plane* mask, int intensity, int radius);
void window_guided(plane src, plane guide, plane dst, const plane* mask, int intensity);

// src luma to dst luma, planes of the frame's size, on a fresh handle. The mask is made from the
// tuning when none is given. fine: level 0 on four grids. Returns 0 or -1 (nothing written).
int luma(plane src, plane dst, const ycnr_ynr_tuning_param& tuning,
         const plane* given_mask = nullptr, bool fine = false);

// --- Chroma ---

void random_table(short* table, int count, unsigned seed, short low, short high);
int add_noise(plane image, unsigned seed, int low, int high);

struct chroma_param {
  float coefficient;  // 1 / range_factor^2; halved for the masked filters
  int radius;
  int step;
  int edge_u;
  int edge_v;
  int level_mode;
};

void range_weights(float coefficient, int64_t weights[512]);

// Interleaved bytes [begin, end) to two planes; s != 0 scales the distance from grey.
void split(const uint8_t* uv, uint8_t* u, uint8_t* v, int begin, int end, int s);
// The same over `rows` rows of `width` bytes in the four slices of the stage.
void split_sliced(const uint8_t* uv, uint8_t* u, uint8_t* v, int width, int rows, int s);

enum class direction { horizontal, vertical };

void filter(direction along, plane guide, plane u, plane v, plane out_u, plane out_v,
            const chroma_param& p);
void filter_interleaved(plane guide, plane u, plane v, uint8_t* uv, const chroma_param& p);
void filter_masked(direction along, plane guide, plane u, plane v, plane out_u, plane out_v,
                   const chroma_param& p, plane mask);

// The chroma of a whole frame; both buffers hold width * height * 3 / 2 bytes. 0 or -1.
int chroma(int width, int height, const uint8_t* src, uint8_t* dst,
           const ycnr_cnr_tuning_param& tuning, bool fine = false);
// The masked driver behind its own record.
int chroma_masked(int width, int height, const uint8_t* src, uint8_t* dst, plane mask,
                  const chroma_param& p, int scale, int saturation);

// --- A call of vorn_ycnr_process (fine: vorn_ycnr_process_fine), two buffers of the handle's size
// ---

int process(int width, int height, uint8_t* src, uint8_t* dst, const ycnr_ynr_tuning_param& ynr,
            const ycnr_cnr_tuning_param& cnr, bool fine = false);

}  // namespace model
