// The planes of a trial, and one trial of a kernel.
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <sstream>

#include "tests/kernels/kernel_check.h"

namespace kernel_check {

using vorn::kernel_form;

constexpr int kSideGuard = 64;  // bytes before the first and after the last row
constexpr int kGuardRows = 16;  // rows above and below

// One plane in two copies, for the plain and for the vector run, in memory whose every other byte
// is known.
class plane {
 public:
  plane(const char* name, const region& r, const trial::element& e, bool constant, bool compared,
        int stride, const geometry& g, int index, vorn_test::random_source& random)
      : name_(name),
        region_(r),
        element_(e),
        constant_(constant),
        compared_(compared),
        stride_(stride) {
    const size_t rows = static_cast<size_t>(r.rows + r.above);
    const size_t row_bytes = static_cast<size_t>((r.columns + r.before) * e.size);
    const size_t body = (rows - 1) * static_cast<size_t>(stride) + row_bytes;
    const size_t origin = static_cast<size_t>(r.above) * static_cast<size_t>(stride) +
                          static_cast<size_t>(r.before * e.size);
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    for (auto& copy : copies_) {
      if (g.place == placement::guarded) {
        const size_t guard = kSideGuard + kGuardRows * static_cast<size_t>(stride);
        const size_t lead =
            (guard + 15) / 16 * 16 +
            static_cast<size_t>((g.alignment + 5 * index) % kAlignments / e.size * e.size);
        copy.size = lead + body + guard + 16;
        copy.memory = static_cast<unsigned char*>(aligned_alloc(64, (copy.size + 63) / 64 * 64));
        copy.first = copy.memory + lead;
      } else {
        // The page next to the first or the last byte that may be touched cannot be touched.
        copy.size = (body + page - 1) / page * page;
        copy.mapped = copy.size + page;
        copy.map = static_cast<unsigned char*>(
            mmap(nullptr, copy.mapped, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        if (copy.map == MAP_FAILED) abort();
        const bool after = g.place == placement::page_after;
        copy.memory = after ? copy.map : copy.map + page;
        copy.first = after ? copy.memory + copy.size - body : copy.memory;
        mprotect(after ? copy.map + copy.size : copy.map, page, PROT_NONE);
      }
      copy.origin = copy.first + origin;
    }
    unsigned char* bytes = copies_[0].memory;
    for (size_t i = 0; i < copies_[0].size; ++i)
      bytes[i] = static_cast<unsigned char>(random.next());
  }

  ~plane() {
    for (auto& copy : copies_) {
      if (copy.map)
        munmap(copy.map, copy.mapped);
      else
        free(copy.memory);
    }
  }

  void fill_with(const range& values, fill how, vorn_test::random_source& random) {
    const long middle = values.low + (values.high - values.low) / 2;
    const int width = region_.columns + region_.before, height = region_.rows + region_.above;
    const int spike = random.between(0, width * height - 1);
    for (int y = 0; y < height; ++y)
      for (int x = 0; x < width; ++x) {
        long v = middle;
        switch (how) {
          case fill::noise:
            v = random.between(static_cast<int>(values.low), static_cast<int>(values.high));
            break;
          case fill::low:
            v = values.low;
            break;
          case fill::high:
            v = values.high;
            break;
          case fill::extremes:
            v = (x + y) % 2 ? values.high : values.low;
            break;
          case fill::spike:
            v = y * width + x == spike ? values.high : middle;
            break;
          case fill::ramp:
            v = values.low + (values.high - values.low) * (x + y) / (width + height);
            break;
        }
        element_.store(copies_[0].first + static_cast<ptrdiff_t>(y) * stride_ + x * element_.size,
                       v);
      }
  }

  void fill_by(const trial::generator& values) {
    for (int y = -region_.above; y < region_.rows; ++y)
      for (int x = -region_.before; x < region_.columns; ++x)
        element_.store(copies_[0].origin + static_cast<ptrdiff_t>(y) * stride_ + x * element_.size,
                       values(y, x));
  }

  // Both runs start from the same bytes; the first copy's are kept to compare inputs and
  // surroundings with.
  void freeze() {
    kept_.assign(copies_[0].memory, copies_[0].memory + copies_[0].size);
    std::memcpy(copies_[1].memory, copies_[0].memory, copies_[0].size);
  }

  unsigned char* origin(int run) const { return copies_[run].origin; }
  int stride() const { return stride_; }
  const std::string& name() const { return name_; }

  // What is wrong with this plane after both runs, or "".
  std::string judge(double tolerance, double& largest) const {
    std::string fault;
    for (int run = 0; run < 2; ++run) {
      const auto& copy = copies_[run];
      const char* which = run ? "vector" : "plain";
      for (size_t i = 0; i < copy.size; ++i) {
        if (copy.memory[i] == kept_[i]) continue;
        const ptrdiff_t offset = copy.memory + i - copy.first;
        const bool inside = offset >= 0 && offset / stride_ < region_.rows + region_.above &&
                            offset % stride_ < (region_.columns + region_.before) * element_.size;
        if (inside && !constant_) continue;
        return "the " + std::string(which) + " run changed plane " + name_ +
               (inside ? ", an input," : " outside what it may write,") + " at row " +
               std::to_string(floor_divide(offset, stride_) - region_.above) + ", byte " +
               std::to_string(offset - floor_divide(offset, stride_) * stride_ -
                              region_.before * element_.size);
      }
    }
    if (!compared_) return "";
    for (int y = -region_.above; y < region_.rows; ++y)
      for (int x = -region_.before; x < region_.columns; ++x) {
        const double difference = std::fabs(at(0, y, x) - at(1, y, x));
        largest = std::max(largest, difference);
        if (difference > tolerance && fault.empty()) {
          fault = "plane " + name_ + " differs first at row " + std::to_string(y) + ", column " +
                  std::to_string(x) + "\n" + neighbourhood(0, y, x) + neighbourhood(1, y, x);
        }
      }
    return fault;
  }

 private:
  struct copy {
    unsigned char *memory = nullptr, *first = nullptr, *origin = nullptr, *map = nullptr;
    size_t size = 0, mapped = 0;
  };

  static ptrdiff_t floor_divide(ptrdiff_t a, ptrdiff_t b) {
    return a >= 0 ? a / b : -((b - 1 - a) / b);
  }

  double at(int run, int y, int x) const {
    return element_.value(copies_[run].origin + static_cast<ptrdiff_t>(y) * stride_ +
                          x * element_.size);
  }

  std::string neighbourhood(int run, int y, int x) const {
    std::ostringstream text;
    text << "    " << (run ? "vector" : "plain ") << "\n";
    for (int i = std::max(y - 1, -region_.above); i <= std::min(y + 1, region_.rows - 1); ++i) {
      text << "      row " << i << ":";
      for (int j = std::max(x - 4, -region_.before); j <= std::min(x + 4, region_.columns - 1); ++j)
        text << (i == y && j == x ? " [" : " ") << at(run, i, j) << (i == y && j == x ? "]" : "");
      text << "\n";
    }
    return text.str();
  }

  std::string name_;
  region region_;
  trial::element element_;
  bool constant_, compared_;
  int stride_;
  copy copies_[2];
  std::vector<unsigned char> kept_;
};

template <typename T>
unsigned char* view<T>::bytes(int y) const {
  const plane& p = *owner_->planes_[static_cast<size_t>(index_)];
  return p.origin(owner_->run_) + static_cast<ptrdiff_t>(y) * p.stride();
}
template class view<uint8_t>;
template class view<int8_t>;
template class view<uint16_t>;
template class view<int16_t>;
template class view<uint32_t>;
template class view<int32_t>;
template class view<float>;

trial::trial(const geometry& g, kernel_form form, int tolerance, driver_function driver)
    : width(g.width),
      height(g.height),
      geometry_(g),
      form_(form),
      tolerance_(tolerance),
      driver_(std::move(driver)),
      random_(g.seed) {}
trial::~trial() = default;

int trial::declare(const char* name, region r, element e, range values, bool constant,
                   bool compared, int like, const generator* own) {
  const int index = static_cast<int>(planes_.size());
  const int stride = like >= 0 ? planes_[static_cast<size_t>(like)]->stride()
                               : (r.columns + r.before + kPads[geometry_.pad]) * e.size;
  planes_.push_back(
      std::make_unique<plane>(name, r, e, constant, compared, stride, geometry_, index, random_));
  if (own)
    planes_.back()->fill_by(*own);
  else
    planes_.back()->fill_with(values, geometry_.fill, random_);
  planes_.back()->freeze();
  return index;
}

int trial::parameter(const char* name, int low, int high) {
  const int choice = random_.between(0, 7);
  const int value = choice == 0 ? low : choice == 1 ? high : random_.between(low, high);
  parameters_ += std::string(" ") + name + "=" + std::to_string(value);
  return value;
}

std::string trial::describe() const {
  static const char* const kFillNames[] = {"noise", "low", "high", "extremes", "spike", "ramp"};
  static const char* const kPlaces[] = {"guarded", "page after", "page before"};
  std::ostringstream text;
  text << width << "x" << height << ", stride width+" << kPads[geometry_.pad] << ", alignment "
       << geometry_.alignment << ", fill " << kFillNames[static_cast<int>(geometry_.fill)] << ", "
       << kPlaces[static_cast<int>(geometry_.place)];
  if (!parameters_.empty()) text << "," << parameters_;
  return text.str();
}

const trial* trial::under_way_ = nullptr;

void trial::run(const call_function& call) {
  if (driver_) {
    run_ = 1;
    return driver_(call);
  }
  under_way_ = this;
  for (run_ = 0; run_ < 2; ++run_) call(run_ ? form_ : kernel_form::scalar);
  under_way_ = nullptr;
  for (const auto& p : planes_) {
    const std::string fault = p->judge(tolerance_, result_.largest);
    if (!fault.empty() && result_.report.empty()) result_.report = fault;
  }
}

std::vector<row>& rows() {
  static std::vector<row> all;
  return all;
}

std::map<std::string, size_t>& tables() {
  static std::map<std::string, size_t> all;
  return all;
}

geometry speed_geometry(const row& r) {
  geometry g{r.size.bench_width, r.size.bench_height, 0, 0, fill::noise, placement::guarded, 1};
  g.width -= (g.width - r.size.min_width) % r.size.step;
  return g;
}

void add_all_rows() {
  add_pyramid_rows();
  add_luma_rows();
  add_chroma_rows();
}

}  // namespace kernel_check
