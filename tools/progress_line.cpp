// A progress line on standard error for long searches.
#include "progress_line.h"

#include <cstdlib>

#include <sys/ioctl.h>
#include <unistd.h>

namespace vell_tool {

namespace {

const char *const kEraseLine = "\r\033[K";

void writeAll(int fd, const std::string &text) {
  size_t done = 0;
  while (done < text.size()) {
    ssize_t written = ::write(fd, text.data() + done, text.size() - done);
    if (written <= 0)
      return;
    done += static_cast<size_t>(written);
  }
}

size_t terminalWidth(int fd) {
  winsize size{};
  if (::ioctl(fd, TIOCGWINSZ, &size) == 0 && size.ws_col > 0)
    return size.ws_col;
  return 80;
}

} // namespace

std::chrono::milliseconds progressDelay() {
  const char *text = std::getenv("VELL_PROGRESS_DELAY_MS");
  if (text && *text) {
    char *end = nullptr;
    long value = std::strtol(text, &end, 10);
    if (*end == '\0' && value >= 0)
      return std::chrono::milliseconds(value);
  }
  return std::chrono::milliseconds(1000);
}

ProgressLine::ProgressLine(int fd, std::chrono::milliseconds delay) : m_fd(fd), m_delay(delay) {
  if (::isatty(fd))
    m_thread = std::thread([this] { run(); });
}

ProgressLine::~ProgressLine() { stop(); }

void ProgressLine::directoryWalked(const char *dir) {
  m_directories.fetch_add(1, std::memory_order_relaxed);
  if (!active())
    return;
  // The display thread only samples the name: never wait for it.
  std::unique_lock<std::mutex> lock(m_mutex, std::try_to_lock);
  if (lock.owns_lock())
    m_current = dir ? dir : "";
}

void ProgressLine::stop() {
  if (!m_thread.joinable())
    return;
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_stopping = true;
  }
  m_wake.notify_all();
  m_thread.join();
}

void ProgressLine::run() {
  std::unique_lock<std::mutex> lock(m_mutex);
  if (m_wake.wait_for(lock, m_delay, [this] { return m_stopping; }))
    return;
  while (!m_stopping) {
    // Nothing to say before the first directory: look again soon.
    const bool started = m_directories.load(std::memory_order_relaxed) > 0;
    if (started)
      draw();
    m_wake.wait_for(lock, std::chrono::milliseconds(started ? 200 : 5), [this] { return m_stopping; });
  }
  if (m_shown)
    writeAll(m_fd, kEraseLine);
}

// Called with m_mutex held.
void ProgressLine::draw() {
  std::string line = "vell: searching, " + std::to_string(m_directories.load(std::memory_order_relaxed)) +
                     " directories walked: ";
  const size_t width = terminalWidth(m_fd);
  // The line must not wrap, or erasing it would leave its first part behind:
  // keep the end of the directory, which says the most.
  const size_t room = width > line.size() + 4 ? width - line.size() - 1 : 0;
  std::string dir = m_current;
  if (dir.size() > room)
    dir = room > 3 ? "..." + dir.substr(dir.size() - (room - 3)) : std::string();
  writeAll(m_fd, kEraseLine + line + dir);
  m_shown = true;
}

} // namespace vell_tool
