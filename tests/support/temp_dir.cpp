// Per-test temporary directories.
#include "support/temp_dir.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace vell_test {

namespace fs = std::filesystem;

TempDir::TempDir() {
  std::string pattern = (fs::temp_directory_path() / "vell-test-XXXXXX").string();
  if (!::mkdtemp(pattern.data()))
    throw std::runtime_error("mkdtemp failed");
  m_path = pattern;
}

TempDir::~TempDir() {
  std::error_code ec;
  // Restore permissions that tests may have removed so the tree can go.
  for (auto it = fs::recursive_directory_iterator(m_path, fs::directory_options::skip_permission_denied, ec);
       !ec && it != fs::recursive_directory_iterator(); it.increment(ec)) {
    std::error_code ignored;
    if (!it->is_symlink(ignored))
      fs::permissions(it->path(), fs::perms::owner_all, fs::perm_options::add, ignored);
  }
  fs::remove_all(m_path, ec);
}

std::string TempDir::sub(const std::string &relative) const { return (fs::path(m_path) / relative).string(); }

std::string TempDir::mkdir(const std::string &relative) const {
  std::string path = sub(relative);
  fs::create_directories(path);
  return path;
}

std::string TempDir::write(const std::string &relative, const std::string &content) const {
  std::string path = sub(relative);
  fs::create_directories(fs::path(path).parent_path());
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << content;
  return path;
}

bool runningAsRoot() { return ::geteuid() == 0; }

} // namespace vell_test

#include <sys/fsuid.h>

namespace vell_test {

namespace {
constexpr uid_t kNobody = 65534;
}

AsUnprivilegedUser::AsUnprivilegedUser() : m_active(runningAsRoot()) {
  if (!m_active)
    return;
  ::setfsgid(kNobody);
  ::setfsuid(kNobody);
}

AsUnprivilegedUser::~AsUnprivilegedUser() {
  if (!m_active)
    return;
  ::setfsuid(0);
  ::setfsgid(0);
}

void openForOthers(const std::string &path) {
  std::error_code ec;
  fs::path current(path);
  const fs::path tempRoot = fs::temp_directory_path();
  while (!current.empty() && current != tempRoot && current != current.root_path()) {
    if (fs::is_directory(current, ec))
      fs::permissions(current,
                      fs::perms::others_read | fs::perms::others_exec | fs::perms::group_read |
                          fs::perms::group_exec,
                      fs::perm_options::add, ec);
    current = current.parent_path();
  }
}

} // namespace vell_test
