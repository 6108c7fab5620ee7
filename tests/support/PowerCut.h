// A power cut on the file seam's table (fileio/SysCalls.h), as SQLite's crash tests make
// one: while a PowerCut lives, it keeps, for every file written through the table, the bytes
// the file had when it was last synced (fsync) or, never synced, when the PowerCut first saw
// it (a file it saw created: none). Cut() puts each file written since back to those bytes,
// which is what a machine that lost power before the kernel wrote them finds, and from then
// on every call fails with EIO, so that the code under test can only give up: its
// destructors change nothing more. The table goes back to what it was when the PowerCut ends.
//
// What it does not model: names. A rename, unlink or creation is taken as done on disk at
// once (the code under test syncs the folder after a rename; an unsynced unlink that came
// back would bring back a file its header marks stale). Writes are dropped whole, never in
// part or out of order.
//
// Releasing calls still release after the cut: close closes, flock(LOCK_UN) unlocks, as the
// kernel of the next boot would have nothing held.
//
// REQUIRES: Linux (/proc/self/fd); the code under test is linked into the test program; one
// PowerCut at a time, no FailNth beside it; no threads.
#pragma once

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <map>
#include <string>
#include <utility>

#include "fileio/SysCalls.h"

namespace testing_support {

class PowerCut {
 public:
  PowerCut() {
    State() = Tracker{};
    State().real = fileio::Sys();
    fileio::SysCalls& t = fileio::Sys();
    t.open = [](const char* path, int flags, int mode) -> int {
      Tracker& s = State();
      if (s.cut) return errno = EIO, -1;
      struct stat before;
      const bool existed = s.real.stat(path, &before) == 0;
      // Truncating on open is a change: the bytes it drops are kept first.
      if (existed && (flags & O_TRUNC) && S_ISREG(before.st_mode)) s.Keep(Key(before), path);
      int fd = s.real.open(path, flags, mode);
      if (fd < 0 || (flags & O_ACCMODE) == O_RDONLY) return fd;
      struct stat st;
      if (s.real.fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) return fd;
      s.fds[fd] = Key(st);
      File& f = s.files[Key(st)];
      f.path = path;
      if (!existed) f.kept = true, f.bytes.clear();  // created now: no bytes on disk yet
      return fd;
    };
    t.close = [](int fd) -> int {
      State().fds.erase(fd);
      return State().real.close(fd);
    };
    t.read = [](int fd, void* b, std::size_t n) -> ssize_t {
      return State().cut ? (errno = EIO, -1) : State().real.read(fd, b, n);
    };
    t.pread = [](int fd, void* b, std::size_t n, off_t at) -> ssize_t {
      return State().cut ? (errno = EIO, -1) : State().real.pread(fd, b, n, at);
    };
    t.write = [](int fd, const void* b, std::size_t n) -> ssize_t {
      return State().Touch(fd) ? State().real.write(fd, b, n) : (errno = EIO, -1);
    };
    t.pwrite = [](int fd, const void* b, std::size_t n, off_t at) -> ssize_t {
      return State().Touch(fd) ? State().real.pwrite(fd, b, n, at) : (errno = EIO, -1);
    };
    t.ftruncate = [](int fd, off_t size) -> int {
      return State().Touch(fd) ? State().real.ftruncate(fd, size) : (errno = EIO, -1);
    };
    t.fsync = [](int fd) -> int {
      Tracker& s = State();
      if (s.cut) return errno = EIO, -1;
      int rc = s.real.fsync(fd);
      auto it = s.fds.find(fd);
      if (rc == 0 && it != s.fds.end()) s.files[it->second].Synced();
      return rc;
    };
    t.rename = [](const char* from, const char* to) -> int {
      Tracker& s = State();
      if (s.cut) return errno = EIO, -1;
      int rc = s.real.rename(from, to);
      if (rc == 0) {
        for (auto& [key, file] : s.files) {
          if (file.path == from)
            file.path = to;
          else if (file.path == to)
            file.path.clear();  // replaced: no longer at a name
        }
      }
      return rc;
    };
    t.unlink = [](const char* path) -> int {
      Tracker& s = State();
      if (s.cut) return errno = EIO, -1;
      int rc = s.real.unlink(path);
      for (auto& [key, file] : s.files) {
        if (rc == 0 && file.path == path) file.path.clear();
      }
      return rc;
    };
    t.flock = [](int fd, int op) -> int {
      if (State().cut && !(op & LOCK_UN)) return errno = EIO, -1;
      return State().real.flock(fd, op);
    };
    t.fchmod = [](int fd, mode_t mode) -> int {
      return State().cut ? (errno = EIO, -1) : State().real.fchmod(fd, mode);
    };
    t.fchown = [](int fd, uid_t u, gid_t g) -> int {
      return State().cut ? (errno = EIO, -1) : State().real.fchown(fd, u, g);
    };
    t.stat = [](const char* path, struct stat* out) -> int {
      return State().cut ? (errno = EIO, -1) : State().real.stat(path, out);
    };
    t.fstat = [](int fd, struct stat* out) -> int {
      return State().cut ? (errno = EIO, -1) : State().real.fstat(fd, out);
    };
    t.fstatNoTimes = [](int fd, struct stat* out) -> int {
      return State().cut ? (errno = EIO, -1) : State().real.fstatNoTimes(fd, out);
    };
  }
  ~PowerCut() {
    fileio::Sys() = State().real;
    State() = Tracker{};
  }
  PowerCut(const PowerCut&) = delete;
  PowerCut& operator=(const PowerCut&) = delete;

