// The stages of one frame, in order: each is timed, logged and, when it fails, the last one.
#pragma once

#include <type_traits>

#include "base/handle.h"
#include "base/log.h"

namespace vorn {

// Tells owner's stage_sink, if it has one, the milliseconds of what name says.
void tell_time(const denoise_handle_t& owner, const char* name, double ms);

class stage_times {
 public:
  // Of a frame of owner's. Lines stand under the name `function`; `unit` follows the milliseconds.
  stage_times(const denoise_handle_t* owner, const char* function, const char* unit)
      : owner_(owner), function_(function), unit_(unit) {}

  // Calls stage(), which returns nothing, or 0 or a failure, and reports its time unless it failed.
  // Does nothing after a failure. name is a format that may print level.
  template <typename Stage>
  void run(const char* name, int level, const Stage& stage, int line = __builtin_LINE()) {
    if (result_ != 0) return;
    const double start = getTime();
    if constexpr (std::is_void_v<decltype(stage())>)
      stage();
    else
      result_ = stage();
    if (result_ == 0) report(name, level, getTime() - start, line);
  }

  // What every stage's time goes through: one DEBUG line "    <name> cost time: <ms><unit> ", and
  // the owner's stage_sink.
  void report(const char* name, int level, double ms, int line = __builtin_LINE()) const;

  // For the application alone, without a line: ms of what name says.
  void tell(const char* name, double ms) const;

  // 0, or what the stage that failed returned.
  int result() const { return result_; }

 private:
  const denoise_handle_t* owner_;
  const char* function_;
  const char* unit_;
  int result_ = 0;
};

}  // namespace vorn
