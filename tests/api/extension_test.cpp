// Frames whose planes lie apart, in any layout and of any size.
#include "vorn_ycnr_ext.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/frames.h"
#include "tests/support/guarded.h"
#include "tests/support/host.h"

namespace {

using namespace vorn_test;

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

// A camera's buffer, say, that other programs look at meanwhile.
TEST(Extension, AContiguousSourceIsReadWhereItLies) {
  constexpr int kWidth = 128, kHeight = 96;
  constexpr size_t kBytes = kWidth * kHeight * 3 / 2;
  denoiser one(kWidth, kHeight);
  const guarded_buffer source(kBytes, guarded_buffer::side::begin);
  for (int enables = 0; enables < 4; ++enables) {
    for (int scale = 0; scale < 3; ++scale) {
      frame src(kWidth, kHeight), dst(kWidth, kHeight);
      tuning with(enables & 1, enables >> 1);
      with.cnr.scale = scale;
      src.draw(static_cast<uint32_t>(7 + scale));
      ASSERT_EQ(mprotect(source.data(), kBytes, PROT_READ | PROT_WRITE), 0);
      std::copy_n(src.bytes().begin(), kBytes, source.data());
      ASSERT_EQ(mprotect(source.data(), kBytes, PROT_READ), 0);
      ASSERT_EQ(one.run(src, dst, with), 0);
      vorn_ycnr_planes from = {VORN_LAYOUT_NV12, kWidth, kHeight, {}, {kWidth, kWidth}};
      from.plane[0] = source.data();
      from.plane[1] = source.data() + kWidth * kHeight;
      std::vector<uint8_t> result(kBytes);
      vorn_ycnr_planes to = from;
      to.plane[0] = result.data();
      to.plane[1] = result.data() + kWidth * kHeight;
      for (const auto call : {vorn_ycnr_process_planes, vorn_ycnr_process_any}) {
        std::fill(result.begin(), result.end(), uint8_t{0xee});
        ASSERT_EQ(call(one.get(), &from, &to, &with.ynr, &with.cnr), 0);
        EXPECT_EQ(result, dst.bytes()) << enables << " scale " << scale;
      }
      planes apart(VORN_LAYOUT_NV12, kWidth, kHeight, 3);
      ASSERT_EQ(vorn_ycnr_process_any(one.get(), &from, &apart.record, &with.ynr, &with.cnr), 0);
      EXPECT_EQ(apart.give(), dst.bytes());
      ASSERT_EQ(vorn_ycnr_process_any_fine(one.get(), &from, &to, &with.ynr, &with.cnr), 0);
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
}

// Contiguous in and out, and a size that is not the handle's.
TEST(Extension, AnySizeOfContiguousFrames) {
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

}  // namespace
