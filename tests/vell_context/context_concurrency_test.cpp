// Several threads create environments and searches for the same contexts
// while another registers directories, callbacks and inheritance.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "support/temp_dir.h"
#include "vell_callbacks/callback_fakes.h"
#include "vell_context/background_call.h"
#include "vell_context/context_fakes.h"
#include "vell_context/metadata.h"
#include "vell_context/resolution_context_mgr.h"

using namespace VELL_2_13;
using namespace vell_test;

namespace {

// Chooses the first found file; safe to call from several searches at once.
class FirstFileChooser : public IFilesFoundCallback {
public:
  ObjectPtr<IValidFile> binFilesFound(const char *, IValidFileIterator &files) override {
    return first(files);
  }
  ObjectPtr<IValidFile> symFilesFound(const char *, const char *, const char *,
                                      IValidFileIterator &files) override {
    return first(files);
  }
  ObjectPtr<IValidFile> srcFilesFound(const char *, const char *, const char *,
                                      IValidFileIterator &files) override {
    return first(files);
  }
  std::atomic<int> calls{0};

private:
  ObjectPtr<IValidFile> first(IValidFileIterator &files) {
    ++calls;
    files.reset();
    return files.next();
  }
};

class NothingSupplied : public INoFilesFoundCallback {
public:
  ObjectPtr<IValidFile> noBinFilesFound(const char *, IValidator &, IInvalidFileIterator &,
                                        IValidFileIterator &) override {
    return ObjectPtr<IValidFile>();
  }
  ObjectPtr<IValidFile> noSymFilesFound(const char *, const char *, const char *, IValidator &,
                                        IInvalidFileIterator &, IValidFileIterator &) override {
    return ObjectPtr<IValidFile>();
  }
  ObjectPtr<IValidFile> noSrcFilesFound(const char *, const char *, const char *, IValidator &,
                                        IInvalidFileIterator &, IValidFileIterator &) override {
    return ObjectPtr<IValidFile>();
  }
};

TEST(ContextConcurrencyTest, SearchesRunWhileConfigurationChanges) {
  TempDir root;
  const std::string tool = root.write("bin/tool", "tool");
  ObjectPtr<IResolutionContextMgr> mgr = IResolutionContextMgr::create();
  ObjectPtr<IResolutionContext> parent = mgr->createFileSystemContext(root.mkdir("parent").c_str(), true);
  ObjectPtr<IResolutionContext> child =
      mgr->createResultDirectoryContext(root.mkdir("parent/result").c_str());
  mgr->addInheritance(*child, *parent);
  ObjectPtr<IEditableSearchDirContainer> parentDirs = IEditableSearchDirContainer::create();
  parentDirs->addDirectory(scBinaryFiles, root.sub("bin").c_str(), false, true);
  mgr->registerSearchDirs(*parent, parentDirs, "dirs");
  mgr->registerCacheDir(*child, root.mkdir("cache").c_str());

  // Callbacks outlive every search.
  FirstFileChooser chooserA, chooserB;
  NothingSupplied nothing;
  FixedConfidencePolicy policy;

  std::atomic<bool> stop{false};
  std::atomic<bool> configuring{false};
  std::atomic<int> changes{0};
  std::atomic<int> wrong{0};
  std::atomic<int> searches{0};
  std::vector<std::thread> searchers;
  for (int t = 0; t < 3; ++t) {
    searchers.emplace_back([&, t] {
      const char *client = t % 2 ? "a" : "b";
      while (!configuring)
        std::this_thread::yield();
      for (int i = 0; i < 15; ++i) {
        ObjectPtr<ISearchEnv> env = mgr->createSearchEnv(*child, client, ObjectPtr<IEnvironmentInfo>());
        if (listDirs(env->searchDirs(scBinaryFiles)).empty())
          ++wrong;
        ObjectPtr<IFileSearch> search = mgr->createFileSearch(*child, client, ObjectPtr<IEnvironmentInfo>());
        ObjectPtr<IValidFile> found = search->findBinFile("tool", nullptr, nullptr, 0);
        if (!found || tool != found->name())
          ++wrong;
        ++searches;
      }
    });
  }
  std::thread configurer([&] {
    for (int i = 0; !stop; ++i) {
      const std::string key = "key" + std::to_string(i % 20);
      ObjectPtr<IEditableSearchDirContainer> dirs = IEditableSearchDirContainer::create();
      dirs->addDirectory(scSourceFiles, root.sub("src" + std::to_string(i % 7)).c_str(), i % 2, true);
      mgr->registerSearchDirs(i % 2 ? *child : *parent, dirs, key.c_str());
      parentDirs->addDirectory(scSymbolFiles, root.sub("sym" + std::to_string(i % 5)).c_str(), false, false);
      mgr->registerFilesFoundCallback(*child, "a", i % 2 ? &chooserA : &chooserB);
      mgr->registerNoFilesFoundCallback(*parent, "", &nothing);
      mgr->registerConfidenceLevelPolicyCallback(*parent, "b", &policy);
      mgr->registerArchiveDir(*parent, root.sub("archive").c_str());
      mgr->addInheritance(*child, *parent);
      if (i % 10 == 0) {
        mgr->captureSearchDirs(*child, "c");
        mgr->releaseSearchDirs(*child, "c");
      }
      ++changes;
      configuring = true;
    }
  });
  for (std::thread &t : searchers)
    t.join();
  stop = true;
  configurer.join();
  EXPECT_EQ(0, wrong.load());
  EXPECT_EQ(45, searches.load());
  EXPECT_GT(changes.load(), 0);
}

TEST(ContextConcurrencyTest, ManyThreadsReadAndCreateMetadataOfTheSameContexts) {
  ObjectPtr<IResolutionContextMgr> mgr = IResolutionContextMgr::create();
  ResolutionContextMgr &impl = *static_cast<ResolutionContextMgr *>(mgr.get());
  const size_t before = impl.contextCount();
  std::vector<std::thread> threads;
  std::atomic<int> mismatched{0};
  std::vector<IMetadata *> seen(4, nullptr);
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 50; ++i) {
        ObjectPtr<IResolutionContext> context(
            new BasicResolutionContext(("/concurrent/metadata/" + std::to_string(i % 10)).c_str()));
        ObjectPtr<IMetadata> metadata = impl.getMetadataForContext(*context);
        if (metadata.get() != impl.getMetadataForContext(*context).get())
          ++mismatched;
        if (i == 0)
          seen[t] = metadata.get();
      }
    });
  }
  for (std::thread &t : threads)
    t.join();
  EXPECT_EQ(0, mismatched.load());
  EXPECT_EQ(before + 10, impl.contextCount());
  // Every thread got the one metadata object of /concurrent/metadata/0.
  EXPECT_EQ(seen[0], seen[1]);
  EXPECT_EQ(seen[0], seen[2]);
  EXPECT_EQ(seen[0], seen[3]);
}

