// Modules found through the host's search directories by the kernel-aware
// search: compressed files and '-'/'_' spellings offered right after each
// directory's candidate, the same with an index and with read-ahead, and the
// plain search left as it was.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "support/kernel_payloads.h"
#include "support/temp_dir.h"
#include "support/unprivileged_child.h"
#include "vell/directory_index.h"
#include "vell/kernel.h"
#include "vell/platform.h"
#include "vell/walk_options.h"
#include "vell_index/directory_index.h"
#include "vell_search/kernel_bin_strategy.h"
#include "vell_search/recording_container.h"
#include "vell_search/search_callbacks_support.h"
#include "vell_search/search_test_support.h"

using namespace VELL_2_13;
using namespace vell_test;

namespace {

std::string smallElf() { return elfPayload().substr(0, 150000); }

bool exists(const std::string &path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0;
}

std::vector<std::string> existing(const std::vector<std::string> &paths) {
  std::vector<std::string> result;
  for (const std::string &path : paths)
    if (exists(path) && std::find(result.begin(), result.end(), path) == result.end())
      result.push_back(path);
  return result;
}

struct ModuleSearchDirsTest : public ::testing::Test {
  void SetUp() override {
    cache = tmp.mkdir("cache");
    platform::setCacheRoot(cache);
    env = IEditableSearchEnv::create();
    env->setEnvironmentInfo(makeEnvironmentInfo(1, "R2"));
  }
  void TearDown() override { platform::setCacheRoot(""); }

  void searchDir(const std::string &dir, bool recursive) {
    env->setSearchDirs(makeDirContainer({{scBinaryFiles, dir, recursive, true}}));
  }

  // Every candidate the high-priority search-directory step offers for name
  // (nothing accepted), by the kernel-aware strategy or the plain one.
  std::vector<std::string> candidates(const char *name, bool plain, DirectoryIndex *index = nullptr,
                                      unsigned int readAhead = 0) {
    RecordingContainer container;
    if (plain) {
      BinFileSearchStrategy strategy(env.get(), name, "", nullptr);
      strategy.setDirectoryIndex(index);
      strategy.setReadAheadThreads(readAhead);
      EXPECT_FALSE(strategy.findInHighPriorityDirs(container));
    } else {
      KernelAwareBinStrategy strategy(env.get(), name, "", nullptr, options, "R2");
      strategy.setDirectoryIndex(index);
      strategy.setReadAheadThreads(readAhead);
      EXPECT_FALSE(strategy.findInHighPriorityDirs(container));
    }
    for (unsigned int step : container.steps())
      EXPECT_EQ(unsigned(ssHighPrioritySearchDirs), step);
    return container.paths();
  }

  std::string find(const ObjectPtr<IFileSearch> &search, const char *name) {
    ObjectPtr<IValidFile> found = search->findBinFile(name, nullptr, nullptr, 0);
    return found ? found->name() : "";
  }

