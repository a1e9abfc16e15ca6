#include "tools/picture/input_stream.h"

#include <cerrno>
#include <cstring>

#include "tools/error.h"

namespace vorn::tool {

input_stream::input_stream(const std::string& path) : name_(path == "-" ? "standard input" : path) {
  owned_ = path != "-";
  file_ = owned_ ? std::fopen(path.c_str(), "rb") : stdin;
  if (!file_) throw error(name_, std::string("cannot be read: ") + std::strerror(errno));
}

input_stream::input_stream(const uint8_t* bytes, size_t size, const std::string& name)
    : name_(name) {
  file_ = fmemopen(const_cast<uint8_t*>(bytes), size, "rb");
  if (!file_) throw error(name_, std::string("cannot be read: ") + std::strerror(errno));
}

input_stream::~input_stream() {
  if (owned_) std::fclose(file_);
}

bool input_stream::read_line(std::string& line, size_t limit) {
  line.clear();
  for (int c; (c = std::getc(file_)) != EOF;) {
    if (c == '\n') return true;
    if (line.size() == limit) return false;
    line.push_back(char(c));
  }
  return false;
}

int64_t input_stream::size() {
  const off_t here = ftello(file_);
  if (here < 0 || fseeko(file_, 0, SEEK_END) != 0) return -1;
  const int64_t end = ftello(file_);
  fseeko(file_, here, SEEK_SET);
  return end;
}

}  // namespace vorn::tool
