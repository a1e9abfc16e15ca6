// A frame through vorn_ycnr_process: results, log lines, which buffers change.
#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include "api/tuning.h"
#include "base/handle.h"
#include "tests/support/frames.h"
#include "tests/support/host.h"
#include "vorn_ycnr.h"

namespace {

using namespace vorn_test;

TEST(Tuning, IsCopiedInAnotherOrderWithTheStepDoubled) {
  denoise_handle_t handle = {};
  ycnr_ynr_tuning_param luma = {1, 4, {10, 11, 12, 13, 14}, {3, 5, 7, 9, -1}, 64, 2, INT_MIN};
  ycnr_cnr_tuning_param chroma = {7, 20, 18, 2, 3, 8, 9, -16, 100, 101, 102};
  Denoise_Parameters_t params = {~0ull, &luma, &chroma};
  EXPECT_NE(get_param_gain_info(&handle, &params), 0);  // no dump was written
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(handle.ynr_param.pIntensity[i], 10 + i);
    EXPECT_EQ(handle.ynr_param.pRadius[i], luma.pRadius[i]);
  }
  EXPECT_EQ(handle.ynr_param.layer, 4);
  EXPECT_EQ(handle.ynr_param.param0, 64);
  EXPECT_EQ(handle.ynr_param.param1, 2);
  EXPECT_EQ(handle.ynr_param.param2, INT_MIN);
  const int expected[] = {20, 18, -16, 2, 6, 8, 9, 100, 101, 102};
  EXPECT_EQ(std::memcmp(&handle.cnr_param, expected, sizeof expected), 0);
  chroma.step = INT_MIN;
  get_param_gain_info(&handle, &params);
  EXPECT_EQ(handle.cnr_param.step, 0);
}

TEST(Process, NullArguments) {
  denoiser one(64, 48);
  frame src(64, 48), dst(64, 48);
  tuning both;
  const std::vector<uint8_t> before = dst.bytes();
  log_capture log;
  EXPECT_EQ(vorn_ycnr_process(nullptr, &src.image, &dst.image, &both.params), -1);
  EXPECT_EQ(vorn_ycnr_process(one.get(), nullptr, &dst.image, &both.params), -1);
  EXPECT_EQ(vorn_ycnr_process(one.get(), &src.image, nullptr, &both.params), -1);
  EXPECT_EQ(vorn_ycnr_process(one.get(), &src.image, &dst.image, nullptr), -1);
  EXPECT_EQ(log.count('I'), 4);
  EXPECT_TRUE(log.has("I YCNR_LOG: L #, vorn_ycnr_process:params is NULL, please return"));
  EXPECT_EQ(dst.bytes(), before);
}

TEST(Process, BypassCopies) {
  denoiser one(64, 48);
  frame src(64, 48), dst(64, 48);
  src.draw(3);
  const std::vector<uint8_t> input = src.bytes();
  const int enables[][2] = {{0, 0}, {2, 0}, {0, 2}, {2, 1}, {1, 2}, {-1, 1}, {1, INT_MIN}};
  for (const auto& enable : enables) {
    tuning none(enable[0], enable[1]);
    dst.fill(0);
    log_capture log;
    EXPECT_EQ(one.run(src, dst, none), 0);
    EXPECT_EQ(dst.bytes(), input);
    EXPECT_EQ(src.bytes(), input);
    EXPECT_TRUE(dst.guards_intact());
    const std::vector<std::string> expected = {
        "D YCNR_LOG: L #, vorn_ycnr_process:vorn_ycnr_process start ",
        "I YCNR_LOG: L #, vorn_ycnr_process:handle->ynr:" + pointer_text(one.get()->ynr) +
            ", handle->cnr:" + pointer_text(one.get()->cnr) + ", width:64, height:48 ",
        "I YCNR_LOG: L #, vorn_ycnr_process:pSrcImg addr:" + pointer_text(src.image.plane[0]) +
            ", pDstImg addr:" + pointer_text(dst.image.plane[0]) + ", ynr2_enable:" +
            std::to_string(enable[0]) + ", cnr4_enable:" + std::to_string(enable[1]) + " ",
        "I YCNR_LOG: L #, vorn_ycnr_process:ynr_cnr_process bypass! ",
    };
    EXPECT_EQ(log.lines(), expected);
  }
}

// Another size than the handle's, an odd byte count, one buffer: all fine as long as nothing runs.
TEST(Process, BypassOfAnySize) {
  denoiser one(64, 48);
  tuning none(0, 0);
  for (const auto& size : {std::pair<int, int>{3, 3}, {1, 1}, {100, 50}, {65, 48}}) {
    frame src(size.first, size.second), dst(size.first, size.second);
    src.draw(4);
    EXPECT_EQ(one.run(src, dst, none), 0);
    EXPECT_EQ(dst.bytes(), src.bytes());
    EXPECT_TRUE(dst.guards_intact());
  }
  frame both_ways(64, 48);
  both_ways.draw(9);
  const std::vector<uint8_t> input = both_ways.bytes();
  EXPECT_EQ(one.run(both_ways, both_ways, none), 0);
  EXPECT_EQ(both_ways.bytes(), input);
}

