// The context manager: the singleton, the three context factories, the
// result-directory layout, inheritance, metadata, registrations and tracing.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <thread>

#include "support/log_capture.h"
#include "support/temp_dir.h"
#include "vell_callbacks/callback_fakes.h"
#include "vell_context/context_fakes.h"
#include "vell_context/resolution_context_mgr.h"

using namespace VELL_2_13;
using namespace vell_test;

namespace {

constexpr int kTrace = 0;
constexpr int kInfo = 20000;

ResolutionContextMgr &impl(const ObjectPtr<IResolutionContextMgr> &mgr) {
  return *static_cast<ResolutionContextMgr *>(mgr.get());
}

ObjectPtr<IResolutionContext> contextFor(const std::string &id) {
  return ObjectPtr<IResolutionContext>(new BasicResolutionContext(id.c_str()));
}

// Trace lines that enter or leave a function whose signature contains name.
size_t traceCount(const LogCapture &log, const std::string &marker, const std::string &name) {
  std::vector<std::string> lines = log.texts(kTrace);
  return std::count_if(lines.begin(), lines.end(), [&](const std::string &line) {
    return line.rfind(marker, 0) == 0 && line.find(name) != std::string::npos;
  });
}

// --- Singleton -------------------------------------------------------------------------

TEST(ResolutionContextMgrTest, CreateReturnsTheSameManagerWhileItIsHeld) {
  ObjectPtr<IResolutionContextMgr> first = IResolutionContextMgr::create();
  ObjectPtr<IResolutionContextMgr> second = IResolutionContextMgr::create();
  ASSERT_TRUE(first);
  EXPECT_EQ(first.get(), second.get());
  EXPECT_EQ(static_cast<IResolutionContextMgr *>(ResolutionContextMgr::s_instance), first.get());
}

TEST(ResolutionContextMgrTest, ReleasedManagerIsReplacedByAFreshEmptyOne) {
  TempDir dir;
  ObjectPtr<IResolutionContext> context = contextFor(dir.path());
  {
    ObjectPtr<IResolutionContextMgr> mgr = IResolutionContextMgr::create();
    mgr->registerArchiveDir(*context, "/archive");
    mgr->registerSearchDirs(*context, containerWith(scBinaryFiles, {"/bin"}), "k");
    EXPECT_EQ("/archive", impl(mgr).getArchiveDir(*context));
    EXPECT_GE(impl(mgr).contextCount(), 1u);
  }
  EXPECT_EQ(nullptr, ResolutionContextMgr::s_instance);
  ObjectPtr<IResolutionContextMgr> fresh = IResolutionContextMgr::create();
  EXPECT_EQ(0u, impl(fresh).contextCount());
  EXPECT_EQ("", impl(fresh).getArchiveDir(*context));
  EXPECT_FALSE(impl(fresh).getSearchDirs(*context, "k"));
}

TEST(ResolutionContextMgrTest, ConcurrentCreateAndReleaseAlwaysYieldALiveManager) {
  std::vector<std::thread> threads;
  std::atomic<bool> nullManager{false};
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 200; ++i) {
        ObjectPtr<IResolutionContextMgr> mgr = IResolutionContextMgr::create();
        if (!mgr) {
          nullManager = true;
          continue;
        }
        ObjectPtr<IResolutionContext> context = contextFor("/singleton/race/" + std::to_string(t));
        mgr->registerCacheDir(*context, "/cache");
      }
    });
  }
  for (std::thread &thread : threads)
    thread.join();
  EXPECT_FALSE(nullManager);
  EXPECT_EQ(nullptr, ResolutionContextMgr::s_instance);
}

// --- Context factories ---------------------------------------------------------------------

