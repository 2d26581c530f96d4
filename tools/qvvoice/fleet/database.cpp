#include "fleet/database.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>

#include <fmt/ranges.h>

#include "fleet/sqlite.h"
#include "measure/results.h"
#include "qvvoice/qvvoice.h"

namespace qv::tool::fleet {
namespace {

constexpr const char *tables = R"(
create table if not exists runs (id integer primary key, name text unique not null, checksum text not null,
                                 library text not null);
create table if not exists parameters (run integer not null, rate integer not null, frame_ms integer not null,
                                       source text not null, words text not null, primary key (run, rate, frame_ms));
create table if not exists recordings (id integer primary key, name text unique not null, line text not null);
create table if not exists results (id integer primary key, run integer not null, recording integer not null,
                                    rate integer not null, frame_ms integer not null, seconds real not null, noise text);
create index if not exists results_of_run on results (run);
create table if not exists tags (result integer not null, key text not null, value text not null,
                                 primary key (result, key)) without rowid;
create table if not exists measures (result integer not null, measure integer not null, value real,
                                     primary key (result, measure)) without rowid;
create table if not exists measure_keys (id integer primary key, key text unique not null);
)";

constexpr const char *removal = R"(
delete from measures where result in (select id from results where run = ?1);
delete from tags where result in (select id from results where run = ?1);
delete from results where run = ?1;
delete from parameters where run = ?1;
delete from runs where id = ?1;
)";

size_t place_of(const std::string &key) {
  return size_t(std::ranges::find(measure::measures(), key, &measure::Measure::key) - measure::measures().begin());
}

} // namespace

struct Database::Writing {
  explicit Writing(sqlite3 *database)
      : result(database, "insert into results (run, recording, rate, frame_ms, seconds, noise) values "
                         "(?, (select id from recordings where name = ?), ?, ?, ?, ?)"),
        tag(database, "insert into tags values (?, ?, ?)"),
        measure(database, "insert into measures values (?, (select id from measure_keys where key = ?), ?)") {}
  int64_t run = 0;
  Statement result, tag, measure;
};

Database::Database(const std::string &path, bool fresh) : path_(path) {
  const int flags = SQLITE_OPEN_READWRITE | (fresh ? SQLITE_OPEN_CREATE : 0);
  const int status = sqlite3_open_v2(path.c_str(), &database_, flags, nullptr);
  try {
    if (status != SQLITE_OK)
      throw InputError("{}: cannot be opened: {}; qvvoice measure --run makes it", path, sqlite3_errmsg(database_));
    sqlite3_busy_timeout(database_, 60000); // another run's merge
    execute("begin immediate");
    execute(tables);
    Statement key(database_, "insert or ignore into measure_keys (key) values (?)");
    for (const measure::Measure &measure : measure::measures())
      key.bind(1, std::string(measure.key)).run();
    execute("commit");
  } catch (...) {
    sqlite3_close(database_);
    throw;
  }
}

Database::~Database() {
  writing_.reset(); // what is not finished is rolled back
  sqlite3_close(database_);
}

void Database::execute(const char *text) const {
  char *message = nullptr;
  if (sqlite3_exec(database_, text, nullptr, nullptr, &message) != SQLITE_OK) {
    const std::string said = message ? message : "";
    sqlite3_free(message);
    throw InputError("{}: {}", path_, said);
  }
}

int64_t Database::find(const std::string &run) const {
  Statement found(database_, "select id from runs where name = ?");
  return found.bind(1, run).next() ? found.integer(0) : 0;
}

void Database::add_recordings(const Run &run) {
  Statement recording(database_, "insert into recordings (name, line) values (?, ?) "
                                 "on conflict (name) do update set line = excluded.line");
  std::ifstream file(run.folder + "/set.jsonl");
  for (std::string line; std::getline(file, line);)
    recording.bind(1, std::string(Json::parse(line)["name"])).bind(2, line).run();
}

