#include "base/process.h"

#include <pthread.h>

namespace vorn {

namespace {

int generation = 0;

void in_child() {
  ++generation;  // alone: nobody else runs yet
}

[[maybe_unused]] const int registered = pthread_atfork(nullptr, nullptr, in_child);

}  // namespace

int process_generation() {
  return generation;
}

}  // namespace vorn
