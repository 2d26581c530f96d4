#include "para/equaliser_source.h"

#include <algorithm>
#include <cmath>
#include <sstream>

#include <fmt/format.h>

#include "para/file_bytes.h"
#include "para/fir_design.h"
#include "para/toml_values.h"

namespace qv::tool::para {

namespace {

constexpr double step = 1.0 / 32768;

double finite(const toml::node &node) {
  const auto value = node.value<double>();
  return value ? *value : std::nan("");
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

/// Reads one equaliser's section; what is wrong goes into the log, and there is no result then.
class EqualiserReader {
public:
  EqualiserReader(const toml::table &section, const std::string &path, int32_t rate, FindingLog &log)
      : section_(section), path_(path), rate_(rate), log_(log) {}

  std::optional<EqualiserSource> from_points() {
    const auto points = response_points(*section_.get("points"));
    const auto taps = tap_count();
    if (!points || !taps)
      return std::nullopt;
    return fitting("points", design_fir(*points, *taps, rate_), *points);
  }

  std::optional<EqualiserSource> from_file(const std::filesystem::path &folder) {
    const auto name = section_["file"].value_exact<std::string>();
    if (!name)
      return wrong("file", "{}; right would be the name of a file", found(*section_.get("file")));
    const auto numbers = numbers_of(folder / *name);
    const auto half = numbers ? half_of(*numbers, *name) : std::nullopt;
    return half ? fitting("file", *half, {}) : std::nullopt;
  }

  template <class... Args> std::nullopt_t wrong(const char *key, fmt::format_string<Args...> format, Args &&...args) {
    log_.error(fmt::format("{}.{}", path_, key), fmt::format(format, std::forward<Args>(args)...));
    return std::nullopt;
  }

private:
  using Response = std::vector<double>;

  std::optional<std::vector<ResponsePoint>> response_points(const toml::node &node) {
    const toml::array *array = node.as_array();
    if (array == nullptr || array->empty())
      return wrong("points", "{}; right would be [[Hz, dB], ...], one pair at least", found(node));
    std::vector<ResponsePoint> points;
    for (const toml::node &element : *array) {
      const size_t number = points.size() + 1;
      const toml::array *pair = element.as_array();
      if (pair == nullptr || pair->size() != 2)
        return wrong("points", "point {}: {}; right would be a pair [Hz, dB]", number, found(element));
      const ResponsePoint point{finite(*pair->get(0)), finite(*pair->get(1))};
      const double lowest = points.empty() ? 0 : points.back().hz;
      if (!(point.hz >= lowest && point.hz <= rate_ / 2) || (!points.empty() && point.hz == lowest))
        return wrong("points", "point {}: {} Hz; right would be a frequency above the one before, up to {}", number,
                     found(*pair->get(0)), rate_ / 2);
      if (!(std::abs(point.db) <= 90))
        return wrong("points", "point {}: {} dB; right would be a number, -90 .. 90", number, found(*pair->get(1)));
      points.push_back(point);
    }
    return points;
  }

  std::optional<int> tap_count() {
    const toml::node *node = section_.get("taps");
    if (node == nullptr)
      return 129;
    const auto taps = node->value_exact<int64_t>();
    if (!taps || *taps < 1 || *taps > max_taps || *taps % 2 == 0)
      return wrong("taps", "{}; right would be an odd number, 1 .. {}", found(*node), max_taps);
    return int(*taps);
  }

  std::optional<Response> numbers_of(const std::filesystem::path &path) {
    const auto bytes = file_bytes(path);
    if (!bytes)
      return wrong("file", "{} cannot be opened", path.string());
    std::istringstream file(*bytes);
    Response numbers;
    std::string line;
    for (int number = 1; std::getline(file, line); ++number) {
      std::replace(line.begin(), line.end(), ',', ' ');
      std::istringstream words(line.substr(0, line.find('#')));
      for (std::string word; words >> word;) {
        char *end = nullptr;
        numbers.push_back(std::strtod(word.c_str(), &end));
        if (*end != '\0' || !std::isfinite(numbers.back()))
          return wrong("file", "{}:{}: \"{}\" is not a number", path.string(), number, word);
      }
    }
    return numbers;
  }

  /// Half of a whole response, which must be symmetric about its middle.
  std::optional<Response> half_of(const Response &response, const std::string &name) {
    if (response.size() % 2 == 0 || response.size() > size_t(max_taps))
      return wrong("file", "{} has {} coefficients; right would be an odd number, 1 .. {}", name, response.size(),
                   max_taps);
    for (size_t i = 0; i < response.size() / 2; ++i)
      if (std::abs(response[i] - response[response.size() - 1 - i]) > step)
        return wrong("file", "{}: coefficients {} and {} differ; right would be a symmetric (linear-phase) response",
                     name, i + 1, response.size() - i);
    return Response(response.begin(), response.begin() + long(response.size() / 2) + 1);
  }

  /// A coefficient of exactly 1 becomes the greatest that the file can hold (0.0003 dB less).
  std::optional<EqualiserSource> fitting(const char *key, Response half, const std::vector<ResponsePoint> &points) {
    const double greatest = std::abs(
        *std::max_element(half.begin(), half.end(), [](double a, double b) { return std::abs(a) < std::abs(b); }));
    if (greatest > 1 + step / 2)
      return wrong(key,
                   "the largest coefficient comes to {:.4f}, the file holds less than 1; lower all gains by {:.1f} dB "
                   "(the gain control can make up for it)",
                   greatest, std::ceil(200 * std::log10(greatest)) / 10);
    for (double &coefficient : half)
      coefficient = std::min(coefficient, 1 - step);
    return EqualiserSource{key, half, miss_of(points, half, rate_)};
  }

  const toml::table &section_;
  const std::string &path_;
  int32_t rate_;
  FindingLog &log_;
};

} // namespace

std::optional<EqualiserSource> equaliser_source(const toml::table &section, const std::string &path,
                                                const std::filesystem::path &folder, int32_t rate, FindingLog &log) {
  EqualiserReader reader(section, path, rate, log);
  const bool points = section.contains("points"), file = section.contains("file");
  if (points + file + section.contains("coef") > 1)
    return reader.wrong(points ? "points" : "file", "the section has more than one of coef, points and file");
  if (section.contains("taps") && !points)
    return reader.wrong("taps", "it belongs to points, from which the filter is designed");
  if ((points || file) && section.contains("half_taps"))
    return reader.wrong("half_taps", "it follows from points or file: leave it out");
  return points ? reader.from_points() : file ? reader.from_file(folder) : std::nullopt;
}

} // namespace qv::tool::para
