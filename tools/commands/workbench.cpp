// vorn-ycnr workbench: pictures and a tuning set in the browser, live.
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tools/commands/commands.h"
#include "tools/error.h"
#include "tools/workbench/server.h"

extern char** environ;

namespace vorn::tool {
namespace {

struct workbench_options {
  std::vector<std::string> inputs;
  std::string clean;
  std::string set;
  int port = 0;
  bool no_open = false;
  picture_options picture;
};

// Starts the desktop's opener and does not wait for it: where there is none, the printed address
// has to do.
void open_browser(const std::string& address) {
  std::string program = "xdg-open", argument = address;
  char* const arguments[] = {program.data(), argument.data(), nullptr};
  posix_spawn_file_actions_t quiet;
  posix_spawn_file_actions_init(&quiet);
  posix_spawn_file_actions_addopen(&quiet, STDOUT_FILENO, "/dev/null", 1, 0);
  posix_spawn_file_actions_addopen(&quiet, STDERR_FILENO, "/dev/null", 1, 0);
  pid_t child = 0;
  posix_spawnp(&child, program.c_str(), &quiet, nullptr, arguments, environ);
  posix_spawn_file_actions_destroy(&quiet);
}

int run(const workbench_options& o) {
  project pictures(find_inputs(o.inputs, o.clean), o.picture);
  for (size_t i = 0; i < pictures.inputs().size() && i < 1; ++i) pictures.picture(i);
  set_file set(o.set);
  workbench_server server(pictures, set, o.port);

  // An interrupt is taken by a thread of its own: the server is stopped like any other caller
  // would.
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGCHLD, SIG_IGN);
  std::thread waiter([&] {
    int got = 0;
    sigwait(&signals, &got);
    server.stop();
  });

  std::printf("The workbench is at %s\nCtrl-C ends it; what is not saved is kept for next time.\n",
              server.address().c_str());
  std::fflush(stdout);
  if (!o.no_open) open_browser(server.address());
  server.run();
  kill(getpid(), SIGTERM);  // where the server ended by itself, the waiter is still there
  waiter.join();
  return kExitOk;
}

}  // namespace

void add_workbench(CLI::App& program, job& chosen) {
  const auto o = std::make_shared<workbench_options>();
  CLI::App* const command =
      program.add_subcommand("workbench", "Tune live in the browser: sliders, picture, figures");
  add_files(*command, "pictures", o->inputs, "Pictures, directories of them, or a device's dumps")
      ->required()
      ->type_name("IN");
  add_file(*command, "-t,--tuning", o->set,
           "The set to work on (JSON); made when it is saved where there is none yet");
  add_file(*command, "--clean", o->clean,
           "The clean version of all pictures, or a directory of files with their names")
      ->type_name("IN");
  with_default(add_whole(*command, "--port", o->port, 0, 65535,
                         "Port on the loopback address; 0 takes a free one"),
               o->port);
  command->add_flag("--no-open", o->no_open, "Print the address and open no browser");
  add_picture_options(*command, o->picture, false);
  command->footer(
      "Example:\n"
      "  vorn-ycnr demo -o demo && "
      "vorn-ycnr workbench demo/noisy_gain8.png --clean demo/clean.png -t set.json");
  command->callback([o, &chosen] { chosen = [o] { return run(*o); }; });
}

}  // namespace vorn::tool
