// Files that appear whole or not at all. Where the system has unnamed files nothing is to be seen
// before commit(), whatever ends the program; elsewhere a file ".vorn-XXXXXX" stands beside the
// result until then, and an interrupt removes it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace vorn::tool {

class output_file {
 public:
  // "-" is standard output, written directly; so is a name that is a device or a pipe. A symbolic
  // link stays, what it points to is replaced. A file that is replaced keeps its mode and, where
  // that is allowed, its owner; one that may not be written is an `error`.
  explicit output_file(const std::string& path);
  ~output_file();
  output_file(const output_file&) = delete;
  output_file& operator=(const output_file&) = delete;

  void write(const void* bytes, size_t size);
  void commit();
  const std::string& path() const { return path_; }

 private:
  void open_beside(const std::string& directory);
  void put_in_place();
  [[noreturn]] void fail() const;

  std::string path_;
  std::string target_;     // path_ with symbolic links followed; empty when written directly
  std::string temporary_;  // name of the unfinished file; empty where it has none
  std::FILE* file_ = nullptr;
};

// An `error` when output is one of the inputs, under whatever name. "-" is none.
void refuse_replacing(const std::string& output, const std::vector<std::string>& inputs);

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
