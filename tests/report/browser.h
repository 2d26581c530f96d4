/// @file browser.h  A page in headless Chromium, driven over its DevTools protocol through a socket.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>
#include <sys/types.h>

namespace qv::test {

using Json = nlohmann::json;

class Browser {
public:
  Browser();
  ~Browser();
  Browser(const Browser &) = delete;
  Browser &operator=(const Browser &) = delete;

  /// Opens a file and waits until the page says that it is ready.
  void open(const std::string &path);
  /// Clicks on an element, given as an expression, and waits until the page that it leads to is ready.
  void follow(const std::string &link, const std::string &file_name);
  /// Value of an expression; a promise is awaited. @throws std::runtime_error with what the page threw
  Json evaluate(const std::string &expression);
  /// Presses the mouse at one place and releases it at another of the same height; a click when they are one.
  /// @param modifiers  2: with the control key held
  void drag(double x, double to_x, double y, int modifiers = 0);
  void key(const std::string &key);
  /// Console errors, exceptions and requests beyond files, since the last call.
  std::vector<std::string> problems();

private:
  Json call(const std::string &method, Json params = Json::object());
  void note(const Json &event);
  void wait_ready(const std::string &file_name);

  pid_t process_ = 0;
  std::FILE *socket_ = nullptr;
  std::string profile_, session_;
  int last_id_ = 0;
  std::vector<std::string> problems_;
};

} // namespace qv::test
