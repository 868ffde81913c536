// The progress callback given to findSymFile reaches the retriever that
// fetches for that search, and only for the length of that search.
#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <string>
#include <vector>

#include "support/temp_dir.h"
#include "vell/file_search.h"
#include "vell/http_retriever.h"
#include "vell/search_env.h"
#include "vell_retriever/fault_http_server.h"
#include "vell_retriever/retriever_fixtures.h"

using namespace VELL_2_13;

namespace {

struct ProgressRecorder : ISymSrvDownloadProgressCallback {
  void progress(const char *fileName, uint64_t done, uint64_t total) override {
    names.push_back(fileName ? fileName : "");
    lastDone = done;
    lastTotal = total;
  }
  std::vector<std::string> names;
  uint64_t lastDone = 0;
  uint64_t lastTotal = 0;
};

// Records, at each retrieval, the callback the search on its thread was given.
class ObservingRetriever : public IFileRetriever {
public:
  bool allowKernelFallback(const char *) override { return true; }
  int retrieveFile(const char *, const char *) override {
    seen.push_back(currentDownloadProgressCallback());
    if (nestedSearch)
      nestedSearch();
    seen.push_back(currentDownloadProgressCallback());
    return ENOENT;
  }
  int getFileChecksum(const char *, ObjectPtr<IChecksum> &) override { return 1; }
  bool isRemote() override { return true; }
  bool isLocalFile(const std::string &) override { return false; }
  void setEnvironmentInfo(ObjectPtr<IEnvironmentInfo>) override {}

  std::vector<ISymSrvDownloadProgressCallback *> seen;
  std::function<void()> nestedSearch;
};

class SearchProgressTest : public ::testing::Test {
protected:
  static void SetUpTestSuite() {
    s_dir = new vell_test::TempDir;
    s_program = new vell_test::BuiltProgram(vell_test::buildProgram(s_dir->sub("tree"), "meter", "metered"));
  }
  static void TearDownTestSuite() {
    delete s_program;
    delete s_dir;
  }

  ObjectPtr<IFileSearch> searchWith(IFileRetriever *retriever) {
    ObjectPtr<IEditableSearchEnv> env = IEditableSearchEnv::create();
    env->setCacheDir(m_dir.mkdir("search-cache").c_str());
    ObjectPtr<IEditableEnvironmentInfo> info = IEditableEnvironmentInfo::create();
    info->setOsType(ostLinux);
    env->setEnvironmentInfo(info);
    env->setFileRetriever(retriever);
    return IFileSearch::create(env);
  }

  HttpRetrieverOptions options() {
    HttpRetrieverOptions o;
    o.servers = {m_server.url()};
    o.cacheDir = m_dir.sub("http-cache");
    o.retries = 0;
    return o;
  }

  // Serves the program's debug file and searches for it through a retriever
  // with onRetriever set, the search given onSearch; the file found, if any.
  ObjectPtr<IValidFile> fetchDebugFile(ProgressRecorder *onRetriever, ProgressRecorder *onSearch) {
    m_server.script(debugUrlPath(), {{200, debugContent()}});
    HttpFileRetriever retriever(options());
    EXPECT_TRUE(retriever.addFile("meter.debug", s_program->buildId, bfkDebugInfo));
    retriever.setProgressCallback(onRetriever);
    return searchWith(&retriever)
        ->findSymFile("meter.debug", nullptr, nullptr, nullptr, nullptr, onSearch, nullptr);
  }

  static std::string debugContent() { return vell_test::readWhole(s_program->debugFile); }

  std::string debugUrlPath() const { return "/buildid/" + s_program->buildId + "/debuginfo"; }

  static vell_test::TempDir *s_dir;
  static vell_test::BuiltProgram *s_program;
  vell_test::TempDir m_dir;
  vell_test::FaultHttpServer m_server;
};

vell_test::TempDir *SearchProgressTest::s_dir = nullptr;
vell_test::BuiltProgram *SearchProgressTest::s_program = nullptr;

TEST_F(SearchProgressTest, NoCallbackOutsideASearch) {
  EXPECT_EQ(nullptr, currentDownloadProgressCallback());
}

TEST_F(SearchProgressTest, SymbolSearchProgressReachesTheHttpRetriever) {
  const std::string debug = debugContent();
  ProgressRecorder onRetriever;
  ProgressRecorder onSearch;

  ObjectPtr<IValidFile> found = fetchDebugFile(&onRetriever, &onSearch);

  ASSERT_TRUE(found);
  EXPECT_EQ(debug, vell_test::readWhole(found->name()));
  // The search's own callback wins over the retriever's.
  ASSERT_FALSE(onSearch.names.empty());
  EXPECT_EQ(m_server.url() + debugUrlPath(), onSearch.names.back());
  EXPECT_EQ(debug.size(), onSearch.lastDone);
  EXPECT_EQ(debug.size(), onSearch.lastTotal);
  EXPECT_TRUE(onRetriever.names.empty());
  EXPECT_EQ(nullptr, currentDownloadProgressCallback());
}

TEST_F(SearchProgressTest, WithoutASearchCallbackTheRetrieversOwnReceivesProgress) {
  const std::string debug = debugContent();
  ProgressRecorder onRetriever;

  ObjectPtr<IValidFile> found = fetchDebugFile(&onRetriever, nullptr);

  ASSERT_TRUE(found);
  ASSERT_FALSE(onRetriever.names.empty());
  EXPECT_EQ(debug.size(), onRetriever.lastDone);
}

TEST_F(SearchProgressTest, NestedSearchesEachSeeTheirOwnCallback) {
  ObservingRetriever outerRetriever;
  ObservingRetriever innerRetriever;
  ProgressRecorder outer;
  ProgressRecorder inner;
  ObjectPtr<IFileSearch> innerSearch = searchWith(&innerRetriever);
  // The first fetch of the outer search starts another symbol search on the
  // same thread, as a host callback might.
  outerRetriever.nestedSearch = [&] {
    if (innerRetriever.seen.empty())
      innerSearch->findSymFile("/remote/inner.debug", nullptr, nullptr, nullptr, nullptr, &inner, nullptr);
  };

  searchWith(&outerRetriever)
      ->findSymFile("/remote/outer.debug", nullptr, nullptr, nullptr, nullptr, &outer, nullptr);

  ASSERT_GE(outerRetriever.seen.size(), 2u);
  EXPECT_EQ(&outer, outerRetriever.seen[0]);
  // After the inner search, the outer search's callback is current again.
  EXPECT_EQ(&outer, outerRetriever.seen[1]);
  ASSERT_FALSE(innerRetriever.seen.empty());
  for (ISymSrvDownloadProgressCallback *seen : innerRetriever.seen)
    EXPECT_EQ(&inner, seen);
  EXPECT_EQ(nullptr, currentDownloadProgressCallback());
}

TEST_F(SearchProgressTest, BinarySearchesHaveNoProgressCallback) {
  ObservingRetriever retriever;

  searchWith(&retriever)->findBinFile("/remote/bin/tool", nullptr, nullptr, 0);

  ASSERT_FALSE(retriever.seen.empty());
  for (ISymSrvDownloadProgressCallback *seen : retriever.seen)
    EXPECT_EQ(nullptr, seen);
}

} // namespace
