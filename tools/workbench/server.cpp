#include "tools/workbench/server.h"

#include <httplib.h>

#include <cstdio>
#include <functional>
#include <nlohmann/json.hpp>
#include <random>

#include "tools/error.h"
#include "tools/threads.h"
#include "tools/workbench/api.h"

namespace vorn::tool {

// Written by the build from the page's parts.
extern const char* const kWorkbenchPage;

namespace {

using json = nlohmann::ordered_json;

constexpr size_t kLargestRequest = size_t(8) << 20;
// A browser opens up to six connections, and an idle one holds a thread until it times out. The
// time-out is also how long an interrupt waits for them.
constexpr int kThreads = 8;
constexpr int kIdleSeconds = 2;

std::string random_token() {
  std::random_device device;
  std::string token;
  char digits[9];
  for (int i = 0; i < 4; ++i) {
    std::snprintf(digits, sizeof digits, "%08x", unsigned(device()));
    token += digits;
  }
  return token;
}

void answer_fault(httplib::Response& response, int status, const std::string& what) {
  response.status = status;
  response.set_content(json({{"fault", what}}).dump(-1, ' ', false, json::error_handler_t::replace),
                       "application/json");
}

json parse_request(const std::string& body) {
  if (body.empty()) return json::object();
  // Nothing that the page sends is deeper than a set in a draft.
  constexpr int kDeepest = 16;
  const auto shallow = [](int depth, json::parse_event_t, json&) {
    if (depth > kDeepest) throw error("request", "is nested too deeply");
    return true;
  };
  json request = json::parse(body, shallow, /*allow_exceptions=*/false);
  if (!request.is_object()) throw error("request", "is not a JSON object");
  return request;
}

}  // namespace

struct workbench_server::state {
  state(project& pictures, set_file& set) : api(pictures, set) {}

  // A POST call under the token; every fault becomes one line of JSON.
  template <typename Answer>
  void post(const std::string& name, const Answer& answer) {
    http.Post("/" + token + "/" + name,
              [answer](const httplib::Request& request, httplib::Response& response) {
                try {
                  answer(parse_request(request.body), response);
                } catch (const error& fault) {
                  answer_fault(response, 422, fault.what());
                } catch (const std::bad_alloc&) {
                  answer_fault(response, 500, "out of memory");
                } catch (const std::exception& fault) {
                  answer_fault(response, 500, fault.what());
                }
              });
  }

  void json_call(const std::string& name, json (workbench_api::*call)(const json&)) {
    post(name, [this, call](const json& request, httplib::Response& response) {
      response.set_content(
          (api.*call)(request).dump(-1, ' ', false, json::error_handler_t::replace),
          "application/json");
    });
  }

  void add_routes();
  bool own_host(const httplib::Request& request) const {
    const std::string host = request.get_header_value("Host");
    return host == "127.0.0.1:" + std::to_string(port) ||
           host == "localhost:" + std::to_string(port);
  }

  workbench_api api;
  httplib::Server http;
  std::string token = random_token();
  int port = 0;
};

void workbench_server::state::add_routes() {
  http.Get("/" + token + "/", [](const httplib::Request&, httplib::Response& response) {
    response.set_header("Content-Security-Policy",
                        "default-src 'none'; script-src 'unsafe-inline'; "
                        "style-src 'unsafe-inline'; img-src data: blob:; connect-src 'self'; "
                        "base-uri 'none'; form-action 'none'; frame-ancestors 'none'");
    response.set_content(kWorkbenchPage, "text/html; charset=utf-8");
  });
  post("view", [this](const json& request, httplib::Response& response) {
    const pixels p = api.view(request);
    response.set_header("X-View", json({{"x", p.x},
                                        {"y", p.y},
                                        {"width", p.width},
                                        {"height", p.height},
                                        {"ms", api.last_frame_ms()}})
                                      .dump());
    response.set_content(reinterpret_cast<const char*>(p.rgba.data()), p.rgba.size(),
                         "application/octet-stream");
  });
  post("file", [this](const json& request, httplib::Response& response) {
    response.set_content(api.file(request), "text/plain; charset=utf-8");
  });
  json_call("state", &workbench_api::state);
  json_call("size", &workbench_api::size);
  json_call("figures", &workbench_api::figures);
  json_call("patch", &workbench_api::patch);
  json_call("regions", &workbench_api::regions);
  json_call("weights", &workbench_api::weights);
  json_call("noise", &workbench_api::noise);
  json_call("search/start", &workbench_api::search_start);
  json_call("search/state", &workbench_api::search_state);
  json_call("search/stop", &workbench_api::search_stop);
  json_call("keep", &workbench_api::keep);
  json_call("drop", &workbench_api::drop);
  json_call("save", &workbench_api::save);
}

workbench_server::workbench_server(project& pictures, set_file& set, int port)
    : state_(std::make_unique<state>(pictures, set)) {
  // The server's pool takes all or hangs. A caller's thread for stop() and a filter's workers come
  // on top.
  constexpr int kNeeded = kThreads + 1 + 4;
  const int given = threads_to_be_had(kNeeded);
  if (given < kNeeded)
    throw error("workbench", "needs " + std::to_string(kNeeded) +
                                 " threads beside its own; to be had: " + std::to_string(given));
  state& s = *state_;
  s.http.new_task_queue = [] { return new httplib::ThreadPool(kThreads); };
  s.http.set_tcp_nodelay(true);
  s.http.set_payload_max_length(kLargestRequest);
  s.http.set_keep_alive_max_count(1u << 30);
  s.http.set_keep_alive_timeout(kIdleSeconds);
  s.http.set_default_headers({{"Cache-Control", "no-store"},
                              {"X-Content-Type-Options", "nosniff"},
                              {"Referrer-Policy", "no-referrer"}});
  s.http.set_pre_routing_handler(
      [&s](const httplib::Request& request, httplib::Response& response) {
        if (s.own_host(request)) return httplib::Server::HandlerResponse::Unhandled;
        answer_fault(response, 403, "this address is not served");
        return httplib::Server::HandlerResponse::Handled;
      });
  s.add_routes();
  s.port = port;
  const bool bound = port == 0 ? (s.port = s.http.bind_to_any_port("127.0.0.1")) > 0
                               : s.http.bind_to_port("127.0.0.1", port);
  if (!bound)
    throw error("port " + std::to_string(port), "cannot be opened on the loopback address");
  address_ = "http://127.0.0.1:" + std::to_string(s.port) + "/" + s.token + "/";
}

workbench_server::~workbench_server() = default;

void workbench_server::run() {
  state_->http.listen_after_bind();
}

void workbench_server::stop() {
  state_->http.stop();
}

}  // namespace vorn::tool
