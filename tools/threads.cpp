#include "tools/threads.h"

#include <mutex>
#include <new>
#include <system_error>

namespace vorn::tool {

bool thread_group::start(const std::function<void()>& work) {
  try {
    threads_.emplace_back(work);
    return true;
  } catch (const std::system_error&) {
    return false;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

void thread_group::join() {
  for (std::thread& thread : threads_) thread.join();
  threads_.clear();
}

int threads_to_be_had(int wanted) {
  std::mutex all_started;
  std::unique_lock<std::mutex> hold(all_started);
  thread_group threads;
  int started = 0;
  while (started < wanted &&
         threads.start([&all_started] { const std::lock_guard<std::mutex> wait(all_started); })) {
    ++started;
  }
  hold.unlock();
  threads.join();
  return started;
}

}  // namespace vorn::tool
