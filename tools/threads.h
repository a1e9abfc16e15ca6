// Threads where the system gives them, and fewer where it does not.
#pragma once

#include <functional>
#include <thread>
#include <vector>

namespace vorn::tool {

class thread_group {
 public:
  thread_group() = default;
  ~thread_group() { join(); }
  thread_group(const thread_group&) = delete;
  thread_group& operator=(const thread_group&) = delete;

  // False when no thread is to be had: whoever asks does the work itself. work may not throw.
  bool start(const std::function<void()>& work);
  void join();

 private:
  std::vector<std::thread> threads_;
};

// How many of that many threads at once the system gives now.
int threads_to_be_had(int wanted);

}  // namespace vorn::tool
