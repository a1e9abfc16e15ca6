// What lies on the bench: pictures, each with its clean version where there is one, and the tuning
// set that is worked on. Pictures are read when they are first looked at.
#pragma once

#include <cstddef>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "tools/picture/frame.h"
#include "tools/picture/picture_io.h"
#include "tools/tuning/tuning_set.h"

namespace vorn::tool {

struct bench_input {
  std::string name;  // shown: the file's own name
  std::string path;
  std::string clean;  // path of the clean version, or empty
  double gain = 0;    // sensor gain, from "gain8" in the name; 0 where the name does not say
};

struct bench_picture {
  frame noisy;
  frame clean;  // empty when there is none
  bool has_clean() const { return clean.width > 0; }
};

// The pictures in files, directories and dumps, in order. clean is empty, one file for all of
// them, or a directory whose files are named like the pictures. The clean version itself and
// files that are no pictures are left out; an `error` when nothing is left.
std::vector<bench_input> find_inputs(const std::vector<std::string>& names,
                                     const std::string& clean);

class project {
 public:
  project(std::vector<bench_input> inputs, const picture_options& options);

  const std::vector<bench_input>& inputs() const { return inputs_; }

  // One picture, read now or kept from before; about 1 GB of them is kept. Faults in the file are
  // `error`s, and the next call tries again. Any thread.
  std::shared_ptr<const bench_picture> picture(size_t index);

 private:
  struct kept {
    size_t index;
    std::shared_ptr<const bench_picture> picture;
  };
  std::shared_ptr<const bench_picture> read(size_t index) const;

  std::vector<bench_input> inputs_;
  picture_options options_;
  std::mutex mutex_;
  std::vector<kept> kept_;  // the one used last is at the end
};

// A set's file as the page saves it: the text is checked before anything is written.
class set_file {
 public:
  // path may name a file that does not exist yet; empty: the built-in set, saved only under a name.
  explicit set_file(const std::string& path);

  const std::string& path() const { return path_; }
  const tuning_set& loaded() const { return set_; }

  // Writes the set. as: empty for the file itself, else a name (no path) in the same directory.
  // Throws `conflict` when the file is not as this program last saw it and overwrite is false.
  struct conflict : std::runtime_error {
    using std::runtime_error::runtime_error;
  };
  std::string save(const tuning_set& set, const std::string& as, bool overwrite);

  // The page's unsaved state beside the set: kept on every change, offered at the next start.
  void keep_draft(const std::string& json);
  std::string draft() const;  // empty when there is none
  void drop_draft();

 private:
  std::string draft_path() const;

  std::string path_;
  tuning_set set_;
  std::string seen_;  // the file's content when it was read or written last
};

}  // namespace vorn::tool
