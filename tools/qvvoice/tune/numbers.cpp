#include "tune/numbers.h"

#include <cmath>

namespace qv::tool::tune {

Numbers numbers_of(const measure::Results &results) {
  Numbers numbers;
  for (const measure::Measure &measure : measure::measures()) {
    const measure::Value &value = results.*measure.value;
    numbers.push_back(value.known() && !is_speed(measure) ? value.number() : std::nan(""));
  }
  return numbers;
}

Numbers numbers_of(const Json &measures) {
  Numbers numbers;
  for (const measure::Measure &measure : measure::measures())
    numbers.push_back(measures.value(measure.key, std::nan("")));
  return numbers;
}

Json to_json(const Numbers &numbers) {
  Json json = Json::object();
  for (size_t i = 0; i < numbers.size(); ++i)
    if (!std::isnan(numbers[i]))
      json[measure::measures()[i].key] = numbers[i];
  return json;
}

Numbers mean_of(const std::vector<Numbers> &by_recording) {
  Numbers means;
  for (size_t i = 0; i < measure::measures().size(); ++i) {
    double sum = 0;
    int count = 0;
    for (const Numbers &numbers : by_recording)
      if (!std::isnan(numbers[i])) {
        sum += numbers[i];
        ++count;
      }
    means.push_back(count > 0 ? sum / count : std::nan(""));
  }
  return means;
}

} // namespace qv::tool::tune
