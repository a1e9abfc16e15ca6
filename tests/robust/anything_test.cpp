// Whatever a caller passes: a right result or the stated code with an ERROR (or WARN) line, dst
// holding at least the input, nothing touched outside the frames, the same bytes every time.
#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include "base/log.h"
#include "tests/support/frames.h"
#include "tests/support/guarded.h"
#include "tests/support/host.h"

namespace {

using namespace vorn_test;

const int kValues[] = {INT_MIN, INT_MIN + 1, -65536, -129,  -128,        -1,     0,
                       1,       2,           3,      5,     7,           8,      9,
                       16,      64,          127,    128,   255,         256,    1000,
                       4096,    46341,       65535,  65536, INT_MAX - 1, INT_MAX};

// Runs one frame between protected pages and checks what holds for every call.
// Returns the result code; the frame's bytes go to out.
int run_guarded(denoise_handle_t* handle, int width, int height, tuning& with, uint32_t seed,
                guarded_buffer::side where, std::vector<uint8_t>* out) {
  const size_t bytes = frame_bytes(width, height);
  guarded_buffer from(bytes, where), to(bytes, where);
  random_source random(seed);
  const int low = random.between(0, 255), span = random.between(0, 255);
  for (size_t i = 0; i < bytes; ++i)
    from.data()[i] = static_cast<uint8_t>(low + random.between(0, span));
  const std::vector<uint8_t> input(from.data(), from.data() + bytes);
  std::memset(to.data(), static_cast<int>(seed & 255), bytes);  // must not matter
  _tag_uni_image src = {}, dst = {};
  src.width = dst.width = width;
  src.height = dst.height = height;
  src.plane[0] = from.data();
  dst.plane[0] = to.data();
  int result, complaints;
  {
    nr_log_Level = 2;  // errors and warnings
    log_capture log;
    result = vorn_ycnr_process(handle, &src, &dst, &with.params);
    complaints = log.count('E') + log.count('W');
  }
  out->assign(to.data(), to.data() + bytes);
  const bool both = with.ynr.enable == 1 && with.cnr.enable == 1;
  if (result == 0) {
    const size_t luma = static_cast<size_t>(width) * static_cast<size_t>(height);
    EXPECT_EQ(complaints, 0);
    if (both) {
      EXPECT_EQ(std::memcmp(from.data(), to.data(), luma), 0);
    } else {
      EXPECT_EQ(std::memcmp(from.data(), input.data(), bytes), 0);
    }
    if (with.ynr.enable != 1) {
      EXPECT_EQ(std::memcmp(to.data(), input.data(), luma), 0);
    }
    if (with.cnr.enable != 1) {
      EXPECT_EQ(std::memcmp(to.data() + luma, &input[luma], bytes - luma), 0);
    }
  } else {
    EXPECT_EQ(result, -1);
    EXPECT_EQ(complaints, 1);
    EXPECT_EQ(*out, input);
    EXPECT_EQ(std::memcmp(from.data(), input.data(), bytes), 0);
  }
  return result;
}

// Runs it twice, on different sides of the protected pages and over different old contents.
int run_twice(denoise_handle_t* handle, int width, int height, tuning& with, uint32_t seed) {
  SCOPED_TRACE(std::to_string(width) + "x" + std::to_string(height) + " " + text(with) + " seed " +
               std::to_string(seed));
  std::vector<uint8_t> first, second;
  const int result =
      run_guarded(handle, width, height, with, seed, guarded_buffer::side::end, &first);
  EXPECT_EQ(run_guarded(handle, width, height, with, seed, guarded_buffer::side::begin, &second),
            result);
  EXPECT_EQ(first, second);
  return result;
}

// Each field at each extreme, one at a time, then all fields at once.
TEST(Anything, ExtremeTunings) {
  const tuning usual;
  constexpr size_t kLuma = sizeof usual.ynr / 4, kChroma = sizeof usual.cnr / 4;
  for (const auto& size : {std::pair<int, int>{72, 50}, {40, 36}}) {
    denoiser one(size.first, size.second);
    ASSERT_NE(one.get(), nullptr);
    for (size_t field = 0; field < kLuma + kChroma; ++field)
      for (int value : kValues) {
        tuning with;
        (field < kLuma ? (&with.ynr.enable)[field] : (&with.cnr.enable)[field - kLuma]) = value;
        const int result =
            run_twice(one.get(), size.first, size.second, with, static_cast<uint32_t>(field));
        // Only the number of layers can be wrong by itself.
        const bool refused = field == 1 && (value < 2 || value > 5);
        if (field != 1 || value < 2) {
          EXPECT_EQ(result, refused ? -1 : 0);
        }
      }
    for (int value : kValues) {
      tuning with;
      for (size_t field = 0; field < kLuma; ++field) (&with.ynr.enable)[field] = value;
      for (size_t field = 0; field < kChroma; ++field) (&with.cnr.enable)[field] = value;
      with.ynr.enable = with.cnr.enable = 1;
      for (int layer : {value, 2, 3}) {
        with.ynr.layer = layer;
        run_twice(one.get(), size.first, size.second, with, 9);
      }
    }
  }
}

// Every size up to 20 and some beyond, with every number of layers and every scale.
TEST(Anything, TinyFrames) {
  std::vector<std::pair<int, int>> sizes = {{1, 100}, {100, 1}, {2, 67},
                                            {33, 35}, {47, 64}, {64, 47}};
  for (int width = 1; width <= 20; ++width)
    for (int height = 1; height <= 20; height += 1 + width % 3) sizes.emplace_back(width, height);
  int done = 0, refused = 0;
  for (const auto& size : sizes) {
    denoiser one(size.first, size.second);
    ASSERT_NE(one.get(), nullptr) << size.first << "x" << size.second;
    for (int enables = 0; enables < 4; ++enables)
      for (int layer = 2; layer <= 5; ++layer)
        for (int scale = 0; scale <= 3; ++scale) {
          if ((enables == 1 && scale > 0) || (enables == 2 && layer > 2)) continue;
          tuning with(enables & 1, enables >> 1);
          with.ynr.layer = layer;
          with.cnr.scale = scale;
          with.cnr.saturation = scale == 1 ? 7 : 0;
          with.ynr.pIntensity[layer - 1] = scale == 2 ? 0 : 50;
          const int result = run_twice(one.get(), size.first, size.second, with,
                                       static_cast<uint32_t>(layer * 4 + scale));
          ++(result == 0 ? done : refused);
          if (enables == 0) {
            EXPECT_EQ(result, 0);
          }
        }
  }
  EXPECT_GT(done, 1000);
  EXPECT_GT(refused, 1000);
}

// Random tunings, mostly of moderate values, over random sizes.
TEST(Anything, RandomTunings) {
  random_source random(2026);
  const auto pick = [&](int count) { return random.between(0, count - 1); };
  int done = 0;
  for (int handle = 0; handle < 40; ++handle) {
    const int width = 8 + pick(100), height = 8 + pick(80);
    denoiser one(width, height);
    ASSERT_NE(one.get(), nullptr);
    for (int i = 0; i < 8; ++i) {
      tuning with;
      const auto scramble = [&](int32_t* field, size_t count) {
        for (size_t k = 0; k < count; ++k) {
          if (pick(4) == 0) field[k] = kValues[pick(sizeof kValues / sizeof *kValues)];
          if (pick(4) == 0) field[k] = pick(70) - 5;
        }
      };
      scramble(&with.ynr.layer, sizeof with.ynr / 4 - 1);
      scramble(&with.cnr.range_factor, sizeof with.cnr / 4 - 1);
      if (pick(3)) with.ynr.layer = 2 + pick(3);
      with.ynr.enable = pick(4) != 0;
      with.cnr.enable = pick(4) != 0;
      done += run_twice(one.get(), width, height, with, static_cast<uint32_t>(random.next())) == 0;
    }
  }
  EXPECT_GT(done, 150);
}

}  // namespace
