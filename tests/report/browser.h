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
  /// @param flags  for the command line, beside those that every page is tested with
  explicit Browser(const std::string &flags = "");
  ~Browser();
  Browser(const Browser &) = delete;
  Browser &operator=(const Browser &) = delete;

  /// Opens a file, or an address with its scheme, and waits until the page says that it is ready.
  void open(const std::string &path);
  /// Clicks on an element, given as an expression, and waits until the page that it leads to is ready.
  void follow(const std::string &link, const std::string &file_name);
  /// Clicks on an element that opens another page, goes there, and waits until that is ready.
  void enter(const std::string &link);
  /// A command of the protocol; what it returns. @throws std::runtime_error with what was wrong
  Json call(const std::string &method, Json params = Json::object());
  /// Value of an expression; a promise is awaited. @throws std::runtime_error with what the page threw
  Json evaluate(const std::string &expression);
  /// Whether a condition comes true in a time that a loaded machine needs.
  bool comes_true(const std::string &condition);
  /// What the page saves as a file when an expression is evaluated; the file is then gone.
  std::string saved(const std::string &expression, const std::string &file_name);
  /// Gives files to an input element, as a person chooses them.
  void choose_files(const std::string &input, const std::vector<std::string> &paths);
  /// Presses the mouse at one place and releases it at another of the same height; a click when they are one.
  /// @param modifiers  2: with the control key held
  void drag(double x, double to_x, double y, int modifiers = 0);
  /// Presses and releases a key. @param modifiers  8: with the shift key held
  void key(const std::string &key, int modifiers = 0);
  /// Console errors, exceptions and requests beyond files and the address that was opened, since the last call.
  std::vector<std::string> problems();

private:
  void note(const Json &event);
  void attach(const std::string &target);
  void wait_ready(const std::string &file_name);

  pid_t process_ = 0;
  std::FILE *socket_ = nullptr;
  std::string profile_, session_, opened_;
  int last_id_ = 0;
  std::vector<std::string> problems_;
};

} // namespace qv::test