TEST(ResolutionContextMgrTest, FileSystemContextsOfEquivalentSpellingsHaveOneIdentity) {
  ObjectPtr<IResolutionContextMgr> mgr = IResolutionContextMgr::create();
  ObjectPtr<IResolutionContext> a = mgr->createFileSystemContext("/p/x/", true);
  ObjectPtr<IResolutionContext> b = mgr->createFileSystemContext("/p/./x", false);
  ObjectPtr<IResolutionContext> c = mgr->createFileSystemContext("/p/y/../x/.", true);
  ASSERT_TRUE(a && b && c);
  EXPECT_STREQ("/p/x", a->getUniqueID());
  EXPECT_STREQ("/p/x", b->getUniqueID());
  EXPECT_STREQ("/p/x", c->getUniqueID());
  EXPECT_STREQ("C:/proj/x", mgr->createFileSystemContext("C:\\proj\\x\\", true)->getUniqueID());
  EXPECT_STREQ("/p/x\\y", mgr->createFileSystemContext("/p/x\\y", true)->getUniqueID());
  // The directory flag does not change the identity.
  EXPECT_STREQ(mgr->createFileSystemContext("/p/file.txt", false)->getUniqueID(),
               mgr->createFileSystemContext("/p/file.txt", true)->getUniqueID());
}

TEST(ResolutionContextMgrTest, FileSystemContextIsLoggedWithThePathReceived) {
  ObjectPtr<IResolutionContextMgr> mgr = IResolutionContextMgr::create();
  LogCapture log;
  ObjectPtr<IResolutionContext> context = mgr->createFileSystemContext("/p/./x/", true);
  ASSERT_TRUE(context);
  EXPECT_EQ(std::vector<std::string>{"ContextId: /p/./x/"}, log.texts(kInfo));
  EXPECT_EQ(1u, traceCount(log, "ENTER: ", "ResolutionContextMgr::createFileSystemContext("));
  EXPECT_EQ(1u, traceCount(log, "EXIT:  ", "ResolutionContextMgr::createFileSystemContext("));
}

TEST(ResolutionContextMgrTest, NullOrEmptyPathCreatesNoContext) {
  ObjectPtr<IResolutionContextMgr> mgr = IResolutionContextMgr::create();
  {
    LogCapture log;
    EXPECT_FALSE(mgr->createFileSystemContext(nullptr, true));
    EXPECT_EQ((std::vector<std::string>{"ContextId: NULL", "No context created!"}), log.texts(kInfo));
  }
  {
    LogCapture log;
    EXPECT_FALSE(mgr->createFileSystemContext("", false));
    EXPECT_EQ((std::vector<std::string>{"ContextId: ", "No context created!"}), log.texts(kInfo));
  }
  {
    // "." loses its last component and normalises to nothing.
    LogCapture log;
    EXPECT_FALSE(mgr->createFileSystemContext(".", true));
    EXPECT_EQ((std::vector<std::string>{"ContextId: .", "No context created!"}), log.texts(kInfo));
  }
}

TEST(ResolutionContextMgrTest, UserWideContextsAreOneContextNamedAfterTheUser) {
  ObjectPtr<IResolutionContextMgr> mgr = IResolutionContextMgr::create();
  LogCapture log;
  ObjectPtr<IResolutionContext> a = mgr->createUserWideContext();
  ObjectPtr<IResolutionContext> b = mgr->createUserWideContext();
  ASSERT_TRUE(a && b);
  EXPECT_EQ(utils::getUserId(), a->getUniqueID());
  EXPECT_STREQ(a->getUniqueID(), b->getUniqueID());
  EXPECT_EQ(2u, traceCount(log, "ENTER: ", "ResolutionContextMgr::createUserWideContext("));
  EXPECT_EQ(2u, traceCount(log, "EXIT:  ", "ResolutionContextMgr::createUserWideContext("));
}

