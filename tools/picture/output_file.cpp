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
    for (int s : {SIGINT, SIGTERM, SIGHUP, SIGPIPE, SIGQUIT}) {
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

// What new files may be used for, less what the user keeps off. Asked for once, on one thread.
mode_t usual_mode() {
  static const mode_t mode = [] {
    const mode_t mask = umask(0);
    umask(mask);
    return mode_t(0666 & ~mask);
  }();
  return mode;
}

// Where a chain of symbolic links ends, whether there is a file or not.
std::string followed(std::string path) {
  namespace fs = std::filesystem;
  std::error_code code;
  for (int links = 0; links < 40 && fs::is_symlink(path, code); ++links) {
    const fs::path next = fs::read_symlink(path, code);
    if (code) break;
    path = next.is_absolute() ? next.string() : (fs::path(path).parent_path() / next).string();
  }
  return path;
}

std::string directory_of(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
}

std::string descriptor_path(int descriptor) {
  return "/proc/self/fd/" + std::to_string(descriptor);
}

// A name beside the result that nothing has.
std::string free_name(const std::string& directory) {
  static std::atomic<unsigned> count{0};
  return directory + "/.vorn-" + std::to_string(getpid()) + "-" + std::to_string(count++);
}

}  // namespace

void output_file::fail() const {
  throw error(path_ == "-" ? "standard output" : path_, "cannot be written: " + reason());
}

output_file::output_file(const std::string& path) : path_(path) {
  if (path == "-") {
    file_ = stdout;
    return;
  }
  struct stat status;
  const bool there = stat(path.c_str(), &status) == 0;
  if (there && S_ISDIR(status.st_mode)) throw error(path, "is a directory");
  if (there && !S_ISREG(status.st_mode)) {
    file_ = std::fopen(path.c_str(), "wb");
    if (!file_) fail();
    return;
  }
  if (there && access(path.c_str(), W_OK) != 0) fail();
  target_ = followed(path);
  open_beside(directory_of(target_));
  const int descriptor = fileno(file_);
  if (!there) {
    fchmod(descriptor, usual_mode());
    return;
  }
  // Changing the owner clears bits of the mode, so it comes first.
  const bool owned = fchown(descriptor, status.st_uid, status.st_gid) == 0;
  fchmod(descriptor, status.st_mode & (owned ? 07777 : 0777));
}

void output_file::open_beside(const std::string& directory) {
  int descriptor = -1;
#ifdef O_TMPFILE
  if (access("/proc/self/fd", X_OK) == 0) {  // it gets its name through there
    descriptor = open(directory.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
  }
#endif
  if (descriptor < 0) {
    temporary_ = directory + "/.vorn-XXXXXX";
    descriptor = mkostemp(temporary_.data(), O_CLOEXEC);
    if (descriptor < 0) {
      temporary_.clear();
      fail();
    }
    remember(temporary_);
  }
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
  if (std::fwrite(bytes, 1, size, file_) != size) fail();
}

// Gives the unnamed file its name. One that exists can only be replaced by a rename.
void output_file::put_in_place() {
  const std::string unnamed = descriptor_path(fileno(file_));
  if (linkat(AT_FDCWD, unnamed.c_str(), AT_FDCWD, target_.c_str(), AT_SYMLINK_FOLLOW) == 0) return;
  if (errno != EEXIST) fail();
  const std::string directory = directory_of(target_);
  for (;;) {
    temporary_ = free_name(directory);
    remember(temporary_);
    if (linkat(AT_FDCWD, unnamed.c_str(), AT_FDCWD, temporary_.c_str(), AT_SYMLINK_FOLLOW) == 0) {
      return;
    }
    const int why = errno;
    forget(temporary_);
    temporary_.clear();
    errno = why;
    if (errno != EEXIST) fail();
  }
}

void output_file::commit() {
  if (std::fflush(file_) != 0) fail();
  if (!target_.empty() && temporary_.empty()) put_in_place();
  std::FILE* const file = file_;
  file_ = nullptr;
  if (file != stdout && std::fclose(file) != 0) fail();
  if (temporary_.empty()) return;
  if (std::rename(temporary_.c_str(), target_.c_str()) != 0) fail();
  forget(temporary_);
  temporary_.clear();
}

void refuse_replacing(const std::string& output, const std::vector<std::string>& inputs) {
  if (output.empty() || output == "-") return;
  struct stat out, in;
  if (stat(output.c_str(), &out) != 0 || !S_ISREG(out.st_mode)) return;
  for (const std::string& input : inputs) {
    if (input == "-" || stat(input.c_str(), &in) != 0) continue;
    if (in.st_dev != out.st_dev || in.st_ino != out.st_ino) continue;
    throw error(output, "would replace the input" + (input == output ? "" : " " + input) +
                            "; name another file");
  }
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
