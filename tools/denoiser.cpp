#include "tools/denoiser.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>

#include "tools/error.h"
#include "tools/threads.h"
#include "vorn_ycnr_ext.h"

namespace vorn::tool {
namespace {

// Priorities of log lines.
constexpr int kDebug = 3;
constexpr int kError = 6;

std::string trimmed(const std::string& text) {
  const size_t first = text.find_first_not_of(" \n");
  if (first == std::string::npos) return "";
  return text.substr(first, text.find_last_not_of(" \n") - first + 1);
}

// The last error of the calling thread's library calls while it lives: the calls
// themselves say no more than -1. All other lines are printed as the library does it, unless
// silent: a handle logs its opening before it has read how much it is to log.
class complaint_catcher {
 public:
  explicit complaint_catcher(bool silent = false) : silent_(silent) {
    static const bool installed = (vorn_ycnr_set_log_sink(take, nullptr), true);
    (void)installed;
    current = this;
  }
  ~complaint_catcher() { current = nullptr; }
  complaint_catcher(const complaint_catcher&) = delete;
  complaint_catcher& operator=(const complaint_catcher&) = delete;

  // What the line says behind its "L number, function:".
  std::string cause() const {
    return last_.empty() ? "no reason given" : trimmed(last_.substr(last_.find(':') + 1));
  }

 private:
  static void take(void*, int32_t priority, const char* message) noexcept {
    if (current && priority >= kError) {
      current->last_ = message;
    } else if (!current || !current->silent_) {
      std::fprintf(stderr, "%c YCNR_LOG: %s\n", "DIWE"[(priority - kDebug) & 3], message);
    }
  }

  static thread_local complaint_catcher* current;
  std::string last_;
  bool silent_;
};

thread_local complaint_catcher* complaint_catcher::current = nullptr;

std::string size_text(int width, int height) {
  return std::to_string(width) + "x" + std::to_string(height);
}

}  // namespace

void quiet_library_log() {
  if (!secure_getenv("VORN_PROPERTIES")) vorn_ycnr_set_log_level(1);
}

denoiser::denoiser(int padded_width, int padded_height, int workers)
    : width_(padded_width), height_(padded_height) {
  const complaint_catcher complaints(true);
  for (int some = workers; some >= 1 && !handle_; some /= 2) {
    const vorn_ycnr_options options = {width_, height_, some, 0};
    handle_ = vorn_ycnr_open(&options);
  }
  if (!handle_) {
    if (threads_to_be_had(1) == 0) throw no_threads("denoiser", "no thread is to be had");
    const std::string cause = complaints.cause();
    const bool memory = cause.find("malloc fail") != std::string::npos;
    throw error("frames of " + size_text(width_, height_),
                memory ? "out of memory" : "refused: " + cause);
  }
}

denoiser::~denoiser() {
  const complaint_catcher complaints(true);
  vorn_ycnr_deinit(handle_);
}

int32_t denoiser::process(frame& f, tuning& t) {
  // Five luma layers need 16 pixels a side; from there on no tuning needs a frame to be enlarged.
  constexpr int kAlwaysEnough = 16;
  if (std::min(width_, height_) < kAlwaysEnough) {
    const vorn_ycnr_planes planes = {
        VORN_LAYOUT_NV12, width_, height_, {f.luma(), f.chroma(), nullptr}, {width_, width_, 0}};
    const auto process_any = t.fine ? vorn_ycnr_process_any_fine : vorn_ycnr_process_any;
    return process_any(handle_, &planes, &planes, &t.luma, &t.chroma);
  }
  result_.resize(f.data.size());
  _tag_uni_image src = {}, dst = {};
  src.type = dst.type = VORN_IMAGE_YUV420SP;
  src.width = dst.width = width_;
  src.height = dst.height = height_;
  src.plane[0] = f.data.data();
  dst.plane[0] = result_.data();
  Denoise_Parameters_t parameters = {0, &t.luma, &t.chroma};
  const auto process_frame = t.fine ? vorn_ycnr_process_fine : vorn_ycnr_process;
  const int32_t result = process_frame(handle_, &src, &dst, &parameters);
  if (result == VORN_OK) f.data.swap(result_);
  return result;
}

void denoiser::run(frame& f, const tuning& t) {
  if (f.padded_width != width_ || f.padded_height != height_) {
    throw error("frame of " + size_text(f.padded_width, f.padded_height),
                "the denoiser is for " + size_text(width_, height_));
  }
  tuning copy = t;
  const complaint_catcher complaints;
  if (process(f, copy) != VORN_OK) throw error("refused by the library", complaints.cause());
}

std::vector<stage_time> denoiser::run_timed(frame& f, const tuning& t) {
  std::vector<stage_time> stages;
  const auto add = [](void* context, const char* stage, double ms) {
    static_cast<std::vector<stage_time>*>(context)->push_back({trimmed(stage), ms});
  };
  vorn_ycnr_set_stage_sink(handle_, add, &stages);
  const auto start = std::chrono::steady_clock::now();
  try {
    run(f, t);
  } catch (...) {
    vorn_ycnr_set_stage_sink(handle_, nullptr, nullptr);
    throw;
  }
  const std::chrono::duration<double, std::milli> ms = std::chrono::steady_clock::now() - start;
  vorn_ycnr_set_stage_sink(handle_, nullptr, nullptr);
  stages.push_back({"whole frame", ms.count()});
  return stages;
}

ycnr_capability_param denoiser::capability() {
  ycnr_capability_param record = {};
  vorn_ycnr_capability(handle_, &record);
  return record;
}

}  // namespace vorn::tool