TEST(ResolutionContextMgrTest, ResultDirectoryContextRegistersItsLayout) {
  TempDir dir;
  const std::string d = dir.path();
  ObjectPtr<IResolutionContextMgr> mgr = IResolutionContextMgr::create();
  LogCapture log;
  ObjectPtr<IResolutionContext> context = mgr->createResultDirectoryContext(d.c_str());
  ASSERT_TRUE(context);
  EXPECT_EQ(d, context->getUniqueID());
  EXPECT_EQ(d + "/archive", impl(mgr).getArchiveDir(*context));

  ObjectPtr<ISearchDirContainer> layout = impl(mgr).getSearchDirs(*context, " hidden_result_dir_key");
  ASSERT_TRUE(layout);
  EXPECT_EQ(std::vector<std::string>{d + "/binaries:p"}, listDirs(layout->enumerate(scBinaryFiles)));
  EXPECT_EQ((std::vector<std::string>{d + "/symbols:p", d + "/binaries:p"}),
            listDirs(layout->enumerate(scSymbolFiles)));
  EXPECT_EQ(std::vector<std::string>{d + "/sources:r:p"}, listDirs(layout->enumerate(scSourceFiles)));
  EXPECT_EQ((std::vector<std::string>{d + "/all:r:p", d + ":p"}), listDirs(layout->enumerate(scAllFiles)));

  EXPECT_EQ((std::vector<std::string>{"ContextId: " + d, "Context: " + d + " Dir: " + d + "/archive",
                                      "Context: " + d + " Key:  hidden_result_dir_key"}),
            log.texts(kInfo));
  EXPECT_EQ(1u, traceCount(log, "ENTER: ", "ResolutionContextMgr::createResultDirectoryContext("));
  EXPECT_EQ(1u, traceCount(log, "EXIT:  ", "ResolutionContextMgr::createResultDirectoryContext("));
}

TEST(ResolutionContextMgrTest, ResultDirectoryIsSetUpOnlyOnce) {
  TempDir dir;
  ObjectPtr<IResolutionContextMgr> mgr = IResolutionContextMgr::create();
  ObjectPtr<IResolutionContext> first = mgr->createResultDirectoryContext(dir.path().c_str());
  ObjectPtr<ISearchDirContainer> layout = impl(mgr).getSearchDirs(*first, " hidden_result_dir_key");
  mgr->registerArchiveDir(*first, "/moved/archive");

  LogCapture log;
  ObjectPtr<IResolutionContext> second = mgr->createResultDirectoryContext((dir.path() + "/").c_str());
  ASSERT_TRUE(second);
  EXPECT_STREQ(first->getUniqueID(), second->getUniqueID());
  EXPECT_EQ(layout.get(), impl(mgr).getSearchDirs(*second, " hidden_result_dir_key").get());
  EXPECT_EQ("/moved/archive", impl(mgr).getArchiveDir(*second));
  EXPECT_EQ(std::vector<std::string>{"ContextId: " + dir.path() + "/"}, log.texts(kInfo));
}

TEST(ResolutionContextMgrTest, ResultDirectoryContextOfNullOrEmptyIsNull) {
  ObjectPtr<IResolutionContextMgr> mgr = IResolutionContextMgr::create();
  {
    LogCapture log;
    EXPECT_FALSE(mgr->createResultDirectoryContext(nullptr));
    EXPECT_TRUE(log.texts(kInfo).empty());
  }
  LogCapture log;
  EXPECT_FALSE(mgr->createResultDirectoryContext(""));
  EXPECT_EQ((std::vector<std::string>{"ContextId: ", "No context created!"}), log.texts(kInfo));
}

// --- Inheritance and metadata ------------------------------------------------------------

