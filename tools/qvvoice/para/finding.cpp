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

size_t count(const Findings &findings, Severity severity) {
  return size_t(std::ranges::count(findings, severity, &Finding::severity));
}

bool has_errors(const Findings &findings) { return count(findings, Severity::error) > 0; }

const char *name_of(Severity severity) {
  return severity == Severity::error ? "error" : severity == Severity::warning ? "warning" : "note";
}

std::string to_string(const Finding &finding, const std::string &file) {
  const std::string line = finding.line > 0 ? fmt::format("{}:", finding.line) : "";
  const std::string key = finding.key.empty() ? "" : finding.key + ": ";
  return fmt::format("{}:{} {}: {}{}", file, line, name_of(finding.severity), key, finding.message);
}

} // namespace qv::tool::para
