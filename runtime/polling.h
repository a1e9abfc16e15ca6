// Looking for a moment before sleeping: a thread that slept takes some 50 us to wake, longer than
// most stages wait.
//
// A wait costs a busy machine nothing, as nobody polls where it does not help:
// - not while more of the pool's threads run or poll than processors are there for them;
// - not for the next waits after a poll that was in vain too often, or in which the thread found
//   that somebody else had its processor.
// Polling makes no system calls; a thread never yields, which would hand a whole time slice to any
// other program that computes.
#pragma once

namespace vorn {

// Part of a pool. All fields are changed by several threads at once, through polling.cpp.
struct poll_state {
  int processors;  // that the pool's threads may use
  int active;      // the pool's threads, its caller among them, that run or poll
  int credit;      // of polls that found what they looked for, 0..kCreditMax
  int suspended;   // this many waits to come go to sleep at once
};

// Counters that are changed under a lock, or by single additions, and polled without.
inline int load(const int& counter) {
  return __atomic_load_n(&counter, __ATOMIC_SEQ_CST);
}
inline void store(int* counter, int value) {
  __atomic_store_n(counter, value, __ATOMIC_SEQ_CST);
}
// A store that no later load of this thread overtakes, on emulators of AArch64 either: they let an
// LDAR pass the STLR before it, which processors do not.
inline void store_first(int* counter, int value) {
  __atomic_exchange_n(counter, value, __ATOMIC_SEQ_CST);
}
inline int add(int* counter, int value) {
  return __atomic_add_fetch(counter, value, __ATOMIC_SEQ_CST);
}

// Lets the processor's other threads, its memory and its clock have a moment: 10 to 100 ns.
void pause_processor();

// Whether the calling thread, counted in active, should poll before it sleeps.
bool worth_polling(poll_state* state);

// The clock of one poll: for how long a thread looks, and what the outcome says about the next.
class poll_clock {
 public:
  explicit poll_clock(poll_state* state);
  // A moment passes. Returns false when it is time to sleep.
  bool wait();
  // What was looked for is there.
  void found();

 private:
  poll_state* state_;
  double start_;
  double last_;
};

// Polls until ready() holds, which it returns, or for as long as the policy says.
template <typename Ready>
bool poll(poll_state* state, const Ready& ready) {
  if (!worth_polling(state)) return ready();
  for (poll_clock clock(state);;) {
    if (ready()) {
      clock.found();
      return true;
    }
    if (!clock.wait()) return ready();
  }
}

}  // namespace vorn
