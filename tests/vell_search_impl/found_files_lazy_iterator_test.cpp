// The candidate iterator: filing of candidates with its trace marks, lazy
// step dispatch, plain iterators and the compressed-kernel substitution.
#include <gtest/gtest.h>

#include <zlib.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include "support/log_capture.h"
#include "support/temp_dir.h"
#include "vell/file_search.h"
#include "vell/platform.h"
#include "vell_search/search_test_support.h"
#include "vell_search_impl/found_files_lazy_iterator.h"

using namespace VELL_2_13;
using vell_test::TempDir;

namespace fs = std::filesystem;

namespace {

using Strings = std::vector<std::string>;

// Accepts every path but those it is told to reject; records what it judged.
class FakeValidator : public IValidatorInternal {
public:
  ObjectPtr<IValidatedFile> validate(const char *path) override { return validateInternal(path, ssAskUser); }
  ObjectPtr<IValidatedFile> validateInternal(const char *path, unsigned int step) override {
    judged.emplace_back(path, step);
    if (rejected.count(path)) {
      ObjectPtr<IInvalidFile> invalid(
          new InvalidFile(path, severity_t(0), "%FileDoesNotExist", search_step_t(step)));
      return ObjectPtr<IValidatedFile>(new ValidatedFile(*invalid));
    }
    ObjectPtr<IValidFile> valid(new ValidFile(path, confidence_t(0), search_step_t(step)));
    return ObjectPtr<IValidatedFile>(new ValidatedFile(*valid));
  }
  std::set<std::string> rejected;
  std::vector<std::pair<std::string, unsigned int>> judged;
};

// Reports the configured paths in each step and records the steps run.
class FakeStrategy : public IFileSearchStrategy {
public:
  bool callSearchStarted(ISearchStartedCallback &, IStringContainer &) override { return true; }
  bool findInArchiveDirs(ISearchResultsContainer &c) override { return report(ssArchiveSearchDirs, c); }
  bool findInHighPriorityDirs(ISearchResultsContainer &c) override {
    return report(ssHighPrioritySearchDirs, c);
  }
  bool lookUpAbsoluteName(ISearchResultsContainer &c) override { return report(ssAbsoluteNameLookup, c); }
  bool lookUpAroundBinary(ISearchResultsContainer &c) override { return report(ssAroundBinaryLookup, c); }
  bool findInLowPriorityDirs(ISearchResultsContainer &c) override {
    return report(ssLowPrioritySearchDirs, c);
  }
  bool findInSystemDirs(ISearchResultsContainer &c) override { return report(ssSystemDirs, c); }
  bool findInCacheDir(ISearchResultsContainer &c) override { return report(ssCacheSearchDir, c); }
  ObjectPtr<IValidFile> callFilesFound(IFilesFoundCallback &, IValidFileIterator &) override { return {}; }
  ObjectPtr<IValidFile> callNoFilesFound(INoFilesFoundCallback &, IInvalidFileIterator &,
                                         IValidFileIterator &) override {
    return {};
  }
  ISearchEnv *getSearchEnv() const override { return nullptr; }
  const char *fileToSearch() override { return "name"; }
  ObjectPtr<ISearchStepsIterator> getSearchStepsIterator(unsigned long long mask) override {
    requestedMask = mask;
    if (noSteps)
      return {};
    return vell_test::FixedStepsConfigurator(steps).getSearchStepsIterator(scBinaryFiles, mask);
  }

  bool report(search_step_t step, ISearchResultsContainer &container) {
    run.push_back(dump(step));
    bool last = false;
    for (const std::string &path : paths[step])
      last = container.validateAndAdd(path.c_str(), step);
    return last;
  }

