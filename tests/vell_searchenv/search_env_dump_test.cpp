// The diagnostic dump of an environment's search directories.
#include <gtest/gtest.h>

#include "vell_searchenv/dir_records.h"

namespace {

using namespace VELL_2_13;

TEST(SearchEnvDump, NullEnvironment) {
  EXPECT_EQ(dump(ObjectPtr<ISearchEnv>(), scBinaryFiles), "[ISearchEnv: searchDirs = NULL pointer]");
}

TEST(SearchEnvDump, EnvironmentWithoutDirectories) {
  auto env = IEditableSearchEnv::create();
  EXPECT_EQ(dump(env, scBinaryFiles), "[ISearchEnv: searchDirs = ]");
  auto dirs = IEditableSearchDirContainer::create();
  dirs->clear(scBinaryFiles);
  env->setSearchDirs(dirs);
  EXPECT_EQ(dump(env, scBinaryFiles), "[ISearchEnv: searchDirs = ]");
  EXPECT_EQ(dump(env, scSymbolFiles), "[ISearchEnv: searchDirs = ]");
}

TEST(SearchEnvDump, EveryFlagCombinationHasItsExactShape) {
  auto dirs = IEditableSearchDirContainer::create();
  dirs->addDirectory(scSymbolFiles, "/d", true, true);
  dirs->addDirectory(scSymbolFiles, "/e", false, false);
  dirs->addDirectory(scSymbolFiles, "/f", true, false);
  dirs->addDirectory(scSymbolFiles, "/g", false, true);
  dirs->addDirectory(scBinaryFiles, "/bin", false, false);
  auto env = IEditableSearchEnv::create();
  env->setSearchDirs(dirs);
  EXPECT_EQ(dump(env, scSymbolFiles), "[ISearchEnv: searchDirs = /d (Recursive,  HighPriority), /e ( ), "
                                      "/f (Recursive,  ), /g ( HighPriority), ]");
  EXPECT_EQ(dump(env, scBinaryFiles), "[ISearchEnv: searchDirs = /bin ( ), ]");
}

TEST(SearchEnvDump, LeavesASharedIteratorReset) {
  auto dirs = IEditableSearchDirContainer::create();
  dirs->addDirectory(scSourceFiles, "/one", false, false);
  dirs->addDirectory(scSourceFiles, "/two", false, false);
  auto env = IEditableSearchEnv::create();
  env->setSearchDirs(dirs);
  auto captured = ICapturedSearchDirs::create(env);
  auto capturedEnv = IEditableSearchEnv::create();
  capturedEnv->setSearchDirs(captured);
  EXPECT_EQ(dump(capturedEnv, scSourceFiles), "[ISearchEnv: searchDirs = /one ( ), /two ( ), ]");
  const char *name = nullptr;
  bool recursive = false;
  bool highPriority = false;
  ASSERT_TRUE(captured->enumerate(scSourceFiles)->getCurrentRecord(name, recursive, highPriority));
  EXPECT_STREQ(name, "/one");
}

} // namespace
