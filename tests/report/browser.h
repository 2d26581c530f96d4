/// @file browser.h  A page in headless Chromium, driven over its DevTools protocol through a pair of pipes.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>
#include <sys/types.h>

namespace qv::test {

using Json = nlohmann::json;

struct Picture {
  int width = 0, height = 0;
  std::vector<uint8_t> rgb; ///< [height * width * 3]

  /// Mean of the three colours over 3 x 3 pixels about a place, 0..255.
  double lightness(double x, double y) const;
};

class Browser {
public:
  Browser();
  ~Browser();
  Browser(const Browser &) = delete;
  Browser &operator=(const Browser &) = delete;

  /// Opens a file and waits until the page says that it is ready.
  void open(const std::string &path, bool dark = false);

  /// Clicks on an element, given as an expression, and waits until the page that it leads to is ready.
  void follow(const std::string &link, const std::string &file_name);

  /// Value of an expression; a promise is awaited. @throws std::runtime_error with what the page threw
  Json evaluate(const std::string &expression);

  /// What can be seen.
  Picture screenshot();

  /// One pixel of the page is one of the window: 1000 x 1600.
  void mouse(const std::string &type, double x, double y, Json more = Json::object());
  void click(double x, double y);
  void drag(double x, double y, double to_x, double to_y);
  void touch(const std::string &type, std::vector<std::pair<double, double>> points);
  void key(const std::string &key);

  /// Console errors, exceptions and requests beyond files, since the last call.
  std::vector<std::string> problems();

private:
  Json call(const std::string &method, Json params = Json::object());
  Json receive();
  void note(const Json &event);
  void wait_ready(const std::string &condition);

  pid_t process_ = 0;
  int to_ = -1, from_ = -1;
  std::string profile_, session_, unread_;
  int last_id_ = 0;
  std::vector<std::string> problems_;
};

} // namespace qv::test
