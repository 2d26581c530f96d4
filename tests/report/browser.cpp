#include "report/browser.h"

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
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

Browser::Browser(const std::string &flags) {
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
      profile_ + " " + flags + " about:blank 2>/dev/null";
  if ((process_ = fork()) == 0) {
    const int end = fcntl(ends[1], F_DUPFD_CLOEXEC, 10);
    for (const int descriptor : {3, 4}) // it reads from one and writes to the other
      dup2(end, descriptor);
    execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
    _exit(1);
  }
  close(ends[1]);
  call("Browser.setDownloadBehavior", {{"behavior", "allow"}, {"downloadPath", profile_ + "/saved"}});
  attach(call("Target.createTarget", {{"url", "about:blank"}})["targetId"]);
}

void Browser::attach(const std::string &target) {
  session_.clear();
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
      (url.rfind("file:", 0) && url.rfind("data:", 0) && url.rfind("blob:", 0) && url != "about:blank" &&
       url != opened_))
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
      if (evaluate("document.documentElement?.dataset.ready === 'yes' && location.href.endsWith('/" + file_name +
                   "')") == true)
        return;
    } catch (const std::runtime_error &) { // on the way from one page to the next
    }
    usleep(20'000);
  }
  throw std::runtime_error("the page does not get ready");
}

void Browser::open(const std::string &path) {
  opened_ = path.starts_with('/') ? "file://" + path : path;
  call("Page.navigate", {{"url", "about:blank"}}); // another fragment alone would not load the page anew
  call("Page.navigate", {{"url", opened_}});
  wait_ready(path.substr(path.rfind('/') + 1));
}

void Browser::follow(const std::string &link, const std::string &file_name) {
  evaluate("setTimeout(() => " + link + ".click()) && 0");
  wait_ready(file_name);
}

void Browser::enter(const std::string &link) {
  const auto pages = [&] {
    std::set<std::string> ids;
    const Json answer = call("Target.getTargets");
    for (const Json &target : answer["targetInfos"])
      if (target["type"] == "page")
        ids.insert(target["targetId"]);
    return ids;
  };
  const std::set<std::string> before = pages();
  evaluate("setTimeout(() => " + link + ".click()) && 0");
  for (int waited = 0; waited < 50 * patience; ++waited) {
    for (const std::string &id : pages())
      if (!before.contains(id)) {
        attach(id);
        return wait_ready(evaluate("location.href.split('/').at(-1)"));
      }
    usleep(20'000);
  }
  throw std::runtime_error("no page is opened");
}

bool Browser::comes_true(const std::string &condition) {
  return evaluate("new Promise(done => { const end = performance.now() + " + std::to_string(1000 * patience / 2) +
                  "; const look = () => (" + condition +
                  ") ? done(true) : performance.now() > end ? done(false) : setTimeout(look, 20); look(); })");
}

std::string Browser::saved(const std::string &expression, const std::string &file_name) {
  const std::filesystem::path path = std::filesystem::path(profile_) / "saved" / file_name;
  evaluate(expression);
  for (int waited = 0; waited < 50 * patience; ++waited) {
    if (std::filesystem::exists(path)) { // has its name once it is whole
      std::ifstream file(path, std::ios::binary);
      const std::string bytes{std::istreambuf_iterator<char>(file), {}};
      std::filesystem::remove(path);
      return bytes;
    }
    usleep(20'000);
  }
  throw std::runtime_error("the page does not save " + file_name);
}

void Browser::choose_files(const std::string &input, const std::vector<std::string> &paths) {
  const Json element = call("Runtime.evaluate", {{"expression", input}})["result"]["objectId"];
  call("DOM.setFileInputFiles", {{"objectId", element}, {"files", paths}});
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

void Browser::key(const std::string &key, int modifiers) {
  const std::map<std::string, int> codes = {{"Tab", 9},      {"Enter", 13},      {" ", 32},         {"ArrowLeft", 37},
                                            {"ArrowUp", 38}, {"ArrowRight", 39}, {"ArrowDown", 40}, {"Delete", 46}};
  const auto code = codes.find(key);
  for (const char *type : {"keyDown", "keyUp"})
    call("Input.dispatchKeyEvent", {{"type", type},
                                    {"key", key},
                                    {"text", key.size() == 1 ? key : ""},
                                    {"windowsVirtualKeyCode", code == codes.end() ? 0 : code->second},
                                    {"modifiers", modifiers}});
}

std::vector<std::string> Browser::problems() {
  evaluate("0"); // takes in what is under way
  return std::exchange(problems_, {});
}

} // namespace qv::test
