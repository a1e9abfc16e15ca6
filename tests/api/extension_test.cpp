#include "vorn_ycnr_ext.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <string>
#include <utility>
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

// Frames of any size come out as the contiguous frame does whose last column and row were repeated
// by hand to what the handle and the tuning ask for, plain and in fine mode.
TEST(Extension, AnySizeIsTheRepeatedFrameCut) {
  struct row {
    int width, height, layer, run_width, run_height;
  };
  constexpr row kRows[] = {{1, 1, 2, 4, 4},     {5, 3, 3, 6, 4},        {7, 40, 5, 16, 40},
                           {64, 47, 3, 64, 48}, {65, 48, 3, 66, 48},    {71, 53, 4, 72, 54},
                           {70, 50, 3, 70, 50}, {401, 303, 4, 402, 304}};
  for (const row& r : kRows)
    for (int layout = VORN_LAYOUT_NV12; layout <= VORN_LAYOUT_I420; ++layout) {
      SCOPED_TRACE(std::to_string(r.width) + "x" + std::to_string(r.height));
      planes from(layout, r.width, r.height, 5), to(layout, r.width, r.height, 2);
      for (int y = 0; y < r.height; ++y)
        for (int x = 0; x < r.width; ++x)
          from.y(x, y) = static_cast<uint8_t>(90 + (x * 7 + y * 13 + x * y) % 23);
      const int columns = (r.width + 1) / 2, rows = (r.height + 1) / 2;
      for (int y = 0; y < rows; ++y)
        for (int x = 0; x < 2 * columns; ++x)
          from.chroma(x & 1, x / 2, y) = static_cast<uint8_t>(120 + (x * 5 + y * 3) % 17);

      tuning with;
      with.ynr.layer = r.layer;
      frame src(r.run_width, r.run_height), dst(r.run_width, r.run_height),
          finely(r.run_width, r.run_height);
      uint8_t* bytes = src.image.plane[0];
      for (int y = 0; y < r.run_height; ++y)
        for (int x = 0; x < r.run_width; ++x)
          *bytes++ = from.y(std::min(x, r.width - 1), std::min(y, r.height - 1));
      for (int y = 0; y < r.run_height / 2; ++y)
        for (int x = 0; x < r.run_width; ++x)
          *bytes++ = from.chroma(x & 1, std::min(x / 2, columns - 1), std::min(y, rows - 1));
      denoiser plain(r.run_width, r.run_height);
      const std::vector<uint8_t> repeated = src.bytes();
      ASSERT_EQ(plain.run(src, dst, with), 0);
      std::copy(repeated.begin(), repeated.end(), src.image.plane[0]);
      ASSERT_EQ(vorn_ycnr_process_fine(plain.get(), &src.image, &finely.image, &with.params), 0);

      // A handle of the frame's own size, and of the larger one.
      for (int round = 0; round < 4; ++round) {
        denoiser one(round % 2 ? r.run_width : r.width, round % 2 ? r.run_height : r.height);
        const auto call = round < 2 ? vorn_ycnr_process_any : vorn_ycnr_process_any_fine;
        const std::vector<uint8_t> expected = round < 2 ? dst.bytes() : finely.bytes();
        for (int frames = 0; frames < 2; ++frames)
          ASSERT_EQ(call(one.get(), &from.record, &to.record, &with.ynr, &with.cnr), 0);
        int wrong = 0;
        for (int y = 0; y < r.height; ++y)
          for (int x = 0; x < r.width; ++x)
            wrong += to.y(x, y) != expected[static_cast<size_t>(y * r.run_width + x)];
        for (int y = 0; y < rows; ++y)
          for (int x = 0; x < 2 * columns; ++x)
            wrong += to.chroma(x & 1, x / 2, y) !=
                     expected[static_cast<size_t>((r.run_height + y) * r.run_width + x)];
        EXPECT_EQ(wrong, 0);
        EXPECT_TRUE(to.surroundings_intact());
      }
    }
  // Contiguous in and out, and a size that is not the handle's.
  denoiser one(70, 50);
  frame src(70, 50), plain(70, 50), direct(70, 50);
  src.draw(4);
  const auto packed = [](frame& f) {
    uint8_t* luma = f.image.plane[0];
    return vorn_ycnr_planes{VORN_LAYOUT_NV12, 70, 50, {luma, luma + 70 * 50, nullptr}, {70, 70, 0}};
  };
  tuning both;
  const vorn_ycnr_planes from = packed(src), to = packed(direct);
  ASSERT_EQ(vorn_ycnr_process_any(one.get(), &from, &to, &both.ynr, &both.cnr), 0);
  ASSERT_EQ(vorn_ycnr_process_any(one.get(), &from, &from, &both.ynr, &both.cnr), 0);
  EXPECT_EQ(src.bytes(), direct.bytes());
  src.draw(4);
  ASSERT_EQ(one.run(src, plain, both), 0);
  EXPECT_EQ(direct.bytes(), plain.bytes());
  EXPECT_TRUE(direct.guards_intact());
  planes other(0, 70, 52, 0), copy(0, 70, 52, 1);
  other.take(std::vector<uint8_t>(70 * 52 * 3 / 2, 55));
  log_capture log;
  EXPECT_EQ(vorn_ycnr_process_any(one.get(), &other.record, &copy.record, nullptr, nullptr), -1);
  EXPECT_EQ(log.count('E'), 1);
  EXPECT_EQ(copy.give(), other.give());
}

