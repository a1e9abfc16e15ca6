// Memory that ends, or begins, exactly at a page that may not be touched.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace vorn_test {

class guarded_buffer {
 public:
  enum class side { end, begin };  // where the protected page touches the buffer

  guarded_buffer(size_t bytes, side where) {
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    const size_t pages = (bytes + page - 1) / page * page;
    mapped_ = pages + 2 * page;
    void* base = mmap(nullptr, mapped_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (base == MAP_FAILED) abort();
    base_ = static_cast<uint8_t*>(base);
    if (pages > 0 && mprotect(base_ + page, pages, PROT_READ | PROT_WRITE) != 0) abort();
    data_ = base_ + page + (where == side::end ? pages - bytes : 0);
  }
  ~guarded_buffer() { munmap(base_, mapped_); }
  guarded_buffer(const guarded_buffer&) = delete;
  guarded_buffer& operator=(const guarded_buffer&) = delete;

  uint8_t* data() const { return data_; }

 private:
  uint8_t* base_;
  uint8_t* data_;
  size_t mapped_;
};

}  // namespace vorn_test
