// The directory walker: tail look-ups, the recursive walk, its loop guard and
// its handling of file-system errors.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "support/log_capture.h"
#include "support/temp_dir.h"
#include "vell/search_steps.h"
#include "vell_search/files_finder.h"
#include "vell_search/recording_container.h"

using namespace VELL_2_13;
using vell_test::RecordingContainer;
using vell_test::TempDir;

namespace fs = std::filesystem;

namespace {

// The subdirectories of dir (links followed) in the order the file system lists them.
std::vector<std::string> listedSubdirectories(const std::string &dir) {
  std::vector<std::string> result;
  for (const auto &entry : fs::directory_iterator(dir)) {
    std::error_code ec;
    if (fs::is_directory(entry.path(), ec))
      result.push_back(entry.path().string());
  }
  return result;
}

// The candidates a recursive walk of dir for name offers: dir/name, then the
// same for every subdirectory in listing order, depth first.
void expectedWalk(const std::string &dir, const std::string &name, std::vector<std::string> &out) {
  out.push_back(dir + "/" + name);
  for (const std::string &sub : listedSubdirectories(dir))
    expectedWalk(sub, name, out);
}

// Records every call of the find hook and answers as told.
class HookRecorder : public ISearchDirectoryFindCallback {
public:
  bool find(const std::string &dir, bool recursive, const std::string &name, ISearchResultsContainer &,
            bool &skipDir) override {
    calls.push_back(dir + (recursive ? " R " : " N ") + name);
    skipDir = dir == skip;
    return dir == claim;
  }
  std::vector<std::string> calls;
  std::string skip;
  std::string claim;
};

TEST(FilesFinderTest, TailLookUpDropsLeadingComponentsOneByOne) {
  FilesFinder finder(ssHighPrioritySearchDirs, nullptr);
  RecordingContainer container;
  EXPECT_FALSE(finder.findIteratively("/D1", "a/b/c", container));
  EXPECT_EQ((std::vector<std::string>{"/D1/a/b/c", "/D1/b/c", "/D1/c"}), container.paths());
  EXPECT_EQ((std::vector<unsigned int>{ssHighPrioritySearchDirs, ssHighPrioritySearchDirs,
                                       ssHighPrioritySearchDirs}),
            container.steps());
}

TEST(FilesFinderTest, TailLookUpOfAnAbsoluteNameRepeatsTheFirstCandidate) {
  FilesFinder finder(ssLowPrioritySearchDirs, nullptr);
  RecordingContainer container;
  finder.findIteratively("/D", "/a/b", container);
  EXPECT_EQ((std::vector<std::string>{"/D/a/b", "/D/a/b", "/D/b"}), container.paths());
}

TEST(FilesFinderTest, TailLookUpNormalisesLexically) {
  FilesFinder finder(ssLowPrioritySearchDirs, nullptr);
  RecordingContainer container;
  finder.findIteratively("/D/x", "../a/./b", container);
  // Elements "..", "a", "." and "b": four starts.
  EXPECT_EQ((std::vector<std::string>{"/D/a/b", "/D/x/a/b", "/D/x/b", "/D/x/b"}), container.paths());
}

TEST(FilesFinderTest, TailLookUpOfAnEmptyNameOffersNothing) {
  FilesFinder finder(ssLowPrioritySearchDirs, nullptr);
  RecordingContainer container;
  EXPECT_FALSE(finder.findIteratively("/D", "", container));
  EXPECT_TRUE(container.candidates.empty());
}

TEST(FilesFinderTest, TailLookUpStopsAtTheFirstAcceptedCandidate) {
  FilesFinder finder(ssLowPrioritySearchDirs, nullptr);
  RecordingContainer container;
  container.accepted.insert("/D1/b/c");
  EXPECT_TRUE(finder.findIteratively("/D1", "a/b/c", container));
  EXPECT_EQ((std::vector<std::string>{"/D1/a/b/c", "/D1/b/c"}), container.paths());
}

TEST(FilesFinderTest, NonRecursiveRecordOffersOnlyTheTails) {
  TempDir tmp;
  tmp.write("d/sub/c", "x");
  FilesFinder finder(ssSystemDirs, nullptr);
  finder.addSearchDirectory(tmp.sub("d").c_str(), false);
  RecordingContainer container;
  EXPECT_FALSE(finder.find("a/c", container));
  EXPECT_EQ((std::vector<std::string>{tmp.sub("d/a/c"), tmp.sub("d/c")}), container.paths());
}

TEST(FilesFinderTest, RecursiveRecordOffersTailsThenOneCandidatePerDirectory) {
  TempDir tmp;
  for (const char *dir : {"r/x/x1", "r/x/x2/deep", "r/y", "r/z/z1", "r/w"})
    tmp.mkdir(dir);
  tmp.write("r/y/file.txt", "not a directory");
  const std::string root = tmp.sub("r");
  FilesFinder finder(ssCacheSearchDir, nullptr);
  finder.addSearchDirectory(root.c_str(), true);
  RecordingContainer container;
  EXPECT_FALSE(finder.find("a/lib.so", container));

  std::vector<std::string> expected{root + "/a/lib.so", root + "/lib.so"};
  expectedWalk(root, "lib.so", expected);
  EXPECT_EQ(expected, container.paths());
  // 2 tails + r, x, x1, x2, deep, y, z, z1, w.
  EXPECT_EQ(11u, container.candidates.size());
  for (unsigned int step : container.steps())
    EXPECT_EQ(unsigned(ssCacheSearchDir), step);
}

TEST(FilesFinderTest, SubdirectoriesFollowTheListingOrderOfTheFileSystem) {
  TempDir tmp;
  // Enough names that the listing order differs from the creation order on
  // hashed directories.
  std::vector<std::string> names;
  for (int i = 0; i < 40; ++i)
    names.push_back("d" + std::to_string(i * 7919 % 97));
  for (const std::string &name : names)
    tmp.mkdir("r/" + name);
  const std::string root = tmp.sub("r");
  FilesFinder finder(ssCacheSearchDir, nullptr);
  RecordingContainer container;
  EXPECT_FALSE(finder.findRecursively(root, "f", container));
  std::vector<std::string> expected;
  expectedWalk(root, "f", expected);
  EXPECT_EQ(expected, container.paths());
}

TEST(FilesFinderTest, WalkStopsAtTheFirstAcceptedCandidate) {
  TempDir tmp;
  tmp.mkdir("r/a");
  tmp.mkdir("r/b");
  tmp.mkdir("r/c");
  const std::string root = tmp.sub("r");
  std::vector<std::string> walk;
  expectedWalk(root, "f", walk);
  ASSERT_EQ(4u, walk.size());
  FilesFinder finder(ssCacheSearchDir, nullptr);
  RecordingContainer container;
  container.accepted.insert(walk[2]);
  EXPECT_TRUE(finder.findRecursively(root, "f", container));
  EXPECT_EQ(std::vector<std::string>(walk.begin(), walk.begin() + 3), container.paths());
}

TEST(FilesFinderTest, WalkFindsAFileInTheDeepestDirectory) {
  TempDir tmp;
  const std::string target = tmp.write("r/a/b/c/d/e/libx.so.debug", "x");
  FilesFinder finder(ssCacheSearchDir, nullptr);
  finder.addSearchDirectory(tmp.sub("r").c_str(), true);
  RecordingContainer container;
  container.acceptIf = [](const std::string &path) { return fs::is_regular_file(path); };
  EXPECT_TRUE(finder.find("/usr/lib/libx.so.debug", container));
  EXPECT_EQ(target, container.paths().back());
}

TEST(FilesFinderTest, LinkBackToAnAncestorIsWalkedOnce) {
  TempDir tmp;
  tmp.mkdir("r/a/b");
  fs::create_directory_symlink(tmp.sub("r"), tmp.sub("r/a/b/up"));
  fs::create_directory_symlink("..", tmp.sub("r/a/parent"));
  const std::string root = tmp.sub("r");
  FilesFinder finder(ssCacheSearchDir, nullptr);
  RecordingContainer container;
  EXPECT_FALSE(finder.findRecursively(root, "f", container));
  // r, r/a, r/a/b: the links lead to directories already visited.
  std::vector<std::string> paths = container.paths();
  std::sort(paths.begin(), paths.end());
  EXPECT_EQ((std::vector<std::string>{root + "/a/b/f", root + "/a/f", root + "/f"}), paths);
}

TEST(FilesFinderTest, LinkToADirectoryElsewhereIsFollowed) {
  TempDir tmp;
  tmp.mkdir("r");
  tmp.mkdir("elsewhere/inner");
  fs::create_directory_symlink(tmp.sub("elsewhere"), tmp.sub("r/link"));
  FilesFinder finder(ssCacheSearchDir, nullptr);
  RecordingContainer container;
  finder.findRecursively(tmp.sub("r"), "f", container);
  EXPECT_EQ((std::vector<std::string>{tmp.sub("r/f"), tmp.sub("r/link/f"), tmp.sub("r/link/inner/f")}),
            container.paths());
}

TEST(FilesFinderTest, DanglingLinkIsNotADirectoryAndDoesNotStopTheWalk) {
  TempDir tmp;
  tmp.mkdir("r/sub");
  fs::create_symlink(tmp.sub("nowhere"), tmp.sub("r/dangling"));
  FilesFinder finder(ssCacheSearchDir, nullptr);
  RecordingContainer container;
  finder.findRecursively(tmp.sub("r"), "f", container);
  EXPECT_EQ((std::vector<std::string>{tmp.sub("r/f"), tmp.sub("r/sub/f")}), container.paths());
}

TEST(FilesFinderTest, SelfReferencingLinkEndsTheWalkOfItsDirectory) {
  // A link that loops onto itself cannot be resolved: that is an error of the
  // listing, which ends the walk of the directory holding it.
  TempDir tmp;
  tmp.mkdir("r/sub");
  fs::create_symlink("loop", tmp.sub("r/loop"));
  FilesFinder finder(ssCacheSearchDir, nullptr);
  RecordingContainer container;
  EXPECT_FALSE(finder.findRecursively(tmp.sub("r"), "f", container));
  EXPECT_EQ((std::vector<std::string>{tmp.sub("r/f")}), container.paths());
}

TEST(FilesFinderTest, SameInodeOnAnotherFileSystemIsSkipped) {
  // Two mount points whose root directories share an inode number.
  struct stat first {};
  struct stat second {};
  const char *a = "/dev/shm";
  const char *b = "/dev/pts";
  if (::stat(a, &first) != 0 || ::stat(b, &second) != 0 || first.st_ino != second.st_ino ||
      first.st_dev == second.st_dev)
    GTEST_SKIP() << "no two small file systems with equal root inode numbers here";
  TempDir tmp;
  tmp.mkdir("r");
  fs::create_directory_symlink(a, tmp.sub("r/one"));
  fs::create_directory_symlink(b, tmp.sub("r/two"));
  FilesFinder finder(ssCacheSearchDir, nullptr);
  RecordingContainer container;
  finder.findRecursively(tmp.sub("r"), "no-such-file-here", container);
  // Whichever of the two the listing gives first is walked; the other is
  // taken for the same directory and skipped.
  const std::vector<std::string> paths = container.paths();
  const bool oneWalked =
      std::find(paths.begin(), paths.end(), tmp.sub("r/one/no-such-file-here")) != paths.end();
  const bool twoWalked =
      std::find(paths.begin(), paths.end(), tmp.sub("r/two/no-such-file-here")) != paths.end();
  EXPECT_NE(oneWalked, twoWalked);
}

TEST(FilesFinderTest, MissingDirectoryOffersItsTailsAndAnEmptyWalk) {
  FilesFinder finder(ssLowPrioritySearchDirs, nullptr);
  finder.addSearchDirectory("/no/such/dir/anywhere", true);
  RecordingContainer container;
  EXPECT_FALSE(finder.find("a/b", container));
  EXPECT_EQ((std::vector<std::string>{"/no/such/dir/anywhere/a/b", "/no/such/dir/anywhere/b"}),
            container.paths());
}

TEST(FilesFinderTest, RegularFileGivenAsRecursiveDirectoryOffersOneCandidateAndIsNotListed) {
  TempDir tmp;
  const std::string file = tmp.write("plain", "x");
  FilesFinder finder(ssLowPrioritySearchDirs, nullptr);
  RecordingContainer container;
  EXPECT_FALSE(finder.findRecursively(file, "f", container));
  EXPECT_EQ((std::vector<std::string>{file + "/f"}), container.paths());
}

TEST(FilesFinderTest, UnreadableDirectoryEndsItsOwnWalkSilently) {
  TempDir tmp;
  tmp.mkdir("r/closed/inside");
  tmp.mkdir("r/open/inside");
  vell_test::openForOthers(tmp.sub("r/open/inside"));
  ::chmod(tmp.sub("r/closed").c_str(), 0700);
  const std::string root = tmp.sub("r");
  std::vector<std::string> expected;
  expectedWalk(root, "f", expected);
  // The closed directory's own candidate is still offered; what lies below it is not.
  expected.erase(std::remove(expected.begin(), expected.end(), tmp.sub("r/closed/inside/f")), expected.end());
  RecordingContainer container;
  {
    vell_test::AsUnprivilegedUser nobody;
    FilesFinder finder(ssLowPrioritySearchDirs, nullptr);
    EXPECT_FALSE(finder.findRecursively(root, "f", container));
  }
  EXPECT_EQ(expected, container.paths());
}

TEST(FilesFinderTest, UnreadableDirectoryIsNotLogged) {
  TempDir tmp;
  tmp.mkdir("r/closed/inside");
  tmp.mkdir("r/open/inside");
  vell_test::openForOthers(tmp.sub("r/open/inside"));
  ::chmod(tmp.sub("r/closed").c_str(), 0700);
  const std::string root = tmp.sub("r");
  FilesFinder finder(ssLowPrioritySearchDirs, nullptr);
  finder.addSearchDirectory(root.c_str(), true);
  RecordingContainer container;
  vell_test::LogCapture capture;
  {
    vell_test::AsUnprivilegedUser nobody;
    EXPECT_FALSE(finder.find("f", container));
  }
  // The walk met the closed directory: nothing below it was offered.
  const std::vector<std::string> paths = container.paths();
  EXPECT_NE(paths.end(), std::find(paths.begin(), paths.end(), tmp.sub("r/closed/f")));
  EXPECT_NE(paths.end(), std::find(paths.begin(), paths.end(), tmp.sub("r/open/inside/f")));
  EXPECT_EQ(paths.end(), std::find(paths.begin(), paths.end(), tmp.sub("r/closed/inside/f")));
  EXPECT_TRUE(capture.lines().empty());
}

TEST(FilesFinderTest, LinkLoopsAreNotLogged) {
  TempDir tmp;
  tmp.mkdir("r/a/b");
  tmp.mkdir("r/c/d");
  fs::create_directory_symlink(tmp.sub("r"), tmp.sub("r/a/b/up"));
  fs::create_symlink("self", tmp.sub("r/c/self"));
  const std::string root = tmp.sub("r");
  FilesFinder finder(ssCacheSearchDir, nullptr);
  finder.addSearchDirectory(root.c_str(), true);
  RecordingContainer container;
  vell_test::LogCapture capture;
  EXPECT_FALSE(finder.find("f", container));
  // The tail candidate, then the walk: the link to the ancestor leads nowhere
  // new, and the unresolvable link ends the walk of r/c before r/c/d.
  std::vector<std::string> paths = container.paths();
  ASSERT_FALSE(paths.empty());
  EXPECT_EQ(root + "/f", paths.front());
  paths.erase(paths.begin());
  std::sort(paths.begin(), paths.end());
  EXPECT_EQ((std::vector<std::string>{root + "/a/b/f", root + "/a/f", root + "/c/f", root + "/f"}), paths);
  EXPECT_TRUE(capture.lines().empty());
}

TEST(FilesFinderTest, VisitedDirectoriesAreForgottenBetweenRecords) {
  TempDir tmp;
  tmp.mkdir("r/a");
  const std::string root = tmp.sub("r");
  FilesFinder finder(ssLowPrioritySearchDirs, nullptr);
  finder.addSearchDirectory(root.c_str(), true);
  finder.addSearchDirectory(root.c_str(), true);
  RecordingContainer container;
  EXPECT_FALSE(finder.find("f", container));
  const std::vector<std::string> once{root + "/f", root + "/f", root + "/a/f"};
  std::vector<std::string> twice = once;
  twice.insert(twice.end(), once.begin(), once.end());
  EXPECT_EQ(twice, container.paths());
}

TEST(FilesFinderTest, DuplicateAndEmptyRecordsAreKeptInOrder) {
  FilesFinder finder(ssLowPrioritySearchDirs, nullptr);
  finder.addSearchDirectory("/x", false);
  finder.addSearchDirectory("", false);
  finder.addSearchDirectory("/x", false);
  RecordingContainer container;
  finder.find("n", container);
  EXPECT_EQ((std::vector<std::string>{"/x/n", "n", "/x/n"}), container.paths());
}

TEST(FilesFinderTest, FindHookIsAskedFirstAndMaySkipOrSettle) {
  HookRecorder hook;
  FilesFinder hooked(ssLowPrioritySearchDirs, &hook);
  hooked.addSearchDirectory("/one", false);
  hooked.addSearchDirectory("/two", true);
  hooked.addSearchDirectory("/three", false);
  hooked.addSearchDirectory("/four", false);
  hook.skip = "/two";
  hook.claim = "/four";
  RecordingContainer container;
  EXPECT_TRUE(hooked.find("a/n", container));
  EXPECT_EQ((std::vector<std::string>{"/one N a/n", "/two R a/n", "/three N a/n", "/four N a/n"}),
            hook.calls);
  EXPECT_EQ((std::vector<std::string>{"/one/a/n", "/one/n", "/three/a/n", "/three/n"}), container.paths());
}

TEST(FilesFinderTest, RecursiveWalkUsesTheLastComponentOfTheName) {
  TempDir tmp;
  tmp.mkdir("r");
  FilesFinder finder(ssLowPrioritySearchDirs, nullptr);
  finder.addSearchDirectory(tmp.sub("r").c_str(), true);
  RecordingContainer container;
  finder.find("/usr/lib/libx.so", container);
  EXPECT_EQ((std::vector<std::string>{tmp.sub("r/usr/lib/libx.so"), tmp.sub("r/usr/lib/libx.so"),
                                      tmp.sub("r/lib/libx.so"), tmp.sub("r/libx.so"), tmp.sub("r/libx.so")}),
            container.paths());
}

TEST(FilesFinderTest, EmptyFinderFindsNothing) {
  FilesFinder finder(ssLowPrioritySearchDirs, nullptr);
  RecordingContainer container;
  EXPECT_FALSE(finder.find("x", container));
  EXPECT_TRUE(container.candidates.empty());
}

} // namespace
