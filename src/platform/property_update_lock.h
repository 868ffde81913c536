// Reentrant exclusive lock for read-change-write sequences on a property storage.
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <sys/types.h>
#include <thread>

#include "vell/platform.h"

namespace VELL_2_13 {
namespace platform {

// Held by one thread at a time, which may take it again (it counts the
// depth). With a lock file, the outermost acquisition also takes an exclusive
// flock on that file, so holders in other processes are kept apart too. It may
// be released from another thread than the one that took it. A process forked
// while the lock was held does not hold it.
class UpdateLockState {
public:
  // An empty lockFile makes the lock process-local.
  explicit UpdateLockState(std::string lockFile = std::string());
  UpdateLockState(const UpdateLockState &) = delete;
  UpdateLockState &operator=(const UpdateLockState &) = delete;

  // Blocks until the calling thread holds the lock. False (and nothing held)
  // when the lock file cannot be opened or locked; the reason is logged.
  bool acquire();
  void release();
  const std::string &lockFile() const { return m_lockFile; }

private:
  bool lockFile(int &fd);
  void forgetInheritedHolder();

  const std::string m_lockFile;
  std::mutex m_mutex;
  std::condition_variable m_released;
  std::thread::id m_owner;
  pid_t m_ownerProcess = 0;
  int m_depth = 0;
  int m_fd = -1;
};

// The process-wide state for one lock file, shared by every storage object of
// the same file so that the reentrancy of one thread is seen across them.
std::shared_ptr<UpdateLockState> updateLockStateForFile(const std::string &lockFile);

// One acquisition, released on destruction.
class UpdateLock : public IStorageLock {
public:
  explicit UpdateLock(std::shared_ptr<UpdateLockState> state);
  ~UpdateLock() override;
  UpdateLock(const UpdateLock &) = delete;
  UpdateLock &operator=(const UpdateLock &) = delete;

  bool held() const { return m_held; }

private:
  std::shared_ptr<UpdateLockState> m_state;
  bool m_held;
};

} // namespace platform
} // namespace VELL_2_13