TEST(Process, EachAlgorithmWritesItsOwnPlane) {
  denoiser one(64, 48);
  frame src(64, 48), dst(64, 48);
  const size_t luma = src.luma_bytes();
  tuning luma_only(1, 0), chroma_only(0, 1), both(1, 1);

  src.draw(6);
  const std::vector<uint8_t> input = src.bytes();
  std::vector<uint8_t> luma_result, chroma_result;
  {
    log_capture log;
    ASSERT_EQ(one.run(src, dst, luma_only), 0);
    EXPECT_NE(log.text().find("vorn_ycnr_process:ynr_process time cost : "), std::string::npos);
    luma_result = dst.bytes();
    EXPECT_EQ(src.bytes(), input);
    EXPECT_NE(std::memcmp(luma_result.data(), input.data(), luma), 0);
    EXPECT_EQ(std::memcmp(&luma_result[luma], &input[luma], luma / 2), 0);
    EXPECT_TRUE(dst.guards_intact());
  }
  {
    log_capture log;
    ASSERT_EQ(one.run(src, dst, chroma_only), 0);
    EXPECT_NE(log.text().find("vorn_ycnr_process:cnr_process time cost : "), std::string::npos);
    chroma_result = dst.bytes();
    EXPECT_EQ(src.bytes(), input);
    EXPECT_EQ(std::memcmp(chroma_result.data(), input.data(), luma), 0);
    EXPECT_NE(std::memcmp(&chroma_result[luma], &input[luma], luma / 2), 0);
    EXPECT_TRUE(dst.guards_intact());
  }
  log_capture log;
  ASSERT_EQ(one.run(src, dst, both), 0);
  EXPECT_NE(log.text().find("vorn_ycnr_process:vorn_ycnr_process time cost : "), std::string::npos);
  EXPECT_EQ(src.bytes(), luma_result);  // the input buffer holds the luma filter's result
  EXPECT_EQ(std::memcmp(dst.bytes().data(), luma_result.data(), luma), 0);
  // The chroma filter saw the filtered luma: the same as running the two one after the other.
  frame second(64, 48), expected(64, 48);
  std::memcpy(second.image.plane[0], luma_result.data(), luma_result.size());
  ASSERT_EQ(one.run(second, expected, chroma_only), 0);
  EXPECT_EQ(dst.bytes(), expected.bytes());
}

// The lines of a frame's driver as people read them in a device's log, without source line and
// function and with T for a time.
std::vector<std::string> driver_lines(int width, int height, tuning& with) {
  denoiser one(width, height);
  frame src(width, height), dst(width, height);
  src.draw(6);
  log_capture log;
  EXPECT_EQ(one.run(src, dst, with), 0);
  std::vector<std::string> texts = log.lines();
  EXPECT_GE(texts.size(), 3u);
  texts.erase(texts.begin(), texts.begin() + 3);  // the entry's own
  for (std::string& text : texts) {
    text.replace(1, text.find(':', text.find(", ")), "");
    for (size_t dot = text.find('.'); dot != std::string::npos; dot = text.find('.', dot)) {
      const size_t begin = text.find_last_not_of("0123456789", dot - 1) + 1;
      text.replace(begin, dot + 4 - begin, "T");
    }
  }
  return texts;
}

TEST(Process, LumaDriverLines) {
  tuning luma(1, 0);
  luma.ynr.pIntensity[2] = 0;
  luma.ynr.pRadius[0] = 3;
  const std::string window = "D        process3x3_pro   T  ";
  EXPECT_EQ(driver_lines(64, 48, luma),
            (std::vector<std::string>{"D    nradius = 7 ",
                                      "D        0->1 gaussin3x3_down2_ynr cost time : T ms ",
                                      "D        1->2 gaussin3x3_down2_ynr cost time : T ms ",
                                      "D    BuildGauPyrs_u8 cost time: T ms ",
                                      "D    pre_mask cost time: T ms ",
                                      "D    layer 2 memcpy cost time: T ms ",
                                      "D    layer 2 ImgSubImg_add128_u8 cost time: T ms ",
                                      "D    layer 2 gaussin3x3_up2 cost time: T ms ",
                                      "D    layer 2 gaussin3x3_up2_merge cost time: T ms ",
                                      "D    layer 1 FillExpandPixels cost time: T ms ",
                                      "D    layer 1 nlm_denoise_process cost time: T ms ",
                                      "D    layer 1 ImgSubImg_add128_u8 cost time: T ms ",
                                      "D    layer 1 gaussin3x3_up2 cost time: T ms ",
                                      "D    layer 1 gaussin3x3_up2_merge cost time: T ms ",
                                      "D    layer 0 FillExpandPixels cost time: T ms ",
                                      window,
                                      window,
                                      window,
                                      window,
                                      "D    layer 0 nlm_denoise_process cost time: T ms ",
                                      "DYNR process time cost: T ms ",
                                      "Iynr_process time cost : T "}));
}

