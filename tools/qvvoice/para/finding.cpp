#include "para/finding.h"

#include <algorithm>

#include <fmt/format.h>

namespace qv::tool::para {

int FindingLog::line_of(const std::string &key) const {
  const auto found = lines_.find(key);
  return found == lines_.end() ? 0 : found->second;
}

void FindingLog::add(Severity severity, const std::string &key, std::string message) {
  findings_.push_back({severity, line_of(key), key, std::move(message)});
}

bool has_errors(const Findings &findings) {
  return std::any_of(findings.begin(), findings.end(), [](const Finding &f) { return f.severity == Severity::error; });
}

std::string to_string(const Finding &finding, const std::string &file) {
  const std::string line = finding.line > 0 ? fmt::format("{}:", finding.line) : "";
  const std::string key = finding.key.empty() ? "" : finding.key + ": ";
  const char *severity = finding.severity == Severity::error ? "error" : "warning";
  return fmt::format("{}:{} {}: {}{}", file, line, severity, key, finding.message);
}

} // namespace qv::tool::para
