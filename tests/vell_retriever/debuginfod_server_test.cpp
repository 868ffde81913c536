// The HTTP retriever against Debian's debuginfod server indexing programs the
// test builds: debug file, binary and source fetched directly and through a
// file search, then served again from the cache without a request.
#include <gtest/gtest.h>

#include "support/debuginfod_suite.h"
#include "support/temp_dir.h"
#include "vell/file_search.h"
#include "vell/http_retriever.h"
#include "vell/search_env.h"

using namespace VELL_2_13;

namespace {

class DebuginfodServerTest : public vell_test::DebuginfodSuite<DebuginfodServerTest> {
public:
  static constexpr vell_test::ProgramSpec kProgram{"hello", "hello from the indexed tree"};

protected:
  HttpRetrieverOptions options() const {
    HttpRetrieverOptions o;
    o.servers = {debuginfod().url()};
    o.cacheDir = m_dir.sub("cache");
    o.retryDelayMs = 50;
    return o;
  }

  vell_test::TempDir m_dir;
};

TEST_F(DebuginfodServerTest, FetchesDebugFileBinaryAndSourceThenServesThemFromTheCache) {
  const vell_test::BuiltProgram &p = program();
  long before = debuginfod().buildIdRequests();
  {
    HttpFileRetriever retriever(options());
    BuildIdResult debug = retriever.fetchDebugInfo(p.buildId);
    BuildIdResult binary = retriever.fetchExecutable(p.buildId);
    BuildIdResult source = retriever.fetchSource(p.buildId, p.source);

    ASSERT_TRUE(debug.ok) << debug.error;
    ASSERT_TRUE(binary.ok) << binary.error;
    ASSERT_TRUE(source.ok) << source.error;
    EXPECT_EQ(foServer, debug.origin);
    EXPECT_EQ(vell_test::readWhole(p.debugFile), vell_test::readWhole(debug.path));
    EXPECT_EQ(vell_test::readWhole(p.binary), vell_test::readWhole(binary.path));
    EXPECT_EQ(vell_test::readWhole(p.source), vell_test::readWhole(source.path));
    EXPECT_EQ(3, debuginfod().buildIdRequests() - before);
  }

  // A second run (a new retriever over the same cache) asks the server nothing.
  HttpFileRetriever again(options());
  EXPECT_EQ(foCache, again.fetchDebugInfo(p.buildId).origin);
  EXPECT_EQ(foCache, again.fetchExecutable(p.buildId).origin);
  EXPECT_EQ(foCache, again.fetchSource(p.buildId, p.source).origin);
  EXPECT_EQ(3, debuginfod().buildIdRequests() - before);
  EXPECT_EQ(0u, again.stats().requests);
}

TEST_F(DebuginfodServerTest, UnknownBuildIdIsNotFoundAndRemembered) {
  long before = debuginfod().buildIdRequests();
  HttpFileRetriever retriever(options());
  BuildIdResult first = retriever.fetchDebugInfo("0123456789abcdef0123456789abcdef01234567");
  BuildIdResult second = retriever.fetchDebugInfo("0123456789abcdef0123456789abcdef01234567");
  EXPECT_TRUE(first.notFound) << first.error;
  EXPECT_TRUE(second.notFound) << second.error;
  EXPECT_EQ(1, debuginfod().buildIdRequests() - before);
}

TEST_F(DebuginfodServerTest, FileSearchFetchesTiedBinaryAndDebugFileThroughTheRetriever) {
  const vell_test::BuiltProgram &p = program();
  HttpFileRetriever retriever(options());
  // The profile recorded the program at a path this machine does not have.
  const std::string recorded = "/opt/recorded/bin/hello";
  ASSERT_TRUE(retriever.addFile(recorded, p.buildId, bfkExecutable));
  ASSERT_TRUE(retriever.addFile("hello.debug", p.buildId, bfkDebugInfo));

  ObjectPtr<IEditableSearchEnv> env = IEditableSearchEnv::create();
  env->setCacheDir(m_dir.mkdir("search-cache").c_str());
  ObjectPtr<IEditableEnvironmentInfo> info = IEditableEnvironmentInfo::create();
  info->setOsType(ostLinux);
  env->setEnvironmentInfo(info);
  IFileRetriever *asRetriever = &retriever;
  env->setFileRetriever(asRetriever);
  ObjectPtr<IFileSearch> search = IFileSearch::create(env);

  ObjectPtr<IValidFile> binary = search->findBinFile(recorded.c_str(), nullptr, nullptr, 0);
  ASSERT_TRUE(binary);
  EXPECT_EQ(ssAbsoluteNameLookup, binary->searchStep());
  EXPECT_EQ(vell_test::readWhole(p.binary), vell_test::readWhole(binary->name()));
  // Filed into the search's cache by name and checksum.
  EXPECT_EQ(0u, std::string(binary->name()).rfind(m_dir.sub("search-cache") + "/hello/", 0))
      << binary->name();
  EXPECT_EQ(foServer, retriever.lastResultFor(recorded).origin);

  ObjectPtr<IValidFile> debug =
      search->findSymFile("hello.debug", nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
  ASSERT_TRUE(debug);
  EXPECT_EQ(vell_test::readWhole(p.debugFile), vell_test::readWhole(debug->name()));
}

} // namespace
