#include "tools/workbench/view.h"

#include <algorithm>
#include <chrono>
#include <cstring>

#include "tools/error.h"
#include "tools/picture/picture_io.h"
#include "tools/picture/sheet.h"
#include "tools/workbench/levels.h"

namespace vorn::tool {
namespace {

constexpr size_t kKeptResults = 8;
constexpr size_t kKeptFilters = 3;
constexpr int kLargestView = 8192;  // pixels of a side, before reduction 64 times that

std::string key_of(size_t picture, int level, const tuning* values) {
  std::string key = std::to_string(picture) + "/" + std::to_string(level) + "/";
  if (values) key.append(reinterpret_cast<const char*>(values), sizeof *values);
  return key;
}

// The part of f at x, y (even), width * height pixels.
frame cut(const frame& f, int x, int y, int width, int height) {
  frame part = make_frame(width, height);
  part.gray = f.gray;
  part.full_range = f.full_range;
  for (int row = 0; row < height; ++row)
    std::memcpy(part.luma() + size_t(row) * part.padded_width,
                f.luma() + size_t(y + row) * f.padded_width + x, size_t(width));
  for (int row = 0; row < part.chroma_height(); ++row)
    std::memcpy(part.chroma() + size_t(row) * part.padded_width,
                f.chroma() + size_t(y / 2 + row) * f.padded_width + x,
                size_t(part.chroma_width()) * 2);
  pad_edges(part);
  return part;
}

// One plane's boxes of n x n samples as their rounded means; samples lie `step` bytes apart.
void average(const uint8_t* from, size_t stride, int step, uint8_t* to, size_t to_stride, int width,
             int height, int n) {
  std::vector<uint32_t> sums(size_t(width) * n * step);
  const uint32_t area = uint32_t(n) * n;
  for (int y = 0; y < height; ++y) {
    std::fill(sums.begin(), sums.end(), 0u);
    for (int row = 0; row < n; ++row) {
      const uint8_t* const line = from + (size_t(y) * n + row) * stride;
      for (size_t x = 0; x < sums.size(); ++x) sums[x] += line[x];
    }
    for (int x = 0; x < width; ++x) {
      for (int s = 0; s < step; ++s) {
        uint32_t sum = area / 2;
        for (int i = 0; i < n; ++i) sum += sums[(size_t(x) * n + i) * step + s];
        to[size_t(y) * to_stride + size_t(x) * step + s] = uint8_t(sum / area);
      }
    }
  }
}

// f reduced n times by means; for views from far away.
frame shrink(const frame& f, int n) {
  // Whole pairs of output pixels, so that chroma's boxes are whole, too.
  const int width = std::max(2, f.width / n / 2 * 2), height = std::max(2, f.height / n / 2 * 2);
  if (f.width < 2 * n || f.height < 2 * n) return f;
  frame small = make_frame(width, height);
  small.gray = f.gray;
  small.full_range = f.full_range;
  average(f.luma(), f.padded_width, 1, small.luma(), width, width, height, n);
  average(f.chroma(), f.padded_width, 2, small.chroma(), width, width / 2, height / 2, n);
  return small;
}

pixels to_pixels(const frame& f, channel plane) {
  pixels out;
  out.width = f.width;
  out.height = f.height;
  out.rgba.resize(size_t(f.width) * f.height * 4);
  uint8_t* to = out.rgba.data();
  if (plane == channel::rgb) {
    const rgb_image image = to_rgb(f);
    const uint8_t* from = image.data.data();
    for (size_t i = size_t(f.width) * f.height; i > 0; --i, from += 3, to += 4) {
      to[0] = from[0];
      to[1] = from[1];
      to[2] = from[2];
      to[3] = 255;
    }
    return out;
  }
  const int offset = plane == channel::v;
  for (int y = 0; y < f.height; ++y) {
    const uint8_t* const luma = f.luma() + size_t(y) * f.padded_width;
    const uint8_t* const pairs = f.chroma() + size_t(y / 2) * f.padded_width + offset;
    for (int x = 0; x < f.width; ++x, to += 4) {
      to[0] = to[1] = to[2] = plane == channel::y ? luma[x] : pairs[x / 2 * 2];
      to[3] = 255;
    }
  }
  return out;
}

bool is_difference(version v) {
  return v == version::change || v == version::left_over || v == version::detail;
}

}  // namespace

version version_of(const std::string& name) {
  static const char* const kNames[] = {"before",   "after",  "clean", "change",
                                       "leftover", "detail", "mask"};
  for (int i = 0; i < 7; ++i)
    if (name == kNames[i]) return version(i);
  throw error(name, "is no version of a picture");
}

channel channel_of(const std::string& name) {
  static const char* const kNames[] = {"rgb", "y", "u", "v"};
  for (int i = 0; i < 4; ++i)
    if (name == kNames[i]) return channel(i);
  throw error(name, "is no channel");
}

// The value under a key, made under the lock where it is not there yet, out of the memory of the
// one that gives way: 18 MB of a 12 MP frame from the system would cost as much as a third of the
// filter.
template <typename Make>
std::shared_ptr<const frame> viewer::kept(const std::string& key, const Make& make) {
  const std::lock_guard<std::recursive_mutex> lock(mutex_);
  const auto at = std::find_if(results_.begin(), results_.end(),
                               [&key](const result& r) { return r.key == key; });
  if (at != results_.end()) {
    std::rotate(at, at + 1, results_.end());
    return results_.back().picture;
  }
  auto made = std::make_shared<frame>();
  if (results_.size() >= kKeptResults) {
    // Nobody takes a new share of it meanwhile: that needs the lock.
    if (results_.front().picture.use_count() == 1) made = std::move(results_.front().picture);
    results_.erase(results_.begin());
  }
  make(*made);
  results_.push_back({key, made});
  return made;
}

std::shared_ptr<const frame> viewer::reduced(size_t picture, int level) {
  const auto p = project_.picture(picture);
  return kept(key_of(picture, level, nullptr), [&](frame& f) { f = luma_level(p->noisy, level); });
}

std::shared_ptr<const frame> viewer::denoised(size_t picture, const tuning& values, int level) {
  const auto p = project_.picture(picture);
  return kept(key_of(picture, level, &values), [&](frame& f) {
    f = level == 0 ? p->noisy : *reduced(picture, level);
    auto at = std::find_if(filters_.begin(), filters_.end(), [&f](const auto& d) {
      return d->width() == f.padded_width && d->height() == f.padded_height;
    });
    if (at == filters_.end()) {
      if (filters_.size() == kKeptFilters) filters_.erase(filters_.begin());
      filters_.push_back(std::make_unique<denoiser>(f.padded_width, f.padded_height));
      at = filters_.end() - 1;
    }
    std::rotate(at, at + 1, filters_.end());
    const auto start = std::chrono::steady_clock::now();
    filters_.back()->run(f, level == 0 ? values : level_tuning(values, level));
    last_ms_ =
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
  });
}

// The frame that a view is cut from; *reference is what a difference is taken to, else null.
const frame& viewer::source(const bench_picture& p, const view_request& r,
                            std::shared_ptr<const frame>* hold, const frame** reference) {
  const bool needs_clean = r.shown == version::clean || r.shown == version::left_over;
  if (needs_clean && (!p.has_clean() || r.level > 0))
    throw error(project_.inputs()[r.picture].name, "has no clean version to show here");
  if (r.shown == version::clean) return p.clean;
  hold[1] = r.level == 0 ? nullptr : reduced(r.picture, r.level);
  const frame& before = r.level == 0 ? p.noisy : *hold[1];
  if (r.shown == version::before) return before;
  if (r.shown == version::mask) {
    hold[0] = std::make_shared<const frame>(mask_picture(before, r.values));
    return *hold[0];
  }
  const tuning values = r.shown == version::detail ? only_level(r.values, r.level) : r.values;
  hold[0] = denoised(r.picture, values, r.level);
  if (is_difference(r.shown)) *reference = r.shown == version::left_over ? &p.clean : &before;
  return *hold[0];
}

pixels viewer::render(const view_request& r) {
  if (r.level < 0 || r.level > 4 || r.reduce < 1 || r.reduce > 64 || r.amplify < 1 ||
      r.amplify > 128)
    throw error("view", "level, reduction or amplification out of range");
  const auto p = project_.picture(r.picture);
  std::shared_ptr<const frame> hold[2];
  const frame* reference = nullptr;
  const frame& whole = source(*p, r, hold, &reference);
  const int limit = kLargestView * r.reduce;
  const int x = std::clamp(r.x, 0, whole.width - 1) / 2 * 2;
  const int y = std::clamp(r.y, 0, whole.height - 1) / 2 * 2;
  const int width = std::clamp(std::min(r.width, limit), 1, whole.width - x);
  const int height = std::clamp(std::min(r.height, limit), 1, whole.height - y);
  frame part = cut(whole, x, y, width, height);
  if (reference) part = amplified_difference(part, cut(*reference, x, y, width, height), r.amplify);
  if (r.reduce > 1) part = shrink(part, r.reduce);
  pixels out = to_pixels(part, r.level > 0 || r.shown == version::mask || r.shown == version::detail
                                   ? channel::y
                                   : r.plane);
  out.x = x;
  out.y = y;
  return out;
}

block_weights viewer::weights(size_t picture, const tuning& values, int level, int x, int y) {
  // What the filter sees at a level: coarser levels have been denoised and merged before.
  const auto seen = denoised(picture, without_level(values, level), level);
  return weigh_block(*seen, values, level, x, y);
}

}  // namespace vorn::tool
