/// @file finding.h  What reading or checking a parameter file found.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace qv::tool::para {

enum class Severity {
  note,    ///< nothing is wrong, and somebody may be surprised
  warning, ///< the file does what it says, which will hardly sound good
  error,   ///< the file cannot do what it says
};

struct Finding {
  Severity severity;
  int line;        ///< of the text, from 1; 0 when the text does not give the key, or there is no text
  std::string key; ///< "tx.agc.knee_low_db"; empty for the whole file
  std::string message;
};

using Findings = std::vector<Finding>;

/// Collects findings while a text is read; knows the line of each key.
class FindingLog {
public:
  void note_line(const std::string &key, int line) { lines_[key] = line; }
  int line_of(const std::string &key) const;
  void add(Severity severity, const std::string &key, std::string message);
  void error(const std::string &key, std::string message) { add(Severity::error, key, std::move(message)); }
  void warning(const std::string &key, std::string message) { add(Severity::warning, key, std::move(message)); }
  const Findings &findings() const { return findings_; }

private:
  std::map<std::string, int> lines_;
  Findings findings_;
};

bool has_errors(const Findings &findings);

size_t count(const Findings &findings, Severity severity);

/// "error", as texts and JSON have it.
const char *name_of(Severity severity);

/// "FILE:LINE: error: KEY: MESSAGE", without what is not known.
std::string to_string(const Finding &finding, const std::string &file);

} // namespace qv::tool::para
