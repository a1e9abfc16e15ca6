// A handle from init to deinit: what it says of itself, which sizes it takes, what it leaves
// behind.
#include <gtest/gtest.h>
#include <malloc.h>

#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include "base/handle.h"
#include "base/log.h"
#include "runtime/pool.h"
#include "tests/support/frames.h"
#include "tests/support/host.h"
#include "vorn_ycnr.h"

namespace {

using namespace vorn_test;

TEST(Init, LogLinesInOrder) {
  nr_log_Level = 4;
  log_capture log;
  ycnr_init_param size = {64, 48};
  denoise_handle_t* handle = vorn_ycnr_init(&size);
  ASSERT_NE(handle, nullptr);
  EXPECT_STREQ(handle->dump_path, "/data/vendor/cameraserver");
  EXPECT_EQ(handle->pool->max_thread_num, 4);
  EXPECT_EQ(handle->pool->bind_core, 0);
  EXPECT_EQ(vorn_ycnr_deinit(handle), 0);
  const std::vector<std::string> expected = {
      "D YCNR_LOG: L #, vorn_ycnr_init:vorn_nr_init start",
      "D YCNR_LOG: L #, vorn_ycnr_init:width = 64, height = 48  ",
      "D YCNR_LOG: L #, cnr_init:cnr_init start",
      "I YCNR_LOG: L #, cnr_init:CAM_ALGO_CV_CNR4_LIBVER [4.0.1.2.2768825][Aug 28 2024][18:43:31] ",
      "D YCNR_LOG: L #, cnr_Allocate_slice_memory:cnr malloc size : 0 M  ",
      "D YCNR_LOG: L #, vorn_ycnr_init:cnr_handle malloc success",
      "D YCNR_LOG: L #, ynr_init:ynr_init start",
      "I YCNR_LOG: L #, ynr_init:CAM_ALGO_CV_YNR2_LIBVER [2.0.1.2.2768825][Aug 28 2024][18:43:34] ",
      "D YCNR_LOG: L #, ynr_Allocate_slice_memory:ynr malloc size : 0 M  ",
      "D YCNR_LOG: L #, vorn_ycnr_init:ynr_handle malloc success",
      "D YCNR_LOG: L #, vorn_ycnr_deinit:ycnr deinit start ",
      "D YCNR_LOG: L #, vorn_ycnr_deinit:ycnr deinit end ",
  };
  EXPECT_EQ(log.lines(), expected);
}

TEST(Init, TheFirstLineUsesTheOldLevelTheOthersTheNew) {
  properties props("persist.vendor.cam.nr_api.log=1\n");
  nr_log_Level = 4;
  log_capture log;
  denoiser one(64, 48);
  EXPECT_EQ(log.lines().size(), 1u);
  EXPECT_TRUE(log.has("D YCNR_LOG: L #, vorn_ycnr_init:vorn_nr_init start"));
  nr_log_Level = 4;
}

TEST(Init, RefusedSizes) {
  const int sizes[][2] = {{0, 0},
                          {0, 48},
                          {64, 0},
                          {-64, 48},
                          {64, -48},
                          {-64, -48},
                          {INT_MIN, 1},
                          {INT_MAX, INT_MAX},
                          {65536, 65536},
                          {65536, 32768},
                          {715827883, 1},
                          {1, 715827883},
                          {INT_MIN, INT_MIN}};
  const int threads = running_threads();
  for (const auto& size : sizes) {
    log_capture log;
    ycnr_init_param param = {size[0], size[1]};
    EXPECT_EQ(vorn_ycnr_init(&param), nullptr) << size[0] << " x " << size[1];
    EXPECT_GE(log.count('E'), 1);
  }
  log_capture log;
  EXPECT_EQ(vorn_ycnr_init(nullptr), nullptr);
  EXPECT_TRUE(log.has("E YCNR_LOG: L #, vorn_ycnr_init:params is NULL"));
  EXPECT_EQ(threads_reaching(threads), threads);
}

TEST(Capability, NamesVersionsAndSizes) {
  denoiser one(4000, 3000);
  ASSERT_NE(one.get(), nullptr);
  ycnr_capability_param cap;
  std::memset(&cap, 0xee, sizeof cap);
  ASSERT_EQ(vorn_ycnr_capability(one.get(), &cap), 0);
  EXPECT_STREQ(cap.name, "CAM_ALGO_CV_YCNR");
  EXPECT_STREQ(cap.build_date, "Aug 28 2024");
  EXPECT_STREQ(cap.build_time, "18:43:29");
  EXPECT_STREQ(cap.version, "1.0.1.2.2768825");
  EXPECT_EQ(cap.memory_mb, 1);
  EXPECT_STREQ(cap.ynr.name, "CAM_ALGO_CV_YNR2");
  EXPECT_STREQ(cap.ynr.build_date, "Aug 28 2024");
  EXPECT_STREQ(cap.ynr.build_time, "18:43:34");
  EXPECT_STREQ(cap.ynr.version, "2.0.1.2.2768825");
  EXPECT_EQ(cap.ynr.memory_mb, 27);
  EXPECT_STREQ(cap.cnr.name, "CAM_ALGO_CV_YNR2");  // kept on purpose: the luma filter's name
  EXPECT_STREQ(cap.cnr.build_date, "Aug 28 2024");
  EXPECT_STREQ(cap.cnr.build_time, "18:43:31");
  EXPECT_STREQ(cap.cnr.version, "4.0.1.2.2768825");
  EXPECT_EQ(cap.cnr.memory_mb, 25);

  log_capture log;
  EXPECT_EQ(vorn_ycnr_capability(one.get(), nullptr), -1);
  EXPECT_EQ(vorn_ycnr_capability(nullptr, &cap), -1);
  EXPECT_TRUE(log.has("E YCNR_LOG: L #, vorn_ycnr_capability:Error, handle = " +
                      pointer_text(one.get()) + ", param = " + pointer_text(nullptr)));
  EXPECT_EQ(log.count('E'), 2);
}

TEST(Deinit, Codes) {
  log_capture log;
  EXPECT_EQ(vorn_ycnr_deinit(nullptr), -1);
  EXPECT_TRUE(log.has("E YCNR_LOG: L #, vorn_ycnr_deinit:handle is NULL, please return"));

  ycnr_init_param size = {64, 48};
  denoise_handle_t* handle = vorn_ycnr_init(&size);
  ASSERT_NE(handle, nullptr);
  pthread_mutex_lock(&handle->pool->queue_lock);
  handle->pool->shutdown = 1;  // as if another destroy were under way
  pthread_mutex_unlock(&handle->pool->queue_lock);
  EXPECT_EQ(vorn_ycnr_deinit(handle), 2);
  EXPECT_TRUE(log.has("E YCNR_LOG: L #, vorn_ycnr_deinit:pool_destroy fail"));
  pthread_mutex_lock(&handle->pool->queue_lock);
  handle->pool->shutdown = 0;
  pthread_mutex_unlock(&handle->pool->queue_lock);
  EXPECT_STREQ(handle->dump_path, "/data/vendor/cameraserver");  // nothing was freed
  EXPECT_EQ(vorn_ycnr_deinit(handle), 0);
}

TEST(Cycles, AThousandHandlesLeaveNothing) {
  nr_log_Level = 1;
  properties props("persist.vendor.cam.nr_api.log=1\n");
  frame src(64, 48), dst(64, 48);
  tuning both;
  src.draw(5);
  const auto cycle = [&](bool with_frame) {
    denoiser one(64, 48);
    ASSERT_NE(one.get(), nullptr);
    if (with_frame) {
      ASSERT_EQ(one.run(src, dst, both), 0);
    }
  };
  for (int i = 0; i < 50; ++i) cycle(true);  // tables built once, the allocator's own arenas
  const int threads = running_threads();
  const int descriptors = open_descriptors();
#if defined(__GLIBC__) && !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
  const size_t in_use = mallinfo2().uordblks;
#endif
  for (int i = 0; i < 1000; ++i) cycle(i % 100 == 0);
  EXPECT_EQ(threads_reaching(threads), threads);
  EXPECT_EQ(open_descriptors(), descriptors);
#if defined(__GLIBC__) && !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
  EXPECT_LE(mallinfo2().uordblks, in_use + 16384);  // the smallest block, lost each time, is more
#endif
  nr_log_Level = 4;
}

}  // namespace
