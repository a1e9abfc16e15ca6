// Random moves that are the same on every machine: integers and the four basic operations alone.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace vorn::tool {

class random_moves {
 public:
  explicit random_moves(uint64_t seed) : state_(seed) {}

  // 0 .. count - 1.
  int32_t pick(int32_t count) {
    return static_cast<int32_t>(next() % static_cast<uint64_t>(count));
  }
  bool one_in(int32_t count) { return pick(count) == 0; }

  // value times a factor around 1, which leaves it as often raised as lowered; always another value
  // unless that is out of bounds.
  int32_t near(int32_t value, double width, int32_t lowest, int32_t highest) {
    const double move = width * bell();
    const double factor = move >= 0 ? 1 + move : 1 / (1 - move);
    const int32_t moved = static_cast<int32_t>(std::floor(value * factor + 0.5));
    return std::clamp(moved != value ? moved : value + (move >= 0 ? 1 : -1), lowest, highest);
  }

 private:
  uint64_t next() {  // splitmix64
    uint64_t z = state_ += 0x9e3779b97f4a7c15u;
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9u;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebu;
    return z ^ (z >> 31);
  }
  // Bell-shaped, mean 0, standard deviation 1.
  double bell() {
    double sum = -6;
    for (int i = 0; i < 12; ++i) sum += static_cast<double>(next() >> 11) * 0x1p-53;
    return sum;
  }

  uint64_t state_;
};

}  // namespace vorn::tool
