// --patch of compare and report, and the table of what was measured there.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "tools/lab/figures.h"
#include "tools/picture/frame.h"

namespace vorn::tool {

// --patch X,Y,WxH, in pixels; may be repeated.
void add_patch_option(CLI::App& command, std::vector<rectangle>& patches);

// "120,80,64x64".
std::string patch_text(const rectangle& r);

// An `error` when a patch does not lie in a frame of this size.
void check_patches(const std::vector<rectangle>& patches, const frame& f, const std::string& name);

// A row per frame for every patch. clean: what texture is held against; null for none.
void print_patches(const std::vector<rectangle>& patches, const std::vector<std::string>& names,
                   const std::vector<const frame*>& frames, const frame* clean);

}  // namespace vorn::tool
