// Product locations: the cache root and the temporary directory.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>
#include <optional>
#include <string>

#include "vell/platform.h"

using namespace VELL_2_13::platform;

namespace {

// Sets or unsets an environment variable for one test and restores it.
class ScopedEnv {
public:
  ScopedEnv(const char *name, const char *value) : m_name(name) {
    if (const char *old = std::getenv(name))
      m_old = old;
    if (value)
      ::setenv(name, value, 1);
    else
      ::unsetenv(name);
  }
  ~ScopedEnv() {
    if (m_old)
      ::setenv(m_name.c_str(), m_old->c_str(), 1);
    else
      ::unsetenv(m_name.c_str());
  }

private:
  std::string m_name;
  std::optional<std::string> m_old;
};

std::string uid() { return std::to_string(::geteuid()); }

TEST(ProductLocationsTest, GetReturnsOneObject) {
  EXPECT_EQ(&IProductLocations::get(), &IProductLocations::get());
}

TEST(ProductLocationsTest, TempDirectoryFromAbsoluteTmpdir) {
  ScopedEnv tmp("TMPDIR", "/var/tmp/x/");
  EXPECT_EQ("/var/tmp/x", IProductLocations::get().tempDirectory());
}

TEST(ProductLocationsTest, TempDirectoryDefaultsToTmp) {
  {
    ScopedEnv tmp("TMPDIR", nullptr);
    EXPECT_EQ("/tmp", IProductLocations::get().tempDirectory());
  }
  {
    ScopedEnv tmp("TMPDIR", "relative/dir");
    EXPECT_EQ("/tmp", IProductLocations::get().tempDirectory());
  }
  {
    ScopedEnv tmp("TMPDIR", "");
    EXPECT_EQ("/tmp", IProductLocations::get().tempDirectory());
  }
}

TEST(ProductLocationsTest, CacheRootFromXdgCacheHome) {
  ScopedEnv xdg("XDG_CACHE_HOME", "/xdg/cache");
  ScopedEnv home("HOME", "/home/u");
  EXPECT_EQ("/xdg/cache/vell", IProductLocations::get().cacheRoot());
}

TEST(ProductLocationsTest, CacheRootFromHomeWhenXdgIsUnsetOrRelative) {
  ScopedEnv home("HOME", "/home/u");
  {
    ScopedEnv xdg("XDG_CACHE_HOME", nullptr);
    EXPECT_EQ("/home/u/.cache/vell", IProductLocations::get().cacheRoot());
  }
  {
    ScopedEnv xdg("XDG_CACHE_HOME", "cache");
    EXPECT_EQ("/home/u/.cache/vell", IProductLocations::get().cacheRoot());
  }
}

TEST(ProductLocationsTest, CacheRootUnderTempWithoutHome) {
  ScopedEnv xdg("XDG_CACHE_HOME", nullptr);
  ScopedEnv home("HOME", nullptr);
  ScopedEnv tmp("TMPDIR", "/scratch");
  EXPECT_EQ("/scratch/vell-cache-" + uid(), IProductLocations::get().cacheRoot());
  setTempDirectory("/elsewhere");
  EXPECT_EQ("/elsewhere/vell-cache-" + uid(), IProductLocations::get().cacheRoot());
  setTempDirectory("");
}

TEST(ProductLocationsTest, OverridesWinAndEmptyRestoresTheDefault) {
  ScopedEnv xdg("XDG_CACHE_HOME", "/xdg");
  ScopedEnv tmp("TMPDIR", "/t");
  setCacheRoot("/my/cache");
  setTempDirectory("/my/tmp");
  EXPECT_EQ("/my/cache", IProductLocations::get().cacheRoot());
  EXPECT_EQ("/my/tmp", IProductLocations::get().tempDirectory());
  setCacheRoot("");
  setTempDirectory("");
  EXPECT_EQ("/xdg/vell", IProductLocations::get().cacheRoot());
  EXPECT_EQ("/t", IProductLocations::get().tempDirectory());
}

} // namespace
