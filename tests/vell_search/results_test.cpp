// Valid, invalid and validated files, the suggestion container and the
// confidence policy wrapper.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "vell/results.h"
#include "vell/search_env.h"
#include "vell_search/confidence_policy.h"

using namespace VELL_2_13;

namespace {

TEST(ValidFileTest, DriveLetterNameWithBackslashesGetsForwardSlashes) {
  ValidFile file("C:\\dir\\a.so", confidence_t(1), ssLowPrioritySearchDirs);
  EXPECT_STREQ("C:/dir/a.so", file.name());
  EXPECT_EQ(confidence_t(1), file.confidence());
  EXPECT_EQ(ssLowPrioritySearchDirs, file.searchStep());
}

TEST(ValidFileTest, LastDotComponentIsDropped) {
  ValidFile file("/x/y/.", confidence_t(0), ssSystemDirs);
  EXPECT_STREQ("/x/y", file.name());
}

TEST(ValidFileTest, NameIsNormalisedLexically) {
  ValidFile file("/a/./b/../c/lib.so", confidence_t(2), ssAskUser);
  EXPECT_STREQ("/a/c/lib.so", file.name());
  EXPECT_EQ(confidence_t(2), file.confidence());
}

TEST(ValidFileTest, NetworkNameGetsForwardSlashes) {
  ValidFile file("\\\\server\\share\\a.so", confidence_t(0), ssAskUser);
  EXPECT_STREQ("//server/share/a.so", file.name());
}

TEST(ValidFileTest, LinuxNameKeepsInnerBackslash) {
  ValidFile file("/opt/x\\y", confidence_t(0), ssAskUser);
  EXPECT_STREQ("/opt/x\\y", file.name());
}

TEST(ValidFileTest, NullNameIsEmpty) {
  ValidFile file(nullptr, confidence_t(0), ssAskUser);
  EXPECT_STREQ("", file.name());
}

TEST(InvalidFileTest, FieldsAndNormalisation) {
  InvalidFile file("D:\\sym\\.\\a.pdb", severity_t(1), "%ChecksumMismatch", ssCacheSearchDir);
  EXPECT_STREQ("D:/sym/a.pdb", file.name());
  EXPECT_EQ(severity_t(1), file.severity());
  EXPECT_STREQ("%ChecksumMismatch", file.errorMessage());
  EXPECT_EQ(ssCacheSearchDir, file.searchStep());
}

TEST(InvalidFileTest, NullMessageAndNameAreEmpty) {
  InvalidFile file(nullptr, severity_t(2), nullptr, ssAskUser);
  EXPECT_STREQ("", file.name());
  EXPECT_STREQ("", file.errorMessage());
}

TEST(InvalidFileTest, ForceTreatAsValidKeepsNameAndStepWithConfidenceZero) {
  ObjectPtr<IInvalidFile> invalid(new InvalidFile("/usr/lib/x.so", severity_t(0), "m", ssSystemDirs));
  ObjectPtr<IValidFile> valid = invalid->forceTreatAsValid();
  ASSERT_TRUE(valid);
  EXPECT_STREQ("/usr/lib/x.so", valid->name());
  EXPECT_EQ(confidence_t(0), valid->confidence());
  EXPECT_EQ(ssSystemDirs, valid->searchStep());
  // The invalid file itself is unchanged and a new object is made each time.
  EXPECT_STREQ("/usr/lib/x.so", invalid->name());
  EXPECT_EQ(severity_t(0), invalid->severity());
  EXPECT_STREQ("m", invalid->errorMessage());
  ObjectPtr<IValidFile> again = invalid->forceTreatAsValid();
  EXPECT_NE(valid.get(), again.get());
}

TEST(ValidatedFileTest, FromInvalidFileHasNoValidFile) {
  ObjectPtr<IInvalidFile> invalid(new InvalidFile("/a", severity_t(0), "m", ssAskUser));
  ObjectPtr<IValidatedFile> validated(new ValidatedFile(*invalid));
  EXPECT_FALSE(validated->validFile());
  EXPECT_EQ(invalid.get(), validated->invalidFile().get());
}

TEST(ValidatedFileTest, FromValidFileHasNoInvalidFile) {
  ObjectPtr<IValidFile> valid(new ValidFile("/a", confidence_t(0), ssAskUser));
  ObjectPtr<IValidatedFile> validated(new ValidatedFile(*valid));
  EXPECT_FALSE(validated->invalidFile());
  EXPECT_EQ(valid.get(), validated->validFile().get());
}

TEST(ValidatedFileTest, TakesAReferenceOnTheWrappedFile) {
  ValidFile *raw = new ValidFile("/a", confidence_t(0), ssAskUser);
  ObjectPtr<IValidFile> valid(raw);
  EXPECT_EQ(1, raw->refCount());
  {
    ObjectPtr<IValidatedFile> validated(new ValidatedFile(*raw));
    EXPECT_EQ(2, raw->refCount());
  }
  EXPECT_EQ(1, raw->refCount());
}

TEST(StringContainerTest, NullIsIgnoredAndDuplicatesAreKept) {
  StringContainer container;
  container.add(nullptr);
  EXPECT_TRUE(container.strings().empty());
  container.add("/a/b");
  container.add("/a/b");
  container.add(nullptr);
  ASSERT_EQ(2u, container.strings().size());
  EXPECT_EQ("/a/b", container.strings().front());
  EXPECT_EQ("/a/b", container.strings().back());
}

TEST(StringContainerTest, KeepsInsertionOrderAndTextAsGiven) {
  StringContainer container;
  container.add("b");
  container.add("a");
  container.add("C:\\x\\.");
  std::vector<std::string> got(container.strings().begin(), container.strings().end());
  EXPECT_EQ((std::vector<std::string>{"b", "a", "C:\\x\\."}), got);
}

TEST(StringContainerTest, DumpOfEmptyContainer) {
  StringContainer container;
  EXPECT_EQ("[StringContainer: m_list = ]", dump(container));
}

TEST(StringContainerTest, DumpKeepsTrailingSeparator) {
  StringContainer container;
  container.add("a");
  container.add("b");
  EXPECT_EQ("[StringContainer: m_list = a, b, ]", dump(container));
}

// A search environment that only carries a confidence policy holder.
class PolicyOnlyEnv : public RefCountImpl<ISearchEnv> {
public:
  ObjectPtr<ISearchDirIterator> searchDirs(search_category_t) override { return {}; }
  ObjectPtr<ISearchDirIterator> archiveDirs(search_category_t) override { return {}; }
  const char *cacheDir() override { return ""; }
  CallbackHolder<ISearchStartedCallback> &searchStartedCallback() override { return m_started; }
  CallbackHolder<IFilesFoundCallback> &filesFoundCallback() override { return m_found; }
  CallbackHolder<INoFilesFoundCallback> &noFilesFoundCallback() override { return m_notFound; }
  CallbackHolder<IConfidenceLevelPolicyCallback> &confidenceLevelPolicyCallback() override {
    return m_policy;
  }
  ObjectPtr<IEnvironmentInfo> environmentInfo() override { return {}; }
  IFileRetriever *fileRetriever() override { return nullptr; }
  ObjectPtr<ISearchStepsConfigurator> searchStepsConfigurator() const override { return {}; }
  IMessenger *messenger() override { return nullptr; }

private:
  CallbackHolder<ISearchStartedCallback> m_started;
  CallbackHolder<IFilesFoundCallback> m_found;
  CallbackHolder<INoFilesFoundCallback> m_notFound;
  CallbackHolder<IConfidenceLevelPolicyCallback> m_policy;
};

class RecordingPolicy : public IConfidenceLevelPolicyCallback {
public:
  explicit RecordingPolicy(unsigned int level) : m_level(level) {}
  confidence_t getConfidenceLevel(search_category_t category, unsigned int searchStep) override {
    m_lastCategory = category;
    m_lastStep = searchStep;
    ++m_calls;
    return confidence_t(m_level);
  }
  unsigned int m_level;
  std::atomic<int> m_calls{0};
  std::atomic<search_category_t> m_lastCategory{scAllFiles};
  std::atomic<unsigned int> m_lastStep{0};
};

TEST(ConfidenceLevelPolicyWrapperTest, NoPolicyGivesZeroForEveryCategoryAndStep) {
  ObjectPtr<PolicyOnlyEnv> env(new PolicyOnlyEnv);
  ConfidenceLevelPolicyWrapper wrapper{ObjectPtr<ISearchEnv>(env)};
  for (int category = 1; category <= 4; ++category)
    for (unsigned int step = 1; step <= 0x80; step <<= 1)
      EXPECT_EQ(confidence_t(0), wrapper.getConfidenceLevel(search_category_t(category), step));
}

TEST(ConfidenceLevelPolicyWrapperTest, NullEnvironmentGivesZero) {
  ConfidenceLevelPolicyWrapper wrapper{ObjectPtr<ISearchEnv>()};
  EXPECT_EQ(confidence_t(0), wrapper.getConfidenceLevel(scBinaryFiles, ssSystemDirs));
}

TEST(ConfidenceLevelPolicyWrapperTest, AsksThePolicyWithCategoryAndFullStep) {
  ObjectPtr<PolicyOnlyEnv> env(new PolicyOnlyEnv);
  RecordingPolicy policy(2);
  env->confidenceLevelPolicyCallback().set(&policy);
  ConfidenceLevelPolicyWrapper wrapper{ObjectPtr<ISearchEnv>(env)};
  EXPECT_EQ(confidence_t(2), wrapper.getConfidenceLevel(scSourceFiles, 0x10080u));
  EXPECT_EQ(1, policy.m_calls.load());
  EXPECT_EQ(scSourceFiles, policy.m_lastCategory.load());
  EXPECT_EQ(0x10080u, policy.m_lastStep.load());
}

TEST(ConfidenceLevelPolicyWrapperTest, PolicyDestroyedBeforeTheCallGivesZero) {
  ObjectPtr<PolicyOnlyEnv> env(new PolicyOnlyEnv);
  ConfidenceLevelPolicyWrapper wrapper{ObjectPtr<ISearchEnv>(env)};
  {
    RecordingPolicy policy(1);
    env->confidenceLevelPolicyCallback().set(&policy);
    EXPECT_EQ(confidence_t(1), wrapper.getConfidenceLevel(scBinaryFiles, ssSystemDirs));
  }
  EXPECT_EQ(confidence_t(0), wrapper.getConfidenceLevel(scBinaryFiles, ssSystemDirs));
}

// A host policy that disconnects its holders before its own members go, so
// that no call can reach a half-destroyed object.
class DisconnectingPolicy : public RecordingPolicy {
public:
  using RecordingPolicy::RecordingPolicy;
  ~DisconnectingPolicy() override { eventGeneratorImpl()->disconnectHandlers(); }
};

TEST(ConfidenceLevelPolicyWrapperTest, PolicyDestroyedWhileOtherThreadsAsk) {
  ObjectPtr<PolicyOnlyEnv> env(new PolicyOnlyEnv);
  ConfidenceLevelPolicyWrapper wrapper{ObjectPtr<ISearchEnv>(env)};
  auto *policy = new DisconnectingPolicy(1);
  env->confidenceLevelPolicyCallback().set(policy);
  std::atomic<bool> stop{false};
  std::atomic<int> badAnswers{0};
  std::vector<std::thread> readers;
  for (int i = 0; i < 4; ++i)
    readers.emplace_back([&] {
      while (!stop.load()) {
        confidence_t level = wrapper.getConfidenceLevel(scBinaryFiles, ssSystemDirs);
        if (level != confidence_t(0) && level != confidence_t(1))
          ++badAnswers;
      }
    });
  while (policy->m_calls.load() < 50)
    std::this_thread::yield();
  delete policy; // disconnects the holder; waits for callers inside the policy
  EXPECT_FALSE(env->confidenceLevelPolicyCallback().hasCallback());
  EXPECT_EQ(confidence_t(0), wrapper.getConfidenceLevel(scBinaryFiles, ssSystemDirs));
  stop = true;
  for (auto &t : readers)
    t.join();
  EXPECT_EQ(0, badAnswers.load());
}

} // namespace
