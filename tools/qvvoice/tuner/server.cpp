#include "tuner/server.h"

#include <fmt/format.h>
#include <httplib.h>

#include "support/error.h"

namespace qv::tool::tuner {

void serve(const std::string &page, int port, const std::function<void(const std::string &url)> &opened) {
  constexpr const char *loopback = "127.0.0.1";
  httplib::Server server;
  server.set_socket_options([](socket_t) {}); // by itself it would share a port with whoever has it
  const int bound = port == 0 ? server.bind_to_any_port(loopback) : server.bind_to_port(loopback, port) ? port : -1;
  if (bound < 0)
    throw InputError("--port: {} is taken; 0 finds a free one", port);
  const std::string own[] = {fmt::format("{}:{}", loopback, bound), fmt::format("localhost:{}", bound)};
  server.Get("/", [&](const httplib::Request &request, httplib::Response &response) {
    // Another name in front of this address is another site's, which shall not read the call.
    if (std::ranges::find(own, request.get_header_value("Host")) == std::end(own)) {
      response.status = 403;
      return;
    }
    response.set_header("Cache-Control", "no-store");
    response.set_content(page, "text/html; charset=utf-8");
  });
  opened(fmt::format("http://{}/", own[0]));
  server.listen_after_bind();
}

} // namespace qv::tool::tuner
