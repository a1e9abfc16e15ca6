// Seeded random integers: tables for the chroma filter's dither.
#pragma once

#include <cstdint>
#include <random>

#include "vorn_ycnr.h"

// Fills table[0..count-1] with integers uniform in [low, high], both inclusive, from a Mersenne
// Twister seeded with seed. The same seed gives the same table on every machine and every
// standard library.
VORN_API void GetRandomTable(short* table, int count, unsigned seed, short low, short high);

namespace vorn {

// Uniform integers in [low, high], both inclusive, from a 32-bit engine: the fewest low bits that
// hold the range are taken from each draw, and draws beyond the range are dropped. Standard
// libraries differ here although their engines agree; this is the rule of LLVM's libc++, and the
// tables that the chroma filter is tuned with depend on it.
class uniform_int16 {
 public:
  uniform_int16(int16_t low, int16_t high)
      : low_(low), range_(static_cast<uint32_t>(high) - static_cast<uint32_t>(low) + 1u) {
    for (uint32_t top = range_ - 1u; top; top >>= 1) mask_ = mask_ << 1 | 1u;
  }

  int16_t operator()(std::mt19937& engine) const {
    if (range_ == 1) return low_;  // nothing to draw
    uint32_t draw;
    do {
      draw = static_cast<uint32_t>(engine()) & mask_;
    } while (range_ != 0 && draw >= range_);  // range 0 stands for 2^32: low is high + 1
    return static_cast<int16_t>(draw + (range_ ? static_cast<uint32_t>(low_) : 0u));
  }

 private:
  int16_t low_;
  uint32_t range_;
  uint32_t mask_ = 0;
};

}  // namespace vorn
