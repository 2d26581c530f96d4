#include "report/browser.h"

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace qv::test {
namespace {

constexpr int patience = 120; // s; a loaded machine starts a browser slowly

void require(bool good, const char *doing) {
  if (!good)
    throw std::system_error(errno, std::generic_category(), doing);
}

} // namespace

Browser::Browser() {
  char profile[] = "/tmp/qvvoice-browser-XXXXXX";
  require(mkdtemp(profile), "profile folder");
  profile_ = profile;
  int ends[2];
  require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0, "socket");
  const timeval limit{patience, 0};
  setsockopt(ends[0], SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  socket_ = fdopen(ends[0], "r");
  const std::string command =
      "exec chromium --headless=new --no-sandbox --disable-gpu --disable-quic --disable-background-networking "
      "--disable-component-update --disable-sync --no-first-run --remote-debugging-pipe --window-size=1000,1600 "
      "--user-data-dir=" +
      profile_ + " about:blank 2>/dev/null";
  if ((process_ = fork()) == 0) {
    const int end = fcntl(ends[1], F_DUPFD_CLOEXEC, 10);
    for (const int descriptor : {3, 4}) // it reads from one and writes to the other
      dup2(end, descriptor);
    execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
    _exit(1);
  }
  close(ends[1]);
  const std::string target = call("Target.createTarget", {{"url", "about:blank"}})["targetId"];
  session_ = call("Target.attachToTarget", {{"targetId", target}, {"flatten", true}})["sessionId"];
  for (const char *domain : {"Page", "Runtime", "Log", "Network"})
    call(std::string(domain) + ".enable");
}

Browser::~Browser() {
  std::fclose(socket_);
  kill(process_, SIGTERM);
  waitpid(process_, nullptr, 0);
  std::error_code ignored;
  std::filesystem::remove_all(profile_, ignored);
}

void Browser::note(const Json &event) {
  const Json params = event.value("params", Json::object());
  const std::string kind = params.value("type", ""), level = params.value("/entry/level"_json_pointer, "info"),
                    url = params.value("/request/url"_json_pointer, "file:");
  if (event["method"] == "Runtime.exceptionThrown" || kind == "error" || kind == "warning" ||
      (level != "info" && level != "verbose") ||
      (url.rfind("file:", 0) && url.rfind("data:", 0) && url.rfind("blob:", 0) && url != "about:blank"))
    problems_.push_back(event.dump());
}

/// Messages end with a zero byte.
Json Browser::call(const std::string &method, Json params) {
  Json message = {{"id", ++last_id_}, {"method", method}, {"params", std::move(params)}};
  if (!session_.empty())
    message["sessionId"] = session_;
  const std::string text = message.dump();
  require(send(fileno(socket_), text.c_str(), text.size() + 1, MSG_NOSIGNAL) > 0, "command to chromium");
  for (;;) {
    std::string bytes;
    for (int byte; (byte = std::getc(socket_)) > 0;)
      bytes += char(byte);
    require(!bytes.empty(), "answer of chromium (package chromium)");
    const Json answer = Json::parse(bytes);
    if (answer.value("id", 0) != last_id_)
      note(answer);
    else if (answer.contains("error"))
      throw std::runtime_error(method + ": " + answer["error"].dump());
    else
      return answer["result"];
  }
}

Json Browser::evaluate(const std::string &expression) {
  const Json answer =
      call("Runtime.evaluate",
           {{"expression", expression}, {"awaitPromise", true}, {"returnByValue", true}, {"userGesture", true}});
  if (answer.contains("exceptionDetails"))
    throw std::runtime_error(answer["exceptionDetails"].dump());
  return answer["result"].value("value", Json());
}

void Browser::wait_ready(const std::string &file_name) {
  for (int waited = 0; waited < 50 * patience; ++waited) {
    try {
      if (evaluate("document.documentElement?.dataset.ready === 'yes' && location.pathname.endsWith('/" + file_name +
                   "')") == true)
        return;
    } catch (const std::runtime_error &) { // on the way from one page to the next
    }
    usleep(20'000);
  }
  throw std::runtime_error("the page does not get ready");
}

void Browser::open(const std::string &path) {
  call("Page.navigate", {{"url", "file://" + path}});
  wait_ready(path.substr(path.rfind('/') + 1));
}

void Browser::follow(const std::string &link, const std::string &file_name) {
  evaluate("setTimeout(() => " + link + ".click()) && 0");
  wait_ready(file_name);
}

void Browser::drag(double x, double to_x, double y, int modifiers) {
  for (const auto &[type, at] : {std::pair("mousePressed", x), {"mouseMoved", to_x}, {"mouseReleased", to_x}})
    call("Input.dispatchMouseEvent", {{"type", type},
                                      {"x", at},
                                      {"y", y},
                                      {"button", "left"},
                                      {"buttons", 1},
                                      {"clickCount", 1},
                                      {"modifiers", modifiers}});
}

void Browser::key(const std::string &key) {
  for (const char *type : {"keyDown", "keyUp"})
    call("Input.dispatchKeyEvent", {{"type", type}, {"key", key}, {"text", key.size() == 1 ? key : ""}});
}

std::vector<std::string> Browser::problems() {
  evaluate("0"); // takes in what is under way
  return std::exchange(problems_, {});
}

} // namespace qv::test
