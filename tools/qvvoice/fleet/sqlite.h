/// @file sqlite.h  SQLite's C interface, as far as it is used here.
#pragma once

#include <memory>
#include <string>

#include <sqlite3.h>

#include "support/error.h"

namespace qv::tool::fleet {

/// A statement that is bound and stepped again and again.
class Statement {
public:
  Statement(sqlite3 *database, const char *text) : database_(database) {
    sqlite3_stmt *made = nullptr;
    check(sqlite3_prepare_v2(database, text, -1, &made, nullptr));
    statement_.reset(made);
  }
  Statement &bind(int place, const std::string &text) {
    check(sqlite3_bind_text(statement_.get(), place, text.data(), int(text.size()), SQLITE_TRANSIENT));
    return *this;
  }
  Statement &bind(int place, double number) {
    check(sqlite3_bind_double(statement_.get(), place, number));
    return *this;
  }
  Statement &bind(int place, int64_t number) {
    check(sqlite3_bind_int64(statement_.get(), place, number));
    return *this;
  }
  bool next() { ///< whether there is a row
    const int status = sqlite3_step(statement_.get());
    if (status != SQLITE_ROW && status != SQLITE_DONE)
      check(status);
    return status == SQLITE_ROW;
  }
  int64_t run() { ///< to its end; ready to be bound again. @return the row that was inserted last
    while (next()) {
    }
    sqlite3_reset(statement_.get());
    sqlite3_clear_bindings(statement_.get());
    return sqlite3_last_insert_rowid(database_);
  }
  std::string text(int column) const {
    const auto *text = reinterpret_cast<const char *>(sqlite3_column_text(statement_.get(), column));
    return text ? text : "";
  }
  double number(int column) const { return sqlite3_column_double(statement_.get(), column); }
  int64_t integer(int column) const { return sqlite3_column_int64(statement_.get(), column); }
  bool null(int column) const { return sqlite3_column_type(statement_.get(), column) == SQLITE_NULL; }

private:
  void check(int status) const {
    if (status != SQLITE_OK)
      throw InputError("{}: {}", sqlite3_db_filename(database_, "main"), sqlite3_errmsg(database_));
  }
  struct Finalize {
    void operator()(sqlite3_stmt *statement) const { sqlite3_finalize(statement); }
  };
  sqlite3 *database_;
  std::unique_ptr<sqlite3_stmt, Finalize> statement_;
};

} // namespace qv::tool::fleet
