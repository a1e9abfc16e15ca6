// The kernel check's vocabulary: a row names one vector function, declares the memory that it may
// touch, and calls it; the program does the rest. README.md shows how to add one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "runtime/kernel_form.h"
#include "tests/support/random.h"

namespace kernel_check {

// What a function may touch of one plane, in elements around the plane's origin.
struct region {
  int columns;     // 0 .. columns-1 of each row
  int rows = 1;    // 0 .. rows-1
  int before = 0;  // and this many columns left of 0
  int above = 0;   // and this many rows above 0
};

// Values that a plane is filled with. The fills use both ends.
struct range {
  long low, high;
};

enum class fill { noise, low, high, extremes, spike, ramp };
constexpr int kFills = 6;
constexpr int kPads[] = {0, 1, 7, 16, 61};  // stride: elements of a row plus this many
constexpr int kAlignments = 16;

// Where the planes of a trial lie.
enum class placement { guarded, page_after, page_before };

class plane;  // trial.cpp

// Everything that tells one trial from another. The same numbers give the same trial.
struct geometry {
  int width, height;
  int pad, alignment;
  enum fill fill;
  placement place;
  unsigned seed;
};

class trial;

// Calls a row's function with a form.
using call_function = std::function<void(vorn::kernel_form)>;
// What to do with it instead of comparing (timing, counting).
using driver_function = std::function<void(const call_function&)>;

// A plane as the function under test sees it: in turn that of the plain and of the vector run.
template <typename T>
class view {
 public:
  T* row(int y = 0) const { return reinterpret_cast<T*>(bytes(y)); }
  int stride() const;  // bytes

 private:
  friend class trial;
  view(const trial* owner, int index) : owner_(owner), index_(index) {}
  unsigned char* bytes(int y) const;
  const trial* owner_;
  int index_;
};

class trial {
 public:
  const int width, height;  // of what is written, in the row's own unit

  // Planes. Inputs must come back unchanged; outputs start with arbitrary bytes and are compared;
  // an in_out starts with the same values in both runs. `like`: stride of that plane, for functions
  // that take one stride for several.
  template <typename T>
  view<T> input(const char* name, region r, range values = byte_range<T>(), int like = -1) {
    return {this, declare(name, r, element_of<T>(), values, true, false, like)};
  }
  // Contents by a rule of the row's own, given the row and the column.
  using generator = std::function<long(int, int)>;
  template <typename T>
  view<T> input(const char* name, region r, const generator& values, int like = -1) {
    return {this, declare(name, r, element_of<T>(), {}, true, false, like, &values)};
  }
  template <typename T>
  view<T> in_out(const char* name, region r, const generator& values, int like = -1) {
    return {this, declare(name, r, element_of<T>(), {}, false, true, like, &values)};
  }
  // Memory that the function may use as it likes.
  template <typename T>
  view<T> scratch(const char* name, region r) {
    return {this, declare(name, r, element_of<T>(), byte_range<T>(), false, false, -1)};
  }
  template <typename T>
  view<T> output(const char* name, region r, int like = -1) {
    return {this, declare(name, r, element_of<T>(), byte_range<T>(), false, true, like)};
  }
  template <typename T>
  view<T> in_out(const char* name, region r, range values = byte_range<T>(), int like = -1) {
    return {this, declare(name, r, element_of<T>(), values, false, true, like)};
  }

  // A parameter at one of its ends or at random; printed when the trial fails.
  int parameter(const char* name, int low, int high);

  // A random value for a generator, and whether only the speed is wanted of this trial (a row that
  // calls its function in several ways may then do with the first).
  long random(long low, long high) {
    return random_.between(static_cast<int>(low), static_cast<int>(high));
  }
  bool timed() const { return driver_ != nullptr; }

  // Calls the function twice: with kernel_form::scalar for the plain rule, then with the form under
  // test. The last statement of every row.
  void run(const call_function& call);

  // ---- for the program ----
  struct element {
    int size;
    double (*value)(const unsigned char*);
    void (*store)(unsigned char*, long);
  };
  struct difference {
    double largest = 0;
    std::string report;  // empty: as it should be
  };
  trial(const geometry& g, vorn::kernel_form form, int tolerance, driver_function driver = nullptr);
  ~trial();
  const difference& result() const { return result_; }
  std::string describe() const;
  static const trial* under_way() { return under_way_; }  // null: no call in progress

 private:
  template <typename T>
  friend class view;
  template <typename T>
  static element element_of() {
    return {sizeof(T), [](const unsigned char* p) { return static_cast<double>(*as<T>(p)); },
            [](unsigned char* p, long v) { *const_cast<T*>(as<T>(p)) = static_cast<T>(v); }};
  }
  template <typename T>
  static const T* as(const unsigned char* p) {
    return reinterpret_cast<const T*>(p);
  }
  template <typename T>
  static constexpr range byte_range() {
    return {0, sizeof(T) == 1 ? 255 : 32767};
  }
  int declare(const char* name, region r, element e, range values, bool constant, bool compared,
              int like, const generator* own = nullptr);

  geometry geometry_;
  vorn::kernel_form form_;
  int tolerance_;
  driver_function driver_;
  int run_ = 0;  // 0 plain, 1 vector
  vorn_test::random_source random_;
  std::vector<std::unique_ptr<plane>> planes_;
  std::string parameters_;
  difference result_;
  static const trial* under_way_;
};

template <typename T>
int view<T>::stride() const {
  return owner_->planes_.empty() ? 0 : static_cast<int>(bytes(1) - bytes(0));
}

// Sizes that a function allows.
struct sizes {
  int min_width = 1;
  int step = 1;        // widths are min_width + k * step
  int max_width = 80;  // before the camera sizes
  int max_height = 9;  // 1: one row only
  bool camera = true;  // also a few large odd widths and a tall plane
  int bench_width = 1920;
  int bench_height = 32;
};

struct row {
  std::string name;  // "table.entry", or the name of an exported function
  sizes size;
  std::function<void(trial&)> body;
  int tolerance = 0;
  bool exported = false;  // one vector form of its own, instead of one per kernel_form
};

// All rows, in the order of adding.
std::vector<row>& rows();
inline void add(row r) {
  rows().push_back(std::move(r));
}

// Where speed is measured: a few rows that stay in cache.
geometry speed_geometry(const row& r);

// Announces a kernel table: `entries` rows must be named "<name>.<entry>".
std::map<std::string, size_t>& tables();
inline void add_table(const char* name, size_t entries) {
  tables()[name] = entries;
}

// Each folder's rows, in rows_<folder>.cpp.
void add_pyramid_rows();
void add_luma_rows();
void add_chroma_rows();
void add_all_rows();

}  // namespace kernel_check
