// A fetched name that points out of the retrieval directory, or at something the retriever did not write
// there, is never moved into the cache nor removed.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>

#include "support/log_capture.h"
#include "support/temp_dir.h"
#include "vell/file_search.h"
#include "vell_search/recording_container.h"
#include "vell_search/test_strategies.h"

using namespace VELL_2_13;
using vell_test::RecordingContainer;
using vell_test::TempDir;

namespace fs = std::filesystem;

namespace {

using Strategy = vell_test::TestLocalAndRemoteStrategy;

// Claims success for every name and does what the test tells it in the
// retrieval directory (possibly nothing at all).
class ScriptedRetriever : public IFileRetriever {
public:
  bool allowKernelFallback(const char *) override { return true; }
  int retrieveFile(const char *name, const char *directory) override {
    if (onRetrieve)
      onRetrieve(name, directory);
    return 0;
  }
  int getFileChecksum(const char *, ObjectPtr<IChecksum> &) override { return 1; }
  bool isRemote() override { return true; }
  bool isLocalFile(const std::string &) override { return false; }
  void setEnvironmentInfo(ObjectPtr<IEnvironmentInfo>) override {}

  std::function<void(const std::string &, const std::string &)> onRetrieve;
};

std::string contentOf(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

// Every regular file below the cache directory.
int filesIn(const std::string &dir) {
  int count = 0;
  if (!fs::exists(dir))
    return 0;
  for (const auto &entry : fs::recursive_directory_iterator(dir))
    count += entry.is_regular_file() ? 1 : 0;
  return count;
}

struct RemoteFetchContainmentTest : public ::testing::Test {
  void SetUp() override {
    env = IEditableSearchEnv::create();
    cacheDir = tmp.sub("cache");
    env->setCacheDir(cacheDir.c_str());
    env->setFileRetriever(retrieverPtr);
    retrievalDir = tmp.mkdir("r/fetch");
    victim = tmp.write("victim/important.txt", "precious");
  }

  bool fetch(const std::string &name, std::string &localPath) {
    Strategy strategy(env.get(), name, retrievalDir);
    return fetchRemoteFile(strategy, retrievalDir, name, localPath);
  }

  TempDir tmp;
  ScriptedRetriever retriever;
  IFileRetriever *retrieverPtr = &retriever;
  ObjectPtr<IEditableSearchEnv> env;
  std::string cacheDir;
  std::string retrievalDir;
  std::string victim;
  vell_test::LogCapture log;
};

TEST_F(RemoteFetchContainmentTest, NameClimbingOutOfTheRetrievalDirectoryIsNotMovedIntoTheCache) {
  std::string localPath;
  EXPECT_FALSE(fetch("../../victim/important.txt", localPath));
  EXPECT_TRUE(localPath.empty());
  EXPECT_EQ("precious", contentOf(victim));
  EXPECT_EQ(0, filesIn(cacheDir));
  EXPECT_TRUE(log.containsPrefix("Fetched file " + retrievalDir +
                                 "/../../victim/important.txt"
                                 " lies outside the retrieval directory " +
                                 retrievalDir + ", not used, at file: "));
}

TEST_F(RemoteFetchContainmentTest, NameClimbingOutIsNotRemovedWhenTheCacheCannotBeWritten) {
  // A regular file where the cache directory should be: filing fails.
  env->setCacheDir(tmp.write("cachefile").c_str());
  std::string localPath;
  EXPECT_FALSE(fetch("../../victim/important.txt", localPath));
  EXPECT_EQ("precious", contentOf(victim));
}

TEST_F(RemoteFetchContainmentTest, BackslashedLinuxNameClimbingOutIsRefusedInTheAbsoluteNameStep) {
  // "\..\..\victim\important.txt" becomes "/../../victim/important.txt", which
  // the retrieval directory's path is joined with.
  Strategy strategy(env.get(), "\\..\\..\\victim\\important.txt", retrievalDir);
  RecordingContainer container;
  EXPECT_FALSE(strategy.lookUpAbsoluteName(container));
  EXPECT_TRUE(container.candidates.empty());
  EXPECT_EQ("precious", contentOf(victim));
  EXPECT_EQ(0, filesIn(cacheDir));
}

TEST_F(RemoteFetchContainmentTest, SymbolicLinkTheRetrieverLeftIsNeitherFiledNorRemoved) {
  retriever.onRetrieve = [&](const std::string &name, const std::string &directory) {
    fs::create_symlink(victim, directory + "/" + name);
  };
  env->setCacheDir(tmp.write("cachefile").c_str());
  std::string localPath;
  EXPECT_FALSE(fetch("libx.so", localPath));
  EXPECT_EQ("precious", contentOf(victim));
  EXPECT_TRUE(fs::is_symlink(retrievalDir + "/libx.so"));
  EXPECT_TRUE(log.containsPrefix("Fetched file " + retrievalDir +
                                 "/libx.so is not a regular file inside the retrieval directory"));
}

TEST_F(RemoteFetchContainmentTest, FileReachedThroughALinkedDirectoryIsNeitherFiledNorRemoved) {
  retriever.onRetrieve = [&](const std::string &, const std::string &directory) {
    fs::create_directory_symlink(tmp.sub("victim"), directory + "/lib");
  };
  std::string localPath;
  EXPECT_FALSE(fetch("lib/important.txt", localPath));
  EXPECT_EQ("precious", contentOf(victim));
  EXPECT_EQ(0, filesIn(cacheDir));
}

TEST_F(RemoteFetchContainmentTest, FileTheRetrieverWroteBelowTheDirectoryIsStillFiled) {
  retriever.onRetrieve = [&](const std::string &name, const std::string &directory) {
    const fs::path target = fs::path(directory) / fs::path(name).relative_path();
    fs::create_directories(target.parent_path());
    std::ofstream(target) << "remote";
  };
  std::string localPath;
  EXPECT_TRUE(fetch("/usr/lib/../lib/libx.so", localPath));
  EXPECT_EQ("remote", contentOf(localPath));
  EXPECT_EQ(0u, localPath.find(cacheDir + "/libx.so/"));
  EXPECT_FALSE(fs::exists(retrievalDir + "/usr/lib/libx.so"));
}

} // namespace
