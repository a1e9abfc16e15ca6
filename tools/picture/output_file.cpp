#include "tools/picture/output_file.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <mutex>

#include "tools/error.h"

namespace vorn::tool {
namespace {

// Names that an interrupt must remove. A handler may only read memory and call unlink, so the names
// stand in fixed slots; a slot is empty while its first character is 0.
constexpr int kSlots = 64;
constexpr size_t kNameSize = 4096;
char unfinished[kSlots][kNameSize];
std::mutex unfinished_lock;

void remove_unfinished(int signal_number) {
  for (auto& name : unfinished) {
    if (name[0]) unlink(name);
  }
  signal(signal_number, SIG_DFL);
  raise(signal_number);
}

void remember(const std::string& name) {
  static std::once_flag installed;
  std::call_once(installed, [] {
    for (int s : {SIGINT, SIGTERM, SIGHUP, SIGPIPE}) {
      struct sigaction old = {};
      sigaction(s, nullptr, &old);
      if (old.sa_handler == SIG_DFL) signal(s, remove_unfinished);
    }
  });
  if (name.size() >= kNameSize) return;
  std::lock_guard<std::mutex> guard(unfinished_lock);
  for (auto& slot : unfinished) {
    if (slot[0]) continue;
    std::memcpy(slot + 1, name.c_str() + 1, name.size());  // the first character makes it valid
    std::atomic_signal_fence(std::memory_order_seq_cst);
    slot[0] = name[0];
    return;
  }
}

void forget(const std::string& name) {
  std::lock_guard<std::mutex> guard(unfinished_lock);
  for (auto& slot : unfinished) {
    if (name == slot) slot[0] = 0;
  }
}

std::string reason() {
  return std::strerror(errno);
}

}  // namespace

output_file::output_file(const std::string& path) : path_(path) {
  if (path == "-") {
    file_ = stdout;
    return;
  }
  struct stat status;
  if (stat(path.c_str(), &status) == 0) {
    if (S_ISDIR(status.st_mode)) throw error(path, "is a directory");
    if (!S_ISREG(status.st_mode)) {
      file_ = std::fopen(path.c_str(), "wb");
      if (!file_) throw error(path, "cannot be written: " + reason());
      return;
    }
  }
  temporary_ = path + ".XXXXXX";
  const int descriptor = mkstemp(temporary_.data());
  if (descriptor < 0) {
    const std::string why = reason();
    temporary_.clear();
    throw error(path, "cannot be written: " + why);
  }
  remember(temporary_);
  const mode_t mask = umask(0);
  umask(mask);
  fchmod(descriptor, 0666 & ~mask);
  file_ = fdopen(descriptor, "wb");
}

output_file::~output_file() {
  if (file_ && file_ != stdout) std::fclose(file_);
  if (!temporary_.empty()) {
    unlink(temporary_.c_str());
    forget(temporary_);
  }
}

void output_file::write(const void* bytes, size_t size) {
  if (std::fwrite(bytes, 1, size, file_) != size) {
    throw error(path_ == "-" ? "standard output" : path_, "cannot be written: " + reason());
  }
}

void output_file::commit() {
  const bool written = std::fflush(file_) == 0 && (file_ == stdout || std::fclose(file_) == 0);
  file_ = nullptr;
  if (!written) {
    throw error(path_ == "-" ? "standard output" : path_, "cannot be written: " + reason());
  }
  if (temporary_.empty()) return;
  if (std::rename(temporary_.c_str(), path_.c_str()) != 0) {
    throw error(path_, "cannot be written: " + reason());
  }
  forget(temporary_);
  temporary_.clear();
}

void write_file(const std::string& path, const std::vector<uint8_t>& bytes) {
  output_file file(path);
  file.write(bytes.data(), bytes.size());
  file.commit();
}

void write_file(const std::string& path, const std::string& text) {
  output_file file(path);
  file.write(text.data(), text.size());
  file.commit();
}

std::vector<uint8_t> read_file(const std::string& path) {
  const bool standard_input = path == "-";
  const std::string name = standard_input ? "standard input" : path;
  struct stat status;
  if (!standard_input && stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) {
    throw error(name, "is a directory");
  }
  std::FILE* const file = standard_input ? stdin : std::fopen(path.c_str(), "rb");
  if (!file) throw error(name, "cannot be read: " + reason());
  std::vector<uint8_t> bytes;
  size_t size = 0;
  for (;;) {
    bytes.resize(size + (size_t(1) << 20));
    const size_t got = std::fread(bytes.data() + size, 1, bytes.size() - size, file);
    size += got;
    if (got == 0) break;
  }
  const bool failed = std::ferror(file);
  const std::string why = reason();
  if (!standard_input) std::fclose(file);
  if (failed) throw error(name, "cannot be read: " + why);
  bytes.resize(size);
  return bytes;
}

std::string read_text_file(const std::string& path) {
  const std::vector<uint8_t> bytes = read_file(path);
  return std::string(bytes.begin(), bytes.end());
}

void make_directory(const std::string& path) {
  std::error_code code;
  std::filesystem::create_directories(path, code);
  if (code) throw error(path, "cannot be created: " + code.message());
}

bool is_directory(const std::string& path) {
  std::error_code code;
  return std::filesystem::is_directory(path, code);
}

std::vector<std::string> expand_inputs(const std::vector<std::string>& names) {
  std::vector<std::string> files;
  for (const std::string& name : names) {
    if (name == "-" || !is_directory(name)) {
      files.push_back(name);
      continue;
    }
    std::vector<std::string> inside;
    std::error_code code;
    for (std::filesystem::directory_iterator at(name, code), end; !code && at != end;
         at.increment(code)) {
      if (at->is_regular_file(code)) inside.push_back(at->path().string());
    }
    if (code) throw error(name, "cannot be read: " + code.message());
    std::sort(inside.begin(), inside.end());
    files.insert(files.end(), inside.begin(), inside.end());
  }
  return files;
}

}  // namespace vorn::tool
