#include "tools/workbench/search_job.h"

#include <chrono>
#include <exception>
#include <system_error>

namespace vorn::tool {
namespace {

double seconds_now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

}  // namespace

search_job::~search_job() {
  stop();
  if (thread_.joinable()) thread_.join();
}

bool search_job::start(std::vector<tuning_sample> samples, const tuning& first,
                       const search_options& options) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (status_.at == phase::running || status_.at == phase::stopping) return false;
  if (thread_.joinable()) thread_.join();  // of a search that has ended
  status_ = {};
  status_.at = phase::running;
  started_ = seconds_now();
  stop_ = false;
  try {
    thread_ = std::thread(&search_job::run, this, std::move(samples), first, options);
  } catch (const std::system_error& fault) {
    status_.at = phase::failed;
    status_.note = std::string("no thread to be had: ") + fault.what();
  }
  return true;
}

void search_job::stop() {
  stop_ = true;
  const std::lock_guard<std::mutex> lock(mutex_);
  if (status_.at == phase::running) status_.at = phase::stopping;
}

search_job::status search_job::now() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  status s = status_;
  if (s.at == phase::running || s.at == phase::stopping) s.seconds = seconds_now() - started_;
  return s;
}

void search_job::run(std::vector<tuning_sample> samples, tuning first, search_options options) {
  status end;
  try {
    const search_result result = search_tuning(
        samples, first, options,
        [this](const search_progress& p) {
          const std::lock_guard<std::mutex> lock(mutex_);
          status_.done = p.done;
          status_.total = p.total;
          status_.note = p.note;
          status_.best = p.best;
          status_.has_best = true;
        },
        stop_);
    end.at = phase::done;
    end.best = result.best;
    end.has_best = true;
    end.note = result.stopped ? "stopped" : std::to_string(result.trials) + " trials";
  } catch (const std::exception& fault) {
    end.at = phase::failed;
    end.note = fault.what();
  }
  const std::lock_guard<std::mutex> lock(mutex_);
  end.done = status_.done;
  end.total = status_.total;
  end.seconds = seconds_now() - started_;
  if (end.at == phase::failed && status_.has_best) {
    end.best = status_.best;
    end.has_best = true;
  }
  status_ = end;
}

}  // namespace vorn::tool
