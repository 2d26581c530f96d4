#include "tune/history.h"

#include <filesystem>

#include "support/error.h"

namespace qv::tool::tune {
History::History(const std::string &path, const Json &search) : path_(path) {
  const bool known = std::filesystem::exists(path);
  if (known)
    std::filesystem::resize_file(path, read(search));
  file_.open(path, std::ios::app);
  if (!known || std::filesystem::file_size(path) == 0)
    file_ << Json{{"search", search}}.dump() << std::endl;
  if (!file_)
    throw InputError("{}: cannot be written", path);
}

/// @param place  file and line, for messages
void History::take_up(const Json &entry, const std::string &place) try {
  const bool failed = entry.contains("failed");
  known_[entry.at("words").get<config::Image>()] = {numbers_of(failed ? Json::object() : entry.at("means")),
                                                    failed ? std::string(entry.at("failed")) : ""};
} catch (const Json::exception &error) {
  throw InputError("{}: is not an evaluation, {{\"words\": [500 numbers], \"means\": {{measure: number}}}}: {}; remove "
                   "the file, or give another --log",
                   place, error.what());
}

size_t History::read(const Json &search) {
  std::ifstream file(path_);
  size_t bytes = 0;
  for (std::string line; std::getline(file, line) && !file.eof(); bytes += line.size() + 1) {
    const Json entry = Json::parse(line, nullptr, false);
    if (bytes == 0) {
      const Json found = entry.is_object() ? entry.value("search", Json()) : Json();
      for (const auto &[key, value] : search.items())
        if (!found.is_object() || found.value(key, Json()) != value)
          throw InputError("{}: is the log of another search: {} is {}, here {}; remove it, or give another --log",
                           path_, key, found.is_object() ? found.value(key, Json()).dump() : "missing", value.dump());
    } else {
      if (!entry.is_object())
        break;
      take_up(entry, fmt::format("{}:{}", path_, ++taken_up_ + 1));
    }
  }
  return bytes;
}

const Measured *History::find(const config::Image &image) const {
  const auto found = known_.find(image);
  return found == known_.end() ? nullptr : &found->second;
}

void History::add(const config::Image &image, const Measured &measured) {
  known_[image] = measured;
  Json line = {{"words", image}};
  if (measured.failed.empty())
    line["means"] = to_json(measured.means);
  else
    line["failed"] = measured.failed;
  file_ << line.dump(-1, ' ', false, Json::error_handler_t::replace) << std::endl;
  if (!file_)
    throw std::runtime_error(path_ + ": cannot be written");
}

} // namespace qv::tool::tune
