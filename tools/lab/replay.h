// What a device's debug switches wrote, put together again: which tuning and which input and output
// frames belong to one call of one algorithm.
//
// The dumps of one frame carry the seconds in which each was written. An input follows its tuning
// text and an output follows its input within a moment, but a second may begin in between. So a
// frame's tuning is the latest one not after it, an output belongs to the latest input not after
// it, and more than kLongestFrame apart nothing belongs together.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/picture/frame.h"
#include "tools/tuning/tuning_set.h"

namespace vorn::tool {

constexpr int64_t kLongestFrame = 60;  // seconds

// One thing to run: an algorithm (or both) on one input frame.
struct replay_case {
  bool luma = false;
  bool chroma = false;
  int width = 0;
  int height = 0;
  std::string stamp;        // of the input: fourteen digits
  std::string input;        // paths
  std::string luma_tuning;  // empty when the algorithm is off
  std::string chroma_tuning;
  std::string output;  // the device's result; empty when it was not dumped

  // Name of the result file, as the device would have called it.
  std::string result_name() const;
};

// Sorts dump files into cases, oldest first. Files with other names are passed over. notes receives
// a line for each dump that fits nowhere.
std::vector<replay_case> find_replay_cases(const std::vector<std::string>& files,
                                           std::vector<std::string>& notes);

// A dumped frame as the library saw it: no padding, (width * height * 3) / 2 bytes.
frame read_dump_frame(const std::string& path, int width, int height);

// How two frames of equal size differ.
struct byte_difference {
  int64_t bytes = 0;  // compared
  int64_t luma = 0;   // of those that differ
  int64_t chroma = 0;
  int first_x = 0;  // pixel of the first byte that differs; chroma in chroma pixels
  int first_y = 0;
  bool first_in_luma = true;
  int left = 0, top = 0, right = 0, bottom = 0;  // luma pixels that hold every difference
  int largest = 0;                               // grey levels
  double mean = 0;                               // of those that differ, without sign
};
byte_difference compare_bytes(const frame& ours, const frame& theirs);
// "identical", or one line that tells how many bytes, where and by how much.
std::string describe(const byte_difference& d);

}  // namespace vorn::tool
