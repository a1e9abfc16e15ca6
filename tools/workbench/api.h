// The workbench's calls: JSON in, JSON or pixels out. They know nothing of HTTP, so that tests and
// other front ends can make them.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <nlohmann/json_fwd.hpp>
#include <string>

#include "tools/workbench/project.h"
#include "tools/workbench/search_job.h"
#include "tools/workbench/view.h"

namespace vorn::tool {

class workbench_api {
 public:
  workbench_api(project& pictures, set_file& set)
      : project_(pictures), set_(set), viewer_(pictures) {}

  // Every call takes the request's object. A fault in it is an `error` that says what is wrong.
  nlohmann::ordered_json state(const nlohmann::ordered_json& request);
  pixels view(const nlohmann::ordered_json& request);
  nlohmann::ordered_json size(const nlohmann::ordered_json& request);
  nlohmann::ordered_json figures(const nlohmann::ordered_json& request);
  nlohmann::ordered_json patch(const nlohmann::ordered_json& request);
  nlohmann::ordered_json regions(const nlohmann::ordered_json& request);
  nlohmann::ordered_json weights(const nlohmann::ordered_json& request);
  nlohmann::ordered_json noise(const nlohmann::ordered_json& request);
  nlohmann::ordered_json search_start(const nlohmann::ordered_json& request);
  nlohmann::ordered_json search_state(const nlohmann::ordered_json& request);
  nlohmann::ordered_json search_stop(const nlohmann::ordered_json& request);
  nlohmann::ordered_json keep(const nlohmann::ordered_json& request);
  nlohmann::ordered_json drop(const nlohmann::ordered_json& request);
  nlohmann::ordered_json save(const nlohmann::ordered_json& request);
  // A file made from the set or a picture, as text: kind "report", "set", "c", "dump".
  std::string file(const nlohmann::ordered_json& request);

  double last_frame_ms() const { return viewer_.last_ms(); }

 private:
  size_t picture_of(const nlohmann::ordered_json& request) const;
  // The test chart that a picture shows, without noise, or null. Looked for once per picture.
  std::shared_ptr<const frame> chart_of(size_t picture);

  project& project_;
  set_file& set_;
  viewer viewer_;
  search_job search_;
  std::mutex charts_mutex_;
  std::map<size_t, std::shared_ptr<const frame>> charts_;  // null: looked for, not there
};

}  // namespace vorn::tool