TEST(ResolutionContextMgrTest, InheritanceIsLoggedAndTheLastParentWins) {
  ObjectPtr<IResolutionContextMgr> mgr = IResolutionContextMgr::create();
  ObjectPtr<IResolutionContext> child = contextFor("/inherit/child");
  ObjectPtr<IResolutionContext> parent = contextFor("/inherit/parent");
  ObjectPtr<IResolutionContext> other = contextFor("/inherit/other");
  EXPECT_FALSE(impl(mgr).getParentContext(*child));
  LogCapture log;
  EXPECT_TRUE(mgr->addInheritance(*child, *parent));
  EXPECT_EQ(std::vector<std::string>{"Child: /inherit/child Parent: /inherit/parent"}, log.texts(kInfo));
  EXPECT_EQ(1u, traceCount(log, "ENTER: ", "ResolutionContextMgr::addInheritance("));
  EXPECT_EQ(1u, traceCount(log, "EXIT:  ", "ResolutionContextMgr::addInheritance("));
  ObjectPtr<IResolutionContext> stored = impl(mgr).getParentContext(*child);
  ASSERT_TRUE(stored);
  EXPECT_STREQ("/inherit/parent", stored->getUniqueID());
  EXPECT_NE(parent.get(), stored.get()); // a copy of the identity only

  EXPECT_TRUE(mgr->addInheritance(*child, *other));
  EXPECT_STREQ("/inherit/other", impl(mgr).getParentContext(*child)->getUniqueID());
  // Found through any object with the same identity.
  EXPECT_STREQ("/inherit/other", impl(mgr).getParentContext(*contextFor("/inherit/child"))->getUniqueID());
}

TEST(ResolutionContextMgrTest, ReadingAContextCreatesItsEmptyMetadataOnce) {
  ObjectPtr<IResolutionContextMgr> mgr = IResolutionContextMgr::create();
  const size_t before = impl(mgr).contextCount();
  ObjectPtr<IResolutionContext> context = contextFor("/metadata/ctx");
  ObjectPtr<IMetadata> metadata = impl(mgr).getMetadataForContext(*context);
  ASSERT_TRUE(metadata);
  EXPECT_EQ(before + 1, impl(mgr).contextCount());
  EXPECT_EQ(metadata.get(), impl(mgr).getMetadataForContext(*contextFor("/metadata/ctx")).get());
  EXPECT_EQ(metadata.get(), impl(mgr).addEmptyMetadata(*context).get());
  EXPECT_EQ(before + 1, impl(mgr).contextCount());
  EXPECT_EQ("", metadata->getArchiveDir());
  EXPECT_FALSE(metadata->getSearchDirs(" hidden_result_dir_key"));
  // Identities are compared byte-wise and case-sensitively.
  EXPECT_NE(metadata.get(), impl(mgr).getMetadataForContext(*contextFor("/METADATA/ctx")).get());
  EXPECT_NE(metadata.get(), impl(mgr).getMetadataForContext(*contextFor("/metadata/ctx/")).get());
}

TEST(ResolutionContextMgrTest, ContextKeyOrderIsByteWise) {
  ResolutionContextKeyLess less;
  ObjectPtr<IResolutionContext> upper = contextFor("/B"), lower = contextFor("/a"),
                                prefix = contextFor("/a/");
  EXPECT_TRUE(less(ResolutionContextKey(*upper), ResolutionContextKey(*lower)));
  EXPECT_FALSE(less(ResolutionContextKey(*lower), ResolutionContextKey(*upper)));
  EXPECT_TRUE(less(ResolutionContextKey(*lower), ResolutionContextKey(*prefix)));
  EXPECT_FALSE(less(ResolutionContextKey(*lower), ResolutionContextKey(*contextFor("/a"))));
}

TEST(ResolutionContextMgrTest, OwnGettersDoNotLookAtParents) {
  ObjectPtr<IResolutionContextMgr> mgr = IResolutionContextMgr::create();
  ObjectPtr<IResolutionContext> child = contextFor("/own/child");
  ObjectPtr<IResolutionContext> parent = contextFor("/own/parent");
  mgr->addInheritance(*child, *parent);
  mgr->registerArchiveDir(*parent, "/parent/archive");
  mgr->registerSearchDirs(*parent, containerWith(scAllFiles, {"/p"}), "k");
  EXPECT_EQ("", impl(mgr).getArchiveDir(*child));
  EXPECT_FALSE(impl(mgr).getSearchDirs(*child, "k"));
  EXPECT_EQ("/parent/archive", impl(mgr).getArchiveDir(*parent));
}

