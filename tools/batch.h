// Which files of a job on many files give which results.
#pragma once

#include <string>
#include <vector>

#include "tools/picture/picture_io.h"

namespace vorn::tool {

struct batch_options {
  std::vector<std::string> inputs;          // files and directories
  std::string output;                       // a directory, not yet made
  file_kind write_as = file_kind::unknown;  // other than its input's
  bool recursive = false;
  bool skip_existing = false;
  bool force = false;  // a result may replace an input
};

struct batch_file {
  std::string input;
  std::string output;
};

struct batch {
  std::vector<batch_file> files;
  int existing = 0;                  // results that are there, with skip_existing
  int other = 0, directories = 0;    // passed over in directories
  bool recursive = false;            // then these directories are links
  std::vector<std::string> endings;  // of the other files, each once: ".mov"

  // "2 files that are no pictures or video (.mov, .txt), 1 folder (see --recursive)"; empty when
  // nothing was passed over.
  std::string passed_over() const;
};

// Files under the directories keep their place in the tree. Links to directories are not followed.
// An `error` when two results would have one name, a result would replace an input without force,
// or nothing is there to be done.
batch find_batch(const batch_options& options);

}  // namespace vorn::tool
