#include "tools/denoiser.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tools/error.h"
#include "tools/threads.h"
#include "vorn_ycnr_ext.h"

namespace vorn::tool {
namespace {

// Priorities of log lines.
constexpr int kDebug = 3;
constexpr int kWarning = 5;

// The log is verbose for the stage times alone, so what workers add to it is not shown.
std::atomic<bool> verbose_for_times{false};

// Lines of the calling thread's library calls, from a priority on, kept while it lives.
class log_capture {
 public:
  struct line {
    int priority;
    std::string message;
  };

  explicit log_capture(int lowest_priority) : lowest_(lowest_priority) {
    static const bool installed = (vorn_ycnr_set_log_sink(take, nullptr), true);
    (void)installed;
    current = this;
  }
  ~log_capture() { current = nullptr; }
  log_capture(const log_capture&) = delete;
  log_capture& operator=(const log_capture&) = delete;

  const std::vector<line>& lines() const { return lines_; }

  // As the library does it without a sink.
  static void print(int priority, const char* message) {
    std::fprintf(stderr, "%c YCNR_LOG: %s\n", "DIWE"[(priority - kDebug) & 3], message);
  }

 private:
  static void take(void*, int32_t priority, const char* message) noexcept {
    if (current && priority >= current->lowest_) {
      current->lines_.push_back({priority, message});
    } else if (priority >= kWarning || !verbose_for_times) {
      print(priority, message);
    }
  }

