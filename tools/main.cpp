// vorn-ycnr: the command-line program around the library.
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <new>
#include <regex>
#include <sstream>

#include "tools/commands/score.h"
#include "tools/denoiser.h"
#include "tools/error.h"
#include "tools/text.h"

namespace vorn::tool {
namespace {

int complain(std::string line) {
  for (char& c : line) {
    if (c == '\n') c = ' ';
  }
  note(line);
  return kExitBadInput;
}

// A closed standard stream would become the first file that is opened: what is printed would end up
// in a picture. The stand-in fails in the direction that the stream is used in.
void fill_standard_streams() {
  for (int stream = 0; stream <= 2; ++stream) {
    if (fcntl(stream, F_GETFD) >= 0) continue;
    const int flags = stream == 0 ? O_WRONLY : stream == 1 ? O_RDONLY : O_RDWR;
    if (open("/dev/null", flags) != stream) return;
  }
}

// The innermost command that was named; program itself where none was.
const CLI::App& command_of(const CLI::App& program) {
  const CLI::App* at = &program;
  while (!at->get_subcommands().empty()) at = at->get_subcommands().front();
  return *at;
}

// The parser's sentences in plain words.
std::string plain(const std::string& text, const CLI::App& program) {
  const CLI::App& command = command_of(program);
  std::string path;
  for (const CLI::App* at = &command; at != &program; at = at->get_parent())
    path = at->get_name() + " " + path;
  const std::string see = "; see vorn-ycnr " + path + "--help";
  if (text == "A subcommand is required") return "a command is missing" + see;
  static const std::regex kTooFew("(.*): At least ([0-9]+) required but received [0-9]+");
  std::smatch few;
  if (std::regex_match(text, few, kTooFew)) {
    for (const CLI::Option* option : command.get_options()) {
      if (option->get_name() != few[1]) continue;
      const std::string& type = option->get_type_name();
      return (option->get_positional() ? type + ": " + few.str(2) + " are needed"
                                       : few.str(1) + ": needs " + type) +
             see;
    }
  }
  static const std::pair<std::regex, const char*> kPlain[] = {
      {std::regex("(.*): At Most ([0-9]+) required but received ([0-9]+)"),
       "$1: takes $2, but $3 were given"},
      {std::regex("(.*): [0-9]+ required (.*) missing"), "$1: needs $2"},
      {std::regex("(.*): (.*) only partially specified: .*"), "$1: needs all of $2"},
      {std::regex("(.*) requires (.*)"), "$1 goes with $2 alone"},
      {std::regex("(.*) excludes (.*)"), "$1 and $2 do not go together"},
      {std::regex("The following arguments? (?:was|were) not expected: (.*)"), "not expected: $1"},
  };
  for (const auto& [pattern, sentence] : kPlain) {
    if (std::regex_match(text, pattern)) return std::regex_replace(text, pattern, sentence) + see;
  }
  static const std::regex kRequired("(.*) is required");
  std::smatch name;
  if (!std::regex_match(text, name, kRequired)) return text;
  // Arguments are known by what they stand for.
  for (const CLI::Option* option : command.get_options()) {
    if (option->get_positional() && name[1] == option->get_name())
      return option->get_type_name() + " is missing" + see;
  }
  return name.str(1) + " is missing" + see;
}

int show(const CLI::App& program, const CLI::Success& asked) {
  std::ostringstream text;
  program.exit(asked, text, text);
  print("%s", text.str().c_str());
  finish_standard_output();
  return kExitOk;
}

int run(int argc, char** argv) {
  CLI::App program("Noise reduction for 8-bit YUV 4:2:0 pictures and video", "vorn-ycnr");
  job chosen;
  command_words().assign(argv + std::min(argc, 1), argv + argc);
  add_all_commands(program, chosen);
  try {
    program.parse(argc, argv);
  } catch (const CLI::Success& asked) {
    return show(program, asked);
  } catch (const CLI::RequiredError& fault) {
    const CLI::App& command = command_of(program);
    const bool outermost = &command == &program;
    const int known = outermost ? 1 : 2;  // words that name a command
    if (command.get_require_subcommand_min() == 0 || argc <= known || argv[known][0] == '-')
      return complain(plain(fault.what(), program));
    const std::string path = outermost ? "" : command.get_name() + " ";
    return complain("no command \"" + path + argv[known] + "\"; see vorn-ycnr " + path + "--help");
  } catch (const CLI::ParseError& fault) {
    return complain(plain(fault.what(), program));
  }
  quiet_library_log();
  const int code = chosen();
  finish_standard_output();
  return code;
}

}  // namespace
}  // namespace vorn::tool

int main(int argc, char** argv) {
  using namespace vorn::tool;
  fill_standard_streams();
  signal(SIGXFSZ, SIG_IGN);  // a file that grows too large is a fault with a name, not a crash
  try {
    return run(argc, argv);
  } catch (const error& fault) {
    return complain(fault.what());
  } catch (const std::bad_alloc&) {
    return complain("out of memory");
  } catch (const std::exception& fault) {
    return complain(fault.what());
  }
}
