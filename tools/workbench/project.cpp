#include "tools/workbench/project.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <regex>

#include "tools/error.h"
#include "tools/picture/output_file.h"

namespace vorn::tool {
namespace {

namespace fs = std::filesystem;

constexpr size_t kKeptBytes = size_t(1) << 30;

std::string file_name(const std::string& path) {
  return fs::path(path).filename().string();
}

double gain_in_name(const std::string& name) {
  static const std::regex pattern("gain_?([0-9]+(\\.[0-9]+)?)", std::regex::icase);
  std::smatch found;
  return std::regex_search(name, found, pattern) ? std::atof(found[1].str().c_str()) : 0;
}

std::string clean_of(const std::string& path, const std::string& clean) {
  if (clean.empty() || !is_directory(clean)) return clean;
  const fs::path candidate = fs::path(clean) / fs::path(path).filename();
  std::error_code code;
  return fs::is_regular_file(candidate, code) ? candidate.string() : std::string();
}

size_t bytes_of(const bench_picture& p) {
  return p.noisy.data.size() + p.clean.data.size();
}

std::string text_or_nothing(const std::string& path) {
  std::error_code code;
  return fs::is_regular_file(path, code) ? read_text_file(path) : std::string();
}

}  // namespace

std::vector<bench_input> find_inputs(const std::vector<std::string>& names,
                                     const std::string& clean) {
  std::vector<bench_input> inputs;
  std::error_code code;
  for (const std::string& path : expand_inputs(names)) {
    const bool named = std::find(names.begin(), names.end(), path) != names.end();
    if (!named && file_kind_of(path) == file_kind::unknown) continue;
    // A directory may hold the clean version and a device's results beside what went in.
    if (!named && !clean.empty() && fs::equivalent(path, clean, code)) continue;
    if (!named && file_name(path).find("_output_") != std::string::npos) continue;
    inputs.push_back({file_name(path), path, clean_of(path, clean), gain_in_name(file_name(path))});
  }
  if (inputs.empty()) throw error(names.empty() ? "workbench" : names.front(), "holds no picture");
  return inputs;
}

project::project(std::vector<bench_input> inputs, const picture_options& options)
    : inputs_(std::move(inputs)), options_(options) {}

std::shared_ptr<const bench_picture> project::read(size_t index) const {
  const bench_input& input = inputs_[index];
  auto p = std::make_shared<bench_picture>();
  p->noisy = read_picture(input.path, options_);
  if (!input.clean.empty()) {
    p->clean = read_picture(input.clean, options_);
    if (p->clean.width != p->noisy.width || p->clean.height != p->noisy.height)
      throw error(input.clean, "its size differs from that of " + input.path);
  }
  return p;
}

std::shared_ptr<const bench_picture> project::picture(size_t index) {
  if (index >= inputs_.size()) throw error("", "there is no picture of this number");
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto at =
      std::find_if(kept_.begin(), kept_.end(), [index](const kept& k) { return k.index == index; });
  if (at != kept_.end()) {
    std::rotate(at, at + 1, kept_.end());
    return kept_.back().picture;
  }
  kept_.push_back({index, read(index)});
  size_t bytes = 0;
  for (const kept& k : kept_) bytes += bytes_of(*k.picture);
  while (bytes > kKeptBytes && kept_.size() > 1) {
    bytes -= bytes_of(*kept_.front().picture);
    kept_.erase(kept_.begin());
  }
  return kept_.back().picture;
}

set_file::set_file(const std::string& path) : path_(path), seen_(text_or_nothing(path)) {
  set_ = seen_.empty() ? default_tuning_set() : parse_tuning_set(seen_, path);
}

std::string set_file::save(const tuning_set& set, const std::string& as, bool overwrite) {
  std::string target = path_;
  if (!as.empty()) {
    const bool plain = fs::path(as).filename().string() == as && as.front() != '.';
    if (!plain || fs::path(as).extension() != ".json")
      throw error(as, "is not a plain file name that ends in .json");
    target = (fs::path(path_).parent_path() / as).string();
  }
  if (target.empty()) throw error("", "the set has no file yet: save it under a name");
  const std::string there = text_or_nothing(target);
  if (!overwrite && there != (target == path_ ? seen_ : std::string()))
    throw conflict(target +
                   (target == path_ ? " was changed by another program" : " exists already"));
  const std::string text = tuning_set_to_json(set);
  parse_tuning_set(text, target);  // what cannot be read again is not written
  write_file(target, text);
  if (!as.empty()) drop_draft();  // it lay beside the former name
  path_ = target;
  seen_ = text;
  set_ = set;
  drop_draft();
  return target;
}

std::string set_file::draft_path() const {
  return path_.empty() ? ".vorn-ycnr-workbench.draft" : path_ + ".draft";
}

void set_file::keep_draft(const std::string& json) {
  write_file(draft_path(), json);
}

std::string set_file::draft() const {
  return text_or_nothing(draft_path());
}

void set_file::drop_draft() {
  std::error_code code;
  fs::remove(draft_path(), code);
}

}  // namespace vorn::tool
