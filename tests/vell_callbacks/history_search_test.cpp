// The search history and the default callbacks in real searches, configured
// through a search manipulator for a resolution context.
#include <gtest/gtest.h>

#include "support/temp_dir.h"
#include "vell/context.h"
#include "vell_callbacks/callback_fakes.h"
#include "vell_callbacks/search_manipulator.h"

using namespace VELL_2_13;
using namespace vell_test;

namespace {

class HistorySearchTest : public ::testing::Test {
protected:
  HistorySearchTest() : mgr(IResolutionContextMgr::create()) {
    context = mgr->createFileSystemContext(root.mkdir("ctx").c_str(), true);
    manipulator = ISearchManipulator::create(context.get());
    history = manipulator->getHistory();
    ObjectPtr<IEditableSearchDirContainer> dirs = IEditableSearchDirContainer::create();
    dirs->addDirectory(scBinaryFiles, root.mkdir("d1").c_str(), false, true);
    dirs->addDirectory(scSymbolFiles, root.sub("d1").c_str(), false, true);
    mgr->registerSearchDirs(*context, dirs, "dirs");
    root.mkdir("d2");
  }

  ObjectPtr<IFileSearch> search() {
    return mgr->createFileSearch(*context, "client", ObjectPtr<IEnvironmentInfo>());
  }

