// Writes the manual page and the bash completion from the program's own options, at build time:
//   make_docs man > vorn-ycnr.1
//   make_docs bash > vorn-ycnr
#include <cstdio>
#include <cstring>
#include <string>

#include "tools/commands/commands.h"

namespace vorn::tool {
namespace {

// Text for roff: no line may start with a control character, and "-" and "\" are special.
std::string roff(const std::string& text) {
  std::string out;
  bool line_start = true;
  for (const char c : text) {
    if (line_start && (c == '.' || c == '\'')) out += "\\&";
    if (c == '\\') {
      out += "\\e";
    } else if (c == '-') {
      out += "\\-";
    } else {
      out += c;
    }
    line_start = c == '\n';
  }
  return out;
}

bool is_hidden(const CLI::Option* option) {
  return option->get_group().empty();
}

void print_footer(const CLI::App& app) {
  const std::string footer = app.get_footer();
  if (footer.empty()) return;
  std::printf(".PP\n");
  const size_t head = footer.find('\n');
  std::printf("%s\n", roff(footer.substr(0, head)).c_str());
  if (head == std::string::npos) return;
  std::printf(".PP\n.nf\n%s\n.fi\n", roff(footer.substr(head + 1)).c_str());
}

void print_command(const CLI::App& app, const std::string& path) {
  if (!path.empty()) {
    std::printf(".SS %s\n%s.\n", roff(path).c_str(), roff(app.get_description()).c_str());
    std::string positionals;
    for (const CLI::Option* option : app.get_options()) {
      if (option->get_positional() && !is_hidden(option)) {
        positionals += " \\fI" + roff(option->get_type_name()) + "\\fR";
        if (option->get_items_expected_max() > 1) positionals += "...";
      }
    }
    if (!positionals.empty() || app.get_subcommands({}).empty()) {
      std::printf(".PP\n\\fBvorn\\-ycnr %s\\fR%s [\\fIoptions\\fR]\n", roff(path).c_str(),
                  positionals.c_str());
    }
  }
  for (const CLI::Option* option : app.get_options()) {
    if (is_hidden(option) || option == app.get_help_ptr() || option == app.get_help_all_ptr()) {
      continue;
    }
    const std::string name =
        option->get_positional() ? option->get_type_name() : option->get_name(false, true);
    std::printf(".TP\n\\fB%s\\fR", roff(name).c_str());
    if (!option->get_positional() && option->get_type_size() > 0) {
      std::printf(" \\fI%s\\fR", roff(option->get_type_name()).c_str());
    }
    std::printf("\n%s", roff(option->get_description()).c_str());
    if (!option->get_default_str().empty()) {
      std::printf(" [%s]", roff(option->get_default_str()).c_str());
    }
    std::printf("\n");
  }
  if (!path.empty()) print_footer(app);
  for (const CLI::App* sub : app.get_subcommands({})) {
    print_command(*sub, path.empty() ? sub->get_name() : path + " " + sub->get_name());
  }
}

void print_man(const CLI::App& program) {
  std::printf(".TH VORN\\-YCNR 1 \"\" \"vorn\\-ycnr %s\" \"User Commands\"\n", VORN_TOOL_VERSION);
  std::printf(".SH NAME\nvorn\\-ycnr \\- %s\n",
              roff("noise reduction for pictures and video").c_str());
  std::printf(".SH SYNOPSIS\n\\fBvorn\\-ycnr\\fR \\fIcommand\\fR [\\fIoptions\\fR]\n");
  std::printf(
      ".SH DESCRIPTION\n"
      "Removes luma and chroma noise from 8\\-bit YUV 4:2:0 pictures and video, replays what a "
      "device\n"
      "recorded, and helps to tune a new sensor.\n"
      "PNG, JPEG, y4m and raw NV12, NV21 and I420 are read and written; pictures of odd size are\n"
      "padded inside and cropped when written.\n"
      "A file appears under its name only when it is complete.\n");
  std::printf(".SH COMMANDS\n");
  print_command(program, "");
  std::printf(
      ".SH EXIT STATUS\n"
      ".TP\n0\nDone; for commands that compare, all agrees.\n"
      ".TP\n1\nDone, but what was compared does not agree.\n"
      ".TP\n2\nBad option or file; one line on standard error names it and the cause.\n"
      ".SH ENVIRONMENT\n"
      ".TP\nVORN_PROPERTIES\nFile of the library's properties (name=value): log level, dumps. When "
      "it "
      "is set the\nlibrary logs to standard error as the file says.\n"
      ".TP\nVORN_KERNELS\nForm of the kernels to use: scalar, neon, neon_dot, sse2, avx2, avx512. "
      "All "
      "give the same\nbytes.\n"
      ".PP\nPrograms that run with another user's rights (set-user-id) take neither.\n");
}

// The words that may follow one command.
std::string words_of(const CLI::App& app) {
  std::string words;
  for (const CLI::App* sub : app.get_subcommands({})) words += " " + sub->get_name();
  for (const CLI::Option* option : app.get_options()) {
    if (is_hidden(option)) continue;
    for (const std::string& name : option->get_lnames()) words += " --" + name;
    for (const std::string& name : option->get_snames()) words += " -" + name;
  }
  return words.empty() ? words : words.substr(1);
}

void print_cases(const CLI::App& app, const std::string& path) {
  std::printf("    '%s') words='%s' ;;\n", path.c_str(), words_of(app).c_str());
  for (const CLI::App* sub : app.get_subcommands({})) {
    print_cases(*sub, path.empty() ? sub->get_name() : path + " " + sub->get_name());
  }
}

void print_commands(const CLI::App& app, const std::string& path) {
  for (const CLI::App* sub : app.get_subcommands({})) {
    const std::string name = path.empty() ? sub->get_name() : path + " " + sub->get_name();
    std::printf("|%s", name.c_str());
    print_commands(*sub, name);
  }
}

void print_bash(const CLI::App& program) {
  std::printf(
      "# bash completion for vorn-ycnr\n"
      "_vorn_ycnr() {\n"
      "  local current=${COMP_WORDS[COMP_CWORD]} path='' word words\n"
      "  COMPREPLY=()\n"
      "  for word in \"${COMP_WORDS[@]:1:COMP_CWORD-1}\"; do\n"
      "    case '");
  print_commands(program, "");
  std::printf(
      "|' in\n"
      "      *\"|${path:+$path }$word|\"*) path=\"${path:+$path }$word\" ;;\n"
      "    esac\n"
      "  done\n"
      "  case \"$path\" in\n");
  print_cases(program, "");
  std::printf(
      "  esac\n"
      "  case \"$current\" in\n"
      "    -*) mapfile -t COMPREPLY < <(compgen -W \"$words\" -- \"$current\") ;;\n"
      "    *)\n"
      "      compopt -o filenames 2>/dev/null\n"
      "      local commands=''\n"
      "      for word in $words; do [[ $word == -* ]] || commands+=\" $word\"; done\n"
      "      if [ -n \"$commands\" ]; then\n"
      "        mapfile -t COMPREPLY < <(compgen -W \"$commands\" -- \"$current\")\n"
      "      else\n"
      "        mapfile -t COMPREPLY < <(compgen -f -- \"$current\")\n"
      "      fi\n"
      "      ;;\n"
      "  esac\n"
      "}\n"
      "complete -F _vorn_ycnr vorn-ycnr\n");
}

}  // namespace
}  // namespace vorn::tool

int main(int argc, char** argv) {
  using namespace vorn::tool;
  CLI::App program("", "vorn-ycnr");
  job chosen;
  add_all_commands(program, chosen);
  if (argc == 2 && std::strcmp(argv[1], "man") == 0) {
    print_man(program);
  } else if (argc == 2 && std::strcmp(argv[1], "bash") == 0) {
    print_bash(program);
  } else {
    std::fprintf(stderr, "usage: make_docs man|bash\n");
    return 2;
  }
  return 0;
}
