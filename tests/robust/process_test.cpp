// What happens around the calls: a handle in a child of fork(), and two threads on one handle.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <thread>
#include <vector>

#include "base/handle.h"
#include "base/log.h"
#include "tests/support/frames.h"
#include "tests/support/host.h"
#include "tests/support/workers.h"
#include "vorn_ycnr_ext.h"

namespace {

using namespace vorn_test;

constexpr int kWidth = 64, kHeight = 48;

// Runs body() in a child that ends after a while whatever happens. Returns its result, or a
// negative number when a signal ended it.
template <typename Body>
int in_child(const Body& body) {
  const pid_t child = fork();
  if (child == 0) {
    alarm(20);
    _exit(body());
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

TEST(Fork, AHandleKnowsItsProcess) {
#if defined(__SANITIZE_THREAD__) || defined(VORN_EMULATED)
  GTEST_SKIP() << "neither this sanitizer nor the emulator follows a fork of several threads";
#endif
  ycnr_init_param size = {kWidth, kHeight};
  frame src(kWidth, kHeight), dst(kWidth, kHeight), again(kWidth, kHeight);
  tuning both;
  properties quiet("persist.vendor.cam.nr_api.log=1\n");
  denoise_handle_t* handle = vorn_ycnr_init(&size);
  ASSERT_NE(handle, nullptr);
  src.draw(1);
  ASSERT_EQ(vorn_ycnr_process(handle, &src.image, &dst.image, &both.params), 0);
  // The address sanitizer's allocator is not ready for a fork while another thread is in it: the
  // child would wait for ever.
  wait_asleep(handle->pool, 4);
  for (bool close_first : {false, true}) {
    const int failed = in_child([&] {
      if (close_first && vorn_ycnr_deinit(handle) != 0) return 1;
      denoise_handle_t* own = vorn_ycnr_init(&size);
      if (!own) return 2;
      src.draw(1);
      if (vorn_ycnr_process(own, &src.image, &again.image, &both.params) != 0) return 3;
      if (again.bytes() != dst.bytes()) return 4;
      if (vorn_ycnr_deinit(own) != 0) return 5;
      if (close_first) return 0;
      src.draw(1);
      const log_capture log;
      if (vorn_ycnr_process(handle, &src.image, &again.image, &both.params) != -1) return 6;
      if (log.lines().size() != 1 || log.count('E') != 1) return 7;
      if (again.bytes() != src.bytes()) return 8;
      uint8_t* y = src.image.plane[0];
      const vorn_ycnr_planes planes = {
          VORN_LAYOUT_NV12, kWidth, kHeight, {y, y + kWidth * kHeight, nullptr}, {kWidth, kWidth}};
      if (vorn_ycnr_process_any(handle, &planes, &planes, nullptr, nullptr) != -1) return 9;
      return static_cast<int>(vorn_ycnr_deinit(handle));
    });
    EXPECT_EQ(failed, 0);
  }
  src.draw(1);  // the parent's handle goes on
  EXPECT_EQ(vorn_ycnr_process(handle, &src.image, &again.image, &both.params), 0);
  EXPECT_EQ(again.bytes(), dst.bytes());
  EXPECT_EQ(vorn_ycnr_deinit(handle), 0);
}

void count_line(void* context, int32_t, const char*) {
  ++*static_cast<std::atomic<int>*>(context);
}

// The locks that other threads hold at the moment of the fork are free in the child.
TEST(Fork, ChildrenOfABusyProcessLogAndStamp) {
#if defined(__SANITIZE_THREAD__) || defined(VORN_EMULATED)
  GTEST_SKIP() << "neither this sanitizer nor the emulator follows a fork of several threads";
#endif
  std::atomic<int> lines{0};
  std::atomic<bool> stop{false};
  vorn_ycnr_set_log_sink(count_line, &lines);
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i)
    threads.emplace_back([&] {
      char stamp[256];
      while (!stop) {
        getTimestamp_NR(stamp, sizeof stamp);
        VORN_LOGE("line\n");
      }
    });
  int failed = 0;
  for (int i = 0; i < 300 && failed == 0; ++i)
    failed = in_child([] {
      char stamp[256] = {};
      getTimestamp_NR(stamp, sizeof stamp);
      VORN_LOGE("line\n");
      return stamp[13] ? 0 : 1;
    });
  stop = true;
  for (std::thread& each : threads) each.join();
  vorn_ycnr_set_log_sink(nullptr, nullptr);
  EXPECT_EQ(failed, 0);
}

// Holds a frame up in its first step.
struct gate {
  std::atomic<bool> entered{false}, open{false};
};

void wait_at_gate(void* context, const char*, double) {
  gate* at = static_cast<gate*>(context);
  at->entered = true;
  while (!at->open) usleep(100);
}

TEST(Threads, ASecondOneOnAHandleIsRefused) {
  properties quiet("persist.vendor.cam.nr_api.log=1\n");
  ycnr_init_param size = {kWidth, kHeight};
  denoise_handle_t* handle = vorn_ycnr_init(&size);
  ASSERT_NE(handle, nullptr);
  frame src(kWidth, kHeight), expected(kWidth, kHeight), dst(kWidth, kHeight);
  tuning both, other;
  src.draw(7);
  ASSERT_EQ(vorn_ycnr_process(handle, &src.image, &expected.image, &both.params), 0);
  src.draw(7);

  gate at;
  ASSERT_EQ(vorn_ycnr_set_stage_sink(handle, wait_at_gate, &at), 0);
  int result = -1;
  std::thread first(
      [&] { result = vorn_ycnr_process(handle, &src.image, &dst.image, &both.params); });
  while (!at.entered) usleep(100);
  {
    frame in(kWidth, kHeight), out(kWidth, kHeight);
    in.draw(8);
    other.ynr.pIntensity[0] = 99;
    const log_capture log;
    EXPECT_EQ(vorn_ycnr_process(handle, &in.image, &out.image, &other.params), -1);
    EXPECT_EQ(log.count('E'), 1);
    EXPECT_EQ(out.bytes(), in.bytes());
    EXPECT_EQ(vorn_ycnr_set_stage_sink(handle, nullptr, nullptr), -1);
    EXPECT_EQ(vorn_ycnr_deinit(handle), VORN_POOL_BUSY);
    EXPECT_EQ(log.count('E'), 3);
  }
  at.open = true;
  first.join();
  EXPECT_EQ(result, 0);
  EXPECT_EQ(dst.bytes(), expected.bytes());
  EXPECT_EQ(vorn_ycnr_set_stage_sink(handle, nullptr, nullptr), 0);
  EXPECT_EQ(vorn_ycnr_deinit(handle), 0);
}

}  // namespace