TEST(Process, ChromaDriverLines) {
  tuning chroma(0, 1);
  const std::vector<std::string> end = {"D    mergeUV cost time: T ", "DCNR_process cost time: T ",
                                        "Icnr_process time cost : T "};
  const auto check = [&](int height, std::vector<std::string> expected) {
    SCOPED_TRACE(testing::Message() << "scale " << chroma.cnr.scale << " height " << height);
    const std::string tuned = "Dscale = " + std::to_string(chroma.cnr.scale) +
                              ", smooth_radius = 6, smooth_step = 2 , range_factor = 20 ";
    expected.insert(expected.begin(),
                    {tuned, "D    splitUV cost time: T ", "D    pyramid_down2 cost time: T "});
    if (chroma.cnr.saturation) expected[1] = "D    splitUV saturation cost time: T ";
    expected.insert(expected.end(), end.begin(), end.end());
    EXPECT_EQ(driver_lines(64, height, chroma), expected);
  };
  const std::vector<std::string> coarse = {
      "D    pyramid_down_yuv 0 cost time: T ", "D    reduce_color_noise_hor 1 cost time: T ",
      "D    reduce_color_noise_ver 1 cost time: T ", "D    ImgSubImg_add128_u8 1 cost time: T "};
  const auto two_levels = [&](const std::vector<std::string>& merge) {
    std::vector<std::string> lines = coarse;
    lines.insert(lines.end(), merge.begin(), merge.end());
    lines.push_back("D    reduce_color_noise_hor 0 cost time: T ");
    lines.push_back("D    reduce_color_noise_ver 0 cost time: T ");
    return lines;
  };
  check(48, two_levels({"D    gaussin3x3_up2_merge UV 1 cost time: T "}));
  check(50, two_levels(
                {"D    pyramid_up2 1 cost time: T ", "D    ImgAddDiff_sub128_u8 1 cost time: T "}));
  chroma.cnr.scale = 1;
  check(48,
        {"D    pyramid_down_yuv cost time: T ", "D    reduce_color_noise_hor_thread cost time: T ",
         "D    reduce_color_noise_ver_thread cost time: T ", "D    pyramid_up2 cost time: T "});
  chroma.cnr.scale = 0;
  chroma.cnr.saturation = 4;
  check(48,
        {"D    reduce_color_noise_hor cost time: T ", "D    reduce_color_noise_ver cost time: T "});
  chroma.cnr.scale = 3;
  check(48, {});
}

// Only the size and the first plane of the records count.
TEST(Process, StridesTypesAndLeadingSlotAreIgnored) {
  denoiser one(64, 48);
  frame src(64, 48), dst(64, 48), dst2(64, 48);
  tuning both;
  src.draw(6);
  const std::vector<uint8_t> input = src.bytes();
  ASSERT_EQ(one.run(src, dst, both), 0);
  std::memcpy(src.image.plane[0], input.data(), input.size());
  for (_tag_uni_image* image : {&src.image, &dst2.image}) {
    image->type = 99;
    for (int i = 0; i < 4; ++i) image->stride[i] = INT_MIN + i;
    for (int i = 1; i < 4; ++i) image->plane[i] = reinterpret_cast<uint8_t*>(8);
  }
  both.params.caller_data = 0x123456789abcdef0;
  ASSERT_EQ(one.run(src, dst2, both), 0);
  EXPECT_EQ(dst2.bytes(), dst.bytes());
  EXPECT_EQ(src.image.stride[0], INT_MIN);  // the caller's record is left alone
}

struct refusal {
  const char* name;
  int src_width, src_height, dst_width, dst_height;
  bool copied;
};