void Database::begin(const Run &run, const std::string &name) {
  execute("begin immediate");
  if (const int64_t old = find(name)) {
    Statement same(database_, "select checksum from runs where id = ?");
    same.bind(1, old).next();
    if (same.text(0) != run.id)
      throw InputError("{}: has another run called {}; give the run's folder another name, or another --db", path_,
                       name);
    for (const char *text = removal; *text == '\n' ? *++text : *text;) { // statement by statement
      const char *end = std::strchr(text, ';') + 1;
      Statement(database_, std::string(text, end).c_str()).bind(1, old).run();
      text = end;
    }
  }
  add_recordings(run);
  writing_ = std::make_unique<Writing>(database_);
  writing_->run = Statement(database_, "insert into runs (name, checksum, library) values (?, ?, ?)")
                      .bind(1, name)
                      .bind(2, run.id)
                      .bind(3, std::string(QV_VOICE_Version()))
                      .run();
  Statement parameters(database_, "insert into parameters values (?, ?, ?, ?, ?)");
  for (const Setup &setup : run.setups)
    parameters.bind(1, writing_->run)
        .bind(2, int64_t(setup.rate))
        .bind(3, int64_t(1000 * setup.frame_len / setup.rate))
        .bind(4, setup.para_source)
        .bind(5, Json(setup.para).dump())
        .run();
}

void Database::add(const Json &result) {
  Writing &to = *writing_;
  to.result.bind(1, to.run)
      .bind(2, std::string(result["name"]))
      .bind(3, int64_t(result["rate"]))
      .bind(4, int64_t(result["frame_ms"]))
      .bind(5, double(result["seconds"]));
  if (result.value("noise", Json()).is_string())
    to.result.bind(6, std::string(result["noise"]));
  const int64_t id = to.result.run();
  const Json tags = result.value("tags", Json::object());
  for (const auto &[key, value] : tags.items())
    to.tag.bind(1, id).bind(2, key).bind(3, std::string(value)).run();
  for (const auto &[key, value] : result["measures"].items())
    to.measure.bind(1, id).bind(2, key).bind(3, double(value)).run();
  for (const Json &key : result.value("never", Json::array()))
    to.measure.bind(1, id).bind(2, std::string(key)).run();
}

void Database::finish() {
  writing_.reset();
  execute("commit");
}

std::vector<std::string> Database::runs() const {
  std::vector<std::string> names;
  for (Statement run(database_, "select name from runs order by id"); run.next();)
    names.push_back(run.text(0));
  return names;
}

std::vector<Row> Database::rows(const std::string &run) const {
  const int64_t id = find(run);
  if (id == 0)
    throw InputError("{}: has no run called {}; it has {}", path_, run, fmt::join(runs(), ", "));
  std::vector<Row> rows;
  std::map<int64_t, size_t> place;
  const size_t count = measure::measures().size();
  Statement lengths(database_, "select count(distinct frame_ms) from results where run = ?");
  lengths.bind(1, id).next();
  Statement result(database_, "select results.id, name, rate, frame_ms from results join recordings on recordings.id = "
                              "recording where run = ? order by results.id");
  for (result.bind(1, id); result.next();) {
    place[result.integer(0)] = rows.size();
    rows.push_back({result.text(1),
                    int(result.integer(3)),
                    {{"rate", result.text(2)}},
                    std::vector<double>(count, std::nan("")),
                    std::vector<bool>(count)});
    if (lengths.integer(0) > 1)
      rows.back().tags["frame_ms"] = result.text(3);
  }
  Statement tag(database_, "select result, key, value from tags join results on results.id = result where run = ?");
  for (tag.bind(1, id); tag.next();)
    rows[place[tag.integer(0)]].tags[tag.text(1)] = tag.text(2);
  Statement measure(database_, "select result, key, value from measures join results on results.id = result join "
                               "measure_keys on measure_keys.id = measure where run = ?");
  for (measure.bind(1, id); measure.next();) {
    const size_t at = place_of(measure.text(1));
    if (at == count)
      continue; // of a library that measured more
    Row &row = rows[place[measure.integer(0)]];
    row.never[at] = measure.null(2);
    if (!measure.null(2))
      row.values[at] = measure.number(2);
  }
  return rows;
}

std::string Database::line_of(const std::string &recording) const {
  Statement line(database_, "select line from recordings where name = ?");
  return line.bind(1, recording).next() ? line.text(0) : "";
}

} // namespace qv::tool::fleet
