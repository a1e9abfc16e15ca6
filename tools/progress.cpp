#include "tools/progress.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "tools/text.h"

namespace vorn::tool {
namespace {

std::string time_left(double seconds) {
  char text[32];
  const int64_t s = int64_t(seconds + 0.5);
  if (s >= 3600) {
    std::snprintf(text, sizeof text, "%d:%02d:%02d", int(s / 3600), int(s / 60 % 60), int(s % 60));
  } else {
    std::snprintf(text, sizeof text, "%d:%02d", int(s / 60), int(s % 60));
  }
  return text;
}

}  // namespace

progress::progress(const std::string& label, int64_t total, const std::string& unit)
    : label_(printable(label)),
      unit_(unit),
      total_(total),
      enabled_(isatty(STDERR_FILENO) == 1),
      start_(clock::now()),
      last_(start_) {}

progress::~progress() {
  clear();
}

void progress::clear() {
  if (drawn_) std::fputs("\r\033[K", stderr);
  drawn_ = false;
}

void progress::update(int64_t done, const std::string& note) {
  if (!enabled_) return;
  const clock::time_point now = clock::now();
  if (drawn_ && done != total_ && now - last_ < std::chrono::milliseconds(100)) return;
  last_ = now;
  drawn_ = true;
  const double seconds = std::chrono::duration<double>(now - start_).count();
  const double rate = seconds > 0 ? double(done) / seconds : 0;
  char text[512];
  if (total_ > 0) {
    constexpr int kBar = 24;
    const double share = std::clamp(double(done) / double(total_), 0.0, 1.0);
    const int filled = int(share * kBar);
    const std::string bar = std::string(filled, '#') + std::string(kBar - filled, '.');
    std::snprintf(text, sizeof text, "%s [%s] %lld/%lld %s, %.1f/s, %s left", label_.c_str(),
                  bar.c_str(), static_cast<long long>(done), static_cast<long long>(total_),
                  unit_.c_str(), rate,
                  rate > 0 ? time_left(double(total_ - done) / rate).c_str() : "-:--");
  } else {
    std::snprintf(text, sizeof text, "%s %lld %s, %.1f/s", label_.c_str(),
                  static_cast<long long>(done), unit_.c_str(), rate);
  }
  std::fprintf(stderr, "\r\033[K%s%s%s", text, note.empty() ? "" : "  ", note.c_str());
  std::fflush(stderr);
}

}  // namespace vorn::tool
