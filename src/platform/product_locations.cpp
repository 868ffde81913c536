// Where the library keeps its kernel-image cache and its temporary files:
// host overrides first, then defaults derived from TMPDIR, XDG_CACHE_HOME and
// HOME (the only environment variables the library reads).
#include <unistd.h>

#include <cstdlib>
#include <mutex>
#include <string>

#include "vell/platform.h"

namespace VELL_2_13 {
namespace platform {

namespace {

// A variable's value when it is set to an absolute path, with trailing
// separators removed; empty otherwise.
std::string absoluteFromEnvironment(const char *variable) {
  const char *value = std::getenv(variable);
  if (!value || value[0] != '/')
    return std::string();
  std::string path(value);
  while (path.size() > 1 && path.back() == '/')
    path.pop_back();
  return path;
}

class ProductLocations : public IProductLocations {
public:
  std::string cacheRoot() const override {
    {
      std::lock_guard<std::mutex> guard(m_mutex);
      if (!m_cacheRoot.empty())
        return m_cacheRoot;
    }
    std::string xdgCache = absoluteFromEnvironment("XDG_CACHE_HOME");
    if (!xdgCache.empty())
      return joined(xdgCache, "vell");
    std::string home = absoluteFromEnvironment("HOME");
    if (!home.empty())
      return joined(home, ".cache/vell");
    return joined(tempDirectory(), "vell-cache-" + std::to_string(::geteuid()));
  }

  std::string tempDirectory() const override {
    {
      std::lock_guard<std::mutex> guard(m_mutex);
      if (!m_tempDirectory.empty())
        return m_tempDirectory;
    }
    std::string tmp = absoluteFromEnvironment("TMPDIR");
    return tmp.empty() ? std::string("/tmp") : tmp;
  }

  void setCacheRoot(const std::string &directory) {
    std::lock_guard<std::mutex> guard(m_mutex);
    m_cacheRoot = directory;
  }

  void setTempDirectory(const std::string &directory) {
    std::lock_guard<std::mutex> guard(m_mutex);
    m_tempDirectory = directory;
  }

private:
  static std::string joined(const std::string &directory, const std::string &name) {
    return directory == "/" ? directory + name : directory + "/" + name;
  }

  mutable std::mutex m_mutex;
  std::string m_cacheRoot;
  std::string m_tempDirectory;
};

ProductLocations &locations() {
  static ProductLocations *instance = new ProductLocations; // lives until the process ends
  return *instance;
}

} // namespace

IProductLocations &IProductLocations::get() { return locations(); }

void setCacheRoot(const std::string &directory) { locations().setCacheRoot(directory); }

void setTempDirectory(const std::string &directory) { locations().setTempDirectory(directory); }

} // namespace platform
} // namespace VELL_2_13
