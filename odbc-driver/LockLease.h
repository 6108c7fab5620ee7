// LockLease: keeps a connection's flock() on its journal for a moment after a statement ends,
// so that a run of statements (a bulk load sends one INSERT per row) takes and checks the
// lock once instead of once per statement. While the lock is lent, nobody else can have
// written the journal, so the next statement needs neither flock() nor a look at the file.
//
// A lent lock is let go by a thread of the lease's own when the moment passes with no
// statement coming, and at once when another connection of this process asks for a lock on
// the same journal (it would otherwise wait out the moment). Connections in other processes
// wait for it as they wait for a running statement, polling, at most one moment longer.
//
// A child of fork() never lets go of a lock lent before the fork: that lock is its parent's.
//
// The thread starts with the first Lend() and stops in the destructor. Lend() and Reclaim()
// are called from the connection's thread only; the lock itself is only ever let go under
// the lease's mutex, so the fd is never touched after Reclaim() returns.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

namespace xlsodbc {

class LockLease {
 public:
  // ms: how long a lent lock is kept without a statement.
  explicit LockLease(int ms);
  ~LockLease();
  LockLease(const LockLease&) = delete;
  LockLease& operator=(const LockLease&) = delete;

  // Hands the lock held on fd (the journal named key) over until the moment passes.
  void Lend(int fd, const std::string& key);
  // Takes the lent lock back: true when it is still held, false when it was let go (or
  // nothing was lent). Nothing touches the fd after this returns.
  bool Reclaim();

  // Lets go at once of every lock other connections of this process lent on the journal
  // named key, but for mine: called before waiting for that lock.
  static void ReleaseOthers(const std::string& key, const LockLease* mine);

 private:
  using Clock = std::chrono::steady_clock;
  void Run();
  void LetGoLocked();  // REQUIRES: mutex_ held and a lock lent

  const std::chrono::milliseconds moment_;
  std::mutex mutex_;
  std::condition_variable wake_;
  std::thread thread_;
  int fd_ = -1;  // the lent lock's journal, -1 when nothing is lent
  std::string key_;
  Clock::time_point deadline_;
  unsigned forks_ = 0;  // forks the process had come out of when the lock was lent
  bool waiting_ = false;  // the thread waits with nothing lent, for a notify
  bool stop_ = false;
};

}  // namespace xlsodbc
