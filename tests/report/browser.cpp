#include "report/browser.h"

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <system_error>

#include <fcntl.h>
#include <png.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char **environ;

namespace qv::test {
namespace {

constexpr int patience_ms = 120'000; // a loaded machine starts a browser slowly

std::vector<uint8_t> from_base64(const std::string &text) {
  std::vector<uint8_t> bytes;
  uint32_t group = 0;
  int bits = 0;
  for (const char c : text) {
    const std::string digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const size_t digit = digits.find(c);
    if (digit == std::string::npos)
      break;
    group = group << 6 | uint32_t(digit);
    if ((bits += 6) >= 8)
      bytes.push_back(uint8_t(group >> (bits -= 8)));
  }
  return bytes;
}

/// The browser's answer when a page goes away while it is asked.
struct PageGone : std::runtime_error {
  using std::runtime_error::runtime_error;
};
constexpr int page_gone_code = -32000;

void require(bool good, const char *doing) {
  if (!good)
    throw std::system_error(errno, std::generic_category(), doing);
}

} // namespace

double Picture::lightness(double x, double y) const {
  double sum = 0;
  for (int row = int(y) - 1; row <= int(y) + 1; ++row)
    for (int column = int(x) - 1; column <= int(x) + 1; ++column)
      for (int k = 0; k < 3; ++k)
        sum += rgb.at((size_t(row) * size_t(width) + size_t(column)) * 3 + size_t(k));
  return sum / 27;
}

Browser::Browser() {
  char profile[] = "/tmp/qvvoice-browser-XXXXXX";
  require(mkdtemp(profile), "profile folder");
  profile_ = profile;
  int commands[2], answers[2];
  require(pipe2(commands, O_CLOEXEC) == 0 && pipe2(answers, O_CLOEXEC) == 0, "pipes");
  // The protocol's ends are descriptors 3 and 4 of the browser. High copies, so that neither overwrites the other.
  const int in = fcntl(commands[0], F_DUPFD_CLOEXEC, 10), out = fcntl(answers[1], F_DUPFD_CLOEXEC, 10);
  close(commands[0]);
  close(answers[1]);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, in, 3);
  posix_spawn_file_actions_adddup2(&actions, out, 4);
  posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
  const std::string folder = "--user-data-dir=" + profile_;
  const char *arguments[] = {"chromium",
                             "--headless=new",
                             "--no-sandbox",
                             "--disable-gpu",
                             "--disable-quic",
                             "--no-first-run",
                             "--disable-background-networking",
                             "--disable-component-update",
                             "--disable-sync",
                             "--remote-debugging-pipe",
                             "--window-size=1000,1600",
                             "--force-device-scale-factor=1",
                             "--hide-scrollbars",
                             folder.c_str(),
                             "about:blank",
                             nullptr};
  errno = posix_spawnp(&process_, arguments[0], &actions, nullptr, const_cast<char **>(arguments), environ);
  posix_spawn_file_actions_destroy(&actions);
  close(in);
  close(out);
  to_ = commands[1];
  from_ = answers[0];
  require(errno == 0, "chromium (package chromium)");

  const std::string target = call("Target.createTarget", {{"url", "about:blank"}})["targetId"];
  session_ = call("Target.attachToTarget", {{"targetId", target}, {"flatten", true}})["sessionId"];
  for (const char *domain : {"Page", "Runtime", "Log", "Network"})
    call(std::string(domain) + ".enable");
  call("Emulation.setDeviceMetricsOverride",
       {{"width", 1000}, {"height", 1600}, {"deviceScaleFactor", 1}, {"mobile", false}});
}

Browser::~Browser() {
  close(to_);
  close(from_);
  kill(process_, SIGTERM);
  waitpid(process_, nullptr, 0);
  std::error_code ignored;
  std::filesystem::remove_all(profile_, ignored);
}

/// The next message: they end with a zero byte.
Json Browser::receive() {
  size_t end;
  while ((end = unread_.find('\0')) == std::string::npos) {
    pollfd waiting{from_, POLLIN, 0};
    if (poll(&waiting, 1, patience_ms) <= 0)
      throw std::runtime_error("the browser does not answer");
    char bytes[65536];
    const ssize_t count = read(from_, bytes, sizeof bytes);
    if (count <= 0)
      throw std::runtime_error("the browser has gone");
    unread_.append(bytes, size_t(count));
  }
  const Json message = Json::parse(unread_.substr(0, end));
  unread_.erase(0, end + 1);
  return message;
}

