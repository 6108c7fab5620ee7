// Fault injection on the file seam's table (fileio/SysCalls.h), as SQLite's tests do it:
// while a FailNth lives, every call through the table is counted, and the Nth fails with
// EIO (ENOSPC for writes), only that one (kOnce) or that one and every later one
// (kForGood). A test raises N from 1 until an operation completes without a failure
// (fired() false), checking after each run that the file is the old one or the new one.
//
// Releasing calls still release when they "fail": close closes, flock(LOCK_UN) unlocks,
// as the kernel does, so a failure never leaks a descriptor or a lock into the next run.
//
// REQUIRES: the code under test is linked into the test program (not reached through a
// shared library, which holds its own table); one FailNth at a time; no threads.
#pragma once

#include <cerrno>

#include "fileio/SysCalls.h"
#if !defined(_WIN32)
#include <sys/file.h>
#endif

namespace testing_support {

class FailNth {
 public:
  enum Mode { kOnce, kForGood };

  FailNth(int n, Mode mode) {
    State() = {n, mode, 0, false, fileio::Sys()};
    fileio::SysCalls& t = fileio::Sys();
    t.open = Hook<decltype(t.open)>::Call<&fileio::SysCalls::open, EIO>;
    t.read = Hook<decltype(t.read)>::Call<&fileio::SysCalls::read, EIO>;
    t.write = Hook<decltype(t.write)>::Call<&fileio::SysCalls::write, ENOSPC>;
    t.close = [](int fd) -> int {
      int rc = State().real.close(fd);
      return Fires() ? (errno = EIO, -1) : rc;
    };
#if !defined(_WIN32)
    t.pread = Hook<decltype(t.pread)>::Call<&fileio::SysCalls::pread, EIO>;
    t.pwrite = Hook<decltype(t.pwrite)>::Call<&fileio::SysCalls::pwrite, ENOSPC>;
    t.fsync = Hook<decltype(t.fsync)>::Call<&fileio::SysCalls::fsync, EIO>;
    t.ftruncate = Hook<decltype(t.ftruncate)>::Call<&fileio::SysCalls::ftruncate, EIO>;
    t.fchmod = Hook<decltype(t.fchmod)>::Call<&fileio::SysCalls::fchmod, EIO>;
    t.fchown = Hook<decltype(t.fchown)>::Call<&fileio::SysCalls::fchown, EIO>;
    t.rename = Hook<decltype(t.rename)>::Call<&fileio::SysCalls::rename, EIO>;
    t.unlink = Hook<decltype(t.unlink)>::Call<&fileio::SysCalls::unlink, EIO>;
    t.stat = Hook<decltype(t.stat)>::Call<&fileio::SysCalls::stat, EIO>;
    t.fstat = Hook<decltype(t.fstat)>::Call<&fileio::SysCalls::fstat, EIO>;
    t.fstatNoTimes = Hook<decltype(t.fstatNoTimes)>::Call<&fileio::SysCalls::fstatNoTimes, EIO>;
    t.flock = [](int fd, int op) -> int {
      if (op & LOCK_UN) {
        int rc = State().real.flock(fd, op);
        return Fires() ? (errno = EIO, -1) : rc;
      }
      return Fires() ? (errno = EIO, -1) : State().real.flock(fd, op);
    };
#endif
  }
  ~FailNth() { fileio::Sys() = State().real; }
  FailNth(const FailNth&) = delete;
  FailNth& operator=(const FailNth&) = delete;

  bool fired() const { return State().fired; }  // some call was made to fail
  int calls() const { return State().calls; }

 private:
  struct Counter {
    int n;
    Mode mode;
    int calls;
    bool fired;
    fileio::SysCalls real;
  };
  static Counter& State() {
    static Counter c;
    return c;
  }
  static bool Fires() {
    Counter& c = State();
    ++c.calls;
    const bool fire = c.calls == c.n || (c.mode == kForGood && c.calls > c.n);
    c.fired = c.fired || fire;
    return fire;
  }

  template <typename F>
  struct Hook;
  template <typename R, typename... A>
  struct Hook<R (*)(A...)> {
    template <R (*fileio::SysCalls::*Member)(A...), int Err>
    static R Call(A... a) {
      if (Fires()) return errno = Err, R(-1);
      return (State().real.*Member)(a...);
    }
  };
};

}  // namespace testing_support
