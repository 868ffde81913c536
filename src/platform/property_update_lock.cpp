// Reentrant update lock of the property storages, with an optional flock on a sidecar file.
#include "platform/property_update_lock.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <sys/file.h>
#include <unistd.h>

#include "platform/log.h"

namespace VELL_2_13 {
namespace platform {

UpdateLockState::UpdateLockState(std::string lockFile) : m_lockFile(std::move(lockFile)) {}

bool UpdateLockState::lockFile(int &fd) {
  fd = ::open(m_lockFile.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
  if (fd < 0) {
    VELL_LOG_ERROR("Cannot open lock file " << m_lockFile << ": " << std::strerror(errno));
    return false;
  }
  int rc;
  do {
    rc = ::flock(fd, LOCK_EX);
  } while (rc != 0 && errno == EINTR);
  if (rc == 0)
    return true;
  VELL_LOG_ERROR("Cannot lock file " << m_lockFile << ": " << std::strerror(errno));
  ::close(fd);
  fd = -1;
  return false;
}

bool UpdateLockState::acquire() {
  const std::thread::id self = std::this_thread::get_id();
  {
    std::unique_lock<std::mutex> guard(m_mutex);
    forgetInheritedHolder();
    if (m_depth > 0 && m_owner == self) {
      ++m_depth;
      return true;
    }
    m_released.wait(guard, [this] { return m_depth == 0; });
    m_owner = self;
    m_ownerProcess = ::getpid();
    m_depth = 1;
  }
  if (m_lockFile.empty())
    return true;
  // Other threads of this process wait on the depth; other processes on the flock.
  int fd = -1;
  const bool locked = lockFile(fd);
  std::lock_guard<std::mutex> guard(m_mutex);
  if (locked) {
    m_fd = fd;
    return true;
  }
  m_depth = 0;
  m_owner = std::thread::id();
  m_released.notify_all();
  return false;
}

void UpdateLockState::forgetInheritedHolder() {
  if (m_depth == 0 || m_ownerProcess == ::getpid())
    return;
  // A child process inherited the state of a holder in its parent (whose thread
  // id it may even share); the flock belongs to the parent's open file.
  if (m_fd >= 0)
    ::close(m_fd);
  m_fd = -1;
  m_depth = 0;
  m_owner = std::thread::id();
}

void UpdateLockState::release() {
  std::lock_guard<std::mutex> guard(m_mutex);
  if (m_depth == 0 || m_ownerProcess != ::getpid())
    return;
  if (--m_depth > 0)
    return;
  if (m_fd >= 0) {
    ::close(m_fd); // drops the flock
    m_fd = -1;
  }
  m_owner = std::thread::id();
  m_released.notify_all();
}

std::shared_ptr<UpdateLockState> updateLockStateForFile(const std::string &lockFile) {
  static std::mutex registryMutex;
  static std::map<std::string, std::shared_ptr<UpdateLockState>> registry;
  std::lock_guard<std::mutex> guard(registryMutex);
  std::shared_ptr<UpdateLockState> &state = registry[lockFile];
  if (!state)
    state = std::make_shared<UpdateLockState>(lockFile);
  return state;
}

UpdateLock::UpdateLock(std::shared_ptr<UpdateLockState> state)
    : m_state(std::move(state)), m_held(m_state && m_state->acquire()) {}

UpdateLock::~UpdateLock() {
  if (m_held)
    m_state->release();
}

} // namespace platform
} // namespace VELL_2_13
