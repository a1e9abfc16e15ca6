// The workbench's web server: the page and the calls behind it, on the loopback address alone.
//
// Every address begins with a random token that only the printed link knows; requests under another
// host name (a page elsewhere that points a name of its own here) are refused. Only the pictures
// that were named are read, only the named set and new sets beside it are written.
#pragma once

#include <memory>
#include <string>

#include "tools/workbench/project.h"

namespace vorn::tool {

class workbench_server {
 public:
  // Binds a port: 0 takes a free one. An `error` when that fails.
  workbench_server(project& pictures, set_file& set, int port);
  ~workbench_server();
  workbench_server(const workbench_server&) = delete;
  workbench_server& operator=(const workbench_server&) = delete;

  // "http://127.0.0.1:PORT/TOKEN/"
  const std::string& address() const { return address_; }

  // Serves until stop() is called from another thread.
  void run();
  void stop();

 private:
  struct state;
  std::unique_ptr<state> state_;
  std::string address_;
};

}  // namespace vorn::tool
