#include "tools/batch.h"

#include <algorithm>
#include <filesystem>
#include <map>

#include "tools/error.h"
#include "tools/picture/output_file.h"

namespace vorn::tool {
namespace {

namespace fs = std::filesystem;

class finder {
 public:
  explicit finder(const batch_options& options) : options_(options) {
    found_.recursive = options.recursive;
  }

  batch find() {
    for (const std::string& input : options_.inputs) {
      if (input == "-") throw error("-", "standard input cannot be one of several inputs");
      if (is_directory(input)) {
        walk(input, fs::path());
      } else {
        add(input, fs::path(input).filename());
      }
    }
    if (found_.files.empty() && found_.existing == 0) {
      const std::string passed = found_.passed_over();
      throw error(options_.inputs[0],
                  "no picture or video was found" + (passed.empty() ? "" : ", but " + passed));
    }
    std::sort(found_.endings.begin(), found_.endings.end());
    return std::move(found_);
  }

 private:
  // below: the directory's place under the input that it was found in.
  void walk(const fs::path& directory, const fs::path& below) {
    std::vector<fs::directory_entry> inside;
    std::error_code code;
    for (fs::directory_iterator at(directory, code), end; !code && at != end; at.increment(code))
      inside.push_back(*at);
    if (code) throw error(directory.string(), "cannot be read: " + code.message());
    std::sort(inside.begin(), inside.end());
    for (const fs::directory_entry& entry : inside) {
      const fs::path name = entry.path().filename();
      if (entry.is_directory(code)) {
        if (fs::equivalent(entry.path(), options_.output, code)) continue;
        if (options_.recursive && !entry.is_symlink(code)) {
          walk(entry.path(), below / name);
        } else {
          ++found_.directories;
        }
      } else if (file_kind_of(name.string()) == file_kind::unknown ||
                 !entry.is_regular_file(code)) {
        pass_over(name);
      } else {
        add(entry.path().string(), below / name);
      }
    }
  }

  void pass_over(const fs::path& name) {
    ++found_.other;
    const std::string ending = name.extension().string();
    auto& endings = found_.endings;
    if (!ending.empty() && std::find(endings.begin(), endings.end(), ending) == endings.end())
      endings.push_back(ending);
  }

  void add(const std::string& input, fs::path place) {
    if (options_.write_as != file_kind::unknown)
      place.replace_extension(file_kind_name(options_.write_as));
    const std::string output = (fs::path(options_.output) / place).string();
    const auto [taken, fresh] = taken_.emplace(output, input);
    if (!fresh) throw error(input, "its result would have the name of that of " + taken->second);
    std::error_code code;
    if (!options_.force && fs::equivalent(input, output, code))
      throw error(input, "its result would replace it; name another directory, or --force");
    if (options_.skip_existing && fs::is_regular_file(output, code)) {
      ++found_.existing;
    } else {
      found_.files.push_back({input, output});
    }
  }

  const batch_options& options_;
  batch found_;
  std::map<std::string, std::string> taken_;  // results and their inputs
};

std::string counted(int count, const char* one, const char* many) {
  return std::to_string(count) + " " + (count == 1 ? one : many);
}

}  // namespace

std::string batch::passed_over() const {
  std::string text;
  if (other > 0) {
    text =
        counted(other, "file that is no picture or video", "files that are no pictures or video");
    constexpr size_t kMost = 6;
    for (size_t i = 0; i < std::min(kMost, endings.size()); ++i)
      text += (i == 0 ? " (" : ", ") + endings[i];
    if (!endings.empty()) text += endings.size() > kMost ? ", ...)" : ")";
  }
  if (directories > 0) {
    text += (text.empty() ? "" : ", ") + counted(directories, "folder", "folders") +
            (recursive ? " behind links" : " (--recursive takes them)");
  }
  return text;
}

batch find_batch(const batch_options& options) {
  return finder(options).find();
}

}  // namespace vorn::tool
