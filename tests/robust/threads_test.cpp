// Handles on threads of their own, for the thread sanitizer above all.
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "tests/support/frames.h"
#include "tests/support/host.h"

namespace {

using namespace vorn_test;

constexpr int kThreads = 8;
constexpr int kFrames = 6;

// Each thread has its own size and its own tuning, another one for each frame.
std::vector<std::vector<uint8_t>> run_frames(int number) {
  const int width = 48 + 8 * number, height = 34 + 6 * number;
  std::vector<std::vector<uint8_t>> results;
  denoiser one(width, height);
  frame src(width, height), dst(width, height);
  for (int i = 0; i < kFrames; ++i) {
    tuning with((i + 1) % 3 != 0, (i + 2) % 3 != 0);
    with.ynr.layer = 2 + (number + i) % 2;
    with.ynr.pRadius[0] = 3 + 2 * ((number + i) % 3);
    with.ynr.pIntensity[0] = 20 + 5 * number;
    with.cnr.range_factor = 10 + 3 * number + i;
    with.cnr.scale = (number + i) % 3;
    with.cnr.saturation = i == 3 ? 6 : 0;
    src.draw(static_cast<uint32_t>(number * 100 + i));
    if (one.run(src, dst, with) != 0) return {};
    results.push_back(dst.bytes());
  }
  return results;
}

TEST(Threads, EightHandlesAtOnceMakeTheBytesOfOneAfterTheOther) {
  quiet_log silence;
  std::vector<std::vector<std::vector<uint8_t>>> expected, results(kThreads);
  for (int i = 0; i < kThreads; ++i) expected.push_back(run_frames(i));
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i)
    threads.emplace_back([i, &results] {
      for (int round = 0; round < 3; ++round) results[static_cast<size_t>(i)] = run_frames(i);
    });
  for (std::thread& each : threads) each.join();
  for (int i = 0; i < kThreads; ++i) {
    EXPECT_EQ(results[static_cast<size_t>(i)].size(), static_cast<size_t>(kFrames));
    EXPECT_EQ(results[static_cast<size_t>(i)], expected[static_cast<size_t>(i)]) << i;
  }
}

// One handle made here, used and closed by other threads in turn.
TEST(Threads, AHandleMayChangeThreads) {
  quiet_log silence;
  ycnr_init_param size = {64, 48};
  denoise_handle_t* handle = vorn_ycnr_init(&size);
  ASSERT_NE(handle, nullptr);
  std::vector<uint8_t> first;
  for (int i = 0; i < 4; ++i) {
    frame src(64, 48), dst(64, 48);
    src.draw(1);
    tuning both;
    int result = -1;
    std::thread([&] {
      result = vorn_ycnr_process(handle, &src.image, &dst.image, &both.params);
    }).join();
    ASSERT_EQ(result, 0);
    if (i == 0) first = dst.bytes();
    EXPECT_EQ(dst.bytes(), first);
  }
  int result = -1;
  std::thread([&] { result = vorn_ycnr_deinit(handle); }).join();
  EXPECT_EQ(result, 0);
}

}  // namespace
