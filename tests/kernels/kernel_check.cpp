// Holds every vector function against its plain rule. See README.md and --help.
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>
#include <set>

#include "tests/kernels/kernel_check.h"

namespace kernel_check {

using vorn::kernel_form;

namespace {

// What is being checked, for the handler of a stray read or write.
struct {
  std::string name;
  kernel_form form;
  std::string repeat;
} under_way;

void on_fault(int) {
  // Printing from here is not allowed in general; the process ends with it.
  const trial* t = trial::under_way();
  printf("FAILED %s (%s): memory touched that may not be touched\n  %s\n  repeat: %s\n",
         under_way.name.c_str(), vorn::kernel_form_name(under_way.form),
         t ? t->describe().c_str() : "?", under_way.repeat.c_str());
  fflush(stdout);
  _exit(1);
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
  // The plain form is what the others are held against; it can be counted, not checked.
  for (int i = o.count > 0 ? 0 : 1; i < vorn::kKernelForms; ++i) {
    const auto form = static_cast<kernel_form>(i);
    if (!vorn::kernel_form_available(form)) continue;
    if (r.exported && form != kernel_form::neon && form != kernel_form::scalar) continue;
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

double now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// Tells how far a row is, every few seconds, on standard error.
class progress {
 public:
  void tell(const row& r, kernel_form form, size_t done, size_t trials) {
    if (now() < next_) return;
    next_ = now() + kSeconds;
    fprintf(stderr, "   %-28s %-9s %7zu of %zu trials, %.0f s\n", r.name.c_str(),
            vorn::kernel_form_name(form), done, trials, next_ - kSeconds - start_);
  }

 private:
  static constexpr double kSeconds = 10;
  double start_ = now(), next_ = start_ + kSeconds;
};

// Runs all trials of a row in one form. Returns whether they passed.
bool check(const row& r, kernel_form form, const options& o, progress* so_far) {
  const auto all = geometries(r, o.thorough);
  double largest = 0;
  size_t run = 0;
  for (size_t i = 0; i < all.size(); ++i) {
    if (o.trial >= 0 && i != static_cast<size_t>(o.trial)) continue;
    geometry g = all[i];
    g.seed = o.seed * 2654435761u + static_cast<unsigned>(i) * 40503u;
    under_way = {r.name, form, repeat_command(r, form, o, i)};
    trial t(g, form, r.tolerance);
    r.body(t);
    so_far->tell(r, form, ++run, all.size());
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

// Median seconds of one call.
double seconds_of(const std::function<void()>& call) {
  std::vector<double> times;
  for (int i = 0; i < 7; ++i) {
    const double start = now();
    int calls = 0;
    do {
      call();
      ++calls;
    } while (now() - start < 0.004);
    times.push_back((now() - start) / calls);
  }
  std::nth_element(times.begin(), times.begin() + 3, times.end());
  return times[3];
}

void bench(const row& r, kernel_form form) {
  const geometry g = speed_geometry(r);
  double plain = 0, vector = 0;
  trial t(g, form, r.tolerance, [&](const call_function& call) {
    const double pixels = static_cast<double>(g.width) * g.height / 1e6;
    plain = pixels / seconds_of([&] { call(kernel_form::scalar); });
    vector = pixels / seconds_of([&] { call(form); });
  });
  r.body(t);
  printf("%-28s %-9s plain %9.1f MP/s, vector %9.1f MP/s, %6.2fx%s\n", r.name.c_str(),
         vorn::kernel_form_name(form), plain, vector, vector / plain,
         emulated() ? " (emulated)" : "");
}

// Calls one kernel a number of times and nothing else, for programs that count instructions.
void count(const row& r, kernel_form form, int calls) {
  const geometry g = speed_geometry(r);
  trial t(g, form, r.tolerance, [&](const call_function& call) {
    for (int i = 0; i < calls; ++i) call(form);
  });
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
  add_all_rows();

  signal(SIGSEGV, on_fault);
  signal(SIGBUS, on_fault);
  // A full name means that row alone: pyramid.up is not pyramid.up_merge.
  bool exact = false;
  for (const row& r : rows()) exact |= r.name == o.only;
  bool ok = true;
  int checked = 0;
  progress so_far;
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
        ok &= check(r, form, o, &so_far);
    }
  }
  if (o.list || o.bench || o.count) return 0;
  if (o.only.empty() && o.form.empty()) ok &= complete();
  printf("%d kernels checked: %s\n", checked, ok && checked ? "all agree" : "FAILED");
  return ok && checked ? 0 : 1;
}
