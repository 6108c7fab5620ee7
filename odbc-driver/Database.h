// Database: one connection's hold on a workbook file. It keeps the workbook model in memory
// and writes every change it accepts to a redo journal beside the file ("<workbook>-journal"
// beside the file a symbolic link names, format in Journal.h): one record per committed unit,
// holding the unit's effects on the model (cells written, sheets added or cleared, formats
// added), never SQL. The journal is folded into the .xls on Close() and whenever it grows past
// the workbook's size (and options.foldFloorBytes). Processes and connections are serialized
// by flock() on the journal: writers exclusively, readers shared. A statement's lock is kept
// for a moment after it ends (options.lockLeaseMs, LockLease.h), so that a run of statements
// takes it once. See README.md, "Durability", "Locking" and "Transactions".
//
// A journal file only ever grows by whole records or is cut back to the end of its last whole
// one; a fold, or a journal found stale, removes it and the next change starts a new file. So
// a connection that finds the journal it holds still linked and as long as what it applied
// knows that no other connection changed anything, without looking at the workbook.
//
// Autocommit (the default): each statement (or array of parameter sets) is a unit, in the
// journal when it returns. Autocommit off: the changes since the last Commit() are one unit.
// They are made on the model as they run, so later statements see them; the first takes the
// exclusive lock and holds it until Commit() or Rollback(), and nothing reaches the journal
// before Commit(), which appends the unit as one record. Rollback() puts the model back as it
// was at the last commit; the file is untouched. A process that dies before Commit() leaves
// no trace of the unit.
//
// What a change that returned (autocommit) or was committed survives, by options.sync:
//   kFull    every unit is flushed (fsync) before it returns: it survives the process being
//            killed and a power cut.
//   kNormal  every unit is in the journal through a plain write, so it survives the process
//            being killed; the journal is flushed on fold, Commit() of a transaction, Flush(),
//            Close(), and by the first statement that finds the last flush older than
//            options.flushIntervalMs. A power cut can lose what was not flushed yet.
//   kOff     flushed only by folds and Close(): for bulk loads. Survives the process being
//            killed; a power cut can lose every change since the last fold.
// In every mode a power cut leaves a whole workbook, and the journal gives back a prefix of
// the units it held (records are whole or ignored).
//
// Ownership: the Database owns its model and file descriptors. Results it hands out share
// the model snapshot they were made from. Not for use from two threads at once.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "odbc-driver/ConnectionString.h"
#include "odbc-driver/Error.h"
#include "odbc-driver/Executor.h"
#include "odbc-driver/Journal.h"
#include "odbc-driver/LockLease.h"
#include "odbc-driver/WorkbookStore.h"
#include "xls/Workbook.h"
#include "xls/Xlsx.h"

namespace xlsodbc {

class SqlEngine;

struct DatabaseOptions {
  std::string path;
  bool create = false;  // CREATE_DB: a missing file is made by the first change
  bool readOnly = false;
  bool firstRowHasNames = true;
  // Opens an encrypted workbook (PWD); Excel's default password, which protects a file
  // against editing only, is always tried first.
  std::string password;
  SyncMode sync = SyncMode::kNormal;
  int lockTimeoutMs = 30000;
  int flushIntervalMs = 1000;  // kNormal: the age of the last flush that makes a statement flush
  // How long a statement's lock is kept for the next statement; 0 lets go of it at once.
  int lockLeaseMs = 5;
  // The journal is folded once it holds more than the workbook's size and this many bytes:
  // a bulk load into a small workbook then writes the workbook once, at the end, rather than
  // each time the journal outgrows it. Replaying this much costs about what running the
  // statements did.
  std::uint64_t foldFloorBytes = std::uint64_t{64} << 20;
};

class Database {
 public:
  // A missing file without options.create, or one that is not a readable workbook, fails.
  static Error Open(const DatabaseOptions& options, std::unique_ptr<Database>* out);
  ~Database();
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  // Runs one statement on the current state of the file. A change is in the journal or the
  // workbook when this returns OK, flushed as options.sync says; on failure nothing changed.
  Error Execute(const std::string& sql, const Statement& st, const std::vector<Value>& parameters,
                Outcome* out);

  // The current state, for catalog calls.
  Error Snapshot(std::shared_ptr<const xls::Workbook>* out);

  // Flushes to disk what this connection wrote to the journal and has not flushed yet (see
  // the modes above); OK at once when there is nothing.
  Error Flush();

  // Off: later changes form one unit until Commit() or Rollback(). Turning it on commits the
  // open unit (ODBC's rule), and fails as Commit() does.
  Error SetAutocommit(bool on);
  bool autocommit() const { return autocommit_; }
  // Appends the open unit to the journal as one record, flushed unless SYNC=OFF, and lets go
  // of the lock; without one, Flush(). On failure the unit is rolled back and the error says
  // whether it may have reached the journal anyway (see Append).
  Error Commit();
  // Puts the model back as the last commit left it and lets go of the lock.
  void Rollback();
  // Whether a unit is open: a change ran since the last Commit() or Rollback().
  bool inTransaction() const { return inTransaction_; }

  // Rolls back an open unit, folds the journal into the workbook and removes it. Also run by
  // the destructor.
  Error Close();

  bool readOnly() const { return options_.readOnly; }
  bool firstRowHasNames() const { return options_.firstRowHasNames; }
  const std::string& path() const { return options_.path; }
  // The sheet size of the format the workbook is saved in: the file's own once it exists
  // (read from its bytes, whatever its name), else the one its name asks for.
  const SheetGrid& grid() const {
    return format_ == xls::WorkbookFormat::kXlsx ? kXlsxGrid : kXlsGrid;
  }