// --- Registrations -----------------------------------------------------------------------

TEST(ResolutionContextMgrTest, DirectoryRegistrationsAreTracedAndLogged) {
  ObjectPtr<IResolutionContextMgr> mgr = IResolutionContextMgr::create();
  ObjectPtr<IResolutionContext> context = contextFor("/log/ctx");
  LogCapture log;
  mgr->registerSearchDirs(*context, containerWith(scAllFiles, {"/x"}), "key");
  mgr->registerSearchDirs(*context, containerWith(scAllFiles, {"/x"}), nullptr);
  mgr->registerArchiveDir(*context, "/arch");
  mgr->registerArchiveDir(*context, nullptr);
  mgr->registerCacheDir(*context, "/cache");
  mgr->registerCacheDir(*context, nullptr);
  EXPECT_EQ((std::vector<std::string>{"Context: /log/ctx Key: key", "Context: /log/ctx Key: NULL",
                                      "Context: /log/ctx Dir: /arch", "Context: /log/ctx Dir: NULL",
                                      "Context: /log/ctx Dir: /cache", "Context: /log/ctx Dir: NULL"}),
            log.texts(kInfo));
  EXPECT_EQ(2u, traceCount(log, "ENTER: ", "ResolutionContextMgr::registerSearchDirs("));
  EXPECT_EQ(2u, traceCount(log, "EXIT:  ", "ResolutionContextMgr::registerSearchDirs("));
  EXPECT_EQ(2u, traceCount(log, "ENTER: ", "ResolutionContextMgr::registerArchiveDir("));
  EXPECT_EQ(2u, traceCount(log, "EXIT:  ", "ResolutionContextMgr::registerCacheDir("));
  // Null directories leave the stored ones unchanged.
  EXPECT_EQ("/arch", impl(mgr).getArchiveDir(*context));
  EXPECT_EQ("/cache", impl(mgr).getMetadataForContext(*context)->getCacheDir());
  EXPECT_TRUE(impl(mgr).getSearchDirs(*context, "key"));
}

TEST(ResolutionContextMgrTest, OtherRegistrationsDoNotLog) {
  ObjectPtr<IResolutionContextMgr> mgr = IResolutionContextMgr::create();
  ObjectPtr<IResolutionContext> context = contextFor("/quiet/ctx");
  RecordingSearchStarted started;
  ChoosingFilesFound found{ObjectPtr<IValidFile>()};
  SupplyingNoFilesFound noFiles{ObjectPtr<IValidFile>()};
  FixedConfidencePolicy policy;
  RecordingRetriever retriever;
  int storage = 0;
  LogCapture log;
  EXPECT_TRUE(mgr->registerSearchStartedCallback(*context, "c", &started));
  EXPECT_TRUE(mgr->registerFilesFoundCallback(*context, "c", &found));
  EXPECT_TRUE(mgr->registerNoFilesFoundCallback(*context, "c", &noFiles));
  EXPECT_TRUE(mgr->registerConfidenceLevelPolicyCallback(*context, "c", &policy));
  EXPECT_TRUE(mgr->registerFileRetriever(*context, "c", &retriever));
  EXPECT_TRUE(mgr->registerSearchStepsConfigurator(
      *context, "c", ObjectPtr<ISearchStepsConfigurator>(new DefaultSearchStepsConfigurator())));
  EXPECT_TRUE(mgr->registerMessenger(*context, "c", fakeMessenger(storage)));
  EXPECT_TRUE(mgr->registerEnvironmentInfo(*context, "c", IEditableEnvironmentInfo::create()));
  EXPECT_TRUE(log.texts().empty());

  ObjectPtr<IMetadata> metadata = impl(mgr).getMetadataForContext(*context);
  vell_callbacks_t record = metadata->getCallbacks("c");
  EXPECT_EQ(&started, record.searchStarted.callbackUnlocked());
  EXPECT_EQ(&found, record.filesFound.callbackUnlocked());
  EXPECT_EQ(&noFiles, record.noFilesFound.callbackUnlocked());
  EXPECT_EQ(&policy, record.confidenceLevelPolicy.callbackUnlocked());
  EXPECT_EQ(&retriever, metadata->getFileRetriever("c"));
  EXPECT_TRUE(metadata->getSearchStepsConfigurator("c"));
  EXPECT_EQ(fakeMessenger(storage), metadata->getMessenger("c"));
  EXPECT_TRUE(metadata->getEnvironmentInfo("c"));
}

