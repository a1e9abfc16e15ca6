#include "tools/denoiser.h"

#include <sys/mman.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "tools/error.h"

namespace vorn::tool {
namespace {

// The library logs to standard error. While one of these lives, descriptor 2 leads into memory.
class log_capture {
 public:
  log_capture() : guard_(lock()) {
    std::fflush(stderr);
    memory_ = memfd_create("log", MFD_CLOEXEC);
    saved_ = memory_ < 0 ? -1 : dup(STDERR_FILENO);
    if (saved_ >= 0) dup2(memory_, STDERR_FILENO);
  }
  ~log_capture() { stop(); }
  // Ends the capture and gives what was logged.
  std::string stop() {
    std::string text;
    if (saved_ >= 0) {
      dup2(saved_, STDERR_FILENO);
      close(saved_);
      saved_ = -1;
      char piece[4096];
      lseek(memory_, 0, SEEK_SET);
      for (ssize_t got; (got = read(memory_, piece, sizeof piece)) > 0;) text.append(piece, got);
    }
    if (memory_ >= 0) close(memory_);
    memory_ = -1;
    return text;
  }

 private:
  static std::mutex& lock() {
    static std::mutex one;
    return one;
  }
  std::lock_guard<std::mutex> guard_;
  int memory_;
  int saved_;
};

constexpr const char kTag[] = " YCNR_LOG: ";

// Calls use(priority, message) for every log line; the message without its "L number, function:".
template <typename Use>
void for_each_line(const std::string& log, Use use) {
  for (size_t at = 0; at < log.size();) {
    size_t end = log.find('\n', at);
    if (end == std::string::npos) end = log.size();
    const std::string line = log.substr(at, end - at);
    at = end + 1;
    if (line.size() < sizeof kTag || line.compare(1, sizeof kTag - 1, kTag) != 0) continue;
    const size_t colon = line.find(':', sizeof kTag);
    if (colon != std::string::npos) use(line[0], line.substr(colon + 1));
  }
}

std::string trimmed(const std::string& text) {
  const size_t first = text.find_first_not_of(" \n");
  if (first == std::string::npos) return "";
  return text.substr(first, text.find_last_not_of(" \n") - first + 1);
}

// The last error or warning in the log; the calls themselves say no more than -1.
std::string last_complaint(const std::string& log, const std::string& otherwise) {
  std::string cause = otherwise;
  for_each_line(log, [&](char priority, const std::string& message) {
    if (priority == 'E' || priority == 'W') cause = trimmed(message);
  });
  return cause;
}

// Lines like "layer 0 pre_mask cost time: 1.234 ms" and "cnr_process time cost : 1.234".
std::vector<stage_time> stage_times(const std::string& log) {
  std::vector<stage_time> stages;
  for_each_line(log, [&](char, const std::string& message) {
    size_t mark = message.find(" cost time");
    if (mark == std::string::npos) mark = message.find(" time cost");
    if (mark == std::string::npos) return;
    const size_t colon = message.find(':', mark);
    if (colon == std::string::npos) return;
    stages.push_back({trimmed(message.substr(0, mark)), std::atof(message.c_str() + colon + 1)});
  });
  return stages;
}

std::string size_text(int width, int height) {
  return std::to_string(width) + "x" + std::to_string(height);
}

// Names a file in memory as the library's property file.
void set_log_level(int level) {
  const int memory = memfd_create("properties", 0);
  if (memory < 0) return;
  const std::string text = "persist.vendor.cam.nr_api.log=" + std::to_string(level) + "\n";
  if (write(memory, text.data(), text.size()) != ssize_t(text.size())) return;
  setenv("VORN_PROPERTIES", ("/proc/self/fd/" + std::to_string(memory)).c_str(), 1);
}

}  // namespace

void quiet_library_log() {
  if (!std::getenv("VORN_PROPERTIES")) set_log_level(1);
}

void verbose_library_log() {
  set_log_level(4);
}

denoiser::denoiser(int padded_width, int padded_height)
    : width_(padded_width), height_(padded_height) {
  ycnr_init_param size = {width_, height_};
  log_capture capture;
  handle_ = vorn_ycnr_init(&size);
  const std::string log = capture.stop();
  if (!handle_) {
    throw error("frames of " + size_text(width_, height_),
                "refused: " + last_complaint(log, "no reason given"));
  }
}

denoiser::~denoiser() {
  log_capture capture;
  vorn_ycnr_deinit(handle_);
}

void denoiser::process(frame& f, const tuning& t, std::string* log) {
  if (f.padded_width != width_ || f.padded_height != height_) {
    throw error("frame of " + size_text(f.padded_width, f.padded_height),
                "the denoiser is for " + size_text(width_, height_));
  }
  result_.resize(f.data.size());
  tuning copy = t;
  _tag_uni_image src = {}, dst = {};
  src.type = dst.type = VORN_IMAGE_YUV420SP;
  src.width = dst.width = width_;
  src.height = dst.height = height_;
  src.plane[0] = f.data.data();
  dst.plane[0] = result_.data();
  Denoise_Parameters_t parameters = {0, &copy.luma, &copy.chroma};
  int32_t result;
  std::string lines;
  if (log) {
    log_capture capture;
    result = vorn_ycnr_process(handle_, &src, &dst, &parameters);
    lines = capture.stop();
    *log = lines;
  } else {
    result = vorn_ycnr_process(handle_, &src, &dst, &parameters);
  }
  if (result != VORN_OK) {
    throw error("frame of " + size_text(width_, height_),
                "refused by the library: " + last_complaint(lines, "see its log above"));
  }
  f.data.swap(result_);
}

void denoiser::run(frame& f, const tuning& t) {
  process(f, t, nullptr);
}

std::vector<stage_time> denoiser::run_timed(frame& f, const tuning& t) {
  std::string log;
  const auto start = std::chrono::steady_clock::now();
  process(f, t, &log);
  const std::chrono::duration<double, std::milli> ms = std::chrono::steady_clock::now() - start;
  std::vector<stage_time> stages = stage_times(log);
  stages.push_back({"whole frame", ms.count()});
  return stages;
}

ycnr_capability_param denoiser::capability() {
  ycnr_capability_param record = {};
  vorn_ycnr_capability(handle_, &record);
  return record;
}

}  // namespace vorn::tool