TEST(Process, FramesThatDoNotFit) {
  const refusal rows[] = {
      {"larger than the handle", 66, 48, 66, 48, true},
      {"smaller than the handle", 32, 24, 32, 24, true},
      {"dst larger", 64, 48, 64, 50, true},
      {"dst smaller", 64, 48, 64, 46, false},
      {"turned", 64, 48, 48, 64, true},
      {"no rows", 64, 0, 64, 0, false},
      {"negative", -64, -48, -64, -48, false},
      {"dst without size", 64, 48, 0, 0, false},
      {"beyond 31 bits", 65536, 65536, 65536, 65536, false},
      {"wraps", INT_MIN, INT_MIN, INT_MIN, INT_MIN, false},
  };
  denoiser one(64, 48);
  for (const refusal& r : rows)
    for (int enables = 1; enables < 4; ++enables) {
      SCOPED_TRACE(r.name);
      frame src(128, 128), dst(128, 128);
      src.draw(7);
      dst.fill(0);
      src.image.width = r.src_width;
      src.image.height = r.src_height;
      dst.image.width = r.dst_width;
      dst.image.height = r.dst_height;
      const std::vector<uint8_t> input = src.bytes();
      tuning some(enables & 1, enables >> 1);
      log_capture log;
      EXPECT_EQ(one.run(src, dst, some), -1);
      EXPECT_EQ(log.count('E'), 1);
      EXPECT_EQ(src.bytes(), input);  // not even the luma result of a half-done frame
      std::vector<uint8_t> expected(input.size(), 0);
      if (r.copied) {
        const size_t bytes = frame_bytes(r.src_width, r.src_height);
        std::copy(input.begin(), input.begin() + static_cast<long>(bytes), expected.begin());
      }
      EXPECT_EQ(dst.bytes(), expected);
    }
}

TEST(Process, BuffersThatCannotBeUsed) {
  denoiser one(64, 48);
  tuning both;
  frame src(64, 48), dst(64, 48);
  src.draw(8);
  const std::vector<uint8_t> input = src.bytes();
  const auto refused = [&](uint8_t* from, uint8_t* to) {
    _tag_uni_image s = src.image, d = dst.image;
    s.plane[0] = from;
    d.plane[0] = to;
    log_capture log;
    EXPECT_EQ(vorn_ycnr_process(one.get(), &s, &d, &both.params), -1);
    EXPECT_EQ(log.count('E'), 1);
    EXPECT_EQ(src.bytes(), input);
  };
  uint8_t* const at = src.image.plane[0];
  refused(nullptr, dst.image.plane[0]);
  refused(at, nullptr);
  refused(nullptr, nullptr);
  refused(at, at);
  refused(at, at + 1);
  refused(at + 1, at);
  refused(at, at + input.size() - 1);
}

TEST(Process, TuningsThatAreMissingOrWrongLeaveTheInput) {
  denoiser one(64, 48);
  frame src(64, 48), dst(64, 48);
  src.draw(8);
  const std::vector<uint8_t> input = src.bytes();
  const auto refused = [&](tuning& with, char priority) {
    dst.fill(0);
    log_capture log;
    EXPECT_EQ(one.run(src, dst, with), -1);
    EXPECT_EQ(log.count(priority), 1) << log.text();
    EXPECT_EQ(src.bytes(), input);
    EXPECT_EQ(dst.bytes(), input);
    EXPECT_TRUE(dst.guards_intact());
  };
  tuning no_luma, no_chroma;
  no_luma.params.ynr = nullptr;
  no_chroma.params.cnr = nullptr;
  refused(no_luma, 'E');
  refused(no_chroma, 'E');
  for (int chroma : {0, 1}) {
    tuning with(1, chroma);
    for (int layer : {6, INT_MAX}) {
      with.ynr.layer = layer;
      refused(with, 'E');
    }
    for (int layer : {1, 0, INT_MIN}) {
      with.ynr.layer = layer;
      refused(with, 'W');
    }
  }
}

// A size that the chroma filter refuses, luma on too: src keeps the input.
TEST(Process, BothAreAskedBeforeEitherRuns) {
  denoiser one(65, 48);
  frame src(65, 48), dst(65, 48);
  tuning both, luma_only(1, 0);
  src.draw(8);
  const std::vector<uint8_t> input = src.bytes();
  {
    log_capture log;
    EXPECT_EQ(one.run(src, dst, both), -1);
    EXPECT_EQ(log.count('E'), 1);
    EXPECT_TRUE(log.has("I YCNR_LOG: L #, vorn_ycnr_process:vorn_cnr_process fail"));
    EXPECT_EQ(src.bytes(), input);
    EXPECT_EQ(dst.bytes(), input);
  }
  EXPECT_EQ(one.run(src, dst, luma_only), 0);
}

TEST(Process, FramesDoNotRememberEachOther) {
  denoiser one(64, 48);
  tuning both;
  std::vector<uint8_t> first;
  for (int i = 0; i < 10; ++i) {
    frame src(64, 48), dst(64, 48), other(64, 48), other_dst(64, 48);
    src.draw(11);
    ASSERT_EQ(one.run(src, dst, both), 0);
    if (i == 0) first = dst.bytes();
    ASSERT_EQ(dst.bytes(), first) << i;
    other.draw(100 + static_cast<uint32_t>(i));
    tuning with(i & 1, 1);
    with.cnr.scale = i % 4;
    with.ynr.layer = 2 + i % 3;
    ASSERT_EQ(one.run(other, other_dst, with), 0);
  }
}

}  // namespace