TEST(ResolutionContextMgrTest, CallbackRegistrationWithNullClientIdStoresNothing) {
  ObjectPtr<IResolutionContextMgr> mgr = IResolutionContextMgr::create();
  ObjectPtr<IResolutionContext> context = contextFor("/nullclient/ctx");
  RecordingSearchStarted started;
  ChoosingFilesFound found{ObjectPtr<IValidFile>()};
  SupplyingNoFilesFound noFiles{ObjectPtr<IValidFile>()};
  FixedConfidencePolicy policy;
  EXPECT_FALSE(mgr->registerSearchStartedCallback(*context, nullptr, &started));
  EXPECT_FALSE(mgr->registerFilesFoundCallback(*context, nullptr, &found));
  EXPECT_FALSE(mgr->registerNoFilesFoundCallback(*context, nullptr, &noFiles));
  EXPECT_FALSE(mgr->registerConfidenceLevelPolicyCallback(*context, nullptr, &policy));
  ObjectPtr<IMetadata> metadata = impl(mgr).getMetadataForContext(*context);
  vell_callbacks_t record = metadata->getCallbacks("");
  EXPECT_FALSE(record.searchStarted.hasCallback());
  EXPECT_FALSE(record.filesFound.hasCallback());
  EXPECT_FALSE(record.noFilesFound.hasCallback());
  EXPECT_FALSE(record.confidenceLevelPolicy.hasCallback());
}

TEST(ResolutionContextMgrTest, CaptureAndReleaseAreTracedAndLogged) {
  ObjectPtr<IResolutionContextMgr> mgr = IResolutionContextMgr::create();
  ObjectPtr<IResolutionContext> context = contextFor("/capture/log");
  LogCapture log;
  mgr->releaseSearchDirs(*context, "A");
  EXPECT_EQ(std::vector<std::string>{"Context: /capture/log ClientId: A"}, log.texts(kInfo));
  EXPECT_EQ(1u, traceCount(log, "ENTER: ", "ResolutionContextMgr::releaseSearchDirs("));
  EXPECT_EQ(1u, traceCount(log, "EXIT:  ", "ResolutionContextMgr::releaseSearchDirs("));
  log.clear();
  mgr->captureSearchDirs(*context, "A");
  // Capturing releases first and builds an environment for the client.
  EXPECT_EQ(
      (std::vector<std::string>{"Context: /capture/log ClientId: A", "Context: /capture/log ClientId: A",
                                "Context: /capture/log ClientId: A"}),
      log.texts(kInfo));
  EXPECT_EQ(1u, traceCount(log, "ENTER: ", "ResolutionContextMgr::captureSearchDirs("));
  EXPECT_EQ(1u, traceCount(log, "ENTER: ", "ResolutionContextMgr::createSearchEnv("));
  EXPECT_EQ(1u, traceCount(log, "EXIT:  ", "ResolutionContextMgr::createSearchEnv("));
  EXPECT_TRUE(impl(mgr).getMetadataForContext(*context)->getCapturedSearchDirs("A"));
  log.clear();
  mgr->releaseSearchDirs(*context, nullptr);
  mgr->captureSearchDirs(*context, nullptr);
  EXPECT_EQ((std::vector<std::string>{"Context: /capture/log ClientId: NULL",
                                      "Context: /capture/log ClientId: NULL"}),
            log.texts(kInfo));
}

