// A test plane: random samples inside, a known byte all around it, and an image record over it.
#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "api/log.h"
#include "api/vorn_ycnr.h"
#include "runtime/kernels.h"
#include "runtime/pool.h"

class plane {
 public:
  static constexpr int kGuard = 64;  // bytes before the first and after the last sample
  static constexpr uint8_t kOutside = 0xA5;

  plane(int width, int height, int seed = -1, int stride = 0)
      : width_(width),
        height_(height),
        stride_(stride ? stride : width),
        bytes_(static_cast<size_t>(2 * kGuard + stride_ * height), kOutside) {
    std::mt19937 random(static_cast<unsigned>(seed));
    if (seed >= 0)
      for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) at(y, x) = static_cast<uint8_t>(random());
  }

  uint8_t* data() { return bytes_.data() + kGuard; }
  uint8_t& at(int y, int x) { return data()[y * stride_ + x]; }
  int width() const { return width_; }
  int height() const { return height_; }

  // The record is valid as long as the plane lives.
  _tag_uni_image* image() {
    image_ = {};
    image_.width = width_;
    image_.height = height_;
    image_.plane[0] = data();
    image_.stride[0] = stride_;
    return &image_;
  }

  // Whether everything outside the plane (padding of its rows included) kept its byte.
  bool surroundings_intact() const {
    for (size_t i = 0; i < bytes_.size(); ++i) {
      const int offset = static_cast<int>(i) - kGuard;
      const bool inside = offset >= 0 && offset < stride_ * height_ && offset % stride_ < width_;
      if (!inside && bytes_[i] != kOutside) return false;
    }
    return true;
  }

  bool operator==(const plane& other) const { return bytes_ == other.bytes_; }

 private:
  int width_, height_, stride_;
  std::vector<uint8_t> bytes_;
  _tag_uni_image image_{};
};

// A pool of four for the lifetime of a test.
struct test_pool {
  pool* workers = nullptr;
  test_pool() { vorn_threadpool_init(&workers, 4); }
  ~test_pool() { vorn_threadpool_destroy(workers); }
};

inline std::vector<vorn::kernel_form> available_forms() {
  std::vector<vorn::kernel_form> forms;
  for (int i = 0; i < vorn::kKernelForms; ++i)
    if (vorn::kernel_form_available(static_cast<vorn::kernel_form>(i)))
      forms.push_back(static_cast<vorn::kernel_form>(i));
  return forms;
}

// A test that runs once with every kernel form of this machine.
class every_form : public testing::TestWithParam<vorn::kernel_form> {
 protected:
  void SetUp() override {
    nr_log_Level = 0;
    ASSERT_TRUE(vorn::use_kernel_form(GetParam()));
  }
  void TearDown() override { vorn::use_kernel_form(before_); }

 private:
  vorn::kernel_form before_ = vorn::active_kernel_form();
};

#define VORN_EVERY_FORM(suite)                            \
  INSTANTIATE_TEST_SUITE_P(                               \
      Forms, suite, testing::ValuesIn(available_forms()), \
      [](const auto& info) { return std::string(vorn::kernel_form_name(info.param)); })
