// Every allocation, lock, thread and file operation of init and of a frame fails once.
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>

#include "base/handle.h"
#include "runtime/exported/image.h"
#include "runtime/image.h"
#include "tests/robust/faults.h"
#include "tests/support/frames.h"
#include "tests/support/host.h"
#include "vorn_ycnr_ext.h"

namespace {

using namespace vorn_test;

constexpr int kWidth = 72;
constexpr int kHeight = 52;

// The frame with both algorithms on, as an undisturbed handle makes it.
struct reference {
  frame src{kWidth, kHeight};
  std::vector<uint8_t> input, luma, result;

  reference() {
    denoiser one(kWidth, kHeight);
    frame dst(kWidth, kHeight);
    tuning both;
    src.draw(21);
    input = src.bytes();
    EXPECT_EQ(one.run(src, dst, both), 0);
    luma = src.bytes();
    result = dst.bytes();
  }
};

std::string counts(const std::map<std::string, int>& survived) {
  std::string text;
  for (const auto& entry : survived)
    text += (text.empty() ? "" : ", ") + std::to_string(entry.second) + " " + entry.first;
  return text;
}

TEST(Faults, EveryCallOfInit) {
  reference expected;
  const int threads = running_threads();
  std::map<std::string, int> survived;
  int refused = 0, total = 0;
  for (;; ++total) {
    log_capture log;
    ycnr_init_param size = {kWidth, kHeight};
    faults::arm(total);
    denoise_handle_t* handle = vorn_ycnr_init(&size);
    faults::disarm();
    const char* failed = faults::failed_call();
    if (handle) {
      // A pool with fewer threads is a pool.
      frame dst(kWidth, kHeight);
      tuning both;
      std::copy(expected.input.begin(), expected.input.end(), expected.src.image.plane[0]);
      EXPECT_EQ(vorn_ycnr_process(handle, &expected.src.image, &dst.image, &both.params), 0);
      EXPECT_EQ(dst.bytes(), expected.result);
      EXPECT_EQ(vorn_ycnr_deinit(handle), 0);
    }
    if (!failed) {
      EXPECT_NE(handle, nullptr);
      break;
    }
    SCOPED_TRACE(std::string(failed) + " at call " + std::to_string(total));
    ++survived[failed];
    if (!handle) {
      ++refused;
      EXPECT_GE(log.count('E'), 1);
    } else {
      EXPECT_STREQ(failed, "pthread_create");
    }
  }
  EXPECT_EQ(survived["pthread_create"], 4);
  EXPECT_EQ(survived["pthread_mutex_init"], 2);
  EXPECT_EQ(survived["pthread_cond_init"], 2);
  EXPECT_GE(survived["malloc"] + survived["calloc"], 8);  // some compilers merge malloc and memset
  EXPECT_EQ(faults::blocks_held(), 0);
  EXPECT_EQ(threads_reaching(threads), threads);
  RecordProperty("survived", counts(survived));
  printf("init: %d faults (%s), %d refused\n", total, counts(survived).c_str(), refused);
}

TEST(Faults, EveryCallOfAFrameWithDumps) {
  reference expected;
  temp_dir dir;
  std::string text;
  for (const char* filter : {"ynr2", "cnr4"}) {
    const std::string head = std::string("persist.vendor.cam.") + filter;
    text += head + ".input=yes\n" + head + ".output=yes\n" + head +
            ".save_path=" + dir.path().string() + "/\n";
  }
  properties props(text);
  auto one = std::make_unique<denoiser>(kWidth, kHeight);
  const int descriptors = open_descriptors();
  std::map<std::string, int> survived;
  int total = 0, failures = 0;
  for (;; ++total) {
    frame dst(kWidth, kHeight);
    tuning both;
    std::copy(expected.input.begin(), expected.input.end(), expected.src.image.plane[0]);
    int result, errors;
    std::string text;
    {
      log_capture log;
      faults::arm(total);
      result = one->run(expected.src, dst, both);
      faults::disarm();
      errors = log.count('E');
      text = log.text();
    }
    const char* failed = faults::failed_call();
    SCOPED_TRACE(std::string(failed ? failed : "nothing") + " at call " + std::to_string(total));
    EXPECT_TRUE(dst.guards_intact());
    if (result == 0) {
      EXPECT_EQ(dst.bytes(), expected.result);
    } else {
      ++failures;
      EXPECT_EQ(result, -1);
      EXPECT_EQ(errors, 1) << text;
      // The input, or the luma result that src then holds as well.
      EXPECT_EQ(dst.bytes(), expected.src.bytes());
      EXPECT_TRUE(dst.bytes() == expected.input || dst.bytes() == expected.luma);
    }
    if (!failed) {
      EXPECT_EQ(result, 0);
      break;
    }
    ++survived[failed];
  }
  EXPECT_GE(survived["malloc"], 16);  // a job per slice at the least
  EXPECT_GE(survived["fdopen"], 6);
  EXPECT_EQ(survived["fwrite"], 4);
  EXPECT_GT(failures, 0);
  one.reset();  // the workers free their jobs at their own time
  EXPECT_EQ(faults::blocks_held(), 0);
  EXPECT_EQ(open_descriptors(), descriptors);
  printf("frame: %d faults (%s), %d failed frames\n", total, counts(survived).c_str(), failures);
}

// The packed frames of the extension: the input is copied all the same, the next call works.
TEST(Faults, PackedFramesOfPlanes) {
  reference expected;
  denoiser one(kWidth, kHeight);
  std::vector<uint8_t> from = expected.input, to(from.size());
  const auto record = [](std::vector<uint8_t>& bytes) {
    return vorn_ycnr_planes{VORN_LAYOUT_NV12,
                            kWidth,
                            kHeight,
                            {bytes.data(), bytes.data() + kWidth * kHeight, nullptr},
                            {kWidth, kWidth, 0}};
  };
  const vorn_ycnr_planes src = record(from), dst = record(to);
  const tuning both;
  faults::arm(0);
  {
    log_capture log;
    EXPECT_EQ(vorn_ycnr_process_planes(one.get(), &src, &dst, &both.ynr, &both.cnr), -1);
    EXPECT_EQ(log.count('E'), 1);
  }
  faults::disarm();
  EXPECT_EQ(to, expected.input);
  EXPECT_EQ(vorn_ycnr_process_planes(one.get(), &src, &dst, &both.ynr, &both.cnr), 0);
  EXPECT_EQ(to, expected.result);
}

// The fine mode's scratch, missing at its first frame: likewise.
TEST(Faults, ScratchOfFineMode) {
  reference expected;
  denoiser one(kWidth, kHeight);
  frame dst(kWidth, kHeight);
  tuning both;
  std::copy(expected.input.begin(), expected.input.end(), expected.src.image.plane[0]);
  faults::arm(0);
  {
    log_capture log;
    EXPECT_EQ(vorn_ycnr_process_fine(one.get(), &expected.src.image, &dst.image, &both.params), -1);
    EXPECT_EQ(log.count('E'), 1);
  }
  faults::disarm();
  EXPECT_EQ(dst.bytes(), expected.input);
  EXPECT_EQ(vorn_ycnr_process_fine(one.get(), &expected.src.image, &dst.image, &both.params), 0);
  EXPECT_NE(dst.bytes(), expected.input);
}

TEST(Faults, ImagePlanesThrow) {
  _tag_uni_image image = {};
  faults::arm(0);
  EXPECT_THROW(create_uni_image(&image, 8, 8, VORN_IMAGE_YUV420SP), std::bad_alloc);
  faults::disarm();
  EXPECT_EQ(image.plane[0], nullptr);
}

// What fresh memory holds must not show in any result.
TEST(Faults, ResultsDoNotDependOnFreshMemory) {
  for (const auto& size : {std::pair<int, int>{72, 52}, {66, 50}, {36, 23}, {130, 34}, {62, 70}}) {
    for (int scale = 0; scale < 4; ++scale)
      for (int layer = 2; layer <= 5; ++layer) {
        std::vector<uint8_t> results[2];
        int codes[2];
        for (int round = 0; round < 2; ++round) {
          faults::fill_fresh_memory(round ? 0xa5 : 0x00);
          denoiser one(size.first, size.second);
          frame src(size.first, size.second), dst(size.first, size.second);
          tuning both;
          both.cnr.scale = scale;
          both.cnr.saturation = layer == 3 ? 5 : 0;
          both.ynr.layer = layer;
          both.ynr.pIntensity[layer - 1] = scale & 1 ? 0 : 40;
          both.ynr.pIntensity[0] = scale & 2 ? 0 : 40;
          src.draw(31);
          log_capture quiet;
          codes[round] = one.run(src, dst, both);
          results[round] = dst.bytes();
        }
        SCOPED_TRACE(std::to_string(size.first) + "x" + std::to_string(size.second) + " scale " +
                     std::to_string(scale) + " layer " + std::to_string(layer));
        EXPECT_EQ(codes[0], codes[1]);
        EXPECT_EQ(results[0], results[1]);
      }
  }
}

}  // namespace