void Browser::note(const Json &event) {
  const std::string method = event.value("method", "");
  const Json params = event.value("params", Json::object());
  if (method == "Runtime.exceptionThrown")
    problems_.push_back(params["exceptionDetails"].dump());
  else if (method == "Runtime.consoleAPICalled" && (params["type"] == "error" || params["type"] == "warning"))
    problems_.push_back(params["args"].dump());
  else if (method == "Log.entryAdded" && params["entry"]["level"] != "info" && params["entry"]["level"] != "verbose")
    problems_.push_back(params["entry"].dump());
  else if (method == "Network.requestWillBeSent") {
    const std::string url = params["request"]["url"];
    if (url.rfind("file:", 0) != 0 && url.rfind("data:", 0) != 0 && url.rfind("blob:", 0) != 0 && url != "about:blank")
      problems_.push_back("request: " + url);
  }
}

Json Browser::call(const std::string &method, Json params) {
  Json message = {{"id", ++last_id_}, {"method", method}, {"params", std::move(params)}};
  if (!session_.empty())
    message["sessionId"] = session_;
  std::string text = message.dump();
  text += '\0';
  for (size_t sent = 0; sent < text.size();) {
    const ssize_t count = write(to_, text.data() + sent, text.size() - sent);
    require(count > 0, "command to the browser");
    sent += size_t(count);
  }
  for (;;) {
    const Json answer = receive();
    if (answer.value("id", 0) != last_id_)
      note(answer);
    else if (answer.contains("error") && answer["error"]["code"] == page_gone_code)
      throw PageGone(method + ": " + answer["error"].dump());
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

void Browser::wait_ready(const std::string &condition) {
  for (int waited = 0; waited < patience_ms; waited += 20) {
    try {
      if (evaluate("document.documentElement?.dataset.ready === 'yes' && " + condition) == true)
        return;
    } catch (const PageGone &) { // on the way from one page to the next
    }
    usleep(20'000);
  }
  throw std::runtime_error("the page does not get ready");
}

void Browser::open(const std::string &path, bool dark) {
  call("Emulation.setEmulatedMedia",
       {{"features", Json::array({{{"name", "prefers-color-scheme"}, {"value", dark ? "dark" : "light"}}})}});
  call("Page.navigate", {{"url", "file://" + path}});
  wait_ready("true");
}

void Browser::follow(const std::string &link, const std::string &file_name) {
  try {
    evaluate(link + ".click()");
  } catch (const PageGone &) { // the next page was quicker than the answer
  }
  wait_ready("location.pathname.endsWith('/" + file_name + "')");
}

Picture Browser::screenshot() {
  const std::vector<uint8_t> png = from_base64(call("Page.captureScreenshot", {{"format", "png"}})["data"]);
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  if (!png_image_begin_read_from_memory(&image, png.data(), png.size()))
    throw std::runtime_error("no picture");
  image.format = PNG_FORMAT_RGB;
  Picture picture{int(image.width), int(image.height), std::vector<uint8_t>(PNG_IMAGE_SIZE(image))};
  if (!png_image_finish_read(&image, nullptr, picture.rgb.data(), 0, nullptr))
    throw std::runtime_error("broken picture");
  return picture;
}

void Browser::mouse(const std::string &type, double x, double y, Json more) {
  Json params = {{"type", type}, {"x", x}, {"y", y}};
  params.update(more);
  call("Input.dispatchMouseEvent", params);
}

void Browser::click(double x, double y) { drag(x, y, x, y); }

void Browser::drag(double x, double y, double to_x, double to_y) {
  const Json left = {{"button", "left"}, {"buttons", 1}, {"clickCount", 1}};
  mouse("mouseMoved", x, y);
  mouse("mousePressed", x, y, left);
  if (to_x != x || to_y != y)
    for (const double share : {0.3, 0.7, 1.0})
      mouse("mouseMoved", x + share * (to_x - x), y + share * (to_y - y), left);
  mouse("mouseReleased", to_x, to_y, left);
}

void Browser::touch(const std::string &type, std::vector<std::pair<double, double>> points) {
  Json list = Json::array();
  for (size_t i = 0; i < points.size(); ++i)
    list.push_back({{"x", points[i].first}, {"y", points[i].second}, {"id", i}});
  call("Input.dispatchTouchEvent", {{"type", type}, {"touchPoints", list}});
}

void Browser::key(const std::string &key) {
  const Json named = {{"key", key}, {"text", key.size() == 1 ? key : ""}};
  for (const char *type : {"keyDown", "keyUp"}) {
    Json params = named;
    params["type"] = type;
    call("Input.dispatchKeyEvent", params);
  }
}

std::vector<std::string> Browser::problems() {
  evaluate("0"); // takes in what is under way
  return std::exchange(problems_, {});
}

} // namespace qv::test
