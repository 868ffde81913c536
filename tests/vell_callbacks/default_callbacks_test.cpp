// The default callbacks: own callbacks first, then the history as the
// behaviours say; handlers pass the request's strings on unchanged.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "vell/callbacks.h"
#include "vell_callbacks/callback_fakes.h"
#include "vell_callbacks/callback_handlers.h"

using namespace VELL_2_13;
using namespace vell_test;

namespace {

std::vector<std::string> namesOf(const StringContainer &names) {
  return std::vector<std::string>(names.strings().begin(), names.strings().end());
}

// --- Search started ------------------------------------------------------------------

TEST(DefaultSearchStartedCallbackTest, StartsWithBehaviourZeroAndNoOwnCallback) {
  ObjectPtr<ISearchHistory> history = ISearchHistory::create();
  DefaultSearchStartedCallback callback(history.get());
  EXPECT_EQ(ssbIgnoreHistory, callback.behavior());
  EXPECT_EQ(history.get(), callback.history().get());
  history->addBinFileAssociation("a", "/remembered");
  StringContainer names;
  EXPECT_TRUE(callback.binFileSearchStarted("a", names));
  EXPECT_TRUE(names.strings().empty()); // behaviour 0: the history is not consulted
}

TEST(DefaultSearchStartedCallbackTest, UseHistoryAddsRememberedNameAndSkipsTheSteps) {
  ObjectPtr<ISearchHistory> history = ISearchHistory::create();
  history->addBinFileAssociation("a", "/remembered/a");
  DefaultSearchStartedCallback callback(history.get());
  callback.setBehavior(ssbUseHistory);
  StringContainer names;
  EXPECT_FALSE(callback.binFileSearchStarted("a", names));
  EXPECT_EQ(std::vector<std::string>{"/remembered/a"}, namesOf(names));
}

TEST(DefaultSearchStartedCallbackTest, SuggestFromHistoryAddsRememberedNameAndGoesOn) {
  ObjectPtr<ISearchHistory> history = ISearchHistory::create();
  history->addSymFileAssociation("a.debug", "/bin/a", "sum", "/sym/a.debug");
  DefaultSearchStartedCallback callback(history.get());
  callback.setBehavior(ssbSuggestFromHistory);
  StringContainer names;
  EXPECT_TRUE(callback.symFileSearchStarted("a.debug", "/bin/a", "sum", names));
  EXPECT_EQ(std::vector<std::string>{"/sym/a.debug"}, namesOf(names));
}

TEST(DefaultSearchStartedCallbackTest, BehaviourAboveUseHistoryActsAsUseHistory) {
  ObjectPtr<ISearchHistory> history = ISearchHistory::create();
  history->addSrcFileAssociation("m.c", "/bin/a", "", "/src/m.c");
  DefaultSearchStartedCallback callback(history.get());
  callback.setBehavior(search_started_behavior_t(7));
  StringContainer names;
  EXPECT_FALSE(callback.srcFileSearchStarted("m.c", "/bin/a", "", names));
  EXPECT_EQ(std::vector<std::string>{"/src/m.c"}, namesOf(names));
  EXPECT_EQ(search_started_behavior_t(7), callback.behavior());
}

TEST(DefaultSearchStartedCallbackTest, NoRememberedAnswerGoesOnWhateverTheBehaviour) {
  ObjectPtr<ISearchHistory> history = ISearchHistory::create();
  DefaultSearchStartedCallback callback(history.get());
  for (uint32_t behavior : {1u, 2u, 3u}) {
    callback.setBehavior(search_started_behavior_t(behavior));
    StringContainer names;
    EXPECT_TRUE(callback.binFileSearchStarted("unknown", names)) << behavior;
    EXPECT_TRUE(names.strings().empty());
  }
}

TEST(DefaultSearchStartedCallbackTest, OwnCallbackVetoStopsWithoutReadingTheHistory) {
  ObjectPtr<CountingHistory> history(new CountingHistory());
  history->addBinFileAssociation("a", "/remembered");
  RecordingSearchStarted own(false);
  DefaultSearchStartedCallback callback(history.get());
  callback.setOwnCallback(&own);
  for (uint32_t behavior : {0u, 1u, 2u, 5u}) {
    callback.setBehavior(search_started_behavior_t(behavior));
    StringContainer names;
    EXPECT_FALSE(callback.binFileSearchStarted("a", names)) << behavior;
    EXPECT_FALSE(callback.symFileSearchStarted("a", "b", "c", names)) << behavior;
    EXPECT_FALSE(callback.srcFileSearchStarted("a", "b", "c", names)) << behavior;
    EXPECT_TRUE(names.strings().empty());
  }
  EXPECT_EQ(0, history->finds.load());
  EXPECT_EQ(12, own.callCount.load());
}

TEST(DefaultSearchStartedCallbackTest, OwnCallbackRunsFirstAndItsNamesComeBeforeTheHistory) {
  ObjectPtr<ISearchHistory> history = ISearchHistory::create();
  history->addBinFileAssociation("a", "/remembered");
  RecordingSearchStarted own(true, "/own/suggestion");
  DefaultSearchStartedCallback callback(history.get());
  callback.setOwnCallback(&own);
  callback.setBehavior(ssbSuggestFromHistory);
  StringContainer names;
  EXPECT_TRUE(callback.binFileSearchStarted("a", names));
  EXPECT_EQ((std::vector<std::string>{"/own/suggestion", "/remembered"}), namesOf(names));
  ASSERT_EQ(1u, own.calls.size());
  EXPECT_EQ("a", own.calls[0].key1);
  EXPECT_EQ("bin", own.kinds[0]);
}

TEST(DefaultSearchStartedCallbackTest, KeysReachTheOwnCallbackUnchangedAndInOrder) {
  RecordingSearchStarted own;
  DefaultSearchStartedCallback callback(nullptr);
  callback.setOwnCallback(&own);
  StringContainer names;
  callback.symFileSearchStarted("s1", nullptr, "s3", names);
  callback.srcFileSearchStarted("c1", "c2", nullptr, names);
  callback.binFileSearchStarted(nullptr, names);
  ASSERT_EQ(3u, own.calls.size());
  EXPECT_EQ("sym", own.kinds[0]);
  EXPECT_EQ("s1", own.calls[0].key1);
  EXPECT_EQ("<null>", own.calls[0].key2);
  EXPECT_EQ("s3", own.calls[0].key3);
  EXPECT_EQ("src", own.kinds[1]);
  EXPECT_EQ("c1", own.calls[1].key1);
  EXPECT_EQ("c2", own.calls[1].key2);
  EXPECT_EQ("<null>", own.calls[1].key3);
  EXPECT_EQ("bin", own.kinds[2]);
  EXPECT_EQ("<null>", own.calls[2].key1);
}

TEST(DefaultSearchStartedCallbackTest, DestroyedOwnCallbackIsForgotten) {
  ObjectPtr<ISearchHistory> history = ISearchHistory::create();
  DefaultSearchStartedCallback callback(history.get());
  {
    auto own = std::make_unique<RecordingSearchStarted>(false);
    callback.setOwnCallback(own.get());
    StringContainer names;
    EXPECT_FALSE(callback.binFileSearchStarted("a", names));
  }
  StringContainer names;
  EXPECT_TRUE(callback.binFileSearchStarted("a", names));
}

TEST(DefaultSearchStartedCallbackTest, ReplacingTheOwnCallbackAppliesToTheNextCall) {
  RecordingSearchStarted first(false);
  RecordingSearchStarted second(true);
  DefaultSearchStartedCallback callback(nullptr);
  callback.setOwnCallback(&first);
  StringContainer names;
  EXPECT_FALSE(callback.binFileSearchStarted("a", names));
  callback.setOwnCallback(&second);
  EXPECT_TRUE(callback.binFileSearchStarted("a", names));
  callback.setOwnCallback(nullptr);
  EXPECT_TRUE(callback.binFileSearchStarted("a", names));
  EXPECT_EQ(1, first.callCount.load());
  EXPECT_EQ(1, second.callCount.load());
}

TEST(DefaultSearchStartedCallbackTest, RememberedEmptyNameIsAddedAsEmptyCandidate) {
  ObjectPtr<ISearchHistory> history = ISearchHistory::create();
  history->addBinFileAssociation("a", nullptr);
  DefaultSearchStartedCallback callback(history.get());
  callback.setBehavior(ssbUseHistory);
  StringContainer names;
  EXPECT_FALSE(callback.binFileSearchStarted("a", names));
  EXPECT_EQ(std::vector<std::string>{""}, namesOf(names));
}

// --- Files found ---------------------------------------------------------------------

TEST(DefaultFilesFoundCallbackTest, BehaviourZeroWithoutOwnCallbackReturnsNullAndRemembersNothing) {
  ObjectPtr<ISearchHistory> history = ISearchHistory::create();
  DefaultFilesFoundCallback callback(history.get());
  EXPECT_EQ(ffbIgnoreHistory, callback.behavior());
  ListValidFileIterator files({validFile("/x/a")});
  EXPECT_FALSE(callback.binFilesFound("a", files));
  EXPECT_EQ(0u, files.position());
  EXPECT_FALSE(history->findBinFileAssociation("a"));
}

TEST(DefaultFilesFoundCallbackTest, UpdateHistoryWithoutOwnCallbackTakesFirstFileAndRemembersIt) {
  ObjectPtr<ISearchHistory> history = ISearchHistory::create();
  DefaultFilesFoundCallback callback(history.get());
  callback.setBehavior(ffbUpdateHistory);
  ListValidFileIterator files({validFile("/x/a.debug"), validFile("/y/a.debug")});
  ObjectPtr<IValidFile> chosen = callback.symFilesFound("a.debug", "/bin/a", "sum", files);
  ASSERT_TRUE(chosen);
  EXPECT_STREQ("/x/a.debug", chosen->name());
  ObjectPtr<IFileAssociation> remembered = history->findSymFileAssociation("a.debug", "/bin/a", "sum");
  ASSERT_TRUE(remembered);
  EXPECT_STREQ("/x/a.debug", remembered->resolvedName());
  EXPECT_FALSE(history->findSrcFileAssociation("a.debug", "/bin/a", "sum"));
}

TEST(DefaultFilesFoundCallbackTest, WithoutOwnCallbackTheFilesAreTakenFromTheFirstOne) {
  // A search hands over its iterator positioned after the file it found first.
  ObjectPtr<ISearchHistory> history = ISearchHistory::create();
  DefaultFilesFoundCallback callback(history.get());
  callback.setBehavior(ffbUpdateHistory);
  ListValidFileIterator files({validFile("/first"), validFile("/second")});
  files.next();
  ObjectPtr<IValidFile> chosen = callback.binFilesFound("a", files);
  ASSERT_TRUE(chosen);
  EXPECT_STREQ("/first", chosen->name());
  EXPECT_STREQ("/first", history->findBinFileAssociation("a")->resolvedName());
}

TEST(DefaultFilesFoundCallbackTest, AnyNonZeroBehaviourActsAsUpdateHistory) {
  ObjectPtr<ISearchHistory> history = ISearchHistory::create();
  DefaultFilesFoundCallback callback(history.get());
  callback.setBehavior(files_found_behavior_t(5));
  ListValidFileIterator files({validFile("/x/m.c")});
  ObjectPtr<IValidFile> chosen = callback.srcFilesFound("m.c", "/bin/a", "", files);
  ASSERT_TRUE(chosen);
  ASSERT_TRUE(history->findSrcFileAssociation("m.c", "/bin/a", ""));
  EXPECT_STREQ("/x/m.c", history->findSrcFileAssociation("m.c", "/bin/a", "")->resolvedName());
}

TEST(DefaultFilesFoundCallbackTest, OwnChoiceIsReturnedAndRemembered) {
  ObjectPtr<ISearchHistory> history = ISearchHistory::create();
  ChoosingFilesFound own(validFile("/own/choice"));
  DefaultFilesFoundCallback callback(history.get());
  callback.setOwnCallback(&own);
  ListValidFileIterator files({validFile("/x/a")});

  ObjectPtr<IValidFile> chosen = callback.binFilesFound("a", files);
  ASSERT_TRUE(chosen);
  EXPECT_STREQ("/own/choice", chosen->name());
  EXPECT_FALSE(history->findBinFileAssociation("a")); // behaviour 0

  callback.setBehavior(ffbUpdateHistory);
  chosen = callback.binFilesFound("a", files);
  ASSERT_TRUE(chosen);
  EXPECT_STREQ("/own/choice", history->findBinFileAssociation("a")->resolvedName());
  ASSERT_EQ(2u, own.calls.size());
  EXPECT_EQ("a", own.calls[0].key1);
}

TEST(DefaultFilesFoundCallbackTest, WhenOwnCallbackChoosesNothingTheFirstUnconsumedFileIsTaken) {
  ObjectPtr<ISearchHistory> history = ISearchHistory::create();
  ChoosingFilesFound own(ObjectPtr<IValidFile>(), 1); // consumes one file, chooses none
  DefaultFilesFoundCallback callback(history.get());
  callback.setOwnCallback(&own);
  callback.setBehavior(ffbUpdateHistory);
  ListValidFileIterator files({validFile("/first"), validFile("/second")});
  ObjectPtr<IValidFile> chosen = callback.binFilesFound("a", files);
  ASSERT_TRUE(chosen);
  EXPECT_STREQ("/second", chosen->name());
  EXPECT_STREQ("/second", history->findBinFileAssociation("a")->resolvedName());
}

TEST(DefaultFilesFoundCallbackTest, OwnRejectionWithBehaviourZeroReturnsNull) {
  ChoosingFilesFound own{ObjectPtr<IValidFile>()};
  DefaultFilesFoundCallback callback(nullptr);
  callback.setOwnCallback(&own);
  ListValidFileIterator files({validFile("/first")});
  EXPECT_FALSE(callback.binFilesFound("a", files));
}

TEST(DefaultFilesFoundCallbackTest, NothingLeftToChooseReturnsNullAndRemembersNothing) {
  ObjectPtr<CountingHistory> history(new CountingHistory());
  DefaultFilesFoundCallback callback(history.get());
  callback.setBehavior(ffbUpdateHistory);
  ListValidFileIterator files;
  EXPECT_FALSE(callback.binFilesFound("a", files));
  EXPECT_EQ(0, history->adds.load());
}

// --- No files found ----------------------------------------------------------------------

TEST(DefaultNoFilesFoundCallbackTest, BehaviourZeroWithoutOwnCallbackReturnsNullAndRemembersNothing) {
  ObjectPtr<CountingHistory> history(new CountingHistory());
  DefaultNoFilesFoundCallback callback(history.get());
  EXPECT_EQ(nfbIgnoreHistory, callback.behavior());
  NullValidator validator;
  EmptyInvalidFileIterator rejected;
  ListValidFileIterator files;
  EXPECT_FALSE(callback.noBinFilesFound("a", validator, rejected, files));
  EXPECT_EQ(0, history->adds.load());
}

TEST(DefaultNoFilesFoundCallbackTest, KeepHistoryRemembersNothing) {
  ObjectPtr<CountingHistory> history(new CountingHistory());
  SupplyingNoFilesFound own(validFile("/own/a"));
  DefaultNoFilesFoundCallback callback(history.get());
  callback.setOwnCallback(&own);
  callback.setBehavior(nfbKeepHistory);
  NullValidator validator;
  EmptyInvalidFileIterator rejected;
  ListValidFileIterator files;
  ObjectPtr<IValidFile> supplied = callback.noBinFilesFound("a", validator, rejected, files);
  ASSERT_TRUE(supplied);
  EXPECT_STREQ("/own/a", supplied->name());
  EXPECT_EQ(0, history->adds.load());
}

TEST(DefaultNoFilesFoundCallbackTest, UpdateHistoryRemembersTheSuppliedFile) {
  ObjectPtr<ISearchHistory> history = ISearchHistory::create();
  SupplyingNoFilesFound own(validFile("/own/a.debug"));
  DefaultNoFilesFoundCallback callback(history.get());
  callback.setOwnCallback(&own);
  callback.setBehavior(nfbUpdateHistory);
  NullValidator validator;
  EmptyInvalidFileIterator rejected;
  ListValidFileIterator files;
  ObjectPtr<IValidFile> supplied =
      callback.noSymFilesFound("a.debug", "/bin/a", "sum", validator, rejected, files);
  ASSERT_TRUE(supplied);
  EXPECT_STREQ("/own/a.debug", history->findSymFileAssociation("a.debug", "/bin/a", "sum")->resolvedName());
  ASSERT_EQ(1u, own.calls.size());
  EXPECT_EQ("sym", own.kinds[0]);
  EXPECT_EQ("/bin/a", own.calls[0].key2);
  EXPECT_EQ(&validator, own.lastValidator);
}

TEST(DefaultNoFilesFoundCallbackTest,
     UpdateHistoryWithoutAnswerRemembersEmptyNameAndUseHistorySkipsNextSearch) {
  ObjectPtr<ISearchHistory> history = ISearchHistory::create();
  DefaultNoFilesFoundCallback noFiles(history.get());
  noFiles.setBehavior(nfbUpdateHistory);
  NullValidator validator;
  EmptyInvalidFileIterator rejected;
  ListValidFileIterator files;
  EXPECT_FALSE(noFiles.noSrcFilesFound("m.c", "/bin/a", "", validator, rejected, files));
  ObjectPtr<IFileAssociation> remembered = history->findSrcFileAssociation("m.c", "/bin/a", "");
  ASSERT_TRUE(remembered);
  EXPECT_STREQ("", remembered->resolvedName());

  DefaultSearchStartedCallback started(history.get());
  started.setBehavior(ssbUseHistory);
  StringContainer names;
  EXPECT_FALSE(started.srcFileSearchStarted("m.c", "/bin/a", "", names));
  EXPECT_EQ(std::vector<std::string>{""}, namesOf(names));
}

TEST(DefaultNoFilesFoundCallbackTest, BehaviourAboveUpdateHistoryActsAsUpdateHistory) {
  ObjectPtr<ISearchHistory> history = ISearchHistory::create();
  DefaultNoFilesFoundCallback callback(history.get());
  callback.setBehavior(no_files_found_behavior_t(9));
  NullValidator validator;
  EmptyInvalidFileIterator rejected;
  ListValidFileIterator files;
  callback.noBinFilesFound("a", validator, rejected, files);
  ASSERT_TRUE(history->findBinFileAssociation("a"));
  EXPECT_STREQ("", history->findBinFileAssociation("a")->resolvedName());
}

// --- Handlers ----------------------------------------------------------------------------

class FakeStartedHandler : public ISearchStartedHandler {
public:
  bool callUserCallback(IStringContainer &) override {
    order.push_back("user");
    return answer;
  }
  ObjectPtr<IFileAssociation> lookupHistory() override {
    order.push_back("history");
    return association;
  }
  bool answer = true;
  ObjectPtr<IFileAssociation> association;
  std::vector<std::string> order;
};

TEST(CallbackHandlersTest, ProcessSearchStartedAsksTheUserFirstThenTheHistory) {
  ObjectPtr<ISearchHistory> history = ISearchHistory::create();
  DefaultSearchStartedCallback callback(history.get());
  callback.setBehavior(ssbSuggestFromHistory);
  FakeStartedHandler handler;
  handler.association = history->addBinFileAssociation("x", "/h");
  StringContainer names;
  EXPECT_TRUE(callback.processSearchStarted(handler, names));
  EXPECT_EQ((std::vector<std::string>{"user", "history"}), handler.order);
  EXPECT_EQ(std::vector<std::string>{"/h"}, namesOf(names));

  FakeStartedHandler vetoing;
  vetoing.answer = false;
  EXPECT_FALSE(callback.processSearchStarted(vetoing, names));
  EXPECT_EQ(std::vector<std::string>{"user"}, vetoing.order);
}

TEST(CallbackHandlersTest, HandlersWithoutOwnCallbackOrHistory) {
  CallbackHolder<ISearchStartedCallback> noStarted;
  BinSearchStartedHandler started(noStarted, nullptr, "a");
  StringContainer names;
  EXPECT_TRUE(started.callUserCallback(names));
  EXPECT_FALSE(started.lookupHistory());

  CallbackHolder<IFilesFoundCallback> noFound;
  SymFilesFoundHandler found(noFound, nullptr, {"a", "b", "c"});
  ListValidFileIterator files({validFile("/f")});
  EXPECT_FALSE(found.callUserCallback(files));
  found.updateHistory("/f"); // no history: nothing to do, no crash

  CallbackHolder<INoFilesFoundCallback> noNoFiles;
  NullValidator validator;
  EmptyInvalidFileIterator rejected;
  SrcNoFilesFoundHandler noFiles(noNoFiles, nullptr, {"a", "b", "c"}, {validator, rejected, files});
  EXPECT_FALSE(noFiles.callUserCallback());
}

TEST(CallbackHandlersTest, HandlerUpdatesTheTableOfItsCategory) {
  ObjectPtr<ISearchHistory> history = ISearchHistory::create();
  CallbackHolder<IFilesFoundCallback> none;
  BinFilesFoundHandler(none, history.get(), "a").updateHistory("/bin");
  SymFilesFoundHandler(none, history.get(), {"a", "b", "c"}).updateHistory("/sym");
  SrcFilesFoundHandler(none, history.get(), {"a", "b", "c"}).updateHistory("/src");
  EXPECT_STREQ("/bin", history->findBinFileAssociation("a")->resolvedName());
  EXPECT_STREQ("/sym", history->findSymFileAssociation("a", "b", "c")->resolvedName());
  EXPECT_STREQ("/src", history->findSrcFileAssociation("a", "b", "c")->resolvedName());
}

// --- Concurrency ---------------------------------------------------------------------------

// Searches read a default callback the way the driver does (shared lock of
// the holder, re-read, call) while another thread changes its behaviour and
// its own callback.
TEST(DefaultCallbacksConcurrencyTest, CallsThroughAHolderWhileBehaviourAndOwnCallbackChange) {
  ObjectPtr<ISearchHistory> history = ISearchHistory::create();
  history->addBinFileAssociation("a", "/remembered");
  DefaultSearchStartedCallback callback(history.get());
  CallbackHolder<ISearchStartedCallback> holder(&callback);
  RecordingSearchStarted ownA(true);
  RecordingSearchStarted ownB(true);
  ownA.recordCalls = false;
  ownB.recordCalls = false;
  std::atomic<bool> stop{false};
  std::atomic<bool> badAnswer{false};
  callback.setOwnCallback(&ownA);

  std::vector<std::thread> searches;
  for (int t = 0; t < 3; ++t) {
    searches.emplace_back([&] {
      for (int i = 0; i < 200; ++i) {
        CallbackAccessor<ISearchStartedCallback> access(holder);
        ASSERT_TRUE(access);
        StringContainer names;
        bool goOn = access->binFileSearchStarted("a", names);
        // Behaviour 1 answers true with the name, 2 false with the name, 0 true without.
        if (!goOn && names.strings().size() != 1)
          badAnswer = true;
      }
    });
  }
  std::thread configurer([&] {
    for (int i = 0; !stop; ++i) {
      callback.setBehavior(search_started_behavior_t(i % 3));
      callback.setOwnCallback(i % 2 ? &ownA : &ownB);
    }
  });
  for (std::thread &t : searches)
    t.join();
  stop = true;
  configurer.join();
  EXPECT_FALSE(badAnswer);
  // An own callback was set before the searches began, so every call reached one.
  EXPECT_EQ(600, ownA.callCount.load() + ownB.callCount.load());
}

} // namespace
