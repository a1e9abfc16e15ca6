// Text for people: standard output that is checked, and strings of files and names made harmless.
#pragma once

#include <string>

namespace vorn::tool {

// text with control characters (terminal escapes among them) and bytes that are no UTF-8 written as
// \x1b. Every name and every text of a file passes here before it is shown.
std::string printable(const std::string& text);

// printf to standard output; an `error` when it cannot be written.
void print(const char* format, ...) __attribute__((format(printf, 1, 2)));
// Writes out what is buffered. Call before the program says that all is well.
void finish_standard_output();

// "vorn-ycnr: line" on standard error, made printable.
void note(const std::string& line);

}  // namespace vorn::tool
