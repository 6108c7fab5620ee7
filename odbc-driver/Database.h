// Database: one connection's hold on a workbook file. It keeps the workbook model in memory
// and makes every change durable before returning, through a redo journal beside the file
// ("<workbook>-journal" beside the file a symbolic link names, format in Journal.h) that is folded
// into the .xls on Close() and whenever it grows past the workbook's size. Processes and
// connections are serialized by flock() on the journal: writers exclusively, readers shared. See
// README.md, "Durability".
//
// Ownership: the Database owns its model and file descriptors. Results it hands out share
// the model snapshot they were made from. Not for use from two threads at once.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "odbc-driver/Error.h"
#include "odbc-driver/Executor.h"
#include "odbc-driver/WorkbookStore.h"
#include "xls/Workbook.h"

namespace xlsodbc {

class SqlEngine;

struct DatabaseOptions {
  std::string path;
  bool create = false;  // CREATE_DB: a missing file is made by the first change
  bool readOnly = false;
  bool firstRowHasNames = true;
  int lockTimeoutMs = 30000;
};

class Database {
 public:
  // A missing file without options.create, or one that is not a readable workbook, fails.
  static Error Open(const DatabaseOptions& options, std::unique_ptr<Database>* out);
  ~Database();
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  // Runs one statement on the current state of the file. A change is on disk (journal or
  // workbook) when this returns OK; on failure nothing changed.
  Error Execute(const std::string& sql, const Statement& st, const std::vector<Value>& parameters,
                Outcome* out);

  // The current state, for catalog calls.
  Error Snapshot(std::shared_ptr<const xls::Workbook>* out);

  // Folds the journal into the workbook and removes it. Also run by the destructor.
  Error Close();

  bool readOnly() const { return options_.readOnly; }
  bool firstRowHasNames() const { return options_.firstRowHasNames; }
  const std::string& path() const { return options_.path; }

 private:
  explicit Database(DatabaseOptions options);
  std::string journalPath() const { return file_ + "-journal"; }

  Error Lock(bool exclusive, bool create);
  void Unlock();
  Error Refresh();
  Error EnsureBaseHash();
  Error ReplayJournal();
  Error StartJournal();
  // Appends whole encoded journal records and syncs them.
  Error Append(const std::vector<std::uint8_t>& records);
  Error Fold();

  DatabaseOptions options_;
  std::string file_;  // options_.path with symbolic links followed, resolved at Open
  std::shared_ptr<xls::Workbook> model_;
  FileId loaded_;               // the workbook file the model was read from
  std::uint64_t baseHash_ = 0;  // FNV-1a of that file's bytes, once baseHashKnown_
  // Hashing a large workbook costs as much as a quick query: a connection that only reads
  // and finds no journal never needs the hash, so it is taken when a journal is involved.
  bool baseHashKnown_ = false;
  int journalFd_ = -1;  // open and locked during a statement
  bool locked_ = false;
  std::uint64_t applied_ = 0;  // journal bytes already in the model (0: none read yet)
  bool closed_ = false;

 public:
  // Arrays of parameters: runs st, which changes data, once per parameter set in order under
  // one lock, and makes the changes durable together: one journal write and one sync at the
  // end (or one fold when the batch creates the workbook), so N sets cost one sync, not N.
  // Stops at the first set that fails; the sets before it are kept and saved, one count of
  // rows each in *rowCounts. On failure *failedSet is that set's index, or sets.size() when
  // saving failed: then no set is kept (rowCounts is empty) and the model is read again.
  // A process that dies before this returns may leave any whole prefix of the sets saved.
  Error ExecuteBatch(const std::string& sql, const Statement& st,
                     const std::vector<std::vector<Value>>& sets, std::vector<long>* rowCounts,
                     std::size_t* failedSet);

  // Statements in full SQL (SqlEngine.h): runs sql once per parameter set in sets (one set,
  // empty, when it has no markers), under a shared lock for a query and an exclusive one
  // otherwise. A query runs with exactly one set and leaves its rows in out->result. A
  // change is made durable by folding the whole model into the workbook once at the end,
  // not by a journal record: its effects (NOW(), row order) need not repeat when replayed.
  // Sets stop at the first that fails, as in ExecuteBatch; *rowCounts and *failedSet the
  // same. Text equal to a value in dateTexts is stored as a date cell (date parameters).
  Error ExecuteEngine(const std::string& sql, bool query,
                      const std::vector<std::vector<Value>>& sets,
                      const std::vector<std::string>& dateTexts, Outcome* out,
                      std::vector<long>* rowCounts, std::size_t* failedSet);

  // The model the last statement or snapshot read; results made from it share it.
  std::shared_ptr<const xls::Workbook> model() const { return model_; }

 private:
  std::unique_ptr<SqlEngine> engine_;  // made by the first engine statement
};

}  // namespace xlsodbc
