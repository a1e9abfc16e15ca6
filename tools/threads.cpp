#include "tools/threads.h"

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

}  // namespace vorn::tool
