#include "runtime/stage.h"

#include <cstring>

#include "base/platform.h"

int vorn::home_slice() {
  static const int processors = platform_processors();
  const int processor = platform_processor();
  if (processor < 0) return 0;
  return processors < kSlices ? processor * kSlices / processors % kSlices : processor % kSlices;
}

void vorn::copy_bytes(pool* workers, void* to, const void* from, size_t bytes) {
  constexpr size_t kPiece = 1 << 14;
  const auto copy = [=](int begin, int end) {
    const size_t at = static_cast<size_t>(begin) * kPiece;
    const size_t until = static_cast<size_t>(end) * kPiece;
    std::memcpy(static_cast<char*>(to) + at, static_cast<const char*>(from) + at,
                (until < bytes ? until : bytes) - at);
  };
  const int pieces = static_cast<int>((bytes + kPiece - 1) / kPiece);
  if (run_rows(workers, pieces, 1, kPiece, copy) != 0) std::memcpy(to, from, bytes);
}
