/// @file database.h  The results of a project's runs in one SQLite file.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "fleet/run.h"

struct sqlite3;

namespace qv::tool::fleet {

/// What a run has measured on a recording at one frame length.
struct Row {
  std::string name;
  int frame_ms;
  std::map<std::string, std::string> tags; ///< those of the set, "rate", and "frame_ms" where there are several
  std::vector<double> values;              ///< [measures()] NaN where there is no number
  std::vector<bool> never;                 ///< [measures()] it was waited for in vain
};

/// Tables: runs (name, checksum of run.json, library), parameters, recordings (name, its line in a manifest), results,
/// tags, measures (null: waited for in vain).
class Database {
public:
  /// @throws InputError when it cannot be opened, is no database or has other tables
  /// @param fresh  whether it is made when missing
  Database(const std::string &path, bool fresh);
  ~Database();

  /// Everything up to finish() becomes visible at once or not at all. A run of this name is replaced if it is the same.
  /// @throws InputError when another run has this name
  void begin(const Run &run, const std::string &name);
  void add(const Json &result);
  void finish();

  std::vector<std::string> runs() const;
  /// @throws InputError when there is no such run; it names those that there are
  std::vector<Row> rows(const std::string &run) const;
  std::string line_of(const std::string &recording) const; ///< in a manifest

private:
  void execute(const char *text) const;
  void add_recordings(const Run &run);
  int64_t find(const std::string &run) const; ///< 0: none

  struct Writing;
  std::string path_;
  sqlite3 *database_ = nullptr;
  std::unique_ptr<Writing> writing_;
};

} // namespace qv::tool::fleet
