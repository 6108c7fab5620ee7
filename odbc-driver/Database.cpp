#include "odbc-driver/Database.h"

#include <fcntl.h>
#include <sys/file.h>
#include <time.h>

#include <algorithm>
#include <cerrno>

#include "fileio/SysCalls.h"
#include "odbc-driver/Journal.h"
#include "odbc-driver/SqlEngine.h"
#include "xls/Xls.h"
#include "xls/Xlsx.h"
#include "xls/XlsxZip.h"

namespace xlsodbc {

namespace {

// Excel keeps a workbook's macros in this part; the codec reads past it and never writes it.
bool HoldsMacros(const xls::FileBytes& bytes) {
  xls::ZipPartReader zip;
  return zip.Open(bytes.data(), bytes.size()).ok() && zip.Has("xl/vbaProject.bin");
}

// A new workbook takes the format its name asks for; a name that asks for neither is refused
// rather than given content another program would not expect under it.
bool NamesAFormat(const std::string& path) {
  std::size_t dot = path.rfind('.');
  if (dot == std::string::npos || path.find('/', dot) != std::string::npos) return false;
  std::string ext = path.substr(dot + 1);
  for (char& c : ext) c = static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
  return ext == "xls" || ext == "xlsx" || ext == "xlsm";
}

bool IsMacroEnabledName(const std::string& path) {
  if (path.size() < 5) return false;
  std::string ext = path.substr(path.size() - 5);
  for (char& c : ext) c = static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
  return ext == ".xlsm";
}

using Clock = std::chrono::steady_clock;

// A FileId no real file has: the model must be read again before it is trusted.
FileId Unknown() {
  FileId id;
  id.exists = true;
  return id;
}

Error CannotExamine(const std::string& path, int err) {
  return Error(ErrorKind::kIO, "Cannot examine '" + path + "': " + ErrnoText(err) + ".");
}

Error CannotSync(int err) {
  return Error(ErrorKind::kIO, "Cannot sync the journal: " + ErrnoText(err) + ".");
}

void SleepMs(int ms) {
  struct timespec ts {
    0, ms * 1000000L
  };
  nanosleep(&ts, nullptr);
}

}  // namespace

Database::Database(DatabaseOptions options)
    : options_(std::move(options)),
      model_(std::make_shared<xls::Workbook>()),
      format_(xls::FormatOfPath(options_.path)),
      lastFlush_(Clock::now()) {}

Database::~Database() {
  Close();
  DropJournal();
}

namespace {

Error ReadOnlyConnection() {
  return Error(ErrorKind::kReadOnly,
               "The connection is read-only (READONLY=1): the workbook cannot be changed.");
}

}  // namespace

Error Database::Open(const DatabaseOptions& options, std::unique_ptr<Database>* out) {
  if (options.path.empty()) {
    return Error(ErrorKind::kWorkbookMissing,
                 "No workbook given: set DBQ to the path of an .xls or .xlsx file.");
  }
  FileId id = StatPath(options.path);
  if (!id.exists && !options.create) {
    return Error(ErrorKind::kWorkbookMissing,
                 "Workbook '" + options.path + "' not found (give CREATE_DB to create it).");
  }
  if (!id.exists && !id.error && !NamesAFormat(options.path)) {
    return Error(ErrorKind::kWorkbookMissing,
                 "Cannot create '" + options.path +
                     "': a new workbook's name ends in .xls (Excel 97-2003) or .xlsx (Excel "
                     "2007 and later), which chooses its format.");
  }
  std::unique_ptr<Database> db(new Database(options));
  // The journal and its lock belong to the file itself: every link to it shares them.
  fileio::Result resolved = fileio::ResolveLinks(options.path, &db->file_);
  if (!resolved.ok()) return Error(ErrorKind::kIO, resolved.message());
  db->journalPath_ = db->file_ + "-journal";
  Error e = db->Lock(false, false);
  if (e.ok()) e = db->CatchUp();
  bool pending = db->applied_ > kJournalHeaderSize;
  db->Unlock();
  if (!e.ok()) return e;
  // Statements journaled by a process that ended without folding them: fold them now, so the
  // .xls on disk is current again for programs that read it directly.
  // A workbook the user may not write keeps them pending; they are replayed on each read.
  if (pending && !options.readOnly && CheckWritable(db->file_).ok()) {
    e = db->Lock(true, false);
    if (e.ok()) e = db->CatchUp();
    if (e.ok() && db->applied_ > kJournalHeaderSize) e = db->Fold();
    db->Unlock();
    if (!e.ok()) return e;
  }
  *out = std::move(db);
  return Error();
}

Error Database::CheckSavable() const {
  if (macros_) {
    return Error(ErrorKind::kReadOnly, "Workbook '" + options_.path +
                                           "' holds macros; changes are refused, since saving "
                                           "it would drop them (the driver does not write "
                                           "macros). Save a copy as .xlsx to change it.");
  }
  if (!model_->encrypted) return Error();
  // Saving would write the workbook without its password: refused, as a read-only file is.
  return Error(ErrorKind::kReadOnly, "Workbook '" + options_.path +
                                         "' is password-protected; changes are refused, since "
                                         "saving it would remove the protection.");
}

Error Database::CheckWritableOnce() {
  if (writableChecked_) return Error();
  Error e = CheckWritable(options_.path);
  writableChecked_ = e.ok();
  return e;
}

Error Database::Lock(bool exclusive, bool create) {
  if (inTransaction_) return Error();
  if (lent_) {
    lent_ = false;
    if (!lease_->Reclaim()) locked_ = false;
  }
  // Held since the last statement, which left the model at the journal's end: nobody else
  // can have written the journal or removed it. (A failed write leaves the model forgotten,
  // and the journal's length is then looked at again.)
  if (locked_ && (lockedExclusive_ || !exclusive) && applied_ >= kJournalHeaderSize &&
      applied_ == journal_.size) {
    return Error();
  }
  // A shared lock is not turned into an exclusive one in place: flock() would let go of it
  // first anyway, and whoever came between must be seen.
  Release();
  const std::string& path = journalPath();
  LockLease::ReleaseOthers(path, lease_.get());
  auto deadline =
      std::chrono::steady_clock::now() + std::chrono::milliseconds(options_.lockTimeoutMs);
  while (true) {
    if (journalFd_ < 0 && create) {
      // Refused before the journal is touched: a change that could never be folded into the
      // file must not be accepted into the journal either.
      Error e = CheckWritableOnce();
      if (!e.ok()) return e;
      // A new journal takes the workbook's mode, owner and group: it holds the same data.
      bool created = false;
      fileio::Result r = fileio::OpenOrCreateLike(path, file_, &journalFd_, &created);
      if (!r.ok()) return Error(ErrorKind::kIO, r.message());
    }
    if (journalFd_ < 0) {
      int flags = (options_.readOnly ? O_RDONLY : O_RDWR) | O_CLOEXEC;
      journalFd_ = fileio::Sys().open(path.c_str(), flags, 0);
      if (journalFd_ < 0 && errno == EACCES) {
        journalFd_ = fileio::Sys().open(path.c_str(), O_RDONLY | O_CLOEXEC, 0);
      }
      if (journalFd_ < 0) {
        // No journal: the workbook file alone is the whole state, and it only ever changes by
        // an atomic rename, so it can be read without a lock.
        if (errno == ENOENT) return Error();
        return Error(ErrorKind::kIO, "Cannot open '" + path + "': " + ErrnoText(errno) + ".");
      }
    }
    if (fileio::Sys().flock(journalFd_, (exclusive ? LOCK_EX : LOCK_SH) | LOCK_NB) != 0) {
      if (errno != EWOULDBLOCK && errno != EINTR) {
        return Error(ErrorKind::kIO, "Cannot lock '" + path + "': " + ErrnoText(errno) + ".");
      }
      if (std::chrono::steady_clock::now() > deadline) {
        return Error(ErrorKind::kLocked, "Workbook '" + options_.path +
                                             "' is in use by another connection; gave up waiting.");
      }
      SleepMs(2);
      LockLease::ReleaseOthers(path, lease_.get());  // lent since the last try
      continue;
    }
    locked_ = true;
    lockedExclusive_ = exclusive;
    journal_ = fileio::StatFdNoTimes(journalFd_);
    if (journal_.error) {
      const int err = journal_.error;
      DropJournal();
      return CannotExamine(path, err);
    }
    // Journals are removed, never replaced: one without a name was folded (or found stale)
    // while this connection waited or since its last statement. The file at the path, if
    // any, is a new journal, over a new workbook.
    if (journal_.links == 0) {
      if (applied_ > kJournalHeaderSize) loaded_ = Unknown();
      DropJournal();
      continue;
    }
    return Error();
  }
}

void Database::Unlock() {
  if (inTransaction_ || !locked_ || lent_) return;
  if (options_.lockLeaseMs > 0 && journalFd_ >= 0) {
    if (!lease_) lease_ = std::make_unique<LockLease>(options_.lockLeaseMs);
    lease_->Lend(journalFd_, journalPath());
    lent_ = true;
    return;
  }
  Release();
}

void Database::Release() {
  if (lent_) {
    lent_ = false;
    if (!lease_->Reclaim()) locked_ = false;
  }
  if (locked_ && journalFd_ >= 0) fileio::Sys().flock(journalFd_, LOCK_UN);
  locked_ = false;
}

void Database::DropJournal() {
  Release();
  if (journalFd_ >= 0) fileio::Sys().close(journalFd_);
  journalFd_ = -1;
  journal_ = FileId();
  applied_ = 0;
  version_ = kJournalVersion;
  writableChecked_ = false;
}

Error Database::CatchUp() {
  if (journalFd_ >= 0 && applied_ >= kJournalHeaderSize) {
    // The journal this connection follows still has its name, so no fold happened since (a
    // fold removes it) and the workbook is the one the model came from: only records that
    // other connections appended can be new.
    if (journal_.size == applied_) return Error();
    if (journal_.size > applied_) return ReplayJournal();
    // Shorter than what was applied: nothing the driver does. Read everything again.
    loaded_ = Unknown();
    applied_ = 0;
  }
  return Refresh();
}

Error Database::Refresh() {
  FileId id = StatPath(file_);
  // Taken for missing, an unreadable workbook would be replaced by the next CREATE TABLE.
  if (id.error) return CannotExamine(options_.path, id.error);
  if (id != loaded_) {
    auto fresh = std::make_shared<xls::Workbook>();
    std::uint64_t hash = 0;
    if (id.exists) {
      xls::FileBytes bytes;
      Error e = ReadWholeFile(file_, &bytes);
      if (!e.ok()) return e;
      xls::ReadOptions read;
      read.password = options_.password;
      xls::Status s = xls::ReadWorkbookFromMemory(bytes.data(), bytes.size(), read, fresh.get());
      if (s.code() == xls::Status::Code::kNeedsPassword) {
        return Error(ErrorKind::kPassword,
                     "Workbook '" + options_.path + "' is encrypted; a password is needed (PWD).");
      }
      if (s.code() == xls::Status::Code::kWrongPassword) {
        return Error(ErrorKind::kPassword, "Workbook '" + options_.path +
                                               "' is encrypted, and the password given does "
                                               "not open it.");
      }
      if (!s.ok()) {
        return Error(ErrorKind::kWorkbookCorrupt,
                     "'" + options_.path +
                         "' is not a workbook this driver can read: " + s.ToString() + ".");
      }
      if (journalFd_ >= 0) hash = Fnv64(bytes.data(), bytes.size());
      id.size = bytes.size();
      format_ = xls::FormatOfBytes(bytes.data(), bytes.size());
      macros_ = format_ == xls::WorkbookFormat::kXlsx && HoldsMacros(bytes);
    } else {
      format_ = xls::FormatOfPath(options_.path);
      macros_ = false;
    }
    model_ = std::move(fresh);
    journaledStyles_ = model_->styles().size();
    loaded_ = id;
    baseHash_ = hash;
    baseHashKnown_ = journalFd_ >= 0 || !id.exists;
    applied_ = 0;
  }
  return ReplayJournal();
}

Error Database::EnsureBaseHash() {
  if (baseHashKnown_ || !loaded_.exists) return Error();
  xls::FileBytes bytes;
  Error e = ReadWholeFile(file_, &bytes);
  if (!e.ok()) return e;
  FileId now = StatPath(file_);
  if (now.error) return CannotExamine(options_.path, now.error);
  now.size = bytes.size();
  // Under the journal's lock the file only changes through this connection; a difference
  // means it was replaced behind the lock, and the model no longer describes it.
  if (now != loaded_) {
    loaded_ = Unknown();
    return Error(ErrorKind::kIO, "Workbook '" + options_.path +
                                     "' was replaced while in use; run the statement again.");
  }
  baseHash_ = Fnv64(bytes.data(), bytes.size());
  baseHashKnown_ = true;
  return Error();
}

Error Database::ReplayJournal() {
  if (journalFd_ < 0 || !locked_) return Error();
  const FileId& j = journal_;
  if (applied_ == 0) {
    version_ = kJournalVersion;
    if (j.size < kJournalHeaderSize || !loaded_.exists) return Error();
    std::vector<std::uint8_t> head;
    Error e = ReadAt(journalFd_, 0, kJournalHeaderSize, &head);
    JournalHeader h;
    // Anything but a journal's header is a header cut short by a crash (or not ours): stale.
    if (!e.ok() || !DecodeJournalHeader(head, &h)) return e;
    if (h.version < kLegacyJournalVersion || h.version > kJournalVersion) {
      // Refused before anything is applied, removed or written: a later driver's journal may
      // hold changes this one cannot read, and treating it as stale would drop them.
      return Error(ErrorKind::kWorkbookCorrupt,
                   "The journal '" + journalPath() + "' is in a format this driver does not " +
                       "know (version byte " + std::to_string(head[7]) +
                       "); a newer driver may have written it. The workbook and the journal " +
                       "are left as they are.");
    }
    e = EnsureBaseHash();
    if (!e.ok()) return e;
    // A journal written against other workbook bytes is stale: its changes are already in
    // the file (a fold finished but the journal was not removed) or belong to another file.
    if (h.baseHash != baseHash_ || h.baseSize != loaded_.size) return Error();
    version_ = h.version;
    applied_ = kJournalHeaderSize;
  }
  if (j.size <= applied_) return Error();
  std::vector<std::uint8_t> tail;
  Error e = ReadAt(journalFd_, applied_, j.size - applied_, &tail);
  if (!e.ok()) return e;
  std::size_t consumed = 0;
  if (version_ == kLegacyJournalVersion) {
    e = ReplayLegacy(tail, &consumed);
  } else {
    std::vector<std::vector<Effect>> units;
    e = DecodeEffectRecords(tail.data(), tail.size(), &units, &consumed, version_);
    if (e.ok() && !units.empty() && model_.use_count() > 1) {
      model_ = std::make_shared<xls::Workbook>(*model_);  // results keep the state they read
    }
    for (std::size_t i = 0; e.ok() && i < units.size(); ++i)
      e = ApplyEffects(units[i], model_.get());
  }
  if (!e.ok()) {
    ForgetModel();  // it may hold part of a record
    return Error(e.kind(), "Cannot replay the journal '" + journalPath() + "': " + e.message() +
                               ". The workbook and the journal are left as they are.");
  }
  applied_ += consumed;
  journaledStyles_ = model_->styles().size();
  return Error();
}

Error Database::ReplayLegacy(const std::vector<std::uint8_t>& tail, std::size_t* consumed) {
  std::vector<JournalRecord> records = DecodeJournalRecords(tail.data(), tail.size(), consumed);
  for (const JournalRecord& r : records) {
    Statement st;
    Outcome ignored;
    ExecOptions o;
    o.firstRowHasNames = r.firstRowHasNames;
    o.grid = grid();
    o.parameters = &r.parameters;
    // Each record ran without error against this very state when it was written.
    if (ParseSql(r.sql, &st).ok()) xlsodbc::Execute(st, o, &model_, &ignored);
  }
  return Error();
}

Error Database::StartJournal() {
  if (version_ != kJournalVersion) {
    // Records of this version never follow an older version's: that journal is folded first.
    Error e = Fold();
    if (e.ok()) e = Lock(true, true);
    if (e.ok()) e = CatchUp();
    if (!e.ok()) return e;
    if (version_ != kJournalVersion) {
      return Error(ErrorKind::kIO, "Cannot fold the journal '" + journalPath() +
                                       "' of an older driver into the workbook.");
    }
  }
  for (int attempt = 0; applied_ < kJournalHeaderSize && journal_.size >= kJournalHeaderSize;
       ++attempt) {
    // A stale journal (written against other workbook bytes): nobody follows it. It is
    // removed rather than written over, so that a connection holding it sees it gone.
    if (attempt == 3) {
      return Error(ErrorKind::kIO, "Cannot start a journal at '" + journalPath() + "'.");
    }
    if (fileio::Sys().unlink(journalPath().c_str()) != 0 && errno != ENOENT) {
      return Error(ErrorKind::kIO, "Cannot remove the stale journal '" + journalPath() +
                                       "': " + ErrnoText(errno) + ".");
    }
    DropJournal();
    Error e = Lock(true, true);
    if (e.ok()) e = CatchUp();
    if (!e.ok()) return e;
  }
  if (applied_ >= kJournalHeaderSize) {
    // Cut a record left half-written by a crash, so the next one follows the last whole one.
    if (journal_.size > applied_ &&
        fileio::Sys().ftruncate(journalFd_, static_cast<off_t>(applied_)) != 0) {
      return Error(ErrorKind::kIO, "Cannot trim the journal: " + ErrnoText(errno) + ".");
    }
    journal_.size = applied_;
    return Error();
  }
  // Empty, or a header cut short by a crash: nobody can have read it.
  Error e = EnsureBaseHash();
  if (!e.ok()) return e;
  if (journal_.size > 0 && fileio::Sys().ftruncate(journalFd_, 0) != 0) {
    return Error(ErrorKind::kIO, "Cannot reset the journal: " + ErrnoText(errno) + ".");
  }
  JournalHeader h{kJournalVersion, loaded_.size, baseHash_};
  std::vector<std::uint8_t> head = EncodeJournalHeader(h);
  e = WriteAt(journalFd_, 0, head.data(), head.size());
  if (!e.ok()) return e;
  // Flushed with the first record: a header alone, lost, loses nothing.
  unsynced_ = true;
  applied_ = kJournalHeaderSize;
  journal_.size = applied_;
  return Error();
}

Error Database::SyncJournal() {
  if (fileio::Sys().fsync(journalFd_) != 0) return CannotSync(errno);
  unsynced_ = false;
  lastFlush_ = Clock::now();
  return Error();
}

Error Database::Append(const std::vector<std::uint8_t>& rec, bool commit) {
  const bool sync = options_.sync == SyncMode::kFull ||
                    (options_.sync == SyncMode::kNormal &&
                     (commit || Clock::now() - lastFlush_ >=
                                    std::chrono::milliseconds(options_.flushIntervalMs)));
  Error e = WriteAt(journalFd_, applied_, rec.data(), rec.size());
  if (e.ok() && sync) e = SyncJournal();
  if (!e.ok()) {
    if (fileio::Sys().ftruncate(journalFd_, static_cast<off_t>(applied_)) == 0) {
      return Error(ErrorKind::kIO, "The change was not saved. " + e.message());
    }
    // The record may be whole in the journal and nothing can take it out: the next
    // connection will apply it. Saying "not saved" would be a promise the file breaks.
    return Error(ErrorKind::kIO, "The change may have been saved: " + e.message() +
                                     " The journal could not be cut back (" + ErrnoText(errno) +
                                     ").");
  }
  applied_ += rec.size();
  journal_.size = applied_;
  if (!sync) unsynced_ = true;
  return Error();
}

Error Database::Flush() {
  if (!unsynced_) return Error();
  // A journal this connection no longer holds was folded by the connection that removed it.
  if (journalFd_ < 0) {
    unsynced_ = false;
    return Error();
  }
  return SyncJournal();
}

Error Database::FlushIfDue() {
  if (options_.sync != SyncMode::kNormal || !unsynced_ ||
      Clock::now() - lastFlush_ < std::chrono::milliseconds(options_.flushIntervalMs)) {
    return Error();
  }
  return Flush();
}

Error Database::Fold(bool closing) {
  if (model_->sheets().empty()) return Error();
  std::vector<std::uint8_t> bytes;
  // The file keeps its format (an .xls name holding Office Open XML stays so, since its sheets
  // may be larger than .xls holds); a new one takes its name's.
  xls::Status s = format_ == xls::WorkbookFormat::kXlsx
                      ? xls::WriteXlsxToMemory(*model_, &bytes, IsMacroEnabledName(options_.path))
                      : xls::WriteWorkbookToMemory(*model_, &bytes);
  if (!s.ok()) return Error(ErrorKind::kIO, "Cannot encode the workbook: " + s.ToString() + ".");
  Error e = ReplaceWorkbook(options_.path, bytes);
  if (!e.ok()) return e;
  loaded_ = StatPath(file_);
  loaded_.size = bytes.size();
  baseHashKnown_ = !closing;
  if (!closing) baseHash_ = Fnv64(bytes.data(), bytes.size());
  // Everything the journal held is in the new file, on disk. The journal goes, so that a
  // connection holding it sees it gone and reads the new file; the next change starts
  // another. Should the removal fail, the journal's header no longer matches the workbook:
  // it is stale, and ignored.
  if (journalFd_ >= 0) {
    fileio::Sys().unlink(journalPath().c_str());
    DropJournal();
  }
  unsynced_ = false;
  lastFlush_ = Clock::now();
  return Error();
}

Error Database::Save(const EffectLog& unit, bool commit) {
  Error e;
  if (!loaded_.exists) {
    e = Fold();  // the first change makes the file
  } else if (unit.size() >= 0xFFFFFFF0u) {
    e = Error(ErrorKind::kTooComplex,
              "The change was not saved: a unit of changes holds at most 4 GiB in the journal; "
              "commit more often.");
  } else {
    e = Append(EncodeEffectRecord(unit), commit);
    // A failed fold leaves the change safe in the journal; the next statement tries again.
    if (e.ok() && applied_ > std::max(loaded_.size, options_.foldFloorBytes)) Fold();
  }
  if (!e.ok()) {
    ForgetModel();  // it holds a change the files may not
  }
  return e;
}

void Database::ForgetModel() {
  loaded_ = Unknown();
  applied_ = 0;  // so that the next statement reads the journal from its start, not on
}

Error Database::BeginChange() {
  if (options_.readOnly) return ReadOnlyConnection();
  Error e = CheckWritableOnce();
  if (e.ok()) e = Lock(true, true);
  if (e.ok()) e = CatchUp();
  if (e.ok()) e = CheckSavable();
  if (e.ok() && loaded_.exists) e = StartJournal();
  if (!e.ok()) {
    Unlock();
    return e;
  }
  if (!inTransaction_) {
    journaledStyles_ = model_->styles().size();
    // The way back: results share the model the same way, so the unit's first change
    // copies it and this one stays as it is.
    if (!autocommit_) {
      committed_ = model_;
      committedStyles_ = journaledStyles_;
    }
  }
  return Error();
}

void Database::TakeEffects(const EffectLog& statement, EffectLog* unit) {
  const auto& styles = model_->styles();
  for (std::size_t i = journaledStyles_; i < styles.size(); ++i) {
    unit->AddStyle(static_cast<std::uint16_t>(i), styles[i]);
  }
  journaledStyles_ = styles.size();
  unit->Append(statement);
}

Error Database::EndChange(bool changed, const EffectLog& statement) {
  if (!changed && !inTransaction_ && model_->styles().size() != journaledStyles_) {
    // A failed statement left a format the journal does not have; reading the file again
    // drops it, so the model stays what the file and journal rebuild.
    ForgetModel();
  }
  if (!autocommit_) {
    if (changed) {
      TakeEffects(statement, &pending_);
      inTransaction_ = true;
    } else if (!inTransaction_) {
      committed_.reset();
      Unlock();
    }
    return Error();
  }
  Error e;
  if (changed && model_->styles().size() == journaledStyles_) {
    e = Save(statement, /*commit=*/false);  // the statement alone is the unit
  } else if (changed) {
    EffectLog unit;
    TakeEffects(statement, &unit);
    e = Save(unit, /*commit=*/false);
  }
  Unlock();
  return e;
}

Error Database::Execute(const std::string& sql, const Statement& st,
                        const std::vector<Value>& parameters, Outcome* out) {
  (void)sql;
  ExecOptions o;
  o.firstRowHasNames = options_.firstRowHasNames;
  o.grid = grid();
  o.parameters = &parameters;
  if (!st.changesData()) {
    Error e = Lock(false, false);
    if (e.ok()) e = CatchUp();
    if (e.ok()) e = xlsodbc::Execute(st, o, &model_, out);
    Unlock();
    if (e.ok()) e = FlushIfDue();
    return e;
  }
  Error e = BeginChange();
  if (!e.ok()) return e;
  EffectLog effects;
  o.effects = &effects;
  e = xlsodbc::Execute(st, o, &model_, out);
  Error saved = EndChange(e.ok() && out->changed, effects);
  if (e.ok() && !out->changed) e = FlushIfDue();
  return e.ok() ? saved : e;
}

Error Database::Snapshot(std::shared_ptr<const xls::Workbook>* out) {
  Error e = Lock(false, false);
  if (e.ok()) e = CatchUp();
  Unlock();
  if (e.ok()) *out = model_;
  return e;
}

Error Database::SetAutocommit(bool on) {
  Error e;
  if (on && !autocommit_) e = Commit();
  autocommit_ = on;
  return e;
}

Error Database::Commit() {
  if (!inTransaction_) return Flush();
  inTransaction_ = false;
  EffectLog unit = std::move(pending_);
  pending_.clear();
  // Formats a failed statement of the unit left behind go with it, after the ones its
  // changes added: formats are numbered in the order they were added.
  TakeEffects(EffectLog(), &unit);
  Error e = Save(unit, /*commit=*/true);
  Unlock();
  if (!e.ok()) {
    model_ = committed_;  // Save has the file read again by the next statement
    committed_.reset();
    return Error(e.kind(), "COMMIT failed, and the transaction is rolled back. " + e.message());
  }
  committed_.reset();
  return e;
}

void Database::Rollback() {
  if (!inTransaction_) return;
  inTransaction_ = false;
  model_ = std::move(committed_);
  journaledStyles_ = committedStyles_;
  pending_.clear();
  Unlock();
}

Error Database::Close() {
  if (closed_) return Error();
  closed_ = true;
  // Only what was committed reaches the workbook.
  Rollback();
  if (options_.readOnly) return Error();
  Error e = Lock(true, false);
  if (e.ok() && !locked_) return e;  // no journal: nothing pending
  if (e.ok()) e = CatchUp();
  if (e.ok() && applied_ > kJournalHeaderSize) {
    e = Fold(/*closing=*/true);
  } else if (e.ok() && journalFd_ >= 0) {
    fileio::Sys().unlink(journalPath().c_str());  // nothing in it, or stale
  }
  // Keep the journal when its statements could not be folded: the next connection will.
  // Flushed, so that a power cut does not take them either.
  if (!e.ok() && journalFd_ >= 0 && unsynced_) SyncJournal();
  DropJournal();
  return e;
}

Error Database::ExecuteBatch(const std::string& sql, const Statement& st,
                             const std::vector<std::vector<Value>>& sets,
                             std::vector<long>* rowCounts, std::size_t* failedSet) {
  (void)sql;
  rowCounts->clear();
  *failedSet = sets.size();
  Error e = BeginChange();
  if (!e.ok()) {
    *failedSet = 0;
    return e;
  }
  EffectLog effects;
  bool changed = false;
  Error failed;
  ExecOptions o;
  o.firstRowHasNames = options_.firstRowHasNames;
  o.effects = &effects;
  o.grid = grid();
  for (std::size_t i = 0; i < sets.size(); ++i) {
    Outcome out;
    o.parameters = &sets[i];
    failed = xlsodbc::Execute(st, o, &model_, &out);
    if (!failed.ok()) {
      *failedSet = i;
      break;
    }
    rowCounts->push_back(out.rowCount);
    changed = changed || out.changed;
  }
  if (!(e = EndChange(changed, effects)).ok()) {
    rowCounts->clear();
    *failedSet = sets.size();
    return e;
  }
  return failed;
}

Error Database::ExecuteEngine(const std::string& sql, bool query,
                              const std::vector<std::vector<Value>>& sets,
                              const std::vector<std::string>& dateTexts, Outcome* out,
                              std::vector<long>* rowCounts, std::size_t* failedSet) {
  rowCounts->clear();
  *failedSet = 0;
  *out = Outcome();
  if (!engine_) engine_ = std::make_unique<SqlEngine>();
  Error e;
  if (query) {
    e = Lock(false, false);
    if (e.ok()) e = CatchUp();
    if (!e.ok()) Unlock();
  } else {
    e = BeginChange();
  }
  if (!e.ok()) return e;
  EffectLog effects;
  ExecOptions o;
  o.firstRowHasNames = options_.firstRowHasNames;
  if (!query) o.effects = &effects;
  o.grid = grid();
  engine_->SetDateTexts(&dateTexts);
  bool changed = false;
  Error failed;
  *failedSet = sets.size();
  for (std::size_t i = 0; i < sets.size(); ++i) {
    Outcome one;
    o.parameters = &sets[i];
    failed = engine_->Execute(sql, o, &model_, &one, /*repeat=*/i > 0);
    if (!failed.ok()) {
      *failedSet = i;
      break;
    }
    rowCounts->push_back(one.rowCount);
    changed = changed || one.changed;
    if (query) *out = std::move(one);
  }
  engine_->SetDateTexts(nullptr);
  if (query) {
    Unlock();
    return failed;
  }
  if (!(e = EndChange(changed, effects)).ok()) {
    rowCounts->clear();
    *failedSet = sets.size();
    return e;
  }
  out->changed = changed;
  long rows = 0;
  for (long n : *rowCounts) rows += n;
  out->rowCount = rows;
  return failed;
}

}  // namespace xlsodbc
