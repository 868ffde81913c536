// A temporary directory tree for one test, removed when the test ends.
#pragma once

#include <string>

namespace vell_test {

class TempDir {
public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir &) = delete;
  TempDir &operator=(const TempDir &) = delete;

  const std::string &path() const { return m_path; }
  // path()/relative
  std::string sub(const std::string &relative) const;
  // Creates the directory relative (with parents) and returns its path.
  std::string mkdir(const std::string &relative) const;
  // Writes content to relative (creating parents) and returns its path.
  std::string write(const std::string &relative, const std::string &content = "x") const;

private:
  std::string m_path;
};

// Whether the process runs as root (permission tests then drop rights).
bool runningAsRoot();

} // namespace vell_test

namespace vell_test {

// While alive, file-system access of the calling thread is checked as the
// unprivileged user "nobody" (setfsuid), so permission tests hold when the
// suite runs as root. Does nothing when not running as root.
class AsUnprivilegedUser {
public:
  AsUnprivilegedUser();
  ~AsUnprivilegedUser();
  AsUnprivilegedUser(const AsUnprivilegedUser &) = delete;
  AsUnprivilegedUser &operator=(const AsUnprivilegedUser &) = delete;

private:
  bool m_active;
};

// Makes path and every directory above it up to the temporary root
// traversable by others, for tests that run as "nobody".
void openForOthers(const std::string &path);

} // namespace vell_test
