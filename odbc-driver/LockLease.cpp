#include "odbc-driver/LockLease.h"

#include <pthread.h>
#include <sys/file.h>

#include <algorithm>
#include <atomic>
#include <vector>

namespace xlsodbc {

namespace {

// Every lease of the process, so that a connection can have the others let go of a lock it
// wants. Taken before any lease's own mutex, never while holding one.
std::mutex& RegistryMutex() {
  static std::mutex m;
  return m;
}

std::vector<LockLease*>& Registry() {
  static std::vector<LockLease*> leases;
  return leases;
}

// Counts the forks this process came out of. A lock lent before a fork is the parent's (the
// child's descriptor shares it): the child must never let it go, or the parent would go on
// trusting a lock it no longer has.
std::atomic<unsigned> forks{0};

void CountFork() { forks.fetch_add(1, std::memory_order_relaxed); }

}  // namespace

LockLease::LockLease(int ms) : moment_(ms) {
  static std::once_flag atFork;
  std::call_once(atFork, [] { pthread_atfork(nullptr, nullptr, CountFork); });
  std::lock_guard<std::mutex> registry(RegistryMutex());
  Registry().push_back(this);
}

LockLease::~LockLease() {
  {
    std::lock_guard<std::mutex> registry(RegistryMutex());
    auto& leases = Registry();
    leases.erase(std::find(leases.begin(), leases.end(), this));
  }
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (fd_ >= 0) LetGoLocked();
    stop_ = true;
  }
  wake_.notify_one();
  if (thread_.joinable()) thread_.join();
}

void LockLease::Lend(int fd, const std::string& key) {
  bool notify;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    fd_ = fd;
    forks_ = forks.load(std::memory_order_relaxed);
    if (key_ != key) key_ = key;
    deadline_ = Clock::now() + moment_;
    // A thread already counting down to an earlier deadline finds this one when it wakes.
    notify = waiting_;
    if (!thread_.joinable()) thread_ = std::thread(&LockLease::Run, this);
  }
  if (notify) wake_.notify_one();
}

bool LockLease::Reclaim() {
  std::lock_guard<std::mutex> lock(mutex_);
  const bool held = fd_ >= 0;
  fd_ = -1;
  return held;
}

void LockLease::ReleaseOthers(const std::string& key, const LockLease* mine) {
  std::lock_guard<std::mutex> registry(RegistryMutex());
  for (LockLease* other : Registry()) {
    if (other == mine) continue;
    std::lock_guard<std::mutex> lock(other->mutex_);
    if (other->fd_ >= 0 && other->key_ == key && other->forks_ == forks.load()) {
      other->LetGoLocked();
    }
  }
}

void LockLease::LetGoLocked() {
  // Nothing to do when it fails: the lock goes with the fd at the latest.
  if (forks_ == forks.load(std::memory_order_relaxed)) ::flock(fd_, LOCK_UN);
  fd_ = -1;
}

void LockLease::Run() {
  std::unique_lock<std::mutex> lock(mutex_);
  while (!stop_) {
    if (fd_ < 0) {
      waiting_ = true;
      wake_.wait(lock);
      waiting_ = false;
    } else if (Clock::now() >= deadline_) {
      LetGoLocked();
    } else {
      wake_.wait_until(lock, deadline_);
    }
  }
}

}  // namespace xlsodbc