  // Puts every file written since its last sync back to its synced bytes; returns how many.
  int Cut() {
    Tracker& s = State();
    int restored = 0;
    for (auto& [key, file] : s.files) {
      if (!file.kept || file.path.empty()) continue;
      int fd = s.real.open(file.path.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC, 0);
      if (fd < 0) continue;
      std::size_t done = 0;
      while (done < file.bytes.size()) {
        ssize_t n = s.real.write(fd, file.bytes.data() + done, file.bytes.size() - done);
        if (n <= 0) break;
        done += static_cast<std::size_t>(n);
      }
      s.real.close(fd);
      ++restored;
    }
    s.cut = true;
    return restored;
  }

 private:
  using Inode = std::pair<dev_t, ino_t>;
  static Inode Key(const struct stat& st) { return {st.st_dev, st.st_ino}; }

  struct File {
    std::string path;   // its name now; empty once removed or renamed over
    bool kept = false;  // written since last synced: bytes holds what the disk has
    std::string bytes;
    void Synced() {
      kept = false;
      bytes.clear();
    }
  };
  struct Tracker {
    fileio::SysCalls real{};
    std::map<int, Inode> fds;
    std::map<Inode, File> files;
    bool cut = false;

    // Keeps the bytes of the file at path before its first change since it was synced.
    void Keep(const Inode& key, const std::string& path) {
      File& f = files[key];
      f.path = path;
      if (f.kept) return;
      f.kept = true;
      f.bytes = ReadAll(path);
    }
    // Before a change through fd; false after the cut.
    bool Touch(int fd) {
      if (cut) return false;
      auto it = fds.find(fd);
      if (it == fds.end()) return true;  // not a regular file opened for writing here
      File& f = files[it->second];
      if (!f.kept) {
        f.kept = true;
        f.bytes = ReadAll("/proc/self/fd/" + std::to_string(fd));
      }
      return true;
    }
    std::string ReadAll(const std::string& path) {
      std::string out;
      int fd = real.open(path.c_str(), O_RDONLY | O_CLOEXEC, 0);
      if (fd < 0) return out;
      char buf[65536];
      for (ssize_t n; (n = real.read(fd, buf, sizeof buf)) > 0;) out.append(buf, buf + n);
      real.close(fd);
      return out;
    }
  };
  static Tracker& State() {
    static Tracker t;
    return t;
  }
};

}  // namespace testing_support