  TempDir root;
  ObjectPtr<IResolutionContextMgr> mgr;
  ObjectPtr<IResolutionContext> context;
  ObjectPtr<ISearchManipulator> manipulator;
  ObjectPtr<ISearchHistory> history;
};

TEST_F(HistorySearchTest, FilesFoundWithUpdateHistoryRemembersTheAnswer) {
  const std::string file = root.write("d1/libx.so", "x");
  manipulator->setFilesFoundBehavior("client", ffbUpdateHistory);
  ObjectPtr<IValidFile> found = search()->findBinFile("libx.so", nullptr, nullptr, 0);
  ASSERT_TRUE(found);
  EXPECT_EQ(file, found->name());
  ObjectPtr<IFileAssociation> remembered = history->findBinFileAssociation("libx.so");
  ASSERT_TRUE(remembered);
  EXPECT_EQ(file, remembered->resolvedName());
}

// Takes the first valid file the search offers.
class TakeFirstValid : public INoFilesFoundCallback {
public:
  ObjectPtr<IValidFile> noBinFilesFound(const char *, IValidator &, IInvalidFileIterator &,
                                        IValidFileIterator &files) override {
    return files.next();
  }
  ObjectPtr<IValidFile> noSymFilesFound(const char *, const char *, const char *, IValidator &,
                                        IInvalidFileIterator &, IValidFileIterator &files) override {
    return files.next();
  }
  ObjectPtr<IValidFile> noSrcFilesFound(const char *, const char *, const char *, IValidator &,
                                        IInvalidFileIterator &, IValidFileIterator &files) override {
    return files.next();
  }
};

TEST_F(HistorySearchTest, UseHistoryAnswersARepeatedSymbolRequestWithoutSearchSteps) {
  const std::string file = root.write("d1/libx.so.debug", "x");
  manipulator->setFilesFoundBehavior("client", ffbUpdateHistory);
  ObjectPtr<IValidFile> found =
      search()->findSymFile("libx.so.debug", "/t/libx.so", nullptr, nullptr, nullptr, nullptr, nullptr);
  ASSERT_TRUE(found);
  EXPECT_EQ(file, found->name());
  EXPECT_EQ(ssHighPrioritySearchDirs, found->searchStep());
  // Remembered under the symbol request's keys only.
  const bool remembered = history->findSymFileAssociation("libx.so.debug", "/t/libx.so", "") ||
                          history->findSymFileAssociation("libx.so.debug", "/t/libx.so", nullptr);
  EXPECT_TRUE(remembered);
  EXPECT_FALSE(history->findSrcFileAssociation("libx.so.debug", "/t/libx.so", ""));
  EXPECT_FALSE(history->findBinFileAssociation("libx.so.debug"));

  // With ssbUseHistory the steps are skipped; the remembered file is the
  // validated suggestion that the no-files-found callback is offered.
  TakeFirstValid takeFirst;
  manipulator->setSearchStartedBehavior("client", ssbUseHistory);
  manipulator->setOwnNoFilesFoundCallback("client", &takeFirst);
  ObjectPtr<IValidFile> again =
      search()->findSymFile("libx.so.debug", "/t/libx.so", nullptr, nullptr, nullptr, nullptr, nullptr);
  ASSERT_TRUE(again);
  EXPECT_EQ(file, again->name());
  EXPECT_EQ(ssAskUser, again->searchStep());
}

TEST_F(HistorySearchTest, SuggestFromHistoryOffersTheRememberedFileFirst) {
  root.write("d1/libx.so", "found by the steps");
  const std::string remembered = root.write("d2/libx.so", "remembered");
  history->addBinFileAssociation("libx.so", remembered.c_str());
  manipulator->setSearchStartedBehavior("client", ssbSuggestFromHistory);
  ObjectPtr<IValidFile> found = search()->findBinFile("libx.so", nullptr, nullptr, 0);
  ASSERT_TRUE(found);
  EXPECT_EQ(remembered, found->name());
  EXPECT_EQ(ssAskUser, found->searchStep());
}

TEST_F(HistorySearchTest, UseHistorySkipsTheStepsWhenTheRememberedFileIsGone) {
  root.write("d1/libx.so", "found by the steps");
  history->addBinFileAssociation("libx.so", root.sub("d2/gone.so").c_str());
  manipulator->setSearchStartedBehavior("client", ssbUseHistory);
  EXPECT_FALSE(search()->findBinFile("libx.so", nullptr, nullptr, 0));
  manipulator->setSearchStartedBehavior("client", ssbSuggestFromHistory);
  ObjectPtr<IValidFile> found = search()->findBinFile("libx.so", nullptr, nullptr, 0);
  ASSERT_TRUE(found);
  EXPECT_EQ(root.sub("d1/libx.so"), found->name());
}

TEST_F(HistorySearchTest, RememberedMissingAnswerMakesTheNextSearchSkipItsSteps) {
  manipulator->setNoFilesFoundBehavior("client", nfbUpdateHistory);
  EXPECT_FALSE(search()->findBinFile("late.so", nullptr, nullptr, 0));
  ObjectPtr<IFileAssociation> remembered = history->findBinFileAssociation("late.so");
  ASSERT_TRUE(remembered);
  EXPECT_STREQ("", remembered->resolvedName());

  // The file appears, but the history says there is none.
  const std::string file = root.write("d1/late.so", "late");
  manipulator->setSearchStartedBehavior("client", ssbUseHistory);
  EXPECT_FALSE(search()->findBinFile("late.so", nullptr, nullptr, 0));
  manipulator->setSearchStartedBehavior("client", ssbIgnoreHistory);
  ObjectPtr<IValidFile> found = search()->findBinFile("late.so", nullptr, nullptr, 0);
  ASSERT_TRUE(found);
  EXPECT_EQ(file, found->name());
}

TEST_F(HistorySearchTest, OwnFilesFoundCallbackChoosesAndTheChoiceIsRemembered) {
  root.write("d1/libx.so", "x");
  const std::string other = root.write("d2/libx.so", "y");
  ChoosingFilesFound own(validFile(other.c_str()));
  manipulator->setOwnFilesFoundCallback("client", &own);
  manipulator->setFilesFoundBehavior("client", ffbUpdateHistory);
  ObjectPtr<IValidFile> found = search()->findBinFile("libx.so", nullptr, nullptr, 0);
  ASSERT_TRUE(found);
  EXPECT_EQ(other, found->name());
  EXPECT_EQ(other, history->findBinFileAssociation("libx.so")->resolvedName());
  ASSERT_EQ(1u, own.calls.size());
  EXPECT_EQ("libx.so", own.calls[0].key1);
}

TEST_F(HistorySearchTest, OwnSearchStartedVetoSkipsStepsAndHistory) {
  root.write("d1/libx.so", "x");
  history->addBinFileAssociation("libx.so", root.sub("d1/libx.so").c_str());
  RecordingSearchStarted own(false);
  manipulator->setOwnSearchStartedCallback("client", &own);
  manipulator->setSearchStartedBehavior("client", ssbSuggestFromHistory);
  EXPECT_FALSE(search()->findBinFile("libx.so", nullptr, nullptr, 0));
  EXPECT_EQ(1, own.callCount.load());
}

TEST_F(HistorySearchTest, DefaultFilesFoundWithBehaviourZeroAndNoOwnCallbackChoosesNothing) {
  root.write("d1/libx.so", "x");
  manipulator->setFilesFoundBehavior("client", ffbIgnoreHistory);
  EXPECT_FALSE(search()->findBinFile("libx.so", nullptr, nullptr, 0));
  // Another client has no default callback and gets the first file.
  ObjectPtr<IValidFile> found = mgr->createFileSearch(*context, "other", ObjectPtr<IEnvironmentInfo>())
                                    ->findBinFile("libx.so", nullptr, nullptr, 0);
  EXPECT_TRUE(found);
}

} // namespace
