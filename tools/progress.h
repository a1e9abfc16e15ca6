// A progress line on standard error: bar, count, rate, time left. Shows nothing when standard error
// is not a terminal, so that logs and pipes stay clean.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace vorn::tool {

class progress {
 public:
  // total 0: unknown, shows the count and the rate alone.
  progress(const std::string& label, int64_t total, const std::string& unit);
  // Wipes the line.
  ~progress();
  progress(const progress&) = delete;
  progress& operator=(const progress&) = delete;

  // Sets how many are done. Draws at most ten times a second. One thread at a time.
  void update(int64_t done, const std::string& note = "");
  // Wipes the line, so that something can be printed; the next update draws it anew.
  void clear();

 private:
  using clock = std::chrono::steady_clock;
  std::string label_;
  std::string unit_;
  int64_t total_;
  bool enabled_;
  bool drawn_ = false;
  clock::time_point start_;
  clock::time_point last_;
};

}  // namespace vorn::tool
