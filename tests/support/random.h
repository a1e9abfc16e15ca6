// The tests' generator of random numbers: SplitMix64, a counter through a mixing function, the same
// on every machine. The frames of tests/frame/corpus.txt are drawn with it, so its numbers stay.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <limits>

namespace vorn_test {

class random_source {
 public:
  explicit random_source(uint64_t seed) : state_(seed) {}

  uint64_t next() {
    uint64_t z = state_ += 0x9e3779b97f4a7c15u;
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9u;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebu;
    return z ^ (z >> 31);
  }
  int between(int low, int high) {  // inclusive
    const auto range = static_cast<uint64_t>(static_cast<int64_t>(high) - low) + 1;
    return static_cast<int>(low + static_cast<int64_t>((next() >> 16) % range));
  }
  bool one_in(int n) { return between(1, n) == 1; }
  int pick(std::initializer_list<int> values) {
    return values.begin()[between(0, static_cast<int>(values.size()) - 1)];
  }

  // What the standard library's distributions ask of a generator.
  using result_type = uint64_t;
  static constexpr result_type min() { return 0; }
  static constexpr result_type max() { return std::numeric_limits<result_type>::max(); }
  result_type operator()() { return next(); }

 private:
  uint64_t state_;
};

}  // namespace vorn_test
