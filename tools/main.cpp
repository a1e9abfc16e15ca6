// vorn-ycnr: the command-line program around the library.
#include <cstdio>
#include <cstring>
#include <new>

#include "tools/commands/commands.h"
#include "tools/denoiser.h"
#include "tools/error.h"

namespace vorn::tool {
namespace {

int complain(const char* what) {
  std::string line = std::string("vorn-ycnr: ") + what;
  for (char& c : line) {
    if (c == '\n') c = ' ';
  }
  line += '\n';
  std::fputs(line.c_str(), stderr);
  return kExitBadInput;
}

int run(int argc, char** argv) {
  CLI::App program("Noise reduction for 8-bit YUV 4:2:0 pictures and video", "vorn-ycnr");
  job chosen;
  add_all_commands(program, chosen);
  try {
    program.parse(argc, argv);
  } catch (const CLI::CallForHelp& help) {
    return program.exit(help);
  } catch (const CLI::CallForAllHelp& help) {
    return program.exit(help);
  } catch (const CLI::CallForVersion& version) {
    return program.exit(version);
  } catch (const CLI::RequiredError& fault) {
    const bool command_given = !program.get_subcommands().empty();
    if (command_given || argc < 2 || argv[1][0] == '-') return complain(fault.what());
    return complain(("no command \"" + std::string(argv[1]) + "\"; see vorn-ycnr --help").c_str());
  } catch (const CLI::ParseError& fault) {
    return complain(fault.what());
  }
  quiet_library_log();
  return chosen();
}

}  // namespace
}  // namespace vorn::tool

int main(int argc, char** argv) {
  using namespace vorn::tool;
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
