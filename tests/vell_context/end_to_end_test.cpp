// A profiler's use of contexts: a result directory inheriting from a project
// directory inheriting from the user-wide context, archived files found again,
// sources found through a parent, and directories registered later.
#include <gtest/gtest.h>

#include <boost/filesystem.hpp>

#include "support/temp_dir.h"
#include "vell_context/context_fakes.h"
#include "vell_context/resolution_context_mgr.h"

using namespace VELL_2_13;
using namespace vell_test;

namespace {

class ProfilerContextsTest : public ::testing::Test {
protected:
  ProfilerContextsTest() : mgr(IResolutionContextMgr::create()) {
    user = mgr->createUserWideContext();
    project = mgr->createFileSystemContext(root.mkdir("project").c_str(), true);
    result = mgr->createResultDirectoryContext(root.mkdir("project/r000hs").c_str());
    mgr->addInheritance(*result, *project);
    mgr->addInheritance(*project, *user);

    // Each level has directories of its own.
    userDirs = IEditableSearchDirContainer::create();
    userDirs->addDirectory(scSourceFiles, root.mkdir("home/src").c_str(), true, false);
    mgr->registerSearchDirs(*user, userDirs, "user dirs");
    ObjectPtr<IEditableSearchDirContainer> projectDirs = IEditableSearchDirContainer::create();
    projectDirs->addDirectory(scSourceFiles, root.mkdir("project/src").c_str(), true, true);
    mgr->registerSearchDirs(*project, projectDirs, "project dirs");
  }

  ObjectPtr<IFileSearch> search(const char *clientId) {
    return mgr->createFileSearch(*result, clientId, ObjectPtr<IEnvironmentInfo>());
  }

  TempDir root;
  ObjectPtr<IResolutionContextMgr> mgr;
  ObjectPtr<IResolutionContext> user;
  ObjectPtr<IResolutionContext> project;
  ObjectPtr<IResolutionContext> result;
  ObjectPtr<IEditableSearchDirContainer> userDirs;
};

TEST_F(ProfilerContextsTest, ArchivedBinaryAndSymbolFileAreFoundInTheArchiveStep) {
  const std::string binary = root.write("collected/libfoo.so", "ELF binary bytes");
  const std::string symbols = root.write("collected/libfoo.so.debug", "DWARF bytes");
  EXPECT_EQ(0u, mgr->archiveFile(*result, binary.c_str(), scBinaryFiles));
  EXPECT_EQ(0u, mgr->archiveFile(*result, symbols.c_str(), scSymbolFiles));
  // The collected copies are gone; only the archive has the files now.
  boost::filesystem::remove_all(root.sub("collected"));

  const std::string archive = root.sub("project/r000hs/archive");
  ObjectPtr<IFileSearch> fileSearch = search("profiler");
  ObjectPtr<IValidFile> foundBinary = fileSearch->findBinFile("/target/lib/libfoo.so", nullptr, nullptr, 0);
  ASSERT_TRUE(foundBinary);
  EXPECT_EQ(0u, std::string(foundBinary->name()).rfind(archive + "/binaries/libfoo.so/", 0))
      << foundBinary->name();
  EXPECT_EQ(ssArchiveSearchDirs, foundBinary->searchStep());

  ObjectPtr<IValidFile> foundSymbols = fileSearch->findSymFile("libfoo.so.debug", "/target/lib/libfoo.so",
                                                               nullptr, nullptr, nullptr, nullptr, nullptr);
  ASSERT_TRUE(foundSymbols);
  EXPECT_EQ(0u, std::string(foundSymbols->name()).rfind(archive + "/symbols/libfoo.so.debug/", 0))
      << foundSymbols->name();
  EXPECT_EQ(ssArchiveSearchDirs, foundSymbols->searchStep());
}

TEST_F(ProfilerContextsTest, SourcesAreFoundThroughTheParentsDirectoriesNearestFirst) {
  const std::string projectSource = root.write("project/src/module/main.c", "int main;");
  root.write("home/src/main.c", "older copy");
  const std::string userSource = root.write("home/src/lib/util.c", "util");
  ObjectPtr<IFileSearch> fileSearch = search("profiler");
  ObjectPtr<IValidFile> main = fileSearch->findSrcFile("main.c", nullptr, nullptr, nullptr, nullptr);
  ASSERT_TRUE(main);
  EXPECT_EQ(projectSource, main->name());
  ObjectPtr<IValidFile> util = fileSearch->findSrcFile("util.c", nullptr, nullptr, nullptr, nullptr);
  ASSERT_TRUE(util);
  EXPECT_EQ(userSource, util->name());
}

TEST_F(ProfilerContextsTest, ResultDirectoryLayoutIsSearched) {
  const std::string binary = root.write("project/r000hs/binaries/app", "app");
  ObjectPtr<IValidFile> found = search("profiler")->findBinFile("/target/bin/app", nullptr, nullptr, 0);
  ASSERT_TRUE(found);
  EXPECT_EQ(binary, found->name());
  EXPECT_EQ(ssHighPrioritySearchDirs, found->searchStep());
}

TEST_F(ProfilerContextsTest, DirectoryRegisteredLaterIsSeenByEarlierEnvironmentsExceptCapturedOnes) {
  mgr->captureSearchDirs(*result, "frozen");
  ObjectPtr<IFileSearch> live = search("profiler");
  ObjectPtr<IFileSearch> frozen = search("frozen");
  EXPECT_FALSE(live->findSrcFile("late.c", nullptr, nullptr, nullptr, nullptr));

  // A new key in the project context, and a directory added to a container
  // that the user-wide context already holds.
  const std::string lateSource = root.write("late/late.c", "late");
  mgr->registerSearchDirs(*project, containerWith(scSourceFiles, {root.sub("late")}), "added later");
  const std::string laterSource = root.write("later/later.c", "later");
  userDirs->addDirectory(scSourceFiles, root.sub("later").c_str(), false, false);

  ObjectPtr<IValidFile> found = live->findSrcFile("late.c", nullptr, nullptr, nullptr, nullptr);
  ASSERT_TRUE(found);
  EXPECT_EQ(lateSource, found->name());
  found = live->findSrcFile("later.c", nullptr, nullptr, nullptr, nullptr);
  ASSERT_TRUE(found);
  EXPECT_EQ(laterSource, found->name());

  EXPECT_FALSE(frozen->findSrcFile("late.c", nullptr, nullptr, nullptr, nullptr));
  EXPECT_FALSE(search("frozen")->findSrcFile("later.c", nullptr, nullptr, nullptr, nullptr));

  mgr->releaseSearchDirs(*result, "frozen");
  EXPECT_TRUE(search("frozen")->findSrcFile("late.c", nullptr, nullptr, nullptr, nullptr));
}

} // namespace
