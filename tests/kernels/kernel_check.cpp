// Holds every vector function against its plain rule. See README.md and --help.
#include "tests/kernels/kernel_check.h"

#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

namespace kernel_check {

using vorn::kernel_form;

constexpr int kSideGuard = 64;  // bytes before the first and after the last row
constexpr int kGuardRows = 16;  // rows above and below

// One plane in two copies, for the plain and for the vector run, in memory whose every other byte
// is known.
class plane {
 public:
  plane(const char* name, const region& r, const trial::element& e, bool constant, bool compared,
        int stride, const geometry& g, int index, std::mt19937& random)
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
    for (size_t i = 0; i < copies_[0].size; ++i) bytes[i] = static_cast<unsigned char>(random());
  }

  ~plane() {
    for (auto& copy : copies_) {
      if (copy.map)
        munmap(copy.map, copy.mapped);
      else
        free(copy.memory);
    }
  }

  void fill_with(const range& values, fill how, std::mt19937& random) {
    const long middle = values.low + (values.high - values.low) / 2;
    const int width = region_.columns + region_.before, height = region_.rows + region_.above;
    std::uniform_int_distribution<long> any(values.low, values.high);
    const int spike = static_cast<int>(random() % static_cast<unsigned>(width * height));
    for (int y = 0; y < height; ++y)
      for (int x = 0; x < width; ++x) {
        long v = middle;
        switch (how) {
          case fill::noise:
            v = any(random);
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

trial::trial(const geometry& g, kernel_form form, int tolerance, int calls)
    : width(g.width),
      height(g.height),
      geometry_(g),
      form_(form),
      tolerance_(tolerance),
      calls_(calls),
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
  const unsigned choice = random_() % 8;
  const int value = choice == 0   ? low
                    : choice == 1 ? high
                                  : std::uniform_int_distribution<int>(low, high)(random_);
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

namespace {

// What is under way, for the handler of a stray read or write.
struct {
  const char* name = "";
  const trial* current = nullptr;
  kernel_form form{};
  std::string repeat;
} under_way;

void on_fault(int) {
  // Printing from here is not allowed in general; the process ends with it.
  printf("FAILED %s (%s): memory touched that may not be touched\n  %s\n  repeat: %s\n",
         under_way.name, vorn::kernel_form_name(under_way.form),
         under_way.current ? under_way.current->describe().c_str() : "?", under_way.repeat.c_str());
  fflush(stdout);
  _exit(1);
}

double now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

}  // namespace

void trial::run(const std::function<void(kernel_form)>& call) {
  under_way.current = this;
  if (calls_ > 0) {
    run_ = 1;
    for (int i = 0; i < calls_; ++i) call(form_);
    return;
  }
  for (run_ = 0; run_ < 2; ++run_) {
    under_way.form = run_ ? form_ : kernel_form::scalar;
    call(under_way.form);
    if (!timed()) continue;
    std::vector<double> times;
    for (int i = 0; i < 7; ++i) {
      const double start = now();
      int calls = 0;
      do {
        call(under_way.form);
        ++calls;
      } while (now() - start < 0.004);
      times.push_back((now() - start) / calls);
    }
    std::nth_element(times.begin(), times.begin() + 3, times.end());
    seconds_[run_] = times[3];
  }
  under_way.current = nullptr;
  for (const auto& p : planes_) {
    if (timed()) break;  // planes that are changed in place have been changed many times
    const std::string fault = p->judge(tolerance_, result_.largest);
    if (!fault.empty() && result_.report.empty()) result_.report = fault;
  }
}

std::vector<row>& rows() {
  static std::vector<row> all;
  return all;
}

namespace {

std::map<std::string, size_t>& tables() {
  static std::map<std::string, size_t> all;
  return all;
}

struct options {
  unsigned seed = 1;
  long trial = -1;
  int count = 0;
  std::string only, form;
  bool bench = false, list = false, thorough = false;
};

std::vector<kernel_form> forms_of(const row& r, const options& o) {
  std::vector<kernel_form> forms;
  for (int i = 1; i < vorn::kKernelForms; ++i) {
    const auto form = static_cast<kernel_form>(i);
    if (!vorn::kernel_form_available(form)) continue;
    if (r.exported && form != kernel_form::neon) continue;
    if (o.form.empty() || o.form == vorn::kernel_form_name(form)) forms.push_back(form);
  }
  return forms;
}

// Every geometry that a row is tried with, a function of its sizes alone.
std::vector<geometry> geometries(const row& r, bool thorough) {
  std::vector<geometry> all;
  unsigned step = 0;
  const auto add_width = [&](int width, int trials, int height_limit) {
    for (int i = 0; i < trials; ++i, ++step) {
      geometry g{};
      g.width = width;
      g.height = 1 + static_cast<int>(step % static_cast<unsigned>(height_limit));
      // Numbers without a common factor: all pairs of pad, alignment and fill come up.
      g.pad = static_cast<int>(step % 5);
      g.alignment = static_cast<int>((step + step / 16) % kAlignments);
      g.fill = static_cast<fill>((step + step / 7) % kFills);
      g.place = i % 4 == 1   ? placement::page_after
                : i % 8 == 3 ? placement::page_before
                             : placement::guarded;
      all.push_back(g);
    }
  };
  for (int width = r.size.min_width; width <= r.size.max_width; width += r.size.step)
    add_width(width, thorough ? kAlignments * 5 * kFills : 16, r.size.max_height);
  if (r.size.camera) {
    for (int width : {333, 642, 1279, 1920, 2047, 4000, 4033}) {
      const int fitting = width - (width - r.size.min_width) % r.size.step;
      add_width(fitting, thorough ? 12 : 4, r.size.max_height);
    }
    if (r.size.max_height > 1) {  // one tall plane
      add_width(r.size.min_width + 3 * r.size.step, 1, 1);
      all.back().height = 517;
    }
  }
  return all;
}

std::string repeat_command(const row& r, kernel_form form, const options& o, size_t trial) {
  return "kernel_check --only " + r.name + " --form " + vorn::kernel_form_name(form) + " --seed " +
         std::to_string(o.seed) + (o.thorough ? " --thorough" : "") + " --trial " +
         std::to_string(trial);
}

// Runs all trials of a row in one form. Returns whether they passed.
bool check(const row& r, kernel_form form, const options& o) {
  const auto all = geometries(r, o.thorough);
  double largest = 0;
  size_t run = 0;
  for (size_t i = 0; i < all.size(); ++i) {
    if (o.trial >= 0 && i != static_cast<size_t>(o.trial)) continue;
    geometry g = all[i];
    g.seed = o.seed * 2654435761u + static_cast<unsigned>(i) * 40503u;
    under_way.name = r.name.c_str();
    under_way.repeat = repeat_command(r, form, o, i);
    trial t(g, form, r.tolerance);
    r.body(t);
    ++run;
    largest = std::max(largest, t.result().largest);
    if (!t.result().report.empty()) {
      printf("FAILED %s (%s)\n  %s\n  %s\n  repeat: %s\n", r.name.c_str(),
             vorn::kernel_form_name(form), t.describe().c_str(), t.result().report.c_str(),
             under_way.repeat.c_str());
      return false;
    }
  }
  printf("ok %-28s %-9s %7zu trials, largest difference %g of %d\n", r.name.c_str(),
         vorn::kernel_form_name(form), run, largest, r.tolerance);
  return run > 0;
}

bool emulated() {
#if defined(__aarch64__)
  std::ifstream cpus("/proc/cpuinfo");
  const std::string text((std::istreambuf_iterator<char>(cpus)), {});
  return text.find("CPU implementer") == std::string::npos;
#else
  return false;
#endif
}

geometry bench_geometry(const row& r) {
  geometry g{r.size.bench_width, r.size.bench_height, 0, 0, fill::noise, placement::guarded, 1};
  g.width -= (g.width - r.size.min_width) % r.size.step;
  return g;
}

void bench(const row& r, kernel_form form) {
  const geometry g = bench_geometry(r);
  trial t(g, form, r.tolerance, -1);
  under_way.name = r.name.c_str();
  r.body(t);
  const double pixels = static_cast<double>(g.width) * g.height / 1e6;
  const double plain = pixels / t.seconds(false), vector = pixels / t.seconds(true);
  printf("%-28s %-9s plain %9.1f MP/s, vector %9.1f MP/s, %6.2fx%s\n", r.name.c_str(),
         vorn::kernel_form_name(form), plain, vector, vector / plain,
         emulated() ? " (emulated)" : "");
}

// Calls one kernel a number of times and nothing else, for programs that count instructions.
void count(const row& r, kernel_form form, int calls) {
  const geometry g = bench_geometry(r);
  trial t(g, form, r.tolerance, calls);
  r.body(t);
  printf("%d pixels per call\n", g.width * g.height);
}

// Exported names that hold "neon", from the reviewed list (demangled signatures).
std::set<std::string> exported_vector_functions() {
  std::ifstream list(VORN_EXPORTS_FILE);
  std::set<std::string> names;
  for (std::string line; std::getline(list, line);) {
    const std::string name = line.substr(0, line.find('('));
    const std::string last = name.substr(name.find_last_of(" :") + 1);
    if (line[0] != '#' && last.find("neon") != std::string::npos) names.insert(last);
  }
  return names;
}

// Whether every vector function has a row.
bool complete() {
  std::set<std::string> names;
  std::map<std::string, size_t> counts;
  bool ok = true;
  for (const row& r : rows()) {
    if (!names.insert(r.name).second) {
      printf("FAILED %s has two rows\n", r.name.c_str());
      ok = false;
    }
    ++counts[r.name.substr(0, r.name.find('.'))];
  }
  for (const auto& [table, entries] : tables())
    if (counts[table] != entries) {
      printf("FAILED table %s has %zu entries but %zu rows\n", table.c_str(), entries,
             counts[table]);
      ok = false;
    }
  const auto exported = exported_vector_functions();
  if (exported.empty())
    printf("note: no exported vector function found in %s\n", VORN_EXPORTS_FILE);
  for (const std::string& name : exported)
    if (!names.count(name)) {
      printf("FAILED exported function %s has no row\n", name.c_str());
      ok = false;
    }
  return ok;
}

int usage(int code) {
  printf(
      "kernel_check: every vector function against its plain rule\n"
      "  --list        names of the rows and their forms\n"
      "  --only TEXT   only rows whose name contains TEXT\n"
      "  --form NAME   only that kernel form (neon, neon_dot, sse2, avx2, avx512)\n"
      "  --seed N      another series of random values\n"
      "  --trial N     only that trial of each row, as a failure prints it\n"
      "  --thorough    every width with every alignment, stride and fill\n"
      "  --bench       speeds instead of checks\n"
      "  --count N     only call the kernel N times (for counting instructions)\n");
  return code;
}

}  // namespace

void add_table(const char* name, size_t entries) {
  tables()[name] = entries;
}

}  // namespace kernel_check

int main(int argc, char** argv) {
  using namespace kernel_check;
  options o;
  for (int i = 1; i < argc; ++i) {
    const std::string name = argv[i];
    const bool more = i + 1 < argc;
    if (name == "--bench")
      o.bench = true;
    else if (name == "--list")
      o.list = true;
    else if (name == "--thorough")
      o.thorough = true;
    else if (name == "--help")
      return usage(0);
    else if (name == "--seed" && more)
      o.seed = static_cast<unsigned>(std::strtoul(argv[++i], nullptr, 0));
    else if (name == "--trial" && more)
      o.trial = std::strtol(argv[++i], nullptr, 0);
    else if (name == "--count" && more)
      o.count = std::atoi(argv[++i]);
    else if (name == "--only" && more)
      o.only = argv[++i];
    else if (name == "--form" && more)
      o.form = argv[++i];
    else
      return usage(2);
  }
  add_pyramid_rows();
  add_luma_rows();
  add_chroma_rows();

  signal(SIGSEGV, on_fault);
  signal(SIGBUS, on_fault);
  // A full name means that row alone: pyramid.up is not pyramid.up_merge.
  bool exact = false;
  for (const row& r : rows()) exact |= r.name == o.only;
  bool ok = true;
  int checked = 0;
  for (const row& r : rows()) {
    if (r.name.find(o.only) == std::string::npos || (exact && r.name != o.only)) continue;
    for (kernel_form form : forms_of(r, o)) {
      ++checked;
      vorn::use_kernel_form(form);
      if (o.list)
        printf("%s %s\n", r.name.c_str(), vorn::kernel_form_name(form));
      else if (o.count > 0)
        count(r, form, o.count);
      else if (o.bench)
        bench(r, form);
      else
        ok &= check(r, form, o);
    }
  }
  if (o.list || o.bench || o.count) return 0;
  if (o.only.empty() && o.form.empty()) ok &= complete();
  printf("%d kernels checked: %s\n", checked, ok && checked ? "all agree" : "FAILED");
  return ok && checked ? 0 : 1;
}
