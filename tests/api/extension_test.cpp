#include "vorn_ycnr_ext.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include "base/handle.h"
#include "base/log.h"
#include "runtime/kernel_form.h"
#include "runtime/pool.h"
#include "tests/support/frames.h"
#include "tests/support/host.h"

namespace {

using vorn_test::denoiser;
using vorn_test::frame;
using vorn_test::log_capture;
using vorn_test::tuning;

// Planes of their own, `pad` bytes between rows, everything else 0xee.
class planes {
 public:
  planes(int layout, int width, int height, int pad) {
    record.layout = layout;
    record.width = width;
    record.height = height;
    for (int i = 0; i < (layout == VORN_LAYOUT_I420 ? 3 : 2); ++i) {
      record.stride[i] = columns(i) + pad + i;
      memory_[i].assign(static_cast<size_t>(record.stride[i] * rows(i) + 16), 0xee);
      record.plane[i] = memory_[i].data() + 8;
    }
  }

  int columns(int i) const {
    const int half = (record.width + 1) / 2;
    return i == 0 ? record.width : record.layout == VORN_LAYOUT_I420 ? half : 2 * half;
  }
  int rows(int i) const { return i == 0 ? record.height : (record.height + 1) / 2; }

  uint8_t& y(int x, int row) { return record.plane[0][row * record.stride[0] + x]; }
  uint8_t& chroma(int component, int x, int row) {
    switch (record.layout) {
      case VORN_LAYOUT_NV12:
        return record.plane[1][row * record.stride[1] + 2 * x + component];
      case VORN_LAYOUT_NV21:
        return record.plane[1][row * record.stride[1] + 2 * x + 1 - component];
      default:
        return record.plane[1 + component][row * record.stride[1 + component] + x];
    }
  }

  // Takes a contiguous frame of an even width.
  void take(const std::vector<uint8_t>& bytes) {
    const int w = record.width, h = record.height;
    for (int row = 0; row < h; ++row)
      for (int x = 0; x < w; ++x) y(x, row) = bytes[static_cast<size_t>(row * w + x)];
    for (int row = 0; row < h / 2; ++row)
      for (int x = 0; x < w; ++x)
        chroma(x & 1, x / 2, row) = bytes[static_cast<size_t>(w * h + row * w + x)];
  }

  std::vector<uint8_t> give() {
    std::vector<uint8_t> bytes;
    const int w = record.width, h = record.height;
    for (int row = 0; row < h; ++row)
      for (int x = 0; x < w; ++x) bytes.push_back(y(x, row));
    for (int row = 0; row < h / 2; ++row)
      for (int x = 0; x < w; ++x) bytes.push_back(chroma(x & 1, x / 2, row));
    return bytes;
  }

  bool surroundings_intact() const {
    for (int i = 0; i < 3; ++i)
      for (size_t at = 0; at < memory_[i].size(); ++at) {
        const long inside = static_cast<long>(at) - 8;
        const bool sample = inside >= 0 && inside / record.stride[i] < rows(i) &&
                            inside % record.stride[i] < columns(i);
        if (!sample && memory_[i][at] != 0xee) return false;
      }
    return true;
  }

  vorn_ycnr_planes record = {};