// One buffer for both frames, dst's rows further apart or closer than src's.
TEST(Extension, PlanesMayShareTheirPlaceWithAnotherStride) {
  for (const auto& [from_stride, to_stride] : {std::pair{70, 96}, std::pair{96, 70}})
    for (int width : {65, 64})  // chroma is copied, filtered
      for (bool refused : {false, true}) {
        denoiser one(refused ? 32 : width, 48);
        std::vector<uint8_t> luma(96 * 48), chroma(96 * 24);
        planes from(VORN_LAYOUT_NV12, width, 48, 0), to(VORN_LAYOUT_NV12, width, 48, 0);
        for (size_t i = 0; i < luma.size(); ++i) luma[i] = static_cast<uint8_t>(i * i % 251);
        for (size_t i = 0; i < chroma.size(); ++i) chroma[i] = static_cast<uint8_t>(i * 31 % 241);
        vorn_ycnr_planes src = {
            VORN_LAYOUT_NV12, width, 48, {luma.data(), chroma.data(), nullptr}, {}};
        vorn_ycnr_planes dst = src;
        src.stride[0] = src.stride[1] = from_stride;
        dst.stride[0] = dst.stride[1] = to_stride;
        const auto copy = [](const vorn_ycnr_planes& a, const vorn_ycnr_planes& b) {
          for (int p = 0; p < 2; ++p)
            for (int y = 0; y < 48 >> p; ++y)
              std::memcpy(b.plane[p] + y * b.stride[p], a.plane[p] + y * a.stride[p],
                          static_cast<size_t>((a.width + p) & ~p));
        };
        copy(src, from.record);
        tuning luma_only(1, 0);
        log_capture quiet;
        const int apart =
            vorn_ycnr_process_planes(one.get(), &from.record, &to.record, &luma_only.ynr, nullptr);
        const planes& expected = refused ? from : to;
        EXPECT_EQ(vorn_ycnr_process_planes(one.get(), &src, &dst, &luma_only.ynr, nullptr),
                  refused ? -1 : 0);
        EXPECT_EQ(apart, refused ? -1 : 0);
        planes got(VORN_LAYOUT_NV12, width, 48, 0);
        copy(dst, got.record);
        for (int p = 0; p < 2; ++p)
          for (int y = 0; y < 48 >> p; ++y)
            EXPECT_EQ(std::memcmp(got.record.plane[p] + y * got.record.stride[p],
                                  expected.record.plane[p] + y * expected.record.stride[p],
                                  static_cast<size_t>((width + p) & ~p)),
                      0)
                << width << " plane " << p << " row " << y;
      }
}

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
  vorn_test::properties props("persist.vendor.cam.nr_api.log=3\n");
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
