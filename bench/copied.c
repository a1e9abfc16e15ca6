/* Preloaded, adds up the bytes of all memcpy and memmove calls of 64 bytes and more, and writes the
 * sum to the file COPIED names. */
#include <stdatomic.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>

static atomic_ullong copied;

static void* move(void* to, const void* from, size_t bytes) {
  if (bytes >= 64) copied += bytes;
  unsigned char* t = to;
  const unsigned char* f = from;
  if (t < f) {
    __asm__ volatile("rep movsb" : "+D"(t), "+S"(f), "+c"(bytes) : : "memory");
  } else {
    while (bytes--) ((volatile unsigned char*)t)[bytes] = f[bytes];
  }
  return to;
}

void* memcpy(void* to, const void* from, size_t bytes) {
  return move(to, from, bytes);
}
void* memmove(void* to, const void* from, size_t bytes) {
  return move(to, from, bytes);
}
void* __memcpy_chk(void* to, const void* from, size_t bytes, size_t room) {
  return bytes > room ? (abort(), NULL) : move(to, from, bytes);
}
void* __memmove_chk(void* to, const void* from, size_t bytes, size_t room) {
  return __memcpy_chk(to, from, bytes, room);
}

__attribute__((destructor)) static void tell(void) {
  const char* name = getenv("COPIED");
  FILE* file = name ? fopen(name, "w") : NULL;
  if (!file) return;
  fprintf(file, "%llu\n", (unsigned long long)copied);
  fclose(file);
}
