#include "tools/commands/help_format.h"

#include <sstream>

namespace vorn::tool {
namespace {

constexpr size_t kWidth = 80, kTextColumn = 28;

// "  name" and text beside it, in lines of at most kWidth; the text begins a line of its own where
// the name is too long.
std::string entry(const std::string& name, const std::string& text) {
  std::string out = "  " + name;
  if (out.size() + 2 > kTextColumn) out += "\n";
  size_t column = out.back() == '\n' ? 0 : out.size();
  std::istringstream words(text);
  for (std::string word; words >> word;) {
    if (column > kTextColumn && column + 1 + word.size() > kWidth) {
      out += "\n";
      column = 0;
    }
    const size_t gap = column < kTextColumn ? kTextColumn - column : 1;
    out += std::string(gap, ' ') + word;
    column += gap + word.size();
  }
  return out + "\n";
}

bool takes_many(const CLI::Option* option) {
  return option->get_expected_max() >= CLI::detail::expected_max_vector_size;
}

}  // namespace

std::string help_format::make_help(const CLI::App* app, std::string name,
                                   CLI::AppFormatMode mode) const {
  return CLI::detail::find_and_replace(Formatter::make_help(app, name, mode), "\n\n\n", "\n\n");
}

std::string help_format::make_subcommand(const CLI::App* command) const {
  return entry(command->get_name(), command->get_description());
}

std::string help_format::make_option(const CLI::Option* option, bool is_positional) const {
  std::string name = is_positional ? option->get_type_name() : option->get_name(false, true);
  if (!is_positional && option->get_type_size() != 0) name += " " + option->get_type_name();
  if (is_positional && takes_many(option)) name += " ...";
  std::string text = option->get_description();
  if (!is_positional && option->get_required()) text += " (required)";
  const std::string value = option->get_default_str();
  if (!value.empty()) text += value[0] == '[' ? " " + value : " [" + value + "]";
  return entry(name, text);
}

std::string help_format::make_option_usage(const CLI::Option* option) const {
  const std::string name = option->get_type_name() + (takes_many(option) ? "..." : "");
  return option->get_required() ? name : "[" + name + "]";
}

}  // namespace vorn::tool
