#include "runtime/polling.h"

#include "base/log.h"

namespace vorn {

namespace {

constexpr double kPollMs = 0.05;  // about what sleeping and waking cost
constexpr double kLateMs = 0.2;   // between two looks: somebody else had the processor
constexpr int kLateWaits = 1000;  // without polling after that: some twenty frames
constexpr int kPauses = 4;        // between two looks

// Polls in vain cost what several that were not in vain save.
constexpr int kCreditMax = 64;
constexpr int kCreditLost = 4;
constexpr int kVainWaits = 64;  // without polling when the credit is spent

}  // namespace

void pause_processor() {
#if defined(__x86_64__)
  __builtin_ia32_pause();
#elif defined(__aarch64__)
  __asm__ volatile("isb" ::: "memory");  // "yield" does nothing on most cores
#endif
}

bool worth_polling(poll_state* state) {
  if (load(state->active) > state->processors) return false;
  if (load(state->suspended) <= 0) return true;
  add(&state->suspended, -1);
  return false;
}

poll_clock::poll_clock(poll_state* state) : state_(state), start_(getTime()), last_(start_) {}

bool poll_clock::wait() {
  for (int i = 0; i < kPauses; ++i) pause_processor();
  const double now = getTime();
  if (now - last_ > kLateMs) {
    store(&state_->suspended, kLateWaits);
    return false;
  }
  last_ = now;
  if (now - start_ < kPollMs) return true;
  const int credit = load(state_->credit) - kCreditLost;
  store(&state_->credit, credit > 0 ? credit : 0);
  if (credit <= 0) store(&state_->suspended, kVainWaits);
  return false;
}

void poll_clock::found() {
  const int credit = load(state_->credit);
  if (credit < kCreditMax) store(&state_->credit, credit + 1);
}

}  // namespace vorn
