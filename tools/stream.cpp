#include "tools/stream.h"

#include <algorithm>
#include <condition_variable>
#include <exception>
#include <memory>
#include <mutex>
#include <vector>

#include "tools/denoiser.h"
#include "tools/error.h"
#include "tools/threads.h"

namespace vorn::tool {
namespace {

struct slot {
  enum { empty, filled, done } state = empty;
  frame f;
  tuning t = {};
  std::exception_ptr fault;
};

// A ring of frames. Whoever waits is woken by any change; changes are as rare as frames.
class frame_ring {
 public:
  frame_ring(const stream_steps& steps, stream_plan plan)
      : steps_(steps), plan_(plan), slots_(size_t(plan.denoisers) + 2) {}

  // first has been read already. Returns false, with first untouched, when no thread is to be had.
  bool run(frame& first) {
    std::vector<std::unique_ptr<denoiser>> libraries;
    try {
      for (int i = 0; i < plan_.denoisers; ++i)
        libraries.push_back(
            std::make_unique<denoiser>(first.padded_width, first.padded_height, plan_.workers));
    } catch (const no_threads&) {
      if (libraries.size() < 2) return false;  // goes on with fewer
    }
    thread_group threads;
    if (!threads.start([this] { write_all(); })) return false;
    int filters = 0;
    for (const auto& library : libraries)
      filters += threads.start([this, &library] { filter_all(*library); });
    if (filters == 0) {
      end(nullptr);
      return false;
    }
    try {
      fill(std::move(first));
      for (frame f; wait_for_room(f) && steps_.read(f);) fill(std::move(f));
      end(nullptr);
    } catch (...) {
      end(std::current_exception());
    }
    threads.join();
    if (write_fault_) std::rethrow_exception(write_fault_);
    if (read_fault_) std::rethrow_exception(read_fault_);
    return true;
  }

 private:
  using lock = std::unique_lock<std::mutex>;
  slot& at(size_t index) { return slots_[index % slots_.size()]; }

  // Takes the memory of a frame that was written. False when there is no use in going on.
  bool wait_for_room(frame& f) {
    lock guard(lock_);
    changed_.wait(guard, [&] { return at(filled_).state == slot::empty || write_fault_; });
    if (write_fault_) return false;
    f = std::move(at(filled_).f);
    return true;
  }

  void fill(frame&& f) {
    const tuning t = steps_.tune(f);
    const lock guard(lock_);
    slot& s = at(filled_++);
    s.f = std::move(f);
    s.t = t;
    s.state = slot::filled;
    changed_.notify_all();
  }

  void end(std::exception_ptr fault) {
    const lock guard(lock_);
    read_fault_ = fault;
    ended_ = true;
    changed_.notify_all();
  }

  void filter_all(denoiser& library) {
    for (;;) {
      lock guard(lock_);
      changed_.wait(guard, [&] { return taken_ < filled_ || ended_ || write_fault_; });
      if (write_fault_ || taken_ == filled_) return;
      slot& s = at(taken_++);
      guard.unlock();
      try {
        library.run(s.f, s.t);
      } catch (...) {
        s.fault = std::current_exception();
      }
      guard.lock();
      s.state = slot::done;
      changed_.notify_all();
    }
  }

  void write_all() {
    for (size_t written = 0;; ++written) {
      lock guard(lock_);
      slot& s = at(written);
      changed_.wait(guard, [&] { return s.state == slot::done || (ended_ && written == filled_); });
      if (s.state != slot::done) return;
      guard.unlock();
      std::exception_ptr fault = s.fault;
      try {
        if (!fault) steps_.write(s.f);
      } catch (...) {
        fault = std::current_exception();
      }
      guard.lock();
      s.state = slot::empty;
      write_fault_ = fault;
      changed_.notify_all();
      if (fault) return;
    }
  }

  const stream_steps& steps_;
  const stream_plan plan_;
  std::vector<slot> slots_;
  std::mutex lock_;
  std::condition_variable changed_;
  size_t filled_ = 0, taken_ = 0;  // frames so far
  bool ended_ = false;
  std::exception_ptr read_fault_, write_fault_;
};

}  // namespace

stream_plan plan_stream(int width, int height, int processors) {
  constexpr int64_t kMemory = int64_t(1) << 30, kBytesPerPixel = 24;
  const int64_t fit = kMemory / std::max<int64_t>(1, int64_t(width) * height * kBytesPerPixel);
  stream_plan plan;
  plan.denoisers = int(std::clamp<int64_t>(fit, 1, std::max(1, processors)));
  plan.workers = std::clamp((processors + plan.denoisers - 1) / plan.denoisers, 1, 4);
  if (plan.denoisers == 1) plan.workers = 4;
  return plan;
}

void denoise_stream(const stream_steps& steps, int processors) {
  frame f;
  if (!steps.read(f)) return;
  const stream_plan plan = plan_stream(f.padded_width, f.padded_height, processors);
  if (plan.denoisers > 1 && frame_ring(steps, plan).run(f)) return;
  denoiser library(f.padded_width, f.padded_height);
  do {
    library.run(f, steps.tune(f));
    steps.write(f);
  } while (steps.read(f));
}

}  // namespace vorn::tool
