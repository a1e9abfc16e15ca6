// What the tests need of the machine: captured log lines, a scratch directory, properties, counts
// of the process's own resources.
#pragma once

#include <fcntl.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace vorn_test {

inline std::string read_file(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

// A directory of its own, removed at the end.
class temp_dir {
 public:
  temp_dir() {
    std::string name = (std::filesystem::temp_directory_path() / "vorn-test-XXXXXX").string();
    if (!mkdtemp(name.data())) abort();
    path_ = name;
  }
  ~temp_dir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  temp_dir(const temp_dir&) = delete;
  temp_dir& operator=(const temp_dir&) = delete;

  const std::filesystem::path& path() const { return path_; }

  std::vector<std::string> files() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(path_))
      names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
  }

 private:
  std::filesystem::path path_;
};

// The text of VORN_PROPERTIES while the object lives.
class properties {
 public:
  explicit properties(const std::string& text = "") {
    set(text);
    setenv("VORN_PROPERTIES", file().c_str(), 1);
  }
  ~properties() { unsetenv("VORN_PROPERTIES"); }
  properties(const properties&) = delete;
  properties& operator=(const properties&) = delete;

  void set(const std::string& text) { std::ofstream(file(), std::ios::binary) << text; }

 private:
  std::string file() const { return (dir_.path() / "props").string(); }
  temp_dir dir_;
};

// Collects what is written to standard error while the object lives.
class log_capture {
 public:
  log_capture() {
    std::fflush(stderr);
    file_ = memfd_create("log", 0);
    // Appending: lines of several threads at once would share one place in the file otherwise.
    if (fcntl(file_, F_SETFL, O_APPEND) < 0) abort();
    saved_ = dup(STDERR_FILENO);
    if (file_ < 0 || saved_ < 0 || dup2(file_, STDERR_FILENO) < 0) abort();
  }
  ~log_capture() {
    dup2(saved_, STDERR_FILENO);
    close(saved_);
    close(file_);
  }
  log_capture(const log_capture&) = delete;
  log_capture& operator=(const log_capture&) = delete;

  std::string text() const {
    std::string text(static_cast<size_t>(lseek(file_, 0, SEEK_END)), '\0');
    if (pread(file_, text.data(), text.size(), 0) < 0) abort();
    return text;
  }

  // The lines with the number after "L " replaced by "#": source line numbers move.
  std::vector<std::string> lines() const {
    std::vector<std::string> result;
    std::istringstream in(text());
    for (std::string line; std::getline(in, line);) {
      const size_t number = line.find(": L ");
      if (number != std::string::npos) {
        const size_t end = line.find_first_not_of("0123456789", number + 4);
        line.replace(number + 4, end - number - 4, "#");
      }
      result.push_back(line);
    }
    return result;
  }

  bool has(const std::string& line) const {
    for (const std::string& each : lines())
      if (each == line) return true;
    return false;
  }

  // Number of lines of one priority: 'D', 'I', 'W' or 'E'.
  int count(char priority) const {
    int found = 0;
    for (const std::string& line : lines()) found += line.rfind(priority, 0) == 0;
    return found;
  }

 private:
  int file_;
  int saved_;
};

inline int count_entries(const char* directory) {
  int count = 0;
  for (const auto& entry : std::filesystem::directory_iterator(directory)) {
    (void)entry;
    ++count;
  }
  return count;
}

inline int open_descriptors() {
  return count_entries("/proc/self/fd");
}

// A joined thread stands in the list of threads for a moment longer, so a count is taken when it
// has kept for a while. Under emulation the emulator's own threads count too, the same at every
// call; the thread sanitizer's own thread comes with the first one that the program starts.
inline int running_threads() {
  static const bool one_started = (std::thread([] {}).join(), true);
  static_cast<void>(one_started);
  int count = -1;
  for (int kept = 0; kept < 20; usleep(2000)) {
    const int now = count_entries("/proc/self/task");
    kept = now == count ? kept + 1 : 0;
    count = now;
  }
  return count;
}

// The same, but waits up to five seconds for the count that is expected.
inline int threads_reaching(int expected) {
  int count = count_entries("/proc/self/task");
  for (int i = 0; i < 2500 && count != expected; ++i) {
    usleep(2000);
    count = count_entries("/proc/self/task");
  }
  return count;
}

// As log lines print a pointer.
inline std::string pointer_text(const void* p) {
  char text[40];
  std::snprintf(text, sizeof text, "%p", p);
  return text;
}

// 64-bit FNV-1a over bytes, continuing from `hash`: one number for a whole table or plane.
inline uint64_t checksum(const void* data, size_t bytes, uint64_t hash = 0xcbf29ce484222325u) {
  for (size_t i = 0; i < bytes; ++i)
    hash = (hash ^ static_cast<const unsigned char*>(data)[i]) * 0x100000001b3u;
  return hash;
}

}  // namespace vorn_test
