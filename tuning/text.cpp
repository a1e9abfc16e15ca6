// What a set may hold as text and as a gain, and text that may be shown.
#include <algorithm>

#include "tuning/set.h"

namespace vorn::tunings {
namespace {

// Length of the UTF-8 character at the text's front, or 0 where there is none.
size_t character_size(const char* text, size_t size) {
  const auto byte = [&](size_t i) { return i < size ? uint8_t(text[i]) : 0; };
  const auto follows = [&](size_t i) { return (byte(i) & 0xc0) == 0x80; };
  const uint8_t first = byte(0);
  if (first < 0x80) return first ? 1 : 0;
  if (first >= 0xc2 && first < 0xe0) return follows(1) ? 2 : 0;
  if (first >= 0xe0 && first < 0xf0) {
    const bool short_form = first == 0xe0 && byte(1) < 0xa0;
    const bool surrogate = first == 0xed && byte(1) >= 0xa0;
    return follows(1) && follows(2) && !short_form && !surrogate ? 3 : 0;
  }
  if (first >= 0xf0 && first < 0xf5) {
    const bool outside = (first == 0xf0 && byte(1) < 0x90) || (first == 0xf4 && byte(1) >= 0x90);
    return follows(1) && follows(2) && follows(3) && !outside ? 4 : 0;
  }
  return 0;
}

}  // namespace

std::string printable(const std::string& text, size_t most) {
  std::string out;
  for (size_t at = 0; at < text.size();) {
    const size_t size = character_size(text.data() + at, text.size() - at);
    const uint8_t first = uint8_t(text[at]);
    // C0, DEL and the C1 codes U+0080 to U+009F.
    const bool control = first < 0x20 || first == 0x7f ||
                         (first == 0xc2 && size == 2 && uint8_t(text[at + 1]) < 0xa0);
    const std::string next = size == 0 || control ? "?" : text.substr(at, size);
    if (out.size() + next.size() > most) return out + "...";
    out += next;
    at += std::max<size_t>(size, 1);
  }
  return out;
}

bool is_text(const std::string& text) {
  for (size_t at = 0; at < text.size();) {
    const size_t size = character_size(text.data() + at, text.size() - at);
    if (size == 0) return false;
    at += size;
  }
  return true;
}

void check_gain(double gain) {
  if (is_gain(gain)) return;
  throw error{VORN_TUNING_INVALID, "\"gain\" must be " + std::string(kGainRange), "gain"};
}

}  // namespace vorn::tunings
