#include "tools/text.h"

#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "tools/error.h"

namespace vorn::tool {
namespace {

// Bytes of the UTF-8 character at `at`, 0 where there is none. C1 controls count as none.
size_t character_length(const std::string& text, size_t at) {
  const auto byte = [&](size_t i) { return i < text.size() ? uint8_t(text[i]) : uint8_t{0}; };
  const uint8_t first = byte(at);
  if (first < 0x80) return first >= 0x20 && first != 0x7f ? 1 : 0;
  const size_t length = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : 2;
  if (first < 0xc2 || first > 0xf4) return 0;
  for (size_t i = 1; i < length; ++i)
    if ((byte(at + i) & 0xc0) != 0x80) return 0;
  const uint8_t second = byte(at + 1);
  const bool overlong = (first == 0xe0 && second < 0xa0) || (first == 0xf0 && second < 0x90);
  const bool outside = (first == 0xed && second > 0x9f) || (first == 0xf4 && second > 0x8f);
  const bool control = first == 0xc2 && second < 0xa0;
  return overlong || outside || control ? 0 : length;
}

[[noreturn]] void cannot_write() {
  throw error("standard output", std::string("cannot be written: ") + std::strerror(errno));
}

}  // namespace

std::string printable(const std::string& text) {
  std::string out;
  for (size_t at = 0; at < text.size();) {
    const size_t length = character_length(text, at);
    if (length > 0) {
      out.append(text, at, length);
      at += length;
      continue;
    }
    char escape[8];
    std::snprintf(escape, sizeof escape, "\\x%02x", uint8_t(text[at++]));
    out += escape;
  }
  return out;
}

void print(const char* format, ...) {
  va_list values;
  va_start(values, format);
  const int written = std::vprintf(format, values);
  va_end(values);
  if (written < 0) cannot_write();
}

void finish_standard_output() {
  errno = EIO;  // for an earlier fault whose reason is gone
  const bool failed = std::ferror(stdout) != 0;
  if (std::fflush(stdout) != 0 || failed) cannot_write();
}

void note(const std::string& line) {
  std::fprintf(stderr, "vorn-ycnr: %s\n", printable(line).c_str());
}

}  // namespace vorn::tool
