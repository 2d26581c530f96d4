/// @file print.h  Results for people and for machines.
#pragma once

#include <string>

#include <nlohmann/json.hpp>

#include "measure/results.h"

namespace qv::tool::measure {

using Json = nlohmann::ordered_json;

/// One recording: name, rate, frame_ms, source, measures (null where there is no number), gaps (why), noise,
/// talk_seconds, recoveries and quarters.
Json to_json(const Subject &subject, const Output &output, const Results &results);

/// Several: {"recordings": [...], "failed": [{"name", "message"}]}.
Json as_set(std::vector<Json> recordings);

/// Means over the recordings of each rate and frame length, of the values that are there:
/// [{"rate", "frame_ms", "recordings", "measures", "low_noise", "high_noise"}], the last two, {"recordings",
/// "measures"} of those by the SNR at the microphone, where there are recordings of both.
Json means(const Json &recordings);

/// Puts another run beside each recording of the same name and frame length: "against" and "difference" (this minus
/// the other). @return names of the recordings for which the other run has none
std::vector<std::string> compare(Json &set, const Json &other);

/// Every measure: its key, its heading in the table of a set, its meaning.
std::string measure_list();

/// A column of the table of a set.
struct Column {
  const Measure *measure;
  std::string heading;
};

/// What a table shows unless others are asked for.
std::vector<Column> usual_columns();

/// Every measure of one recording with its meaning, or a line per recording of a set and their means; failures at the
/// end.
std::string as_text(const Json &set, const std::vector<Column> &columns = usual_columns());

/// A line per recording and run, a column per measure; empty where there is no number.
std::string as_csv(const Json &set);

} // namespace qv::tool::measure
