#include "tools/commands/option_kinds.h"

#include "tools/error.h"
#include "tools/numbers.h"

namespace vorn::tool {
namespace {

// "-g,--gain" as messages name it: "--gain".
std::string shown_name(const std::string& names) {
  return names.substr(names.rfind(',') == std::string::npos ? 0 : names.rfind(',') + 1);
}

}  // namespace

CLI::Option* add_whole(CLI::App& command, const std::string& names, int& value, int64_t lowest,
                       int64_t highest, const std::string& help) {
  const std::string name = shown_name(names);
  return command
      .add_option_function<std::string>(
          names,
          [&value, name, lowest, highest](const std::string& text) {
            value = static_cast<int>(whole_number(name, text, lowest, highest));
          },
          help)
      ->type_name("N");
}

CLI::Option* add_seed(CLI::App& command, const std::string& names, uint64_t& value,
                      const std::string& help) {
  const std::string name = shown_name(names);
  return command
      .add_option_function<std::string>(
          names,
          [&value, name](const std::string& text) {
            value = static_cast<uint64_t>(whole_number(name, text, 0, INT64_MAX));
          },
          help)
      ->type_name("N");
}

CLI::Option* add_real(CLI::App& command, const std::string& names, double& value, double lowest,
                      double highest, const std::string& help) {
  const std::string name = shown_name(names);
  return command
      .add_option_function<std::string>(
          names,
          [&value, name, lowest, highest](const std::string& text) {
            value = real_number(name, text, lowest, highest);
          },
          help)
      ->type_name("X");
}

CLI::Option* add_reals(CLI::App& command, const std::string& names, std::vector<double>& values,
                       double lowest, double highest, const std::string& help) {
  const std::string name = shown_name(names);
  return command
      .add_option_function<std::vector<std::string>>(
          names,
          [&values, name, lowest, highest](const std::vector<std::string>& texts) {
            values.clear();
            for (const std::string& text : texts)
              values.push_back(real_number(name, text, lowest, highest));
          },
          help)
      ->delimiter(',')
      ->type_name("X,...")
      ->expected(1)  // a text, of as many numbers as it holds
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
}

CLI::Option* add_file(CLI::App& command, const std::string& names, std::string& value,
                      const std::string& help) {
  const std::string name = shown_name(names);
  return command
      .add_option_function<std::string>(
          names,
          [&value, name](const std::string& text) {
            if (text.empty()) throw error(name, "the name is empty");
            value = text;
          },
          help)
      ->type_name("FILE");
}

CLI::Option* add_files(CLI::App& command, const std::string& names,
                       std::vector<std::string>& values, const std::string& help) {
  return command
      .add_option_function<std::vector<std::string>>(
          names,
          [&values](const std::vector<std::string>& texts) {
            for (const std::string& text : texts)
              if (text.empty()) throw error("file name", "is empty");
            values = texts;
          },
          help)
      ->type_name("FILE");
}

CLI::Option* with_default(CLI::Option* option, double value) {
  return option->default_str(short_number(value));
}

CLI::Option* with_default(CLI::Option* option, const std::vector<double>& values) {
  std::string text;
  for (double value : values) text += (text.empty() ? "" : ",") + short_number(value);
  return option->default_str(text);
}

}  // namespace vorn::tool