  static thread_local log_capture* current;
  int lowest_;
  std::vector<line> lines_;
};

thread_local log_capture* log_capture::current = nullptr;

std::string trimmed(const std::string& text) {
  const size_t first = text.find_first_not_of(" \n");
  if (first == std::string::npos) return "";
  return text.substr(first, text.find_last_not_of(" \n") - first + 1);
}

// What a line says behind its "L number, function:".
std::string text_of(const log_capture::line& line) {
  return trimmed(line.message.substr(line.message.find(':') + 1));
}

// The last error or warning in the log; the calls themselves say no more than -1.
std::string last_complaint(const log_capture& log) {
  std::string cause = "no reason given";
  for (const log_capture::line& line : log.lines()) {
    if (line.priority >= kWarning) cause = text_of(line);
  }
  return cause;
}

// Lines like "layer 0 pre_mask cost time: 1.234 ms" and "cnr_process time cost : 1.234".
std::vector<stage_time> stage_times(const log_capture& log) {
  std::vector<stage_time> stages;
  for (const log_capture::line& line : log.lines()) {
    const std::string text = text_of(line);
    size_t mark = text.find(" cost time");
    if (mark == std::string::npos) mark = text.find(" time cost");
    if (mark == std::string::npos) continue;
    const size_t colon = text.find(':', mark);
    if (colon == std::string::npos) continue;
    stages.push_back({trimmed(text.substr(0, mark)), std::atof(text.c_str() + colon + 1)});
  }
  return stages;
}

std::string size_text(int width, int height) {
  return std::to_string(width) + "x" + std::to_string(height);
}

// Least width and height for a tuning, both even: a pixel on the coarsest luma level and one whole
// block, a pixel on every chroma level in use.
int least_side(const tuning& t) {
  int least = 2;
  if (t.luma.enable == 1 && t.luma.layer >= 2 && t.luma.layer <= 5)
    least = std::max(4, 1 << (t.luma.layer - 1));
  const bool two_levels = t.chroma.scale == 1 || t.chroma.scale == 2;
  if (t.chroma.enable == 1 && two_levels) least = std::max(least, 4);
  return least;
}

// f with its last column and row, the padding included, repeated to a larger even size.
frame enlarge(const frame& f, int width, int height) {
  frame out = make_frame(width, height);
  for (int y = 0; y < height; ++y) {
    const uint8_t* const from =
        f.luma() + size_t(std::min(y, f.padded_height - 1)) * f.padded_width;
    uint8_t* const to = out.luma() + size_t(y) * width;
    for (int x = 0; x < width; ++x) to[x] = from[std::min(x, f.padded_width - 1)];
  }
  for (int y = 0; y < height / 2; ++y) {
    const int row = std::min(y, f.chroma_height() - 1);
    const uint8_t* const from = f.chroma() + size_t(row) * f.padded_width;
    uint8_t* const to = out.chroma() + size_t(y) * width;
    for (int x = 0; x < width; ++x) to[x] = from[std::min(x / 2, f.chroma_width() - 1) * 2 + x % 2];
  }
  return out;
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
  verbose_for_times = true;
  set_log_level(4);
}

denoiser::denoiser(int padded_width, int padded_height, int workers)
    : width_(padded_width), height_(padded_height) {
  const log_capture log(kDebug);
  for (int some = workers; some >= 1 && !handle_; some /= 2) {
    const vorn_ycnr_options options = {width_, height_, some, 0};
    handle_ = vorn_ycnr_open(&options);
  }
  if (!handle_) {
    if (!thread_group().start([] {})) throw no_threads("denoiser", "no thread is to be had");
    throw error("frames of " + size_text(width_, height_), "refused: " + last_complaint(log));
  }
}

denoiser::~denoiser() {
  const log_capture log(kDebug);
  vorn_ycnr_deinit(handle_);
}

void denoiser::process(frame& f, const tuning& t, std::vector<stage_time>* stages) {
  if (f.padded_width != width_ || f.padded_height != height_) {
    throw error("frame of " + size_text(f.padded_width, f.padded_height),
                "the denoiser is for " + size_text(width_, height_));
  }
  const int least = least_side(t);
  if (width_ < least || height_ < least) return process_enlarged(f, t, stages);
  result_.resize(f.data.size());
  tuning copy = t;
  _tag_uni_image src = {}, dst = {};
  src.type = dst.type = VORN_IMAGE_YUV420SP;
  src.width = dst.width = width_;
  src.height = dst.height = height_;
  src.plane[0] = f.data.data();
  dst.plane[0] = result_.data();
  Denoise_Parameters_t parameters = {0, &copy.luma, &copy.chroma};
  const log_capture log(stages ? kDebug : kWarning);
  const auto process_frame = t.fine ? vorn_ycnr_process_fine : vorn_ycnr_process;
  if (process_frame(handle_, &src, &dst, &parameters) != VORN_OK) {
    throw error("refused by the library", last_complaint(log));
  }
  if (stages) {
    *stages = stage_times(log);
  } else {
    for (const log_capture::line& line : log.lines()) {
      log_capture::print(line.priority, line.message.c_str());
    }
  }
  f.data.swap(result_);
}

void denoiser::process_enlarged(frame& f, const tuning& t, std::vector<stage_time>* stages) {
  const int least = least_side(t);
  const int width = std::max(width_, least), height = std::max(height_, least);
  if (!larger_ || larger_->width() != width || larger_->height() != height)
    larger_ = std::make_unique<denoiser>(width, height);
  frame large = enlarge(f, width, height);
  larger_->process(large, t, stages);
  for (int y = 0; y < height_; ++y)
    std::memcpy(f.luma() + size_t(y) * width_, large.luma() + size_t(y) * width, width_);
  for (int y = 0; y < height_ / 2; ++y)
    std::memcpy(f.chroma() + size_t(y) * width_, large.chroma() + size_t(y) * width, width_);
}

void denoiser::run(frame& f, const tuning& t) {
  process(f, t, nullptr);
}

std::vector<stage_time> denoiser::run_timed(frame& f, const tuning& t) {
  std::vector<stage_time> stages;
  const auto start = std::chrono::steady_clock::now();
  process(f, t, &stages);
  const std::chrono::duration<double, std::milli> ms = std::chrono::steady_clock::now() - start;
  stages.push_back({"whole frame", ms.count()});
  return stages;
}

ycnr_capability_param denoiser::capability() {
  ycnr_capability_param record = {};
  vorn_ycnr_capability(handle_, &record);
  return record;
}

}  // namespace vorn::tool
