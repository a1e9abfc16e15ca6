// What `tune --ask-tell` and `score` have in common beside the lines: the command line itself,
// which tells the one that answers what the search is about.
#pragma once

#include <string>
#include <vector>

#include "tools/commands/commands.h"

namespace vorn::tool {

// The words of the command line after the program's name, as main() got them.
std::vector<std::string>& command_words();

void add_score(CLI::App& program, job& chosen);

}  // namespace vorn::tool
