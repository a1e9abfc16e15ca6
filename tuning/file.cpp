#include "tuning/file.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <random>

#include "tuning/set.h"

namespace vorn::tunings {
namespace {

[[noreturn]] void fail(const char* what, int number) {
  throw error{VORN_TUNING_IO, std::string(what) + ": " + std::strerror(number), {}, 0, number};
}

// Closes on every way out.
struct descriptor {
  int number;
  explicit descriptor(int n) : number(n) {}
  ~descriptor() {
    if (number >= 0) close(number);
  }
  descriptor(const descriptor&) = delete;
  descriptor& operator=(const descriptor&) = delete;
};

void write_all(int file, const std::string& text) {
  for (size_t done = 0; done < text.size();) {
    const ssize_t wrote = write(file, text.data() + done, text.size() - done);
    if (wrote < 0 && errno != EINTR) fail("cannot be written", errno);
    if (wrote > 0) done += size_t(wrote);
  }
}

// Where the file itself is, should path be a symbolic link; the link's target may not exist yet.
std::string followed(std::string path) {
  char target[PATH_MAX];
  for (int links = 0; links < 40; links++) {
    const ssize_t size = readlink(path.c_str(), target, sizeof target);
    if (size < 0 || size == sizeof target) return path;
    const std::string text(target, size_t(size));
    const size_t slash = path.rfind('/');
    path = text[0] == '/' || slash == std::string::npos ? text : path.substr(0, slash + 1) + text;
  }
  fail("cannot be written", ELOOP);
}

// Creates a file beside place with a name that nobody can foresee and the permissions that any new
// file gets. The name is short whatever the final one's length.
int open_beside(const std::string& place, std::string& beside) {
  std::random_device random;
  for (int tries = 0;; tries++) {
    beside = place.substr(0, place.rfind('/') + 1) + ".vorn-" + std::to_string(random());
    const int number = open(beside.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (number >= 0) return number;
    if (errno != EEXIST || tries == 100) fail("cannot be written", errno);
  }
}

}  // namespace

std::string read_file(const std::string& path, size_t most) {
  const descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (file.number < 0) fail("cannot be read", errno);
  std::string text;
  char piece[16384];
  for (;;) {
    const ssize_t got = read(file.number, piece, sizeof piece);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) fail("cannot be read", errno);
    if (got == 0) return text;
    text.append(piece, size_t(got));
    if (text.size() > most) return text;
  }
}

void write_file(const std::string& path, const std::string& text) {
  const std::string place = followed(path);
  struct stat status;
  const bool there = stat(place.c_str(), &status) == 0;
  if (there && !S_ISREG(status.st_mode)) {
    const descriptor file(open(place.c_str(), O_WRONLY | O_CLOEXEC));
    if (file.number < 0) fail("cannot be written", errno);
    write_all(file.number, text);
    return;
  }
  std::string beside;
  const int number = open_beside(place, beside);
  try {
    const descriptor file(number);
    if (there && fchmod(file.number, status.st_mode & 07777) != 0) fail("cannot be written", errno);
    write_all(file.number, text);
    if (fsync(file.number) != 0 && errno != EINVAL) fail("cannot be written", errno);
    if (rename(beside.c_str(), place.c_str()) != 0) fail("cannot be written", errno);
  } catch (...) {
    unlink(beside.c_str());
    throw;
  }
}

}  // namespace vorn::tunings