 private:
  std::vector<uint8_t> memory_[3];
};

TEST(Extension, PlanesGiveTheBytesOfTheContiguousFrame) {
  constexpr int kWidth = 70, kHeight = 50;
  denoiser one(kWidth, kHeight);
  for (int enables = 0; enables < 4; ++enables) {
    frame src(kWidth, kHeight), dst(kWidth, kHeight);
    tuning with(enables & 1, enables >> 1);
    src.draw(3);
    const std::vector<uint8_t> input = src.bytes();
    ASSERT_EQ(one.run(src, dst, with), 0);
    for (int layout = VORN_LAYOUT_NV12; layout <= VORN_LAYOUT_I420; ++layout)
      for (int pad : {0, 1, 58}) {
        planes from(layout, kWidth, kHeight, pad), to(layout, kWidth, kHeight, 3 * pad);
        from.take(input);
        ASSERT_EQ(
            vorn_ycnr_process_planes(one.get(), &from.record, &to.record, &with.ynr, &with.cnr), 0);
        EXPECT_EQ(to.give(), dst.bytes()) << enables << " layout " << layout << " pad " << pad;
        EXPECT_EQ(from.give(), input);  // never written to
        EXPECT_TRUE(to.surroundings_intact());
        // In place.
        ASSERT_EQ(
            vorn_ycnr_process_planes(one.get(), &from.record, &from.record, &with.ynr, &with.cnr),
            0);
        EXPECT_EQ(from.give(), dst.bytes());
        EXPECT_TRUE(from.surroundings_intact());
      }
  }
}

TEST(Extension, ANullTuningIsOff) {
  denoiser one(64, 48);
  planes from(0, 64, 48, 4), to(0, 64, 48, 0);
  frame src(64, 48), dst(64, 48);
  src.draw(5);
  const std::vector<uint8_t> input = src.bytes();
  from.take(input);
  ASSERT_EQ(vorn_ycnr_process_planes(one.get(), &from.record, &to.record, nullptr, nullptr), 0);
  EXPECT_EQ(to.give(), input);
  tuning luma_only(1, 0);
  ASSERT_EQ(one.run(src, dst, luma_only), 0);
  ASSERT_EQ(vorn_ycnr_process_planes(one.get(), &from.record, &to.record, &luma_only.ynr, nullptr),
            0);
  EXPECT_EQ(to.give(), dst.bytes());
}

TEST(Extension, OddSizes) {
  tuning both;
  {  // an odd height: the last row of chroma is the source's
    denoiser one(64, 47);
    planes from(VORN_LAYOUT_I420, 64, 47, 2), to(VORN_LAYOUT_I420, 64, 47, 5);
    frame src(64, 47), dst(64, 47);
    src.draw(6);
    from.take(src.bytes());
    for (int x = 0; x < 32; ++x) from.chroma(0, x, 23) = from.chroma(1, x, 23) = 77;
    ASSERT_EQ(one.run(src, dst, both), 0);
    ASSERT_EQ(vorn_ycnr_process_planes(one.get(), &from.record, &to.record, &both.ynr, &both.cnr),
              0);
    std::vector<uint8_t> expected = dst.bytes();
    expected.resize(64 * 47 + 64 * 23);  // without the half row behind the last whole one
    EXPECT_EQ(to.give(), expected);
    for (int x = 0; x < 32; ++x) EXPECT_EQ(to.chroma(0, x, 23) + to.chroma(1, x, 23), 154);
    EXPECT_TRUE(to.surroundings_intact());
  }
  denoiser one(65, 48);
  planes from(VORN_LAYOUT_NV21, 65, 48, 2), to(VORN_LAYOUT_NV21, 65, 48, 5);
  for (int row = 0; row < 48; ++row)
    for (int x = 0; x < 66; ++x) {
      if (x < 65) from.y(x, row) = static_cast<uint8_t>(x * 3 + row * 5);
      from.chroma(x & 1, x / 2, row / 2) = static_cast<uint8_t>(x + row);
    }
  ASSERT_EQ(vorn_ycnr_process_planes(one.get(), &from.record, &to.record, &both.ynr, nullptr), 0);
  for (int row = 0; row < 24; ++row)
    for (int x = 0; x < 66; ++x)
      ASSERT_EQ(to.chroma(x & 1, x / 2, row), from.chroma(x & 1, x / 2, row));
  EXPECT_TRUE(to.surroundings_intact());
  log_capture log;
  EXPECT_EQ(vorn_ycnr_process_planes(one.get(), &from.record, &to.record, &both.ynr, &both.cnr),
            -1);
  EXPECT_EQ(log.count('E'), 1);
  for (int x = 0; x < 65; ++x) EXPECT_EQ(to.y(x, 20), from.y(x, 20));  // the input
}

TEST(Extension, UnusablePlanes) {
  denoiser one(64, 48);
  tuning both;
  planes from(0, 64, 48, 0), to(0, 64, 48, 0);
  const auto refused = [&](denoise_handle_t* handle, const vorn_ycnr_planes* src,
                           const vorn_ycnr_planes* dst) {
    log_capture log;
    EXPECT_EQ(vorn_ycnr_process_planes(handle, src, dst, &both.ynr, &both.cnr), -1);
    EXPECT_EQ(log.count('E'), 1);
  };
  refused(nullptr, &from.record, &to.record);
  refused(one.get(), nullptr, &to.record);
  refused(one.get(), &from.record, nullptr);
  const auto changed = [&](auto change) {
    vorn_ycnr_planes record = to.record;
    change(record);
    refused(one.get(), &from.record, &record);
    refused(one.get(), &record, &to.record);
  };
  changed([](vorn_ycnr_planes& r) { r.layout = 3; });
  changed([](vorn_ycnr_planes& r) { r.layout = -1; });
  changed([](vorn_ycnr_planes& r) { r.layout = VORN_LAYOUT_NV21; });  // not src's
  changed([](vorn_ycnr_planes& r) { r.layout = VORN_LAYOUT_I420; });  // no third plane
  changed([](vorn_ycnr_planes& r) { r.width = 62; });
  changed([](vorn_ycnr_planes& r) { r.width = INT_MAX; });
  changed([](vorn_ycnr_planes& r) { r.height = 0; });
  changed([](vorn_ycnr_planes& r) { r.height = INT_MIN; });
  changed([](vorn_ycnr_planes& r) { r.plane[1] = nullptr; });
  changed([](vorn_ycnr_planes& r) { r.stride[0] = 63; });
  changed([](vorn_ycnr_planes& r) { r.stride[1] = -64; });

  // Usable, but of another size than the handle's: copied.
  planes small(0, 30, 20, 2), copy(0, 30, 20, 7);
  small.take(std::vector<uint8_t>(30 * 20 * 3 / 2, 99));
  refused(one.get(), &small.record, &copy.record);
  EXPECT_EQ(copy.give(), small.give());
  EXPECT_TRUE(copy.surroundings_intact());
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
  const int threads = vorn_test::running_threads();
  for (int workers = 0; workers <= 4; ++workers)
    for (int bind = 0; bind < 2; ++bind) {
      vorn_ycnr_options options = {100, 76, workers, bind};
      denoise_handle_t* handle = vorn_ycnr_open(&options);
      ASSERT_NE(handle, nullptr);
      const int with_workers = threads + (workers ? workers : 4);
      EXPECT_EQ(vorn_test::threads_reaching(with_workers), with_workers);
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