 private:
  explicit Database(DatabaseOptions options);
  const std::string& journalPath() const { return journalPath_; }

  // Both do nothing while a unit is open: it holds the exclusive lock until it ends. Unlock
  // lends the lock to the lease; Lock takes it back when it is still held and covers what
  // is asked, and then needs no system call.
  Error Lock(bool exclusive, bool create);
  void Unlock();
  // Lets go of the lock for good, lent or not.
  void Release();
  void DropJournal();
  // Under the lock: brings the model up to the file and the journal.
  Error CatchUp();
  // Has the next statement read the workbook and the journal again: the model may differ
  // from what they rebuild.
  void ForgetModel();
  Error Refresh();
  Error EnsureBaseHash();
  Error ReplayJournal();
  Error ReplayLegacy(const std::vector<std::uint8_t>& tail, std::size_t* consumed);
  Error StartJournal();
  // Before a change: refuses it on a read-only or encrypted workbook, takes the exclusive
  // lock, catches up, folds a journal of SQL text (version 1) and starts a journal; opens a
  // unit's way back when autocommit is off. On failure the lock is let go (outside a unit).
  Error BeginChange();
  // After a change ran (changed: it changed the model): saves the statement's effects as a
  // unit, or adds them to the open one.
  Error EndChange(bool changed, const EffectLog& statement);
  // Adds the formats the model gained since they were last journaled, then statement.
  void TakeEffects(const EffectLog& statement, EffectLog* unit);
  // Makes a unit the model holds durable: the first change of a new file writes it, any
  // other appends its record (flushed as the mode says, or at once for a commit) and folds a
  // journal that has grown past the workbook. On failure the model is read again later.
  Error Save(const EffectLog& unit, bool commit);
  // Appends whole encoded journal records, flushing them as the mode says.
  Error Append(const std::vector<std::uint8_t>& records, bool commit);
  Error SyncJournal();
  Error FlushIfDue();
  // closing: the journal is not started again, so the new bytes need no hash.
  Error Fold(bool closing = false);
  Error CheckWritableOnce();
  // A change to a workbook read with a password, or holding macros, is refused (kReadOnly):
  // saving it would drop the protection or the macros.
  Error CheckSavable() const;

  DatabaseOptions options_;
  std::string file_;  // options_.path with symbolic links followed, resolved at Open
  std::string journalPath_;  // file_ + "-journal": named once, since each statement lends it
  std::shared_ptr<xls::Workbook> model_;
  FileId loaded_;               // the workbook file the model was read from
  xls::WorkbookFormat format_;  // what Fold writes (see grid())
  bool macros_ = false;         // the file read holds a VBA project
  std::uint64_t baseHash_ = 0;  // FNV-1a of that file's bytes, once baseHashKnown_
  // Hashing a large workbook costs as much as a quick query: a connection that only reads
  // and finds no journal never needs the hash, so it is taken when a journal is involved.
  bool baseHashKnown_ = false;
  int journalFd_ = -1;  // open and locked during a statement
  bool locked_ = false;
  bool lockedExclusive_ = false;  // with locked_: the lock held is the exclusive one
  bool lent_ = false;             // locked_ is lent to lease_: ask it back before trusting it
  std::unique_ptr<LockLease> lease_;
  FileId journal_;             // journalFd_'s file as found when it was last locked
  std::uint64_t applied_ = 0;  // journal bytes already in the model (0: none read yet)
  // Checked before this connection first touches a journal with a change, and again for
  // each new journal: a workbook the user may not write refuses changes.
  bool writableChecked_ = false;
  bool unsynced_ = false;  // this connection wrote journal bytes it has not flushed
  std::chrono::steady_clock::time_point lastFlush_;
  bool closed_ = false;
  int version_ = kJournalVersion;  // of the journal followed (1: SQL text, 2: FNV-1a sums)
  // The model's formats up to here are in the file or the journal; a change journals the
  // ones past it. A failed engine statement may leave a format behind (the model has no way
  // to drop one), which the next saved change then carries.
  std::size_t journaledStyles_ = 0;

  bool autocommit_ = true;
  bool inTransaction_ = false;
  std::shared_ptr<xls::Workbook> committed_;  // the model as the last commit left it
  std::size_t committedStyles_ = 0;
  EffectLog pending_;  // the open unit's effects

 public:
  // Arrays of parameters: runs st, which changes data, once per parameter set in order under
  // one lock, and saves the changes together as one unit: one journal write at the end,
  // flushed as one (or one fold when the batch creates the workbook), so N sets cost one sync
  // at most. With autocommit off the sets join the open unit instead.
  // Stops at the first set that fails; the sets before it are kept and saved, one count of
  // rows each in *rowCounts. On failure *failedSet is that set's index, or sets.size() when
  // saving failed: then no set is kept (rowCounts is empty) and the model is read again.
  // A process that dies before this returns may leave any whole prefix of the sets saved.
  Error ExecuteBatch(const std::string& sql, const Statement& st,
                     const std::vector<std::vector<Value>>& sets, std::vector<long>* rowCounts,
                     std::size_t* failedSet);

  // Statements in full SQL (SqlEngine.h): runs sql once per parameter set in sets (one set,
  // empty, when it has no markers), under a shared lock for a query and an exclusive one
  // otherwise. A query runs with exactly one set and leaves its rows in out->result. Changes
  // are saved as ExecuteBatch saves them: their effects, so NOW() or the order rows were
  // visited in never matter to replay. Sets stop at the first that fails, as in
  // ExecuteBatch; *rowCounts and *failedSet the same. Text equal to a value in dateTexts is
  // stored as a date cell (date parameters).
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