// A manager operation that calls into the metadata of one context.
struct MetadataCall {
  const char *name;
  std::function<void(IResolutionContextMgr &, IResolutionContext &)> call;
};

TEST(ContextConcurrencyTest, ManagerGoesOnWhileAnOperationWaitsForAContextsMetadata) {
  ObjectPtr<IResolutionContextMgr> mgr = IResolutionContextMgr::create();
  ResolutionContextMgr &impl = *static_cast<ResolutionContextMgr *>(mgr.get());
  auto started = std::make_shared<RecordingSearchStarted>();
  auto retriever = std::make_shared<RecordingRetriever>();
  const std::vector<MetadataCall> calls = {
      {"registerSearchDirs",
       [](IResolutionContextMgr &m, IResolutionContext &c) {
         m.registerSearchDirs(c, containerWith(scAllFiles, {"/x"}), "k");
       }},
      {"registerArchiveDir",
       [](IResolutionContextMgr &m, IResolutionContext &c) { m.registerArchiveDir(c, "/archive"); }},
      {"registerSearchStartedCallback",
       [started](IResolutionContextMgr &m, IResolutionContext &c) {
         m.registerSearchStartedCallback(c, "c", started.get());
       }},
      {"registerFileRetriever",
       [retriever](IResolutionContextMgr &m, IResolutionContext &c) {
         m.registerFileRetriever(c, "c", retriever.get());
       }},
      {"registerEnvironmentInfo",
       [](IResolutionContextMgr &m, IResolutionContext &c) {
         m.registerEnvironmentInfo(c, "c", IEditableEnvironmentInfo::create());
       }},
      {"releaseSearchDirs",
       [](IResolutionContextMgr &m, IResolutionContext &c) { m.releaseSearchDirs(c, "c"); }},
      {"captureSearchDirs",
       [](IResolutionContextMgr &m, IResolutionContext &c) { m.captureSearchDirs(c, "c"); }},
      {"createSearchEnv",
       [](IResolutionContextMgr &m, IResolutionContext &c) {
         m.createSearchEnv(c, "c", ObjectPtr<IEnvironmentInfo>());
       }},
      {"archiveFile",
       [](IResolutionContextMgr &m, IResolutionContext &c) { m.archiveFile(c, "/f", scAllFiles); }},
  };
  int round = 0;
  for (const MetadataCall &entry : calls) {
    SCOPED_TRACE(entry.name);
    const std::string prefix = "/lockfree/" + std::to_string(round++) + "/";
    ObjectPtr<IResolutionContext> blocked(new BasicResolutionContext((prefix + "blocked").c_str()));
    ObjectPtr<IMetadata> metadata = impl.getMetadataForContext(*blocked);
    ISpinSharedLock &metadataLock = static_cast<Metadata &>(*metadata).lock();
    metadataLock.lock();
    {
      BackgroundCall waiting([mgr, blocked, call = entry.call] { call(*mgr, *blocked); });
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
      EXPECT_FALSE(waiting.finished()) << "the operation did not wait for the metadata";

      // Insertions into both maps take the manager's lock exclusively: they
      // can only finish while the waiting operation holds none of it.
      BackgroundCall others([mgr, prefix, blocked, metadata] {
        ResolutionContextMgr &manager = *static_cast<ResolutionContextMgr *>(mgr.get());
        ObjectPtr<IResolutionContext> child(new BasicResolutionContext((prefix + "child").c_str()));
        ObjectPtr<IResolutionContext> parent(new BasicResolutionContext((prefix + "parent").c_str()));
        manager.addInheritance(*child, *parent);
        manager.registerArchiveDir(*parent, "/parent/archive");
        manager.createSearchEnv(*child, "c", ObjectPtr<IEnvironmentInfo>());
        if (manager.getMetadataForContext(*blocked).get() != metadata.get())
          ADD_FAILURE() << "another metadata object for the same context";
      });
      EXPECT_TRUE(others.finishesWithin(std::chrono::seconds(5)))
          << "the manager's lock was held while waiting for the metadata";
      EXPECT_FALSE(waiting.finished());
      metadataLock.unlock();
      EXPECT_TRUE(waiting.finishesWithin(std::chrono::seconds(10)));
      EXPECT_TRUE(others.finishesWithin(std::chrono::seconds(10)));
    }
    ObjectPtr<IResolutionContext> child(new BasicResolutionContext((prefix + "child").c_str()));
    ObjectPtr<IResolutionContext> parent = impl.getParentContext(*child);
    ASSERT_TRUE(parent);
    EXPECT_EQ(prefix + "parent", parent->getUniqueID());
  }
}

} // namespace
