// What the optional calls tell and let choose: stages, log, workers, kernel form.
#include "vorn_ycnr_ext.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <string>
#include <vector>

#include "base/handle.h"
#include "base/log.h"
#include "runtime/kernel_form.h"
#include "runtime/pool.h"
#include "tests/support/frames.h"
#include "tests/support/host.h"

namespace {

using namespace vorn_test;

struct told {
  std::vector<std::string> stages;
  double sum = 0;
};

void tell(void* context, const char* stage, double ms) {
  told* all = static_cast<told*>(context);
  all->stages.push_back(stage);
  all->sum += ms;
  throw 1;  // is dropped
}

TEST(Extension, StageSinkHearsTheStepsOfTheLogAtAnyLevel) {
  denoiser one(64, 48);
  frame src(64, 48), dst(64, 48);
  tuning both;
  src.draw(2);
  EXPECT_EQ(vorn_ycnr_set_stage_sink(nullptr, tell, nullptr), -1);
  told quiet, verbose;
  std::vector<std::string> logged;
  const int level = vorn_ycnr_set_log_level(0);
  for (told* each : {&quiet, &verbose}) {
    ASSERT_EQ(vorn_ycnr_set_stage_sink(one.get(), tell, each), 0);
    log_capture log;
    ASSERT_EQ(one.run(src, dst, both), 0);
    logged = log.lines();
    vorn_ycnr_set_log_level(4);
  }
  EXPECT_EQ(quiet.stages, verbose.stages);
  ASSERT_GT(quiet.stages.size(), 10u);
  EXPECT_GT(quiet.sum, 0);
  EXPECT_EQ(quiet.stages.back(), "vorn_ycnr_process");
  for (const std::string& stage : quiet.stages) {
    int lines = 0;
    for (const std::string& line : logged)
      lines += line.find(stage + " cost time") != std::string::npos ||
               line.find(stage + " time cost") != std::string::npos;
    EXPECT_GE(lines, 1) << stage;
  }
  ASSERT_EQ(vorn_ycnr_set_stage_sink(one.get(), nullptr, nullptr), 0);
  ASSERT_EQ(one.run(src, dst, both), 0);
  EXPECT_EQ(quiet.stages.size(), verbose.stages.size());
  vorn_ycnr_set_log_level(-1);
  nr_log_Level = level;
}

TEST(Extension, LogLevelOutlivesTheNextHandle) {
  properties props("persist.vendor.cam.nr_api.log=3\n");
  nr_log_Level = 4;
  EXPECT_EQ(vorn_ycnr_set_log_level(1), 4);
  EXPECT_EQ(vorn_ycnr_log_level(), 1);
  log_capture log;
  { denoiser one(32, 32); }
  EXPECT_EQ(log.text(), "");
  EXPECT_EQ(vorn_ycnr_set_log_level(-5), 1);
  EXPECT_EQ(nr_log_Level, 3);
  initLogLevel();
  EXPECT_EQ(vorn_ycnr_log_level(), 3);
  nr_log_Level = 4;
}

TEST(Extension, AnyNumberOfWorkersMakesTheSameBytes) {
  denoiser four(100, 76);
  frame src(100, 76), dst(100, 76);
  tuning both;
  src.draw(9);
  const std::vector<uint8_t> input = src.bytes();
  ASSERT_EQ(four.run(src, dst, both), 0);
  const std::vector<uint8_t> expected = dst.bytes();
  log_capture quiet;
  const int threads = running_threads();
  for (int workers = 0; workers <= 4; ++workers)
    for (int bind = 0; bind < 2; ++bind) {
      vorn_ycnr_options options = {100, 76, workers, bind};
      denoise_handle_t* handle = vorn_ycnr_open(&options);
      ASSERT_NE(handle, nullptr);
      const int with_workers = threads + (workers ? workers : 4);
      EXPECT_EQ(threads_reaching(with_workers), with_workers);
      EXPECT_EQ(handle->pool->bind_core, bind);
      std::copy(input.begin(), input.end(), src.image.plane[0]);
      EXPECT_EQ(vorn_ycnr_process(handle, &src.image, &dst.image, &both.params), 0);
      EXPECT_EQ(dst.bytes(), expected);
      EXPECT_EQ(vorn_ycnr_deinit(handle), 0);
    }
  for (const vorn_ycnr_options& options : {vorn_ycnr_options{100, 76, 5, 0},
                                           {100, 76, -1, 0},
                                           {100, 76, INT_MIN, 0},
                                           {100, 76, 4, 2},
                                           {0, 76, 4, 0}})
    EXPECT_EQ(vorn_ycnr_open(&options), nullptr);
  EXPECT_EQ(vorn_ycnr_open(nullptr), nullptr);
}

void collect(void* context, int32_t priority, const char* message) {
  static_cast<std::vector<std::string>*>(context)->push_back(std::to_string(priority) + message);
}

TEST(Extension, LogSink) {
  nr_log_Level = 4;
  std::vector<std::string> lines;
  log_capture log;
  vorn_ycnr_set_log_sink(collect, &lines);
  vorn_ycnr_deinit(nullptr);
  VORN_LOGW("warning");
  vorn_ycnr_set_log_sink(nullptr, nullptr);
  EXPECT_EQ(log.text(), "");
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[0].substr(0, 3), "3L ");
  EXPECT_NE(lines[0].find(", vorn_ycnr_deinit:ycnr deinit start "), std::string::npos);
  EXPECT_EQ(lines[1].back(), 'n');  // "please return", no line feed
  EXPECT_EQ(lines[2][0], '5');
  vorn_ycnr_deinit(nullptr);
  EXPECT_EQ(log.lines().size(), 2u);
  EXPECT_EQ(lines.size(), 3u);
}

void fail_to_collect(void* context, int32_t, const char*) {
  ++*static_cast<int*>(context);
  VORN_LOGE("from the sink");  // to the system's log
  throw std::string("no room");
}

TEST(Extension, ASinkThatThrowsLogsOn) {
  nr_log_Level = 4;
  int calls = 0;
  log_capture log;
  vorn_ycnr_set_log_sink(fail_to_collect, &calls);
  for (int i = 1; i <= 3; ++i) {
    VORN_LOGE("line");
    EXPECT_EQ(calls, i);
  }
  vorn_ycnr_set_log_sink(nullptr, nullptr);
  EXPECT_EQ(log.count('E'), 3);
}

TEST(Extension, ResultTexts) {
  std::vector<std::string> texts;
  for (int result : {0, -1, -2, 2, 1}) {
    texts.push_back(vorn_ycnr_result_text(result));
    EXPECT_FALSE(texts.back().empty());
    for (size_t i = 0; i + 1 < texts.size(); ++i) EXPECT_NE(texts[i], texts.back());
  }
  EXPECT_EQ(std::string(vorn_ycnr_result_text(INT_MIN)), texts.back());
}

TEST(Extension, KernelFormIsTheOneInForce) {
  const vorn::kernel_form usual = vorn::active_kernel_form();
  EXPECT_STREQ(vorn_ycnr_kernel_form(), vorn::kernel_form_name(usual));
  ASSERT_TRUE(vorn::use_kernel_form(vorn::kernel_form::scalar));
  EXPECT_STREQ(vorn_ycnr_kernel_form(), "scalar");
  vorn::use_kernel_form(usual);
}

}  // namespace