  std::vector<search_step_t> steps;
  std::map<search_step_t, Strings> paths;
  Strings run;
  bool noSteps = false;
  unsigned long long requestedMask = 0;
};

Strings infoLines(const vell_test::LogCapture &capture) { return capture.texts(20000); }

// --- Filing candidates --------------------------------------------------------------

TEST(FoundFilesLazyIteratorTest, MissingCandidateIsNeitherValidatedNorKept) {
  TempDir tmp;
  FakeStrategy strategy;
  FakeValidator validator;
  FoundFilesLazyIterator iterator(strategy, validator, 0);
  vell_test::LogCapture capture;
  const std::string missing = tmp.sub("missing.so");
  EXPECT_FALSE(iterator.validateAndAdd(missing.c_str(), ssHighPrioritySearchDirs));
  EXPECT_EQ(Strings{"*** DO__NOT__EXIST " + missing}, infoLines(capture));
  EXPECT_TRUE(validator.judged.empty());
  EXPECT_TRUE(iterator.validFiles().empty());
  EXPECT_TRUE(iterator.invalidFiles().empty());
}

TEST(FoundFilesLazyIteratorTest, DirectoryIsNotACandidate) {
  TempDir tmp;
  FakeStrategy strategy;
  FakeValidator validator;
  FoundFilesLazyIterator iterator(strategy, validator, 0);
  vell_test::LogCapture capture;
  EXPECT_FALSE(iterator.validateAndAdd(tmp.mkdir("dir").c_str(), ssLowPrioritySearchDirs));
  EXPECT_EQ(Strings{"*** DO__NOT__EXIST " + tmp.sub("dir")}, infoLines(capture));
}

TEST(FoundFilesLazyIteratorTest, TraceMarksOfValidAndInvalidFilesAndTheirDuplicates) {
  TempDir tmp;
  const std::string good = tmp.write("good.so");
  const std::string bad = tmp.write("bad.so");
  FakeStrategy strategy;
  FakeValidator validator;
  validator.rejected.insert(bad);
  FoundFilesLazyIterator iterator(strategy, validator, 0);
  vell_test::LogCapture capture;
  EXPECT_TRUE(iterator.validateAndAdd(good.c_str(), ssHighPrioritySearchDirs));
  EXPECT_FALSE(iterator.validateAndAdd(good.c_str(), ssLowPrioritySearchDirs));
  EXPECT_FALSE(iterator.validateAndAdd(bad.c_str(), ssHighPrioritySearchDirs));
  EXPECT_FALSE(iterator.validateAndAdd(bad.c_str(), ssSystemDirs));
  EXPECT_EQ((Strings{"*** VALID____ADDED " + good, "*** VALID_DUBLICAT " + good, "*** INVALID__ADDED " + bad,
                     "*** INVALID_DUBLIC " + bad}),
            infoLines(capture));
  ASSERT_EQ(1u, iterator.validFiles().size());
  // The first file of a name wins.
  EXPECT_EQ(ssHighPrioritySearchDirs, iterator.validFiles()[0]->searchStep());
  ASSERT_EQ(1u, iterator.invalidFiles().size());
  EXPECT_EQ(ssHighPrioritySearchDirs, iterator.invalidFiles()[0]->searchStep());
  // Every existing candidate was validated, duplicates too, with its step.
  EXPECT_EQ(4u, validator.judged.size());
  EXPECT_EQ(unsigned(ssLowPrioritySearchDirs), validator.judged[1].second);
}

TEST(FoundFilesLazyIteratorTest, DuplicatesAreFoundByTheNormalisedName) {
  TempDir tmp;
  const std::string good = tmp.write("d/good.so");
  FakeStrategy strategy;
  FakeValidator validator;
  FoundFilesLazyIterator iterator(strategy, validator, 0);
  EXPECT_TRUE(iterator.validateAndAdd(good.c_str(), ssHighPrioritySearchDirs));
  const std::string other = tmp.sub("d/../d/./good.so");
  vell_test::LogCapture capture;
  EXPECT_FALSE(iterator.validateAndAdd(other.c_str(), ssLowPrioritySearchDirs));
  EXPECT_EQ(Strings{"*** VALID_DUBLICAT " + other}, infoLines(capture));
}

// --- Steps ------------------------------------------------------------------------------

TEST(FoundFilesLazyIteratorTest, StepsRunOnlyUntilAValidFileExists) {
  TempDir tmp;
  const std::string first = tmp.write("first.so");
  const std::string second = tmp.write("second.so");
  FakeStrategy strategy;
  strategy.steps = {ssArchiveSearchDirs, ssHighPrioritySearchDirs, ssCacheSearchDir, ssAbsoluteNameLookup};
  strategy.paths[ssArchiveSearchDirs] = {tmp.sub("nothing")};
  strategy.paths[ssHighPrioritySearchDirs] = {first};
  strategy.paths[ssAbsoluteNameLookup] = {second};
  FakeValidator validator;
  FoundFilesLazyIterator iterator(strategy, validator, 0x3F);
  EXPECT_EQ(0x3Fu, strategy.requestedMask);
  EXPECT_TRUE(strategy.run.empty());

  vell_test::LogCapture capture;
  ObjectPtr<IValidFile> file = iterator.next();
  ASSERT_TRUE(file);
  EXPECT_EQ(first, file->name());
  EXPECT_EQ((Strings{"ssArchiveSearchDirs", "ssHighPrioritySearchDirs"}), strategy.run);
  EXPECT_EQ((Strings{"*** DO__NOT__EXIST " + tmp.sub("nothing"), "*** VALID____ADDED " + first,
                     "Found file:" + first + " in step:ssHighPrioritySearchDirs"}),
            infoLines(capture));

  // Reading on continues with the next steps.
  capture.clear();
  file = iterator.next();
  ASSERT_TRUE(file);
  EXPECT_EQ(second, file->name());
  EXPECT_EQ((Strings{"ssArchiveSearchDirs", "ssHighPrioritySearchDirs", "ssCacheSearchDir",
                     "ssAbsoluteNameLookup"}),
            strategy.run);
  EXPECT_EQ(
      (Strings{"*** VALID____ADDED " + second, "Found file:" + second + " in step:ssAbsoluteNameLookup"}),
      infoLines(capture));

  capture.clear();
  EXPECT_FALSE(iterator.next());
  EXPECT_FALSE(iterator.next());
  EXPECT_EQ((Strings{"Nothing found", "Nothing found"}), infoLines(capture));
  EXPECT_EQ(4u, strategy.run.size());
}

TEST(FoundFilesLazyIteratorTest, EveryStepIsDispatchedToItsHandler) {
  FakeStrategy strategy;
  strategy.steps = {ssArchiveSearchDirs,  ssHighPrioritySearchDirs, ssCacheSearchDir, ssAbsoluteNameLookup,
                    ssAroundBinaryLookup, ssLowPrioritySearchDirs,  ssSystemDirs};
  FakeValidator validator;
  FoundFilesLazyIterator iterator(strategy, validator, 0);
  vell_test::LogCapture capture;
  EXPECT_FALSE(iterator.next());
  EXPECT_EQ(
      (Strings{"ssArchiveSearchDirs", "ssHighPrioritySearchDirs", "ssCacheSearchDir", "ssAbsoluteNameLookup",
               "ssAroundBinaryLookup", "ssLowPrioritySearchDirs", "ssSystemDirs"}),
      strategy.run);
  EXPECT_EQ(Strings{"Nothing found"}, infoLines(capture));
}

TEST(FoundFilesLazyIteratorTest, UnexpectedStepEndsTheIteration) {
  for (search_step_t odd : {ssAskUser, search_step_t(3)}) {
    FakeStrategy strategy;
    strategy.steps = {ssHighPrioritySearchDirs, odd, ssSystemDirs};
    FakeValidator validator;
    FoundFilesLazyIterator iterator(strategy, validator, 0);
    vell_test::LogCapture capture;
    EXPECT_FALSE(iterator.next());
    EXPECT_EQ(Strings{"ssHighPrioritySearchDirs"}, strategy.run);
    const Strings errors = capture.texts(40000);
    ASSERT_EQ(1u, errors.size());
    EXPECT_EQ(0u, errors[0].find("Unexpected value., at file: src/vell_search_impl:")) << errors[0];
    // The steps did not advance: asking again meets the same value.
    EXPECT_FALSE(iterator.next());
    EXPECT_EQ(Strings{"ssHighPrioritySearchDirs"}, strategy.run);
    EXPECT_EQ(2u, capture.texts(40000).size());
  }
}

TEST(FoundFilesLazyIteratorTest, MissingStepsIteratorIsANullPointerAssertion) {
  std::vector<platform::AssertionReport> reports;
  platform::AssertionHandler previous = platform::setAssertionHandler(
      [&](const platform::AssertionReport &report) { reports.push_back(report); });
  FakeStrategy strategy;
  strategy.noSteps = true;
  FakeValidator validator;
  vell_test::LogCapture capture;
  {
    FoundFilesLazyIterator iterator(strategy, validator, 0);
    EXPECT_FALSE(iterator.next());
  }
  platform::setAssertionHandler(previous);
  ASSERT_EQ(1u, reports.size());
  EXPECT_EQ("Null pointer", reports[0].message);
  EXPECT_EQ("src/vell_search_impl", reports[0].unit);
  EXPECT_EQ(259, reports[0].line);
  EXPECT_TRUE(capture.contains("Null pointer, at file: src/vell_search_impl:259"));
  EXPECT_TRUE(capture.contains("Nothing found"));
}

TEST(FoundFilesLazyIteratorTest, StepFindingNothingLeavesTheListsUnchanged) {
  TempDir tmp;
  FakeStrategy strategy;
  strategy.steps = {ssLowPrioritySearchDirs};
  strategy.paths[ssLowPrioritySearchDirs] = {tmp.sub("a"), tmp.sub("b")};
  FakeValidator validator;
  FoundFilesLazyIterator iterator(strategy, validator, 0);
  EXPECT_FALSE(strategy.findInLowPriorityDirs(iterator));
  EXPECT_TRUE(iterator.validFiles().empty());
  EXPECT_TRUE(iterator.invalidFiles().empty());
}

TEST(FoundFilesLazyIteratorTest, ResetShowsTheFoundFilesAgainWithoutSearching) {
  TempDir tmp;
  const std::string a = tmp.write("a");
  const std::string b = tmp.write("b");
  FakeStrategy strategy;
  strategy.steps = {ssHighPrioritySearchDirs, ssLowPrioritySearchDirs};
  strategy.paths[ssHighPrioritySearchDirs] = {a, b};
  FakeValidator validator;
  FoundFilesLazyIterator iterator(strategy, validator, 0);
  EXPECT_EQ(a, std::string(iterator.next()->name()));
  EXPECT_EQ(b, std::string(iterator.next()->name()));
  iterator.reset();
  EXPECT_EQ(a, std::string(iterator.next()->name()));
  EXPECT_EQ(b, std::string(iterator.next()->name()));
  EXPECT_EQ(Strings{"ssHighPrioritySearchDirs"}, strategy.run);
}

TEST(FoundFilesLazyIteratorTest, PlainIteratorsStayAtTheEndUntilReset) {
  TempDir tmp;
  const std::string good = tmp.write("good");
  const std::string bad = tmp.write("bad");
  FakeStrategy strategy;
  strategy.steps = {ssSystemDirs};
  FakeValidator validator;
  validator.rejected.insert(bad);
  FoundFilesLazyIterator iterator(strategy, validator, 0);
  iterator.validateAndAdd(good.c_str(), ssAskUser);
  iterator.validateAndAdd(bad.c_str(), ssAskUser);

  IValidFileIterator &valid = iterator.validFilesIterator();
  valid.reset();
  EXPECT_EQ(good, std::string(valid.next()->name()));
  EXPECT_FALSE(valid.next());
  EXPECT_FALSE(valid.next());
  valid.reset();
  EXPECT_TRUE(valid.next());

  IInvalidFileIterator &invalid = iterator.invalidFilesIterator();
  invalid.reset();
  EXPECT_EQ(bad, std::string(invalid.next()->name()));
  EXPECT_FALSE(invalid.next());
  EXPECT_FALSE(invalid.next());
  invalid.reset();
  EXPECT_TRUE(invalid.next());
  // The plain iterators never search.
  EXPECT_TRUE(strategy.run.empty());
}

// --- Compressed kernel images ---------------------------------------------------------------

// Writes a compressed kernel: some leading bytes, then a gzip stream of image.
void writeCompressedKernel(const std::string &path, const std::string &image) {
  std::ofstream(path, std::ios::binary) << std::string("BOOTSTUB\x01\x02", 10);
  gzFile out = gzopen(path.c_str(), "ab");
  ASSERT_NE(nullptr, out);
  gzwrite(out, image.data(), unsigned(image.size()));
  gzclose(out);
}

std::string md5Of(const std::string &path) {
  return IChecksumCalculator::create()->calculateChecksum(path.c_str(), ctMd5)->value();
}

std::string contentOf(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

struct KernelSubstitutionTest : public ::testing::Test {
  void SetUp() override { platform::setCacheRoot(tmp.sub("cacheroot")); }
  void TearDown() override { platform::setCacheRoot(""); }
  TempDir tmp;
  FakeStrategy strategy;
  FakeValidator validator;
};

TEST_F(KernelSubstitutionTest, CompressedKernelIsReplacedByTheExtractedImage) {
  const std::string vmlinuz = tmp.sub("boot/vmlinuz-R");
  fs::create_directories(tmp.sub("boot"));
  writeCompressedKernel(vmlinuz, "ELF kernel image");
  const std::string target = tmp.sub("cacheroot/vmlinux_cache/" + md5Of(vmlinuz) + "/vmlinux");
  FoundFilesLazyIterator iterator(strategy, validator, 0);
  vell_test::LogCapture capture;
  EXPECT_TRUE(iterator.validateAndAdd(vmlinuz.c_str(), ssHighPrioritySearchDirs));
  ASSERT_EQ(1u, iterator.validFiles().size());
  EXPECT_EQ(target, iterator.validFiles()[0]->name());
  EXPECT_EQ(ssHighPrioritySearchDirs, iterator.validFiles()[0]->searchStep());
  EXPECT_EQ("ELF kernel image", contentOf(target));
  EXPECT_TRUE(capture.contains("*** VALID____ADDED " + target));
  EXPECT_TRUE(capture.contains(target + " was extracted from " + vmlinuz));
  // Both the compressed and the extracted file were validated with the step.
  ASSERT_EQ(2u, validator.judged.size());
  EXPECT_EQ(target, validator.judged[1].first);
  EXPECT_EQ(unsigned(ssHighPrioritySearchDirs), validator.judged[1].second);
}

TEST_F(KernelSubstitutionTest, ExtractedImageInTheCacheIsReused) {
  const std::string vmlinuz = tmp.sub("vmlinuz");
  writeCompressedKernel(vmlinuz, "ELF kernel image");
  const std::string target = tmp.sub("cacheroot/vmlinux_cache/" + md5Of(vmlinuz) + "/vmlinux");
  {
    FoundFilesLazyIterator first(strategy, validator, 0);
    EXPECT_TRUE(first.validateAndAdd(vmlinuz.c_str(), ssAskUser));
  }
  // Mark the cached image: a second search must take it as it is.
  std::ofstream(target, std::ios::binary | std::ios::trunc) << "cached";
  FoundFilesLazyIterator second(strategy, validator, 0);
  vell_test::LogCapture capture;
  EXPECT_TRUE(second.validateAndAdd(vmlinuz.c_str(), ssAskUser));
  EXPECT_EQ(target, second.validFiles()[0]->name());
  EXPECT_EQ("cached", contentOf(target));
  EXPECT_FALSE(capture.containsPrefix(target + " was extracted"));
}

TEST_F(KernelSubstitutionTest, FailedExtractionKeepsTheCompressedFile) {
  const std::string vmlinuz = tmp.write("vmlinuz-bad", "no gzip stream here");
  FoundFilesLazyIterator iterator(strategy, validator, 0);
  vell_test::LogCapture capture;
  EXPECT_TRUE(iterator.validateAndAdd(vmlinuz.c_str(), ssSystemDirs));
  EXPECT_EQ(vmlinuz, iterator.validFiles()[0]->name());
  EXPECT_TRUE(capture.contains("*** VALID____ADDED " + vmlinuz));
  EXPECT_TRUE(capture.containsPrefix("Failed to extract vmlinux from " + vmlinuz));
}

TEST_F(KernelSubstitutionTest, RejectedExtractedImageKeepsTheCompressedFile) {
  const std::string vmlinuz = tmp.sub("vmlinuz");
  writeCompressedKernel(vmlinuz, "image");
  const std::string target = tmp.sub("cacheroot/vmlinux_cache/" + md5Of(vmlinuz) + "/vmlinux");
  validator.rejected.insert(target);
  FoundFilesLazyIterator iterator(strategy, validator, 0);
  EXPECT_TRUE(iterator.validateAndAdd(vmlinuz.c_str(), ssAskUser));
  EXPECT_EQ(vmlinuz, iterator.validFiles()[0]->name());
  EXPECT_TRUE(iterator.invalidFiles().empty());
}

TEST_F(KernelSubstitutionTest, OnlyANameStartingWithVmlinuzIsSubstituted) {
  const std::string other = tmp.sub("xvmlinuz");
  writeCompressedKernel(other, "image");
  const std::string underDir = tmp.sub("vmlinuz.d/kernel");
  fs::create_directories(tmp.sub("vmlinuz.d"));
  writeCompressedKernel(underDir, "image");
  FoundFilesLazyIterator iterator(strategy, validator, 0);
  EXPECT_TRUE(iterator.validateAndAdd(other.c_str(), ssAskUser));
  EXPECT_TRUE(iterator.validateAndAdd(underDir.c_str(), ssAskUser));
  EXPECT_EQ(other, iterator.validFiles()[0]->name());
  EXPECT_EQ(underDir, iterator.validFiles()[1]->name());
  EXPECT_FALSE(fs::exists(tmp.sub("cacheroot/vmlinux_cache")));
}

TEST_F(KernelSubstitutionTest, RejectedCompressedKernelIsNotExtracted) {
  const std::string vmlinuz = tmp.sub("vmlinuz");
  writeCompressedKernel(vmlinuz, "image");
  validator.rejected.insert(vmlinuz);
  FoundFilesLazyIterator iterator(strategy, validator, 0);
  EXPECT_FALSE(iterator.validateAndAdd(vmlinuz.c_str(), ssAskUser));
  EXPECT_EQ(1u, iterator.invalidFiles().size());
  EXPECT_FALSE(fs::exists(tmp.sub("cacheroot/vmlinux_cache")));
}

} // namespace
