#include "report/html.h"

#include <cctype>

#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>

#include "report/assets.h"

namespace qv::tool::report {
namespace {

std::string_view asset(std::string_view name) {
  const auto found = std::ranges::find(assets(), name, &Asset::name);
  if (found == assets().end())
    throw std::logic_error("no asset " + std::string(name));
  return found->content;
}

std::string replaced(std::string_view text, char what, std::string_view by) {
  std::string result;
  for (const char c : text)
    c == what ? result += by : result += c;
  return result;
}

} // namespace

std::string fill(std::string_view page, const std::map<std::string_view, std::string> &values) {
  std::string_view rest = asset(page);
  std::string filled;
  for (size_t open; (open = rest.find("{{")) != rest.npos;) {
    const size_t close = rest.find("}}", open);
    const std::string_view name = rest.substr(open + 2, close - open - 2);
    const auto value = values.find(name);
    filled += rest.substr(0, open);
    filled += value != values.end() ? std::string_view(value->second) : asset(name);
    rest.remove_prefix(close + 2);
  }
  return filled.append(rest);
}

std::string escape(std::string_view text) { return replaced(replaced(text, '&', "&amp;"), '<', "&lt;"); }

std::string percent_encoded(const std::string &path) {
  std::string text;
  for (const char c : path)
    text += std::isalnum(static_cast<unsigned char>(c)) || std::string_view("-._~/").find(c) != std::string_view::npos
                ? std::string(1, c)
                : fmt::format("%{:02X}", static_cast<unsigned char>(c));
  return text;
}

std::string script_json(const nlohmann::ordered_json &data) {
  return replaced(data.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace), '<', "\\u003c");
}

} // namespace qv::tool::report
