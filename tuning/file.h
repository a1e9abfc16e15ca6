// Files of tuning sets: bounded reading, and writing that leaves a whole file or the old one.
#pragma once

#include <cstddef>
#include <string>

namespace vorn::tunings {

// The bytes of a file that holds at most `most` of them. Throws an error with the file's name.
std::string read_file(const std::string& path, size_t most);

// Writes text into a new file beside path and renames it, so that path is replaced whole or not at
// all, power cuts included. The new file keeps the permissions of the one it replaces; a symbolic
// link is followed; a device or a pipe is written as it is. Throws an error with the file's name.
void write_file(const std::string& path, const std::string& text);

}  // namespace vorn::tunings
