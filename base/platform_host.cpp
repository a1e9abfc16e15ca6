// Host stand-in for the device's properties and log.
#include "base/platform.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace vorn {
namespace {

constexpr long kPropertyFileMax = 1 << 20;  // what lies behind is not read

// The file of properties; null where there is none. Only a regular file: reading another one may
// never end. A program with its user's or group's privileges raised does not read what the user
// names.
FILE* open_properties() {
  const char* path = secure_getenv("VORN_PROPERTIES");
  const int file = path && *path ? open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC) : -1;
  if (file < 0) return nullptr;
  struct stat kind;
  FILE* stream = fstat(file, &kind) == 0 && S_ISREG(kind.st_mode) ? fdopen(file, "r") : nullptr;
  if (!stream) close(file);
  return stream;
}

// Reads one line into text, cut at size - 1 characters. Returns false at the end of the file.
bool read_line(FILE* file, char* text, size_t size) {
  size_t length = 0;
  int c = std::getc(file);
  if (c == EOF) return false;
  for (; c != EOF && c != '\n'; c = std::getc(file))
    if (length + 1 < size) text[length++] = static_cast<char>(c);
  if (length > 0 && text[length - 1] == '\r') --length;  // written on a desktop system
  text[length] = '\0';
  return true;
}

char priority_letter(int priority) {
  constexpr char kLetters[] = "DIWE";  // priorities 3..6
  return priority >= 3 && priority <= 6 ? kLetters[priority - 3] : '?';
}

}  // namespace

// Properties live in the text file that VORN_PROPERTIES names, one "name=value" a line, '#' for
// comments. It is read at every query, so that dumps can be switched while frames are running; of
// several lines with one name the last counts.
int platform_property(const char* name, char value[kPropertyMax]) {
  value[0] = '\0';
  FILE* file = open_properties();
  if (!file) return 0;
  char line[1024];
  const size_t name_length = std::strlen(name);
  int length = 0;
  while (std::ftell(file) < kPropertyFileMax && read_line(file, line, sizeof line)) {
    if (line[0] == '#' || std::strncmp(line, name, name_length) != 0 || line[name_length] != '=')
      continue;
    length = std::snprintf(value, kPropertyMax, "%s", line + name_length + 1);
  }
  std::fclose(file);
  return length;
}

// One line "<P> <tag>: <message>" in one write, so that lines of several threads do not mix.
void platform_log(int priority, const char* tag, const char* message) {
  char line[1200];
  int length =
      std::snprintf(line, sizeof line - 1, "%c %s: %s", priority_letter(priority), tag, message);
  if (length < 0) return;
  if (length > static_cast<int>(sizeof line) - 2) length = static_cast<int>(sizeof line) - 2;
  if (length == 0 || line[length - 1] != '\n') line[length++] = '\n';
  while (write(STDERR_FILENO, line, static_cast<size_t>(length)) < 0 && errno == EINTR) {
  }
}

}  // namespace vorn
