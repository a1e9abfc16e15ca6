// A search of the tuner in the background, watched and stopped from the page.
#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tools/tuning/tuner.h"

namespace vorn::tool {

class search_job {
 public:
  enum class phase { idle, running, stopping, done, failed };
  struct status {
    phase at = phase::idle;
    int done = 0, total = 0;  // lines of trials
    std::string note;         // what is being tried, or the fault
    bool has_best = false;
    tuning best = {};
    double seconds = 0;  // since the start; stands still at the end
  };

  ~search_job();

  // Starts on samples with clean versions. False while another search runs.
  bool start(std::vector<tuning_sample> samples, const tuning& first,
             const search_options& options);
  // Ends the search after the line of trials at hand; the best so far stays.
  void stop();
  status now() const;

 private:
  void run(std::vector<tuning_sample> samples, tuning first, search_options options);

  mutable std::mutex mutex_;
  status status_;
  double started_ = 0;
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

}  // namespace vorn::tool
