// What the readers of streams take bytes from: a file, standard input or memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

namespace vorn::tool {

class input_stream {
 public:
  // "-" is standard input.
  explicit input_stream(const std::string& path);
  // The bytes must outlive the stream. name is for messages.
  input_stream(const uint8_t* bytes, size_t size, const std::string& name);
  ~input_stream();
  input_stream(const input_stream&) = delete;
  input_stream& operator=(const input_stream&) = delete;

  const std::string& name() const { return name_; }
  size_t read(void* bytes, size_t size) { return std::fread(bytes, 1, size, file_); }
  bool failed() const { return std::ferror(file_); }

  // Up to the line feed, which is dropped. False at the end of the file or beyond `limit`.
  bool read_line(std::string& line, size_t limit);
  // Bytes in the file, or -1 when it has no end that can be sought.
  int64_t size();

 private:
  std::string name_;
  std::FILE* file_ = nullptr;
  bool owned_ = true;
};

}  // namespace vorn::tool