// --- Exact trace lines -----------------------------------------------------------------------

// Full signatures of the traced operations as the compiler spells them.
const std::string kSigAddInheritance = "virtual bool VELL_2_13::ResolutionContextMgr::addInheritance("
                                       "VELL_2_13::IResolutionContext&, VELL_2_13::IResolutionContext&)";
const std::string kSigRegisterSearchDirs =
    "virtual void VELL_2_13::ResolutionContextMgr::registerSearchDirs(VELL_2_13::IResolutionContext&, "
    "const VELL_2_13::ObjectPtr<VELL_2_13::ISearchDirContainer>&, const char*)";
const std::string kSigRegisterArchiveDir =
    "virtual void VELL_2_13::ResolutionContextMgr::registerArchiveDir(VELL_2_13::IResolutionContext&, const "
    "char*)";
const std::string kSigRegisterCacheDir =
    "virtual void VELL_2_13::ResolutionContextMgr::registerCacheDir(VELL_2_13::IResolutionContext&, const "
    "char*)";
const std::string kSigCaptureSearchDirs =
    "virtual void VELL_2_13::ResolutionContextMgr::captureSearchDirs(VELL_2_13::IResolutionContext&, const "
    "char*)";
const std::string kSigReleaseSearchDirs =
    "virtual void VELL_2_13::ResolutionContextMgr::releaseSearchDirs(VELL_2_13::IResolutionContext&, const "
    "char*)";
const std::string kSigCreateSearchEnv =
    "virtual VELL_2_13::ObjectPtr<VELL_2_13::ISearchEnv> VELL_2_13::ResolutionContextMgr::createSearchEnv("
    "VELL_2_13::IResolutionContext&, const char*, const VELL_2_13::ObjectPtr<VELL_2_13::IEnvironmentInfo>&)";
const std::string kSigCreateFileSystemContext =
    "virtual VELL_2_13::ObjectPtr<VELL_2_13::IResolutionContext> "
    "VELL_2_13::ResolutionContextMgr::createFileSystemContext(const char*, bool)";
const std::string kSigCreateUserWideContext = "virtual VELL_2_13::ObjectPtr<VELL_2_13::IResolutionContext> "
                                              "VELL_2_13::ResolutionContextMgr::createUserWideContext()";
const std::string kSigCreateResultDirectoryContext =
    "virtual VELL_2_13::ObjectPtr<VELL_2_13::IResolutionContext> "
    "VELL_2_13::ResolutionContextMgr::createResultDirectoryContext(const char*)";

// Some compilers put a blank before "&" and "*" in a signature; this drops it
// so that one spelling serves all.
std::string withoutBlankBeforeDeclarators(std::string text) {
  for (const char *blanked : {" &", " *"}) {
    for (size_t at = text.find(blanked); at != std::string::npos; at = text.find(blanked, at))
      text.erase(at, 1);
  }
  return text;
}

std::vector<std::string> traceLines(const LogCapture &log) {
  std::vector<std::string> lines = log.texts(kTrace);
  for (std::string &line : lines)
    line = withoutBlankBeforeDeclarators(line);
  return lines;
}

std::string enterLine(const std::string &signature) { return "ENTER: " + signature; }
std::string exitLine(const std::string &signature) { return "EXIT:  " + signature; }

struct TracedOperation {
  const char *name;
  std::function<void(IResolutionContextMgr &)> run;
  std::vector<std::string> expected;
};

