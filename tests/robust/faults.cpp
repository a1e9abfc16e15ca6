#include "tests/robust/faults.h"

#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

std::atomic<bool> armed{false};
std::atomic<int> calls{0};
std::atomic<int> fail_at{-1};
std::atomic<const char*> failed{nullptr};
std::atomic<int> fresh_byte{-1};

// Blocks that were allocated while watched; a worker may free one later.
std::atomic<bool> watching{false};
pthread_mutex_t blocks_lock = PTHREAD_MUTEX_INITIALIZER;
constexpr int kMaxBlocks = 4096;
void* blocks[kMaxBlocks];
int block_count = 0;

void note_block(void* block) {
  if (!block || !watching) return;
  pthread_mutex_lock(&blocks_lock);
  if (block_count == kMaxBlocks) abort();
  blocks[block_count++] = block;
  pthread_mutex_unlock(&blocks_lock);
}

void forget_block(void* block) {
  if (!block) return;
  pthread_mutex_lock(&blocks_lock);
  for (int i = 0; i < block_count; ++i)
    if (blocks[i] == block) {
      blocks[i] = blocks[--block_count];
      break;
    }
  pthread_mutex_unlock(&blocks_lock);
}

bool fails(const char* name) {
  if (!armed.load()) return false;
  if (calls.fetch_add(1) != fail_at.load()) return false;
  failed = name;
  return true;
}

void* fresh(void* block, size_t bytes) {
  if (!block) return nullptr;
  note_block(block);
  if (fresh_byte >= 0) std::memset(block, fresh_byte, bytes);
  return block;
}

}  // namespace

namespace faults {

void arm(int at) {
  failed = nullptr;
  calls = 0;
  fail_at = at;
  armed = watching = true;
}

int disarm() {
  armed = watching = false;
  return calls;
}

const char* failed_call() {
  return failed;
}

int blocks_held() {
  pthread_mutex_lock(&blocks_lock);
  const int count = block_count;
  pthread_mutex_unlock(&blocks_lock);
  return count;
}

void fill_fresh_memory(uint8_t byte) {
  fresh_byte = byte;
}

}  // namespace faults

extern "C" {

void* __real_malloc(size_t bytes);
void* __wrap_malloc(size_t bytes) {
  return fails("malloc") ? nullptr : fresh(__real_malloc(bytes), bytes);
}

void* __real_calloc(size_t count, size_t bytes);
void* __wrap_calloc(size_t count, size_t bytes) {
  if (fails("calloc")) return nullptr;
  void* block = __real_calloc(count, bytes);
  note_block(block);
  return block;
}

void* __real_realloc(void* old, size_t bytes);
void* __wrap_realloc(void* old, size_t bytes) {
  if (fails("realloc")) return nullptr;
  void* block = __real_realloc(old, bytes);
  if (block) forget_block(old);
  note_block(block);
  return block;
}

void* __real_aligned_alloc(size_t alignment, size_t bytes);
void* __wrap_aligned_alloc(size_t alignment, size_t bytes) {
  return fails("aligned_alloc") ? nullptr : fresh(__real_aligned_alloc(alignment, bytes), bytes);
}

int __real_posix_memalign(void** out, size_t alignment, size_t bytes);
int __wrap_posix_memalign(void** out, size_t alignment, size_t bytes) {
  if (fails("posix_memalign")) return ENOMEM;
  const int result = __real_posix_memalign(out, alignment, bytes);
  if (result == 0) fresh(*out, bytes);
  return result;
}

void __real_free(void* block);
void __wrap_free(void* block) {
  forget_block(block);
  __real_free(block);
}

void* __real__Znwm(size_t bytes);
void* __wrap__Znwm(size_t bytes) {
  if (fails("new")) throw std::bad_alloc();
  return fresh(__real__Znwm(bytes), bytes);
}

void* __real__Znam(size_t bytes);
void* __wrap__Znam(size_t bytes) {
  if (fails("new[]")) throw std::bad_alloc();
  return fresh(__real__Znam(bytes), bytes);
}

void* __real__ZnwmRKSt9nothrow_t(size_t bytes, const std::nothrow_t& tag);
void* __wrap__ZnwmRKSt9nothrow_t(size_t bytes, const std::nothrow_t& tag) {
  return fails("new") ? nullptr : fresh(__real__ZnwmRKSt9nothrow_t(bytes, tag), bytes);
}

void* __real__ZnamRKSt9nothrow_t(size_t bytes, const std::nothrow_t& tag);
void* __wrap__ZnamRKSt9nothrow_t(size_t bytes, const std::nothrow_t& tag) {
  return fails("new[]") ? nullptr : fresh(__real__ZnamRKSt9nothrow_t(bytes, tag), bytes);
}

void __real__ZdlPv(void* block);
void __wrap__ZdlPv(void* block) {
  forget_block(block);
  __real__ZdlPv(block);
}

void __real__ZdaPv(void* block);
void __wrap__ZdaPv(void* block) {
  forget_block(block);
  __real__ZdaPv(block);
}

void __real__ZdlPvm(void* block, size_t bytes);
void __wrap__ZdlPvm(void* block, size_t bytes) {
  forget_block(block);
  __real__ZdlPvm(block, bytes);
}

void __real__ZdaPvm(void* block, size_t bytes);
void __wrap__ZdaPvm(void* block, size_t bytes) {
  forget_block(block);
  __real__ZdaPvm(block, bytes);
}

int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*routine)(void*), void* arg);
int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*routine)(void*), void* arg) {
  return fails("pthread_create") ? EAGAIN : __real_pthread_create(thread, attributes, routine, arg);
}

int __real_pthread_mutex_init(pthread_mutex_t* lock, const pthread_mutexattr_t* attributes);
int __wrap_pthread_mutex_init(pthread_mutex_t* lock, const pthread_mutexattr_t* attributes) {
  return fails("pthread_mutex_init") ? ENOMEM : __real_pthread_mutex_init(lock, attributes);
}

int __real_pthread_cond_init(pthread_cond_t* condition, const pthread_condattr_t* attributes);
int __wrap_pthread_cond_init(pthread_cond_t* condition, const pthread_condattr_t* attributes) {
  return fails("pthread_cond_init") ? ENOMEM : __real_pthread_cond_init(condition, attributes);
}

FILE* __real_fdopen(int file, const char* mode);
FILE* __wrap_fdopen(int file, const char* mode) {
  if (!fails("fdopen")) return __real_fdopen(file, mode);
  errno = EMFILE;
  return nullptr;
}

size_t __real_fwrite(const void* data, size_t size, size_t count, FILE* file);
size_t __wrap_fwrite(const void* data, size_t size, size_t count, FILE* file) {
  if (!fails("fwrite")) return __real_fwrite(data, size, count, file);
  errno = ENOSPC;
  return count / 2;
}

int __wrap_fprintf(FILE* file, const char* format, ...) {
  if (fails("fprintf")) {
    errno = ENOSPC;
    return -1;
  }
  va_list args;
  va_start(args, format);
  const int result = std::vfprintf(file, format, args);
  va_end(args);
  return result;
}

int __real_fclose(FILE* file);
int __wrap_fclose(FILE* file) {
  const bool fail = fails("fclose");
  const int result = __real_fclose(file);
  if (!fail) return result;
  errno = EIO;
  return EOF;
}

}  // extern "C"
