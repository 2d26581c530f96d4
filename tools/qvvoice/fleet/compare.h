/// @file compare.h  Whether one run is better than another, by how much, and whether that could be chance.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "fleet/database.h"
#include "measure/results.h"

namespace qv::tool::fleet {

/// An interval that holds the mean difference with the confidence asked for.
struct Interval {
  double low, high;
};

/// Of the mean of paired differences: percentile bootstrap (Efron and Tibshirani 1993) of 2000 samples up to 1000
/// differences; beyond, the normal one, of which the bootstrap's is then an approximation.
/// @param confidence  0.5 to 0.9999
/// @return nothing for fewer than 5 differences, which say nothing of their spread
std::optional<Interval> mean_interval(const std::vector<double> &differences, double confidence);

enum class Verdict { better, worse, open };

/// One measure over some recordings, B against A.
struct Difference {
  const measure::Measure *measure;
  std::string tag; ///< "device=speaker-2"; empty: all recordings
  size_t pairs;    ///< recordings with a number in both
  double a, b;     ///< means over them
  double mean;     ///< of b - a
  std::optional<Interval> interval;
  size_t never_a, never_b; ///< results that were waited for in vain

  Verdict verdict() const; ///< open unless the interval leaves 0 out, and of measures that are neither good nor bad
};

/// A recording, and how much worse it is: the mean over its measures of the difference towards worse, over the root
/// mean square of that measure's differences of all recordings.
struct Worst {
  std::string name;
  double size;
  const measure::Measure *measure; ///< that got worst, by that scale
  double a, b;                     ///< its values
};

struct Comparison {
  std::string a, b;
  double confidence;
  size_t recordings;                            ///< in both
  size_t only_a, only_b;                        ///< in one of them
  std::vector<Difference> overall;              ///< by measure
  std::vector<Difference> by_tag;               ///< of every tag's value that some recordings have and others do not
  std::vector<Worst> worst;                     ///< first the worst
  std::vector<std::vector<double>> differences; ///< [measures()] b - a, a number per recording that has both
  std::vector<std::vector<double>> values_a, values_b; ///< likewise
};

/// Recordings are paired by name, their frame lengths one by one; a recording's difference is the mean over these.
/// @throws InputError when no recording is in both
Comparison compare(const std::string &a, const std::vector<Row> &rows_a, const std::string &b,
                   const std::vector<Row> &rows_b, double confidence);

std::string as_text(const Comparison &comparison);
std::string as_csv(const Comparison &comparison);
Json as_json(const Comparison &comparison);

/// A page with the distributions of both and of their differences. @param pages  folder of pages of the recordings
std::string comparison_page(const Comparison &comparison, const std::string &pages);

} // namespace qv::tool::fleet
