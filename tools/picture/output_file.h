// Files that appear whole or not at all: written beside their final name and renamed when complete.
// An interrupt removes what is unfinished.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace vorn::tool {

class output_file {
 public:
  // "-" is standard output, written directly; so is a name that is a device or a pipe.
  explicit output_file(const std::string& path);
  ~output_file();
  output_file(const output_file&) = delete;
  output_file& operator=(const output_file&) = delete;

  void write(const void* bytes, size_t size);
  void commit();
  const std::string& path() const { return path_; }

 private:
  std::string path_;
  std::string temporary_;  // empty when written directly
  std::FILE* file_ = nullptr;
};

void write_file(const std::string& path, const std::vector<uint8_t>& bytes);
void write_file(const std::string& path, const std::string& text);
// The whole file, or an `error`; "-" is standard input.
std::vector<uint8_t> read_file(const std::string& path);
std::string read_text_file(const std::string& path);

// Creates a directory and those above it where they do not exist.
void make_directory(const std::string& path);
bool is_directory(const std::string& path);
// Names of files as they are, directories replaced by the files in them (not below), sorted.
std::vector<std::string> expand_inputs(const std::vector<std::string>& names);

}  // namespace vorn::tool