TEST(ResolutionContextMgrTest, TracedOperationsLogExactEnterAndExitLines) {
  TempDir dir;
  const std::string resultDir = dir.mkdir("result");
  ObjectPtr<IResolutionContext> context = contextFor("/trace/ctx");
  ObjectPtr<IResolutionContext> parent = contextFor("/trace/parent");
  const std::vector<TracedOperation> operations = {
      {"addInheritance",
       [&](IResolutionContextMgr &m) { m.addInheritance(*context, *parent); },
       {enterLine(kSigAddInheritance), exitLine(kSigAddInheritance)}},
      {"registerSearchDirs",
       [&](IResolutionContextMgr &m) {
         m.registerSearchDirs(*context, containerWith(scAllFiles, {"/x"}), "k");
       },
       {enterLine(kSigRegisterSearchDirs), exitLine(kSigRegisterSearchDirs)}},
      {"registerArchiveDir",
       [&](IResolutionContextMgr &m) { m.registerArchiveDir(*context, "/archive"); },
       {enterLine(kSigRegisterArchiveDir), exitLine(kSigRegisterArchiveDir)}},
      {"registerCacheDir",
       [&](IResolutionContextMgr &m) { m.registerCacheDir(*context, "/cache"); },
       {enterLine(kSigRegisterCacheDir), exitLine(kSigRegisterCacheDir)}},
      {"releaseSearchDirs",
       [&](IResolutionContextMgr &m) { m.releaseSearchDirs(*context, "A"); },
       {enterLine(kSigReleaseSearchDirs), exitLine(kSigReleaseSearchDirs)}},
      // Capturing releases first and then builds an environment for the client.
      {"captureSearchDirs",
       [&](IResolutionContextMgr &m) { m.captureSearchDirs(*context, "A"); },
       {enterLine(kSigCaptureSearchDirs), enterLine(kSigReleaseSearchDirs), exitLine(kSigReleaseSearchDirs),
        enterLine(kSigCreateSearchEnv), exitLine(kSigCreateSearchEnv), exitLine(kSigCaptureSearchDirs)}},
      {"createSearchEnv",
       [&](IResolutionContextMgr &m) { m.createSearchEnv(*context, "A", ObjectPtr<IEnvironmentInfo>()); },
       {enterLine(kSigCreateSearchEnv), exitLine(kSigCreateSearchEnv)}},
      {"createFileSystemContext",
       [&](IResolutionContextMgr &m) { m.createFileSystemContext("/trace/fs", true); },
       {enterLine(kSigCreateFileSystemContext), exitLine(kSigCreateFileSystemContext)}},
      {"createUserWideContext",
       [&](IResolutionContextMgr &m) { m.createUserWideContext(); },
       {enterLine(kSigCreateUserWideContext), exitLine(kSigCreateUserWideContext)}},
      // A new result directory creates its context and registers its layout.
      {"createResultDirectoryContext",
       [&](IResolutionContextMgr &m) { m.createResultDirectoryContext(resultDir.c_str()); },
       {enterLine(kSigCreateResultDirectoryContext), enterLine(kSigCreateFileSystemContext),
        exitLine(kSigCreateFileSystemContext), enterLine(kSigRegisterArchiveDir),
        exitLine(kSigRegisterArchiveDir), enterLine(kSigRegisterSearchDirs), exitLine(kSigRegisterSearchDirs),
        exitLine(kSigCreateResultDirectoryContext)}},
  };
  ObjectPtr<IResolutionContextMgr> mgr = IResolutionContextMgr::create();
  for (const TracedOperation &operation : operations) {
    SCOPED_TRACE(operation.name);
    LogCapture log;
    operation.run(*mgr);
    EXPECT_EQ(operation.expected, traceLines(log));
    // Entry and exit enclose every other line the operation writes.
    const std::vector<CapturedLine> all = log.lines();
    ASSERT_FALSE(all.empty());
    EXPECT_EQ(operation.expected.front(), withoutBlankBeforeDeclarators(all.front().text));
    EXPECT_EQ(operation.expected.back(), withoutBlankBeforeDeclarators(all.back().text));
  }
}

} // namespace
