#include "fleet/compare.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <numeric>
#include <set>

#include "scene/random.h"
#include "support/error.h"

namespace qv::tool::fleet {
namespace {

constexpr size_t least_pairs = 5, most_resampled = 1000, resamples = 2000, worst_listed = 20;

double mean_of(const std::vector<double> &values) {
  return std::accumulate(values.begin(), values.end(), 0.0) / double(values.size());
}

/// Root mean square.
double size_of(const std::vector<double> &values) {
  double sum = 0;
  for (const double value : values)
    sum += value * value;
  return values.empty() ? 0 : std::sqrt(sum / double(values.size()));
}

double deviation_of(const std::vector<double> &values) {
  const double mean = mean_of(values);
  double sum = 0;
  for (const double value : values)
    sum += (value - mean) * (value - mean);
  return values.size() > 1 ? std::sqrt(sum / double(values.size() - 1)) : 0;
}

/// How far the standard normal distribution holds this share on both sides, by halving.
double normal_quantile(double share) {
  double low = 0, high = 10;
  while (high - low > 1e-12) {
    const double middle = (low + high) / 2;
    (std::erf(middle / std::numbers::sqrt2) < share ? low : high) = middle;
  }
  return low;
}

/// A recording that both runs have measured: the means over its frame lengths.
struct Pair {
  std::string name;
  std::map<std::string, std::string> tags;
  std::vector<double> a, b; ///< [measures()] NaN unless both have a number
  std::vector<size_t> never_a, never_b;
};

std::vector<Pair> pairs_of(const std::vector<Row> &rows_a, const std::vector<Row> &rows_b, Comparison &comparison) {
  const size_t measures = measure::measures().size();
  std::map<std::pair<std::string, int>, const Row *> of_b;
  std::set<std::string> names_a, names_b;
  for (const Row &row : rows_b) {
    of_b[{row.name, row.frame_ms}] = &row;
    names_b.insert(row.name);
  }
  std::map<std::string, size_t> places;
  std::vector<Pair> pairs;
  std::vector<std::vector<size_t>> counts;
  for (const Row &row : rows_a) {
    names_a.insert(row.name);
    const auto found = of_b.find({row.name, row.frame_ms});
    if (found == of_b.end())
      continue;
    const auto [place, fresh] = places.try_emplace(row.name, pairs.size());
    if (fresh) {
      pairs.push_back({row.name, row.tags, std::vector<double>(measures), std::vector<double>(measures),
                       std::vector<size_t>(measures), std::vector<size_t>(measures)});
      counts.emplace_back(measures);
    }
    Pair &pair = pairs[place->second];
    const Row &other = *found->second;
    for (size_t m = 0; m < measures; ++m) {
      pair.never_a[m] += row.never[m];
      pair.never_b[m] += other.never[m];
      if (std::isnan(row.values[m]) || std::isnan(other.values[m]))
        continue;
      pair.a[m] += row.values[m];
      pair.b[m] += other.values[m];
      ++counts[place->second][m];
    }
  }
  for (size_t p = 0; p < pairs.size(); ++p)
    for (size_t m = 0; m < measures; ++m) {
      const double count = counts[p][m] > 0 ? double(counts[p][m]) : std::nan("");
      pairs[p].a[m] /= count;
      pairs[p].b[m] /= count;
    }
  comparison.recordings = pairs.size();
  const auto only = [](const std::set<std::string> &these, const std::set<std::string> &those) {
    return size_t(std::ranges::count_if(these, [&](const std::string &name) { return !those.contains(name); }));
  };
  comparison.only_a = only(names_a, names_b);
  comparison.only_b = only(names_b, names_a);
  return pairs;
}

/// @return nothing when no recording has a number in both
std::optional<Difference> difference_of(size_t m, const std::vector<const Pair *> &pairs, const std::string &tag,
                                        double confidence) {
  Difference found{&measure::measures()[m], tag, 0, 0, 0, 0, {}, 0, 0};
  std::vector<double> differences;
  for (const Pair *pair : pairs) {
    found.never_a += pair->never_a[m];
    found.never_b += pair->never_b[m];
    if (std::isnan(pair->a[m]))
      continue;
    differences.push_back(pair->b[m] - pair->a[m]);
    found.a += pair->a[m];
    found.b += pair->b[m];
  }
  if (differences.empty() && found.never_a + found.never_b == 0)
    return {};
  found.pairs = differences.size();
  found.a /= double(found.pairs);
  found.b /= double(found.pairs);
  found.mean = mean_of(differences);
  found.interval = mean_interval(differences, confidence);
  return found;
}

void add_by_tag(const std::vector<Pair> &pairs, Comparison &comparison) {
  std::map<std::string, std::vector<const Pair *>> groups;
  for (const Pair &pair : pairs)
    for (const auto &[key, value] : pair.tags)
      groups[key + "=" + value].push_back(&pair);
  for (const auto &[tag, some] : groups) {
    if (some.size() == pairs.size())
      continue;
    for (size_t m = 0; m < measure::measures().size(); ++m)
      if (measure::measures()[m].better != 0)
        if (const auto found = difference_of(m, some, tag, comparison.confidence))
          comparison.by_tag.push_back(*found);
  }
}

void add_worst(const std::vector<Pair> &pairs, Comparison &comparison) {
  std::vector<double> scales;
  for (const auto &differences : comparison.differences)
    scales.push_back(size_of(differences));
  for (const Pair &pair : pairs) {
    Worst worst{pair.name, 0, nullptr, 0, 0};
    double sum = 0, most = 0;
    size_t count = 0;
    for (size_t m = 0; m < scales.size(); ++m) {
      const measure::Measure &measure = measure::measures()[m];
      if (measure.better == 0 || std::isnan(pair.a[m]) || scales[m] == 0)
        continue;
      const double worse = (pair.a[m] - pair.b[m]) * measure.better / scales[m];
      sum += worse;
      ++count;
      if (worse > most) {
        most = worse;
        worst = {pair.name, 0, &measure, pair.a[m], pair.b[m]};
      }
    }
    worst.size = count > 0 ? sum / double(count) : 0;
    if (worst.measure && worst.size > 0)
      comparison.worst.push_back(worst);
  }
  std::ranges::stable_sort(comparison.worst, std::greater(), &Worst::size);
  comparison.worst.resize(std::min(comparison.worst.size(), worst_listed));
}

} // namespace

std::optional<Interval> mean_interval(const std::vector<double> &differences, double confidence) {
  const size_t count = differences.size();
  if (count < least_pairs)
    return {};
  const double mean = mean_of(differences);
  if (count > most_resampled) {
    const double reach = normal_quantile(confidence) * deviation_of(differences) / std::sqrt(double(count));
    return Interval{mean - reach, mean + reach};
  }
  scene::Random random(1); // the same interval from the same differences
  std::vector<double> means(resamples);
  for (double &one : means) {
    double sum = 0;
    for (size_t i = 0; i < count; ++i)
      sum += differences[random.below(count)];
    one = sum / double(count);
  }
  std::ranges::sort(means);
  const auto at = [&](double share) { return means[size_t(std::lround(share * double(resamples - 1)))]; };
  return Interval{at((1 - confidence) / 2), at((1 + confidence) / 2)};
}

Verdict Difference::verdict() const {
  if (measure->better == 0 || !interval || (interval->low <= 0 && interval->high >= 0))
    return Verdict::open;
  return (mean > 0) == (measure->better > 0) ? Verdict::better : Verdict::worse;
}

Comparison compare(const std::string &a, const std::vector<Row> &rows_a, const std::string &b,
                   const std::vector<Row> &rows_b, double confidence) {
  Comparison comparison{a, b, confidence, 0, 0, 0, {}, {}, {}, {}, {}, {}};
  const std::vector<Pair> pairs = pairs_of(rows_a, rows_b, comparison);
  if (pairs.empty())
    throw InputError("{} and {} have no recording in common; they are paired by name and frame length", a, b);
  std::vector<const Pair *> all;
  for (const Pair &pair : pairs)
    all.push_back(&pair);
  const size_t measures = measure::measures().size();
  for (auto *some : {&comparison.differences, &comparison.values_a, &comparison.values_b})
    some->resize(measures);
  for (size_t m = 0; m < measures; ++m) {
    if (const auto found = difference_of(m, all, "", confidence))
      comparison.overall.push_back(*found);
    for (const Pair &pair : pairs)
      if (!std::isnan(pair.a[m])) {
        comparison.differences[m].push_back(pair.b[m] - pair.a[m]);
        comparison.values_a[m].push_back(pair.a[m]);
        comparison.values_b[m].push_back(pair.b[m]);
      }
  }
  add_by_tag(pairs, comparison);
  add_worst(pairs, comparison);
  return comparison;
}

} // namespace qv::tool::fleet
