#include "tools/lab/replay.h"

#include <gtest/gtest.h>

namespace vorn::tool {
namespace {

TEST(Replay, PairsByTimeAndSize) {
  std::vector<std::string> notes;
  const std::vector<replay_case> cases = find_replay_cases(
      {
          "d/_20240101120000_ynr2_turning_param.txt",
          "d/_20240101120000_cnr4_turning_param.txt",
          "d/ynr2_input_64x48_20240101120000.yuv",
          "d/ynr2_output_64x48_20240101120001.yuv",  // the second passed while it ran
          "d/cnr4_input_64x48_20240101120001.yuv",
          "d/cnr4_output_64x48_20240101120001.yuv",
          "d/_20240101235959_ynr2_turning_param.txt",  // the next day is a second away
          "d/ynr2_input_64x48_20240102000000.yuv",
          "d/ynr2_output_32x32_20240102000000.yuv",  // of another size: belongs to nothing
          "d/notes.txt",
      },
      notes);
  ASSERT_EQ(cases.size(), 3u);
  EXPECT_TRUE(cases[0].luma && !cases[0].chroma);
  EXPECT_EQ(cases[0].luma_tuning, "d/_20240101120000_ynr2_turning_param.txt");
  EXPECT_EQ(cases[0].output, "d/ynr2_output_64x48_20240101120001.yuv");
  EXPECT_EQ(cases[0].result_name(), "ynr2_output_64x48_20240101120000.yuv");
  EXPECT_TRUE(cases[1].chroma && !cases[1].luma);
  EXPECT_EQ(cases[1].output, "d/cnr4_output_64x48_20240101120001.yuv");
  EXPECT_EQ(cases[2].luma_tuning, "d/_20240101235959_ynr2_turning_param.txt");
  EXPECT_EQ(cases[2].output, "");
  ASSERT_EQ(notes.size(), 1u);
  EXPECT_EQ(notes[0].substr(0, 38), "d/ynr2_output_32x32_20240102000000.yuv");
}

TEST(Replay, RunsBothFromTheLumaInputWhenChromasIsMissing) {
  std::vector<std::string> notes;
  const std::vector<replay_case> cases = find_replay_cases(
      {"p_20240101120000_ynr2_turning_param.txt", "p_20240101120000_cnr4_turning_param.txt",
       "pynr2_input_64x48_20240101120000.yuv", "pcnr4_output_64x48_20240101120000.yuv"},
      notes);
  ASSERT_EQ(cases.size(), 2u);
  EXPECT_TRUE(cases[1].luma && cases[1].chroma);
  EXPECT_EQ(cases[1].output, "pcnr4_output_64x48_20240101120000.yuv");
  EXPECT_EQ(notes.size(), 0u);
}

TEST(Replay, TuningTooOldBelongsToNothing) {
  std::vector<std::string> notes;
  EXPECT_EQ(
      find_replay_cases(
          {"_20240101120000_ynr2_turning_param.txt", "ynr2_input_64x48_20240101120200.yuv"}, notes)
          .size(),
      0u);
  EXPECT_EQ(notes.size(), 1u);
}

TEST(Replay, DifferencesAreCountedAndPlaced) {
  const frame a = make_frame(8, 6);
  frame b = a;
  EXPECT_EQ(describe(compare_bytes(a, b)), "identical");
  b.luma()[2 * 8 + 3] = 5;
  b.chroma()[1 * 8 + 6] = 125;  // U of chroma pixel 3, 1
  const byte_difference d = compare_bytes(a, b);
  EXPECT_EQ(d.luma, 1);
  EXPECT_EQ(d.chroma, 1);
  EXPECT_TRUE(d.first_in_luma);
  EXPECT_EQ(d.first_x, 3);
  EXPECT_EQ(d.first_y, 2);
  EXPECT_EQ(d.largest, 5);
  EXPECT_DOUBLE_EQ(d.mean, 4);
  EXPECT_EQ(d.right, 6);
  EXPECT_EQ(d.bottom, 2);
}

}  // namespace
}  // namespace vorn::tool
