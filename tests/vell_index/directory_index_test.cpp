// The directory index against the plain recursive walk: the same existing
// candidates in the same order over trees with links, loops, unreadable
// directories and changes between look-ups; searches sharing an index.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "support/temp_dir.h"
#include "support/unprivileged_child.h"
#include "support/walk_tree.h"
#include "vell/directory_index.h"
#include "vell/file_search.h"
#include "vell/search_steps.h"
#include "vell_index/directory_index.h"
#include "vell_search/files_finder.h"
#include "vell_search/search_callbacks_support.h"
#include "vell_search/search_test_support.h"

using namespace VELL_2_13;
using vell_test::TempDir;

namespace fs = std::filesystem;

namespace {

using vell_test::inUnprivilegedChild;

// Keeps the candidates that exist, as the search driver does before it
// validates; accepts the candidate numbered acceptAt (counting existing ones
// from 1), or none.
class ExistingCandidates : public ISearchResultsContainer {
public:
  explicit ExistingCandidates(size_t acceptAt = 0) : m_acceptAt(acceptAt) {}
  bool validateAndAdd(const char *path, unsigned int step) override {
    steps.push_back(step);
    struct stat st;
    if (::stat(path, &st) != 0)
      return false;
    existing.push_back(path);
    return existing.size() == m_acceptAt;
  }
  std::vector<std::string> existing;
  std::vector<unsigned int> steps;

private:
  size_t m_acceptAt;
};

struct Outcome {
  bool accepted = false;
  std::vector<std::string> existing;
};

Outcome walk(const std::vector<std::string> &roots, const std::string &name, DirectoryIndex *index,
             size_t acceptAt = 0) {
  FilesFinder finder(ssHighPrioritySearchDirs, nullptr);
  finder.setDirectoryIndex(index);
  for (const std::string &root : roots)
    finder.addSearchDirectory(root.c_str(), true);
  ExistingCandidates container(acceptAt);
  Outcome outcome;
  outcome.accepted = finder.find(name.c_str(), container);
  outcome.existing = container.existing;
  for (unsigned int step : container.steps)
    EXPECT_EQ(static_cast<unsigned int>(ssHighPrioritySearchDirs), step);
  return outcome;
}

DirectoryIndex &impl(const ObjectPtr<IDirectoryIndex> &index) {
  return dynamic_cast<DirectoryIndex &>(*index);
}

// Compares the plain walk with the index for every name, stopping nowhere and
// stopping at each existing candidate in turn.
void expectSameAsWalk(const std::vector<std::string> &roots, const std::vector<std::string> &names,
                      const ObjectPtr<IDirectoryIndex> &index) {
  for (const std::string &name : names) {
    SCOPED_TRACE(name);
    const Outcome plain = walk(roots, name, nullptr);
    const Outcome indexed = walk(roots, name, &impl(index));
    EXPECT_EQ(plain.existing, indexed.existing);
    EXPECT_FALSE(indexed.accepted);
    for (size_t stop = 1; stop <= plain.existing.size(); ++stop) {
      const Outcome plainStop = walk(roots, name, nullptr, stop);
      const Outcome indexedStop = walk(roots, name, &impl(index), stop);
      EXPECT_TRUE(indexedStop.accepted);
      EXPECT_EQ(plainStop.existing, indexedStop.existing);
    }
  }
}

DirectoryIndexOptions alwaysCheck(unsigned int threads = 2) {
  DirectoryIndexOptions options;
  options.maxAgeMilliseconds = 0;
  options.listingThreads = threads;
  return options;
}

// A tree in which "lib.so" lies at several depths, beside directories of
// the same name and among many other entries.
void buildTree(const TempDir &dir) {
  std::vector<std::string> files = {"root/a/lib.so", "root/a/b/c/lib.so", "root/a/b/other.so"};
  for (int i = 0; i < 30; ++i) {
    files.push_back("root/wide/d" + std::to_string(i) + "/f" + std::to_string(i) + ".so");
    if (i % 7 == 0)
      files.push_back("root/wide/d" + std::to_string(i) + "/lib.so");
  }
  vell_test::buildLibTree(dir, files);
}

const std::vector<std::string> kNames = {"lib.so", "other.so", "f3.so", "missing.so", "wide", "d7"};

TEST(DirectoryIndexTest, OffersTheWalksExistingCandidatesInOrder) {
  TempDir dir;
  buildTree(dir);
  ObjectPtr<IDirectoryIndex> index = IDirectoryIndex::create(alwaysCheck());
  expectSameAsWalk({dir.sub("root")}, kNames, index);
  const DirectoryIndexStatistics statistics = index->statistics();
  EXPECT_EQ(1u, statistics.trees);
  EXPECT_GE(statistics.directories, 36u);
  EXPECT_GT(statistics.memoryBytes, 0u);
}

TEST(DirectoryIndexTest, OneListingThreadGivesTheSameOrder) {
  TempDir dir;
  buildTree(dir);
  expectSameAsWalk({dir.sub("root")}, kNames, IDirectoryIndex::create(alwaysCheck(1)));
  expectSameAsWalk({dir.sub("root")}, kNames, IDirectoryIndex::create(alwaysCheck(4)));
}

TEST(DirectoryIndexTest, SeveralRecordsAndTailCandidatesKeepTheirPlace) {
  TempDir dir;
  buildTree(dir);
  dir.write("second/x/lib.so");
  // The same tree twice: each record walks it anew.
  expectSameAsWalk({dir.sub("second"), dir.sub("root"), dir.sub("root/a"), dir.sub("root")},
                   {"lib.so", "a/b/c/lib.so", "x/lib.so"}, IDirectoryIndex::create(alwaysCheck()));
}

TEST(DirectoryIndexTest, LinksAndLoopsAreWalkedAsThePlainWalkDoes) {
  TempDir dir;
  buildTree(dir);
  fs::create_directory_symlink(dir.sub("root"), dir.sub("root/a/b/up"));        // loop to an ancestor
  fs::create_directory_symlink(dir.sub("root/a/b/c"), dir.sub("root/c-link"));  // reached twice
  fs::create_directory_symlink(dir.sub("outside"), dir.sub("root/out-link"));   // outside the tree
  fs::create_symlink(dir.sub("nowhere"), dir.sub("root/wide/dangling"));        // dangling
  fs::create_symlink(dir.sub("root/a/lib.so"), dir.sub("root/wide/d1/lib.so")); // file link
  dir.write("outside/lib.so");
  dir.write("outside/deeper/lib.so");
  expectSameAsWalk({dir.sub("root"), dir.sub("root/c-link")}, kNames, IDirectoryIndex::create(alwaysCheck()));
}

TEST(DirectoryIndexTest, ARootThatIsMissingOrAFileOffersWhatTheWalkOffers) {
  TempDir dir;
  buildTree(dir);
  ObjectPtr<IDirectoryIndex> index = IDirectoryIndex::create(alwaysCheck());
  expectSameAsWalk({dir.sub("missing"), dir.sub("root/lib.so"), dir.sub("root")}, {"lib.so"}, index);
  EXPECT_FALSE(index->prepare(dir.sub("missing").c_str()));
  EXPECT_TRUE(index->prepare(dir.sub("root").c_str()));
  // A root that appears later is listed then.
  dir.write("missing/lib.so");
  expectSameAsWalk({dir.sub("missing")}, {"lib.so"}, index);
}

TEST(DirectoryIndexTest, UnreadableDirectoriesOfferTheirCandidateAndAreNotEntered) {
  TempDir dir;
  buildTree(dir);
  // Listable by nobody: searchable only (the name inside can be reached),
  // and closed entirely.
  dir.write("root/search-only/lib.so");
  dir.write("root/search-only/below/lib.so");
  dir.write("root/closed/lib.so");
  fs::create_directory_symlink(dir.sub("root/closed"), dir.sub("root/wide/closed-link"));
  vell_test::limitTreeForOthers(dir.sub("root"), dir.sub("root/search-only"), dir.sub("root/closed"));
  const std::string root = dir.sub("root");
  inUnprivilegedChild([&] {
    // The search-only directory's file is reached though it cannot be listed.
    const Outcome plain = walk({root}, "lib.so", nullptr);
    EXPECT_NE(plain.existing.end(),
              std::find(plain.existing.begin(), plain.existing.end(), root + "/search-only/lib.so"));
    expectSameAsWalk({root}, kNames, IDirectoryIndex::create(alwaysCheck(1)));
    expectSameAsWalk({root}, kNames, IDirectoryIndex::create(alwaysCheck(2)));
  });
}

TEST(DirectoryIndexTest, FilesAddedAndRemovedBetweenLookUpsAreSeen) {
  TempDir dir;
  buildTree(dir);
  const std::string root = dir.sub("root");
  ObjectPtr<IDirectoryIndex> index = IDirectoryIndex::create(alwaysCheck());
  expectSameAsWalk({root}, kNames, index);
  // Right after a look-up: within the time stamps' granularity.
  dir.write("root/wide/d2/lib.so");
  expectSameAsWalk({root}, kNames, index);
  fs::remove(dir.sub("root/a/lib.so"));
  expectSameAsWalk({root}, kNames, index);
  dir.write("root/new/deep/lib.so");
  dir.write("root/new/deep/f3.so");
  expectSameAsWalk({root}, kNames, index);
  fs::remove_all(dir.sub("root/a/b"));
  fs::rename(dir.sub("root/wide/d14"), dir.sub("root/empty/d14"));
  expectSameAsWalk({root}, kNames, index);
  fs::create_directory_symlink(dir.sub("root/new"), dir.sub("root/empty/new-link"));
  expectSameAsWalk({root}, kNames, index);
  // A link whose target turns into a directory: the directory holding the
  // link does not change.
  fs::create_directory_symlink(dir.sub("later"), dir.sub("root/wide/later-link"));
  expectSameAsWalk({root}, kNames, index);
  dir.write("later/lib.so");
  expectSameAsWalk({root}, kNames, index);
}

TEST(DirectoryIndexTest, AnUnchangedTreeIsCheckedWithoutBeingListedAgain) {
  TempDir dir;
  buildTree(dir);
  ObjectPtr<IDirectoryIndex> index = IDirectoryIndex::create(alwaysCheck());
  ASSERT_TRUE(index->prepare(dir.sub("root").c_str()));
  // Let the time stamps of the fresh tree fall behind the granularity window.
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  expectSameAsWalk({dir.sub("root")}, {"lib.so"}, index);
  const uint64_t listings = index->statistics().listings;
  expectSameAsWalk({dir.sub("root")}, {"lib.so"}, index);
  EXPECT_EQ(listings, index->statistics().listings);
  EXPECT_GT(index->statistics().checks, 2u);
  dir.write("root/a/b/new.so");
  expectSameAsWalk({dir.sub("root")}, {"new.so"}, index);
  EXPECT_GT(index->statistics().listings, listings);
}

TEST(DirectoryIndexTest, WithinTheMaximalAgeTheTreeIsNotCheckedAgain) {
  TempDir dir;
  buildTree(dir);
  DirectoryIndexOptions options;
  options.maxAgeMilliseconds = 60'000;
  ObjectPtr<IDirectoryIndex> index = IDirectoryIndex::create(options);
  const std::string root = dir.sub("root");
  EXPECT_EQ(walk({root}, "lib.so", nullptr).existing, walk({root}, "lib.so", &impl(index)).existing);
  const uint64_t checks = index->statistics().checks;
  // A file removed since is not offered: every candidate is still checked.
  fs::remove(dir.sub("root/a/lib.so"));
  EXPECT_EQ(walk({root}, "lib.so", nullptr).existing, walk({root}, "lib.so", &impl(index)).existing);
  EXPECT_EQ(checks, index->statistics().checks);
  index->clear();
  EXPECT_EQ(0u, index->statistics().trees);
}

TEST(DirectoryIndexTest, AnswersOnlyForPlainNames) {
  EXPECT_TRUE(DirectoryIndex::answers("lib.so"));
  EXPECT_FALSE(DirectoryIndex::answers(""));
  EXPECT_FALSE(DirectoryIndex::answers("."));
  EXPECT_FALSE(DirectoryIndex::answers(".."));
  EXPECT_FALSE(DirectoryIndex::answers("/"));
  EXPECT_FALSE(DirectoryIndex::answers("a/b"));
}

TEST(DirectoryIndexTest, IndexedFileSearchFindsTheSameFilesInTheSameOrder) {
  TempDir dir;
  buildTree(dir);
  fs::create_directory_symlink(dir.sub("root"), dir.sub("root/a/b/up"));
  vell_test::CollectingSearchEnv search(dir.sub("root"), true);
  ObjectPtr<IDirectoryIndex> shared = IDirectoryIndex::create(alwaysCheck());
  ObjectPtr<IFileSearch> plain = IFileSearch::create(search.env);
  ObjectPtr<IFileSearch> indexed = createIndexedFileSearch(search.env, shared);
  ObjectPtr<IFileSearch> ownIndex = createIndexedFileSearch(search.env, ObjectPtr<IDirectoryIndex>());
  for (const char *name : {"lib.so", "f5.so", "missing.so"}) {
    SCOPED_TRACE(name);
    ObjectPtr<IValidFile> expected = plain->findBinFile(name, nullptr, nullptr, 0);
    const std::vector<std::string> expectedFiles = search.collected;
    ObjectPtr<IValidFile> got = indexed->findBinFile(name, nullptr, nullptr, 0);
    EXPECT_EQ(expectedFiles, search.collected);
    ObjectPtr<IValidFile> gotOwn =
        ownIndex->findSymFile(name, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
    EXPECT_EQ(expectedFiles, search.collected);
    EXPECT_EQ(vell_test::nameOf(expected), vell_test::nameOf(got));
    EXPECT_EQ(vell_test::nameOf(expected), vell_test::nameOf(gotOwn));
    // A walk ends at its first valid file; the next step goes on from there.
    if (std::string(name) == "lib.so") {
      EXPECT_EQ(std::vector<std::string>{dir.sub("root/lib.so")}, expectedFiles);
    }
  }
  EXPECT_EQ(1u, shared->statistics().trees);
}

TEST(DirectoryIndexTest, SearchesOnSeveralThreadsShareOneIndex) {
  TempDir dir;
  buildTree(dir);
  const std::string root = dir.sub("root");
  const std::vector<std::string> expected = walk({root}, "lib.so", nullptr).existing;
  // The tail candidate, then eight files and one directory of that name.
  ASSERT_EQ(10u, expected.size());
  ObjectPtr<IDirectoryIndex> index = IDirectoryIndex::create(alwaysCheck());
  std::vector<std::thread> threads;
  std::vector<int> mismatches(4, 0);
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([&, t] {
      for (int i = 0; i < 25; ++i)
        if (walk({root}, "lib.so", &impl(index)).existing != expected)
          ++mismatches[t];
    });
  for (std::thread &thread : threads)
    thread.join();
  EXPECT_EQ(std::vector<int>(4, 0), mismatches);
}

} // namespace
