#pragma once

#include <sqlite3.h>

#include <cstdio>
#include <memory>

#include "Kes/Strep.h"
#include "bench/ReportLine.h"
#include "bench/Workload.h"

namespace Bench {

// The records in a table of an SQLite database in memory, without journal, through prepared statements. It is
// bounded as a ring: the key is the interface's number and a slot, and a record replaces the one in its slot.
// One transaction holds all appends, which is the best case. It keeps times and lengths, but as rows: there
// is no record that a producer could hold on to.
class SqliteLog {
 public:
  static constexpr std::size_t firsts = 0;
  static constexpr std::size_t least = capacity;

  explicit SqliteLog(Workload const& workload) : next_(workload.ports()) {
    sqlite3* database = nullptr;
    check(sqlite3_open(":memory:", &database));
    database_.reset(database);
    run("PRAGMA journal_mode = OFF");
    run("PRAGMA synchronous = OFF");
    run("CREATE TABLE record(port INTEGER, slot INTEGER, time INTEGER, duration INTEGER, qLen INTEGER, "
        "PRIMARY KEY(port, slot)) WITHOUT ROWID");
    run("BEGIN");
    insert_ = prepare("INSERT OR REPLACE INTO record VALUES(?, ?, ?, 0, ?)");
  }

  void append(U32 port, U32 qLen, U64 timestamp) {
    sqlite3_stmt* const insert = insert_.get();
    sqlite3_bind_int64(insert, 1, port);
    sqlite3_bind_int64(insert, 2, next_[port]++ % capacity);
    sqlite3_bind_int64(insert, 3, static_cast<sqlite3_int64>(timestamp));
    sqlite3_bind_int64(insert, 4, qLen);
    if (sqlite3_step(insert) != SQLITE_DONE) check(SQLITE_ERROR);
    sqlite3_reset(insert);
  }

  std::vector<Kept> kept(U32 port) const {
    Statement const select = prepare("SELECT time, duration, qLen FROM record WHERE port = ? ORDER BY time");
    sqlite3_bind_int64(select.get(), 1, port);
    std::vector<Kept> records;
    while (sqlite3_step(select.get()) == SQLITE_ROW)
      records.push_back({number(select, 0), number(select, 1), static_cast<U32>(number(select, 2))});
    return records;
  }

  // All records in the order of their times.
  void report(std::FILE* out, std::vector<std::string> const& shortNames) const {
    Statement const select = prepare("SELECT time, duration, qLen, port FROM record ORDER BY time");
    while (sqlite3_step(select.get()) == SQLITE_ROW) {
      Kes::DecimalText const time(number(select, 0));
      writeLine(out,
                {time.charPtr(), shortNames[number(select, 3)].c_str(), static_cast<U32>(number(select, 2)),
                 number(select, 1)},
                ',');
    }
  }

 private:
  struct Close {
    void operator()(sqlite3* database) const { sqlite3_close(database); }
    void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
  };
  using Statement = std::unique_ptr<sqlite3_stmt, Close>;

  static U64 number(Statement const& row, int column) {
    return static_cast<U64>(sqlite3_column_int64(row.get(), column));
  }
  void check(int result) const {
    if (result != SQLITE_OK) throw std::runtime_error(sqlite3_errmsg(database_.get()));
  }
  void run(char const* statement) {
    check(sqlite3_exec(database_.get(), statement, nullptr, nullptr, nullptr));
  }
  Statement prepare(char const* text) const {
    sqlite3_stmt* statement = nullptr;
    check(sqlite3_prepare_v2(database_.get(), text, -1, &statement, nullptr));
    return Statement(statement);
  }

  std::vector<U32> next_;
  std::unique_ptr<sqlite3, Close> database_;
  Statement insert_;
};

}  // namespace Bench
