// Per-context metadata: values per key and client, no fallback, the key
// iterator's order and lock, and which operations take the lock how.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <thread>

#include "vell_callbacks/callback_fakes.h"
#include "vell_context/background_call.h"
#include "vell_context/context_fakes.h"
#include "vell_context/metadata.h"

using namespace VELL_2_13;
using namespace vell_test;

namespace {

ObjectPtr<Metadata> newMetadata() { return ObjectPtr<Metadata>(new Metadata()); }

int32_t lockState(Metadata &metadata) { return static_cast<VellSpinSharedLock &>(metadata.lock()).state(); }

std::vector<std::string> keysOf(IMetadata &metadata) {
  std::vector<std::string> keys;
  ObjectPtr<ISearchDirKeyIterator> it = metadata.searchDirsKeyIterator();
  const char *key = nullptr;
  ObjectPtr<ISearchDirContainer> container;
  while (it->getCurrentRecord(key, container)) {
    keys.push_back(key);
    it->next();
  }
  return keys;
}

TEST(MetadataTest, KeysAreIteratedInByteOrderWithTheHiddenKeyFirst) {
  ObjectPtr<Metadata> metadata = newMetadata();
  ObjectPtr<ISearchDirContainer> b = containerWith(scBinaryFiles, {"/b"});
  ObjectPtr<ISearchDirContainer> a = containerWith(scBinaryFiles, {"/a"});
  ObjectPtr<ISearchDirContainer> hidden = containerWith(scBinaryFiles, {"/hidden"});
  metadata->setSearchDirs(b, "b");
  metadata->setSearchDirs(a, "a");
  metadata->setSearchDirs(hidden, " hidden_result_dir_key");
  EXPECT_EQ((std::vector<std::string>{" hidden_result_dir_key", "a", "b"}), keysOf(*metadata));

  ObjectPtr<ISearchDirKeyIterator> it = metadata->searchDirsKeyIterator();
  const char *key = nullptr;
  ObjectPtr<ISearchDirContainer> container;
  ASSERT_TRUE(it->getCurrentRecord(key, container));
  EXPECT_EQ(hidden.get(), container.get());
  it->next();
  ASSERT_TRUE(it->getCurrentRecord(key, container));
  EXPECT_EQ(a.get(), container.get());
}

TEST(MetadataTest, KeyOrderIsCaseSensitiveByteOrderWithPrefixFirst) {
  ObjectPtr<Metadata> metadata = newMetadata();
  for (const char *key : {"b", "B", "ab", "a", "1", ""})
    metadata->setSearchDirs(containerWith(scAllFiles, {"/x"}), key);
  EXPECT_EQ((std::vector<std::string>{"", "1", "B", "a", "ab", "b"}), keysOf(*metadata));
}

TEST(MetadataTest, IteratorAtTheEndLeavesOutputsAloneAndNextDoesNothing) {
  ObjectPtr<Metadata> metadata = newMetadata();
  ObjectPtr<ISearchDirKeyIterator> it = metadata->searchDirsKeyIterator();
  const char *key = "untouched";
  ObjectPtr<ISearchDirContainer> container;
  EXPECT_FALSE(it->getCurrentRecord(key, container));
  EXPECT_STREQ("untouched", key);
  it->next();
  it->next();
  EXPECT_FALSE(it->getCurrentRecord(key, container));

  metadata.release();
  ObjectPtr<Metadata> one = newMetadata();
  one->setSearchDirs(containerWith(scAllFiles, {"/x"}), "k");
  ObjectPtr<ISearchDirKeyIterator> single = one->searchDirsKeyIterator();
  single->next();
  single->next();
  EXPECT_FALSE(single->getCurrentRecord(key, container));
}

TEST(MetadataTest, NullContainerKeepsTheKeyListedWithNullContainer) {
  ObjectPtr<Metadata> metadata = newMetadata();
  metadata->setSearchDirs(containerWith(scAllFiles, {"/x"}), "k");
  metadata->setSearchDirs(ObjectPtr<ISearchDirContainer>(), "k");
  ObjectPtr<ISearchDirKeyIterator> it = metadata->searchDirsKeyIterator();
  const char *key = nullptr;
  ObjectPtr<ISearchDirContainer> container = containerWith(scAllFiles, {"/sentinel"});
  ASSERT_TRUE(it->getCurrentRecord(key, container));
  EXPECT_STREQ("k", key);
  EXPECT_FALSE(container);
  EXPECT_FALSE(metadata->getSearchDirs("k"));
}

TEST(MetadataTest, UnknownKeyHasNoSearchDirsAndSetReplaces) {
  ObjectPtr<Metadata> metadata = newMetadata();
  EXPECT_FALSE(metadata->getSearchDirs("unknown"));
  ObjectPtr<ISearchDirContainer> first = containerWith(scAllFiles, {"/1"});
  ObjectPtr<ISearchDirContainer> second = containerWith(scAllFiles, {"/2"});
  metadata->setSearchDirs(first, "k");
  EXPECT_EQ(first.get(), metadata->getSearchDirs("k").get());
  metadata->setSearchDirs(second, "k");
  EXPECT_EQ(second.get(), metadata->getSearchDirs("k").get());
  EXPECT_EQ(std::vector<std::string>{"k"}, keysOf(*metadata));
  EXPECT_FALSE(metadata->getSearchDirs(nullptr));
}

TEST(MetadataTest, KeyIteratorHoldsTheLockSharedForItsWholeLife) {
  ObjectPtr<Metadata> metadata = newMetadata();
  EXPECT_EQ(0, lockState(*metadata));
  {
    ObjectPtr<ISearchDirKeyIterator> it = metadata->searchDirsKeyIterator();
    EXPECT_EQ(1, lockState(*metadata));
    ObjectPtr<ISearchDirKeyIterator> second = metadata->searchDirsKeyIterator();
    EXPECT_EQ(2, lockState(*metadata));
  }
  EXPECT_EQ(0, lockState(*metadata));
}

TEST(MetadataTest, KeyIteratorKeepsItsMetadataAlive) {
  ObjectPtr<Metadata> metadata = newMetadata();
  metadata->setSearchDirs(containerWith(scAllFiles, {"/x"}), "k");
  ObjectPtr<ISearchDirKeyIterator> it = metadata->searchDirsKeyIterator();
  metadata.release();
  const char *key = nullptr;
  ObjectPtr<ISearchDirContainer> container;
  ASSERT_TRUE(it->getCurrentRecord(key, container));
  EXPECT_STREQ("k", key);
}

// Runs operation on another thread and reports whether it finished within a
// short time; the thread is joined before returning (after release()).
template <class Operation, class Release> bool finishesWhileHeld(Operation operation, Release release) {
  std::atomic<bool> done{false};
  std::thread other([&] {
    operation();
    done = true;
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  const bool finished = done.load();
  release();
  other.join();
  EXPECT_TRUE(done.load());
  return finished;
}

TEST(MetadataTest, WriterWaitsUntilTheKeyIteratorIsDestroyed) {
  ObjectPtr<Metadata> metadata = newMetadata();
  ObjectPtr<ISearchDirKeyIterator> it = metadata->searchDirsKeyIterator();
  EXPECT_FALSE(finishesWhileHeld([&] { metadata->setSearchDirs(containerWith(scAllFiles, {"/x"}), "k"); },
                                 [&] { it.release(); }));
  EXPECT_TRUE(metadata->getSearchDirs("k"));
}

// The values the writers below store, shared with the writing thread.
struct WrittenValues {
  RecordingSearchStarted started;
  ChoosingFilesFound found{ObjectPtr<IValidFile>()};
  SupplyingNoFilesFound noFiles{ObjectPtr<IValidFile>()};
  FixedConfidencePolicy policy;
  RecordingRetriever retriever;
  int messengerStorage = 0;
  ObjectPtr<ICapturedSearchDirs> captured = ICapturedSearchDirs::create(ObjectPtr<ISearchEnv>());
  ObjectPtr<ISearchStepsConfigurator> configurator{new DefaultSearchStepsConfigurator()};
  ObjectPtr<IEditableEnvironmentInfo> info = IEditableEnvironmentInfo::create();
};

// One writer of the metadata and the check that its value was stored.
struct MetadataWriter {
  const char *name;
  std::function<void(Metadata &, WrittenValues &)> write;
  std::function<bool(Metadata &, WrittenValues &)> stored;
};

TEST(MetadataTest, EveryWriterWaitsUntilTheKeyIteratorIsDestroyed) {
  const std::vector<MetadataWriter> writers = {
      {"registerSearchStartedCallback",
       [](Metadata &m, WrittenValues &v) { m.registerSearchStartedCallback("c", &v.started); },
       [](Metadata &m, WrittenValues &v) {
         return m.getCallbacks("c").searchStarted.callbackUnlocked() == &v.started;
       }},
      {"registerFilesFoundCallback",
       [](Metadata &m, WrittenValues &v) { m.registerFilesFoundCallback("c", &v.found); },
       [](Metadata &m, WrittenValues &v) {
         return m.getCallbacks("c").filesFound.callbackUnlocked() == &v.found;
       }},
      {"registerNoFilesFoundCallback",
       [](Metadata &m, WrittenValues &v) { m.registerNoFilesFoundCallback("c", &v.noFiles); },
       [](Metadata &m, WrittenValues &v) {
         return m.getCallbacks("c").noFilesFound.callbackUnlocked() == &v.noFiles;
       }},
      {"registerConfidenceLevelPolicyCallback",
       [](Metadata &m, WrittenValues &v) { m.registerConfidenceLevelPolicyCallback("c", &v.policy); },
       [](Metadata &m, WrittenValues &v) {
         return m.getCallbacks("c").confidenceLevelPolicy.callbackUnlocked() == &v.policy;
       }},
      {"setArchiveDir", [](Metadata &m, WrittenValues &) { m.setArchiveDir("/archive"); },
       [](Metadata &m, WrittenValues &) { return m.getArchiveDir() == "/archive"; }},
      {"setCapturedSearchDirs",
       [](Metadata &m, WrittenValues &v) { m.setCapturedSearchDirs("c", v.captured); },
       [](Metadata &m, WrittenValues &v) { return m.getCapturedSearchDirs("c").get() == v.captured.get(); }},
      {"registerSearchStepsConfigurator",
       [](Metadata &m, WrittenValues &v) { m.registerSearchStepsConfigurator("c", v.configurator); },
       [](Metadata &m, WrittenValues &v) {
         return m.getSearchStepsConfigurator("c").get() == v.configurator.get();
       }},
      {"registerEnvironmentInfo",
       [](Metadata &m, WrittenValues &v) { m.registerEnvironmentInfo("c", v.info); },
       [](Metadata &m, WrittenValues &v) {
         return m.getEnvironmentInfo("c").get() == static_cast<IEnvironmentInfo *>(v.info.get());
       }},
      {"registerFileRetriever",
       [](Metadata &m, WrittenValues &v) { m.registerFileRetriever("c", &v.retriever); },
       [](Metadata &m, WrittenValues &v) { return m.getFileRetriever("c") == &v.retriever; }},
      {"registerMessenger",
       [](Metadata &m, WrittenValues &v) { m.registerMessenger("c", fakeMessenger(v.messengerStorage)); },
       [](Metadata &m, WrittenValues &v) {
         return m.getMessenger("c") == fakeMessenger(v.messengerStorage);
       }},
  };
  for (const MetadataWriter &writer : writers) {
    SCOPED_TRACE(writer.name);
    ObjectPtr<Metadata> metadata = newMetadata();
    auto values = std::make_shared<WrittenValues>();
    ObjectPtr<ISearchDirKeyIterator> it = metadata->searchDirsKeyIterator();
    {
      BackgroundCall call([metadata, values, write = writer.write] { write(*metadata, *values); });
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
      EXPECT_FALSE(call.finished()) << "the writer did not wait for the key iterator";
      it.release();
      ASSERT_TRUE(call.finishesWithin(std::chrono::seconds(10))) << "the writer still waits";
    }
    EXPECT_TRUE(writer.stored(*metadata, *values));
    EXPECT_EQ(0, lockState(*metadata));
  }
}

TEST(MetadataTest, RetrieverAndMessengerGettersTakeTheLockExclusively) {
  ObjectPtr<Metadata> metadata = newMetadata();
  RecordingRetriever retriever;
  int messengerStorage = 0;
  metadata->registerFileRetriever("c", &retriever);
  metadata->registerMessenger("c", fakeMessenger(messengerStorage));

  ObjectPtr<ISearchDirKeyIterator> it = metadata->searchDirsKeyIterator();
  IFileRetriever *gotRetriever = nullptr;
  EXPECT_FALSE(
      finishesWhileHeld([&] { gotRetriever = metadata->getFileRetriever("c"); }, [&] { it.release(); }));
  EXPECT_EQ(&retriever, gotRetriever);

  it = metadata->searchDirsKeyIterator();
  IMessenger *gotMessenger = nullptr;
  EXPECT_FALSE(finishesWhileHeld([&] { gotMessenger = metadata->getMessenger("c"); }, [&] { it.release(); }));
  EXPECT_EQ(fakeMessenger(messengerStorage), gotMessenger);
}

TEST(MetadataTest, ReadersTakeTheLockSharedAndRunBesideAKeyIterator) {
  ObjectPtr<Metadata> metadata = newMetadata();
  ObjectPtr<ISearchDirKeyIterator> it = metadata->searchDirsKeyIterator();
  EXPECT_TRUE(finishesWhileHeld(
      [&] {
        metadata->getSearchDirs("k");
        metadata->getCallbacks("c");
        metadata->getArchiveDir();
        metadata->getCapturedSearchDirs("c");
        metadata->getSearchStepsConfigurator("c");
        metadata->getEnvironmentInfo("c");
      },
      [] {}));
}

TEST(MetadataTest, ReadersWaitForAnExclusiveHolderButTheCacheDirectoryIsNotLocked) {
  ObjectPtr<Metadata> metadata = newMetadata();
  metadata->setArchiveDir("/archive");
  metadata->setCacheDir("/cache");
  metadata->lock().lock();
  std::string cache;
  EXPECT_TRUE(finishesWhileHeld(
      [&] {
        metadata->setCacheDir("/cache2");
        cache = metadata->getCacheDir();
      },
      [] {}));
  EXPECT_EQ("/cache2", cache);
  std::string archive;
  EXPECT_FALSE(
      finishesWhileHeld([&] { archive = metadata->getArchiveDir(); }, [&] { metadata->lock().unlock(); }));
  EXPECT_EQ("/archive", archive);
}

TEST(MetadataTest, CallbackRegistrationsOfOneClientAccumulate) {
  ObjectPtr<Metadata> metadata = newMetadata();
  ChoosingFilesFound found{ObjectPtr<IValidFile>()};
  RecordingSearchStarted started;
  metadata->registerFilesFoundCallback("client", &found);
  metadata->registerSearchStartedCallback("client", &started);
  vell_callbacks_t record = metadata->getCallbacks("client");
  EXPECT_EQ(&found, record.filesFound.callbackUnlocked());
  EXPECT_EQ(&started, record.searchStarted.callbackUnlocked());
  EXPECT_FALSE(record.noFilesFound.hasCallback());
  EXPECT_FALSE(record.confidenceLevelPolicy.hasCallback());

  SupplyingNoFilesFound noFiles{ObjectPtr<IValidFile>()};
  FixedConfidencePolicy policy;
  metadata->registerNoFilesFoundCallback("client", &noFiles);
  metadata->registerConfidenceLevelPolicyCallback("client", &policy);
  record = metadata->getCallbacks("client");
  EXPECT_EQ(&found, record.filesFound.callbackUnlocked());
  EXPECT_EQ(&started, record.searchStarted.callbackUnlocked());
  EXPECT_EQ(&noFiles, record.noFilesFound.callbackUnlocked());
  EXPECT_EQ(&policy, record.confidenceLevelPolicy.callbackUnlocked());
}

TEST(MetadataTest, UnknownClientHasFourEmptyHoldersAndNoFallbackToTheDefaultClient) {
  ObjectPtr<Metadata> metadata = newMetadata();
  RecordingSearchStarted started;
  RecordingRetriever retriever;
  metadata->registerSearchStartedCallback("", &started);
  metadata->registerFileRetriever("", &retriever);
  metadata->registerEnvironmentInfo("", IEditableEnvironmentInfo::create());
  vell_callbacks_t record = metadata->getCallbacks("unknown");
  EXPECT_FALSE(record.searchStarted.hasCallback());
  EXPECT_FALSE(record.filesFound.hasCallback());
  EXPECT_FALSE(record.noFilesFound.hasCallback());
  EXPECT_FALSE(record.confidenceLevelPolicy.hasCallback());
  EXPECT_EQ(nullptr, metadata->getFileRetriever("unknown"));
  EXPECT_FALSE(metadata->getEnvironmentInfo("unknown"));
  EXPECT_EQ(&started, metadata->getCallbacks("").searchStarted.callbackUnlocked());
  EXPECT_EQ(&retriever, metadata->getFileRetriever(""));
}

TEST(MetadataTest, RegisteringNullClearsOneHolderAndDestroyedCallbacksAreForgotten) {
  ObjectPtr<Metadata> metadata = newMetadata();
  ChoosingFilesFound found{ObjectPtr<IValidFile>()};
  auto started = std::make_unique<RecordingSearchStarted>();
  metadata->registerFilesFoundCallback("c", &found);
  metadata->registerSearchStartedCallback("c", started.get());
  metadata->registerFilesFoundCallback("c", nullptr);
  vell_callbacks_t record = metadata->getCallbacks("c");
  EXPECT_FALSE(record.filesFound.hasCallback());
  EXPECT_TRUE(record.searchStarted.hasCallback());
  started.reset();
  EXPECT_FALSE(record.searchStarted.hasCallback());
  EXPECT_FALSE(metadata->getCallbacks("c").searchStarted.hasCallback());
}

TEST(MetadataTest, ArchiveAndCacheDirectoriesIgnoreNull) {
  ObjectPtr<Metadata> metadata = newMetadata();
  EXPECT_EQ("", metadata->getArchiveDir());
  EXPECT_EQ("", metadata->getCacheDir());
  metadata->setArchiveDir("/archive");
  metadata->setCacheDir("/cache");
  metadata->setArchiveDir(nullptr);
  metadata->setCacheDir(nullptr);
  EXPECT_EQ("/archive", metadata->getArchiveDir());
  EXPECT_EQ("/cache", metadata->getCacheDir());
  metadata->setArchiveDir("");
  EXPECT_EQ("", metadata->getArchiveDir());
}

TEST(MetadataTest, PerClientValuesAreStoredReplacedAndNulled) {
  ObjectPtr<Metadata> metadata = newMetadata();
  RecordingRetriever r1, r2;
  metadata->registerFileRetriever("c", &r1);
  metadata->registerFileRetriever("c", &r2);
  EXPECT_EQ(&r2, metadata->getFileRetriever("c"));
  metadata->registerFileRetriever("c", nullptr);
  EXPECT_EQ(nullptr, metadata->getFileRetriever("c"));

  ObjectPtr<ISearchStepsConfigurator> configurator(new DefaultSearchStepsConfigurator());
  metadata->registerSearchStepsConfigurator("c", configurator);
  EXPECT_EQ(configurator.get(), metadata->getSearchStepsConfigurator("c").get());
  EXPECT_FALSE(metadata->getSearchStepsConfigurator("d"));

  int storage = 0;
  metadata->registerMessenger("c", fakeMessenger(storage));
  EXPECT_EQ(fakeMessenger(storage), metadata->getMessenger("c"));
  EXPECT_EQ(nullptr, metadata->getMessenger("d"));

  ObjectPtr<IEditableEnvironmentInfo> info = IEditableEnvironmentInfo::create();
  metadata->registerEnvironmentInfo("c", info);
  EXPECT_EQ(static_cast<IEnvironmentInfo *>(info.get()), metadata->getEnvironmentInfo("c").get());
  metadata->registerEnvironmentInfo("c", ObjectPtr<IEnvironmentInfo>());
  EXPECT_FALSE(metadata->getEnvironmentInfo("c"));

  ObjectPtr<ICapturedSearchDirs> captured = ICapturedSearchDirs::create(ObjectPtr<ISearchEnv>());
  metadata->setCapturedSearchDirs("c", captured);
  EXPECT_EQ(captured.get(), metadata->getCapturedSearchDirs("c").get());
  EXPECT_FALSE(metadata->getCapturedSearchDirs("d"));
  metadata->setCapturedSearchDirs("c", ObjectPtr<ICapturedSearchDirs>());
  EXPECT_FALSE(metadata->getCapturedSearchDirs("c"));
}

TEST(MetadataTest, ConcurrentReadersAndWriters) {
  ObjectPtr<Metadata> metadata = newMetadata();
  std::vector<std::unique_ptr<RecordingSearchStarted>> callbacks;
  for (int i = 0; i < 4; ++i)
    callbacks.push_back(std::make_unique<RecordingSearchStarted>());
  std::vector<std::thread> threads;
  for (int w = 0; w < 2; ++w) {
    threads.emplace_back([&, w] {
      for (int i = 0; i < 50; ++i) {
        std::string key = "k" + std::to_string(w) + "_" + std::to_string(i);
        metadata->setSearchDirs(containerWith(scAllFiles, {"/" + key}), key.c_str());
        metadata->registerSearchStartedCallback("c" + std::to_string(i % 4), callbacks[i % 4].get());
        metadata->setArchiveDir(key.c_str());
      }
    });
  }
  std::atomic<bool> unordered{false};
  for (int r = 0; r < 2; ++r) {
    threads.emplace_back([&] {
      for (int i = 0; i < 50; ++i) {
        std::vector<std::string> keys = keysOf(*metadata);
        if (!std::is_sorted(keys.begin(), keys.end()))
          unordered = true;
        metadata->getCallbacks("c1");
        metadata->getArchiveDir();
      }
    });
  }
  for (std::thread &t : threads)
    t.join();
  EXPECT_FALSE(unordered);
  EXPECT_EQ(100u, keysOf(*metadata).size());
  EXPECT_EQ(callbacks[1].get(), metadata->getCallbacks("c1").searchStarted.callbackUnlocked());
}

} // namespace
