#include "para/equaliser_source.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <sstream>

#include <fmt/format.h>

#include "para/fir_design.h"
#include "para/toml_values.h"

namespace qv::tool::para {

namespace {

constexpr double step = 1.0 / 32768;

template <class... Args>
[[noreturn]] void wrong(const std::string &key, fmt::format_string<Args...> format, Args &&...args) {
  throw EqualiserError(key, fmt::format(format, std::forward<Args>(args)...));
}

double finite(const toml::node &node) {
  const auto value = node.value<double>();
  return value ? *value : std::nan("");
}

std::vector<ResponsePoint> response_points(const toml::node &node, int32_t rate) {
  const toml::array *array = node.as_array();
  if (array == nullptr || array->empty())
    wrong("points", "{}; right would be [[Hz, dB], ...], one pair at least", found(node));
  std::vector<ResponsePoint> points;
  for (const toml::node &element : *array) {
    const size_t number = points.size() + 1;
    const toml::array *pair = element.as_array();
    if (pair == nullptr || pair->size() != 2)
      wrong("points", "point {}: {}; right would be a pair [Hz, dB]", number, found(element));
    const ResponsePoint point{finite(*pair->get(0)), finite(*pair->get(1))};
    const double lowest = points.empty() ? 0 : points.back().hz;
    if (!(point.hz >= lowest && point.hz <= rate / 2) || (!points.empty() && point.hz == lowest))
      wrong("points", "point {}: {} Hz; right would be a frequency above the one before, up to {}", number,
            found(*pair->get(0)), rate / 2);
    if (!(std::abs(point.db) <= 90))
      wrong("points", "point {}: {} dB; right would be a number, -90 .. 90", number, found(*pair->get(1)));
    points.push_back(point);
  }
  return points;
}

int tap_count(const toml::table &section) {
  const toml::node *node = section.get("taps");
  if (node == nullptr)
    return 129;
  const auto taps = node->value_exact<int64_t>();
  if (!taps || *taps < 1 || *taps > max_taps || *taps % 2 == 0)
    wrong("taps", "{}; right would be an odd number, 1 .. {}", found(*node), max_taps);
  return int(*taps);
}

/// A coefficient of exactly 1 becomes the greatest that the file can hold (0.0003 dB less).
void fit_into_words(std::vector<double> &half, const std::string &key) {
  const double greatest = std::abs(
      *std::max_element(half.begin(), half.end(), [](double a, double b) { return std::abs(a) < std::abs(b); }));
  if (greatest > 1 + step / 2)
    wrong(key,
          "the largest coefficient comes to {:.4f}, the file holds less than 1; lower all gains by {:.1f} dB (the gain "
          "control can make up for it)",
          greatest, std::ceil(200 * std::log10(greatest)) / 10);
  for (double &coefficient : half)
    coefficient = std::min(coefficient, 1 - step);
}

std::vector<double> numbers_of(const std::filesystem::path &path) {
  std::ifstream file(path);
  if (!file)
    wrong("file", "{} cannot be opened", path.string());
  std::vector<double> numbers;
  std::string line;
  for (int number = 1; std::getline(file, line); ++number) {
    std::replace(line.begin(), line.end(), ',', ' ');
    std::istringstream words(line.substr(0, line.find('#')));
    for (std::string word; words >> word;) {
      char *end = nullptr;
      numbers.push_back(std::strtod(word.c_str(), &end));
      if (*end != '\0' || !std::isfinite(numbers.back()))
        wrong("file", "{}:{}: \"{}\" is not a number", path.string(), number, word);
    }
  }
  return numbers;
}

/// Half of a whole response, which must be symmetric about its middle.
std::vector<double> half_of(const std::vector<double> &response, const std::string &name) {
  if (response.size() % 2 == 0 || response.size() > size_t(max_taps))
    wrong("file", "{} has {} coefficients; right would be an odd number, 1 .. {}", name, response.size(), max_taps);
  for (size_t i = 0; i < response.size() / 2; ++i)
    if (std::abs(response[i] - response[response.size() - 1 - i]) > step)
      wrong("file", "{}: coefficients {} and {} differ; right would be a symmetric (linear-phase) response", name,
            i + 1, response.size() - i);
  return {response.begin(), response.begin() + long(response.size() / 2) + 1};
}

/// How far the filter misses the worst of its points, when that can be heard.
std::string miss_of(const std::vector<ResponsePoint> &points, const std::vector<double> &half, int32_t rate) {
  constexpr double audible_db = 0.5;
  std::string message;
  double worst = audible_db;
  for (const ResponsePoint &point : points) {
    const double got = response_db(half, point.hz, rate);
    if (std::abs(got - point.db) <= worst)
      continue;
    worst = std::abs(got - point.db);
    message =
        fmt::format("at {} Hz the filter gives {:.1f} dB, not {} dB: more taps or gentler points would come closer",
                    point.hz, got, point.db);
  }
  return message;
}

EqualiserSource from_points(const toml::table &section, int32_t rate) {
  const auto points = response_points(*section.get("points"), rate);
  EqualiserSource source{"points", design_fir(points, tap_count(section), rate), ""};
  fit_into_words(source.half, source.key);
  source.warning = miss_of(points, source.half, rate);
  return source;
}

EqualiserSource from_file(const toml::table &section, const std::filesystem::path &folder) {
  const auto name = section["file"].value_exact<std::string>();
  if (!name)
    wrong("file", "{}; right would be the name of a file", found(*section.get("file")));
  EqualiserSource source{"file", half_of(numbers_of(folder / *name), *name), ""};
  fit_into_words(source.half, source.key);
  return source;
}

} // namespace

std::optional<EqualiserSource> equaliser_source(const toml::table &section, const std::filesystem::path &folder,
                                                int32_t rate) {
  const bool points = section.contains("points"), file = section.contains("file");
  if (points + file + section.contains("coef") > 1)
    wrong(points ? "points" : "file", "the section has more than one of coef, points and file");
  if (section.contains("taps") && !points)
    wrong("taps", "it belongs to points, from which the filter is designed");
  if ((points || file) && section.contains("half_taps"))
    wrong("half_taps", "it follows from points or file: leave it out");
  if (points)
    return from_points(section, rate);
  if (file)
    return from_file(section, folder);
  return std::nullopt;
}

} // namespace qv::tool::para
