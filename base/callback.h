// Calls from the library into the application.
#pragma once

#ifdef __GLIBCXX__
#include <cxxabi.h>
#endif

namespace vorn {

// Runs call(); what it throws ends here, as the library's callers need not be C++. The cancellation
// of the thread goes on.
template <typename Call>
void call_application(const Call& call) {
  try {
    call();
#ifdef __GLIBCXX__
  } catch (abi::__forced_unwind&) {
    throw;
#endif
  } catch (...) {
  }
}

}  // namespace vorn