  FixedKernelRelease hostRelease; // the host runs "R1", of which nothing exists
  TempDir tmp;
  std::string cache;
  ObjectPtr<IEditableSearchEnv> env;
  KernelSearchOptions options;
};

TEST_F(ModuleSearchDirsTest, CompanionsFollowEachDirectorysCandidateInTheDocumentedOrder) {
  const std::string dir = tmp.mkdir("copy/kernel/net/openvswitch");
  for (const char *file : {"vport-gre.ko.gz", "vport_gre.ko.gz", "vport-gre.ko", "vport_gre.ko.xz",
                           "vport-gre.ko.zst", "vport_gre_x.ko", "vport_gre.ko.bz2", "README"})
    tmp.write(std::string("copy/kernel/net/openvswitch/") + file);
  const std::string root = tmp.sub("copy");
  searchDir(root, true);
  const std::vector<std::string> expected = {
      // The tail look-up under the root, then the recursive walk.
      root + "/vport_gre",
      root + "/vport_gre",
      root + "/kernel/vport_gre",
      root + "/kernel/net/vport_gre",
      dir + "/vport_gre",
      // The searched spelling in suffix order, then the other spelling.
      dir + "/vport_gre.ko.xz",
      dir + "/vport_gre.ko.gz",
      dir + "/vport-gre.ko",
      dir + "/vport-gre.ko.zst",
      dir + "/vport-gre.ko.gz",
  };
  EXPECT_EQ(expected, candidates("vport_gre", false));
  // The plain search offers what it always did.
  const std::vector<std::string> plain(expected.begin(), expected.begin() + 5);
  EXPECT_EQ(plain, candidates("vport_gre", true));
  options.compressedModules = false;
  EXPECT_EQ(plain, candidates("vport_gre", false));
}

TEST_F(ModuleSearchDirsTest, NameWithManySpellingsKeepsTheOrderWhenTheDirectoryIsListed) {
  // Three '-' or '_' make 32 possible names: the directory is listed.
  const std::string dir = tmp.mkdir("copy");
  for (const char *file : {"a_b_c_d.ko.xz", "a-b-c-d.ko", "a_b-c_d.ko.gz", "a_b-c_d.ko", "a_b-c_d.ko.bz2",
                           "a_b-c_d_e.ko", "a_b-c_d.ko.zst"})
    tmp.write(std::string("copy/") + file);
  searchDir(dir, false);
  const std::vector<std::string> expected = {
      dir + "/a_b-c_d",       dir + "/a_b-c_d.ko", dir + "/a_b-c_d.ko.zst",
      dir + "/a_b-c_d.ko.gz", dir + "/a-b-c-d.ko", dir + "/a_b_c_d.ko.xz",
  };
  EXPECT_EQ(expected, candidates("a_b-c_d", false));
  ModuleCompanions companions("a_b-c_d", "a_b-c_d");
  std::vector<std::string> names;
  ASSERT_TRUE(companions.companionNames(names));
  EXPECT_EQ(32u, names.size());
  // The module's own file as searched is not offered again.
  const std::vector<std::string> fromFile = {dir + "/a_b-c_d.ko", dir + "/a_b-c_d.ko.zst",
                                             dir + "/a_b-c_d.ko.gz", dir + "/a-b-c-d.ko",
                                             dir + "/a_b_c_d.ko.xz"};
  EXPECT_EQ(fromFile, candidates("a_b-c_d.ko", false));
}

TEST_F(ModuleSearchDirsTest, RecordedPathOffersCompanionsInEachTailLookUp) {
  tmp.write("copy/kernel/net/openvswitch/vport-gre.ko.xz");
  tmp.write("copy/vport_gre.ko");
  const std::string root = tmp.sub("copy");
  searchDir(root, false);
  const std::vector<std::string> expected = {
      // The path's root directory makes the whole path the first tail twice.
      root + "/lib/modules/R2/kernel/net/openvswitch/vport-gre.ko",
      root + "/lib/modules/R2/kernel/net/openvswitch/vport-gre.ko",
      root + "/modules/R2/kernel/net/openvswitch/vport-gre.ko",
      root + "/R2/kernel/net/openvswitch/vport-gre.ko",
      root + "/kernel/net/openvswitch/vport-gre.ko",
      root + "/kernel/net/openvswitch/vport-gre.ko.xz",
      root + "/net/openvswitch/vport-gre.ko",
      root + "/openvswitch/vport-gre.ko",
      root + "/vport-gre.ko",
      root + "/vport_gre.ko",
  };
  EXPECT_EQ(expected, candidates("/lib/modules/R2/kernel/net/openvswitch/vport-gre.ko", false));
  const std::vector<std::string> plain = {expected[0], expected[1], expected[2], expected[3],
                                          expected[4], expected[6], expected[7], expected[8]};
  EXPECT_EQ(plain, candidates("/lib/modules/R2/kernel/net/openvswitch/vport-gre.ko", true));
}

TEST_F(ModuleSearchDirsTest, ADirectoryThatCannotBeListedIsAskedForEachName) {
  // A directory others may enter but not list: the walk cannot list it, but
  // its module files can still be asked for by name.
  tmp.write("tree/closed/vport-gre.ko.xz");
  tmp.write("tree/open/vport_gre.ko");
  const std::string root = tmp.sub("tree");
  const std::string closed = tmp.sub("tree/closed");
  openForOthers(root + "/open");
  ASSERT_EQ(0, ::chmod(closed.c_str(), 0711));
  searchDir(root, true);
  inUnprivilegedChild([&] {
    for (unsigned int readAhead : {0u, 2u}) {
      SCOPED_TRACE(readAhead);
      const std::vector<std::string> found = candidates("vport_gre", false, nullptr, readAhead);
      const auto at = std::find(found.begin(), found.end(), closed + "/vport_gre");
      ASSERT_NE(found.end(), at);
      ASSERT_NE(found.end(), at + 1);
      EXPECT_EQ(closed + "/vport-gre.ko.xz", *(at + 1));
      EXPECT_NE(found.end(), std::find(found.begin(), found.end(), root + "/open/vport_gre.ko"));
    }
  });
  ASSERT_EQ(0, ::chmod(closed.c_str(), 0755));
}

TEST_F(ModuleSearchDirsTest, NoCompanionsForOtherNamesOrGuestFiles) {
  tmp.write("copy/libz.so.ko");
  tmp.write("copy/vport_gre.ko");
  const std::string root = tmp.sub("copy");
  searchDir(root, false);
  // A shared library is no module; a guest's file keeps the plain candidates.
  EXPECT_EQ(candidates("libz.so", true), candidates("libz.so", false));
  EXPECT_EQ(candidates("vport_gre [guest]", true), candidates("vport_gre [guest]", false));
}

TEST_F(ModuleSearchDirsTest, IndexAndReadAheadOfferTheWalksCandidates) {
  // Several directories, some with the exact file, some with companions
  // only, one with both, and one with many spellings.
  for (const char *file :
       {"a/vport-gre.ko.xz", "b/vport_gre", "b/vport_gre.ko", "b/c/vport_gre.ko.zst", "b/c/d/nothing.ko",
        "e/vport-gre.ko.gz", "e/vport-gre.ko", "f/g/h/vport_gre.ko.gz", "f/vport_gre"})
    tmp.write(std::string("tree/") + file);
  const std::string root = tmp.sub("tree");
  searchDir(root, true);
  const std::vector<std::string> walk = candidates("vport_gre", false);
  EXPECT_EQ(8u, existing(walk).size());
  // Read-ahead: exactly the walk's candidates.
  EXPECT_EQ(walk, candidates("vport_gre", false, nullptr, 2));
  // Index: the walk's candidates that exist, in the walk's order.
  ObjectPtr<IDirectoryIndex> index = IDirectoryIndex::create();
  DirectoryIndex *directoryIndex = dynamic_cast<DirectoryIndex *>(index.get());
  ASSERT_NE(nullptr, directoryIndex);
  const std::vector<std::string> indexed = candidates("vport_gre", false, directoryIndex);
  EXPECT_EQ(existing(walk), existing(indexed));
  // A later change of the tree reaches the index once it is checked again.
  tmp.write("tree/a/vport_gre.ko");
  index = IDirectoryIndex::create(DirectoryIndexOptions{0, 1});
  directoryIndex = dynamic_cast<DirectoryIndex *>(index.get());
  EXPECT_EQ(existing(candidates("vport_gre", false)),
            existing(candidates("vport_gre", false, directoryIndex)));
}

TEST_F(ModuleSearchDirsTest, IndexWalksTheDiskForNamesWithTooManySpellings) {
  const std::string name = "a_b_c_d_e_f_g_h_i_j";
  tmp.write("tree/x/a-b-c-d-e-f-g-h-i-j.ko.xz");
  tmp.write("tree/y/a_b-c_d_e_f_g_h_i_j.ko");
  const std::string root = tmp.sub("tree");
  searchDir(root, true);
  ObjectPtr<IDirectoryIndex> index = IDirectoryIndex::create();
  const std::vector<std::string> walk = candidates(name.c_str(), false);
  EXPECT_EQ(2u, existing(walk).size());
  EXPECT_EQ(walk, candidates(name.c_str(), false, dynamic_cast<DirectoryIndex *>(index.get())));
}

TEST_F(ModuleSearchDirsTest, IndexStopsWhereTheWalkStopsWithLinksAndLoops) {
  for (const char *file : {"a/vport-gre.ko.xz", "a/b/vport_gre", "a/b/vport_gre.ko.zst", "c/vport_gre.ko",
                           "c/d/vport-gre.ko", "c/d/vport_gre.ko.gz"})
    tmp.write(std::string("tree/") + file);
  const std::string root = tmp.sub("tree");
  ASSERT_EQ(0, ::symlink((root + "/a").c_str(), (root + "/c/d/back").c_str()));
  ASSERT_EQ(0, ::symlink((root + "/c").c_str(), (root + "/a/b/loop").c_str()));
  ModuleCompanions companions("vport_gre", "vport_gre");
  ObjectPtr<IDirectoryIndex> index = IDirectoryIndex::create();
  DirectoryIndex *directoryIndex = dynamic_cast<DirectoryIndex *>(index.get());
  ASSERT_NE(nullptr, directoryIndex);
  std::vector<std::string> names;
  ASSERT_TRUE(companions.companionNames(names));
  EXPECT_EQ(
      std::vector<std::string>({"vport_gre.ko", "vport_gre.ko.xz", "vport_gre.ko.zst", "vport_gre.ko.gz",
                                "vport-gre.ko", "vport-gre.ko.xz", "vport-gre.ko.zst", "vport-gre.ko.gz"}),
      names);
  // Accept the n-th existing candidate: both stop there, having offered the
  // same existing candidates before it.
  size_t total = 0;
  for (size_t acceptAt = 0; acceptAt <= 8; ++acceptAt) {
    std::vector<std::string> offered[2];
    bool stopped[2] = {false, false};
    for (int indexed = 0; indexed < 2; ++indexed) {
      RecordingContainer container;
      size_t seen = 0;
      container.acceptIf = [&](const std::string &path) { return exists(path) && ++seen == acceptAt; };
      if (indexed) {
        stopped[indexed] =
            directoryIndex->findRecursively(root, "vport_gre", names, companions, container, ssSystemDirs);
      } else {
        FilesFinder walker(ssSystemDirs, nullptr);
        walker.setCompanionFiles(&companions);
        stopped[indexed] = walker.findRecursively(root, "vport_gre", container);
      }
      offered[indexed] = existing(container.paths());
    }
    EXPECT_EQ(offered[0], offered[1]) << acceptAt;
    EXPECT_EQ(stopped[0], stopped[1]) << acceptAt;
    if (acceptAt == 0) {
      total = offered[0].size();
    } else {
      EXPECT_EQ(acceptAt <= total, stopped[0]) << acceptAt;
    }
  }
  EXPECT_EQ(6u, total);
}

TEST_F(ModuleSearchDirsTest, RealCompressedModulesFoundThroughSearchDirectories) {
  const std::string elf = smallElf();
  const std::string xz =
      tmp.write("copy/kernel/net/openvswitch/vport-gre.ko.xz", compressWith("xz -1 -c", elf));
  const std::string zst = tmp.write("copy/kernel/fs/xfs/xfs.ko.zst", compressWith("zstd -q -c", elf));
  const std::string gz = tmp.write("copy/kernel/fs/ext4/ext4.ko.gz", compressWith("gzip -c", elf));
  const std::string root = tmp.sub("copy");
  ObjectPtr<IDirectoryIndex> index = IDirectoryIndex::create();
  WalkOptions walkOptions;
  walkOptions.readAheadThreads = 2;

  // Recursive: by bare name with '_' for '-', and by recorded path.
  searchDir(root, true);
  const std::vector<ObjectPtr<IFileSearch>> searches = {
      createKernelAwareFileSearch(env, options), createKernelAwareFileSearch(env, options, index),
      createKernelAwareFileSearch(env, options, walkOptions)};
  for (const ObjectPtr<IFileSearch> &search : searches) {
    EXPECT_EQ(xz, find(search, "vport_gre"));
    EXPECT_EQ(xz, find(search, "vport-gre"));
    EXPECT_EQ(zst, find(search, "xfs"));
    EXPECT_EQ(gz, find(search, "/lib/modules/R2/kernel/fs/ext4/ext4.ko"));
  }
  // The plain search does not know them.
  EXPECT_EQ("", find(IFileSearch::create(env), "vport_gre"));
  EXPECT_EQ("", find(IFileSearch::create(env), "/lib/modules/R2/kernel/fs/ext4/ext4.ko"));
  EXPECT_EQ("", find(createIndexedFileSearch(env, index), "vport_gre"));

  // Non-recursive: the module's own directory, or a tail look-up of the path.
  searchDir(tmp.sub("copy/kernel/net/openvswitch"), false);
  EXPECT_EQ(xz, find(createKernelAwareFileSearch(env, options), "vport_gre"));
  searchDir(root, false);
  EXPECT_EQ(xz, find(createKernelAwareFileSearch(env, options),
                     "/lib/modules/R2/kernel/net/openvswitch/vport-gre.ko"));
  EXPECT_EQ("", find(createKernelAwareFileSearch(env, options), "vport_gre"));
}

TEST_F(ModuleSearchDirsTest, CompanionFoundThroughASearchDirectoryIsHandedOverDecompressed) {
  const std::string elf = smallElf();
  tmp.write("copy/net/vport-gre.ko.xz", compressWith("xz -1 -c", elf));
  searchDir(tmp.sub("copy"), true);
  options.decompressModules = true;
  const std::string found = find(createKernelAwareFileSearch(env, options), "vport_gre");
  EXPECT_EQ(cache + "/module_cache/", found.substr(0, cache.size() + 14));
  EXPECT_EQ("/vport-gre.ko", found.substr(found.size() - 13));
  EXPECT_TRUE(readFile(found) == elf);
}

TEST_F(ModuleSearchDirsTest, InvalidExactFileStillLeavesItsCompanionsToTry) {
  const std::string elf = smallElf();
  const std::string exact = tmp.write("copy/vport_gre.ko", elf);
  const std::string xz = tmp.write("copy/vport_gre.ko.xz", compressWith("xz -1 -c", elf));
  searchDir(tmp.sub("copy"), false);
  ObjectPtr<IFileSearch> search = createKernelAwareFileSearch(env, options);
  EXPECT_EQ(exact, find(search, "vport_gre.ko"));
  // The host rejects the exact file: the compressed one in the same
  // directory is next.
  TestValidatorCallback host;
  host.rejected.insert(exact);
  ObjectPtr<IValidFile> found = search->findBinFile("vport_gre.ko", &host, nullptr, 0);
  ASSERT_TRUE(found);
  EXPECT_EQ(xz, std::string(found->name()));
}

} // namespace
