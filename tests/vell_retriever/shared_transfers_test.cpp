// Retrievers made with sharingTransfers(): names and last results of their
// own, one download for a file they fetch at the same time, shared counters.
#include <cerrno>
#include <thread>

#include <gtest/gtest.h>

#include "support/temp_dir.h"
#include "vell/http_retriever.h"
#include "vell_retriever/fault_http_server.h"
#include "vell_retriever/retriever_fixtures.h"
#include "vell_validation/catalog_scope.h"

using namespace VELL_2_13;
using vell_test::FaultHttpServer;
using vell_test::FaultResponse;

namespace {

class SharedTransfersTest : public ::testing::Test {
protected:
  void SetUp() override {
    m_program = vell_test::buildProgram(m_dir.sub("prog"), "shared", "shared transfers");
    m_body = vell_test::readWhole(m_program.binary);
  }

  HttpRetrieverOptions options() {
    HttpRetrieverOptions o;
    o.servers = {m_server.url()};
    o.cacheDir = m_dir.sub("cache");
    o.connectTimeoutMs = 2000;
    o.stallTimeoutSeconds = 5;
    return o;
  }

  std::string executablePath() const { return "/buildid/" + m_program.buildId + "/executable"; }

  vell_test::CatalogScope m_catalogs{vell_test::shippedCatalogDir()};
  vell_test::TempDir m_dir;
  FaultHttpServer m_server;
  vell_test::BuiltProgram m_program;
  std::string m_body;
};

TEST_F(SharedTransfersTest, FileFetchedByTwoRetrieversAtOnceIsDownloadedOnce) {
  FaultResponse slow{200, m_body};
  slow.chunkDelayMs = 50;
  m_server.script(executablePath(), {slow});
  HttpFileRetriever first(options());
  std::unique_ptr<HttpFileRetriever> second = first.sharingTransfers();
  ASSERT_TRUE(second);

  BuildIdResult a;
  BuildIdResult b;
  std::thread one([&] { a = first.fetchExecutable(m_program.buildId); });
  std::thread two([&] { b = second->fetchExecutable(m_program.buildId); });
  one.join();
  two.join();

  ASSERT_TRUE(a.ok) << a.error;
  ASSERT_TRUE(b.ok) << b.error;
  EXPECT_EQ(a.path, b.path);
  EXPECT_EQ(m_body, vell_test::readWhole(a.path));
  EXPECT_EQ(1, m_server.requests(executablePath()));
  // One download, counted once by both.
  EXPECT_EQ(1u, first.stats().downloads);
  EXPECT_EQ(1u, second->stats().downloads);
  EXPECT_EQ(1u, first.stats().requests);
}

TEST_F(SharedTransfersTest, NamesAndLastResultsStayWithEachRetriever) {
  m_server.script(executablePath(), {FaultResponse{200, m_body}});
  vell_test::TempDir retrieval;
  std::unique_ptr<HttpFileRetriever> second;
  {
    HttpFileRetriever first(options());
    second = first.sharingTransfers();
    ASSERT_TRUE(first.addFile("/opt/first/app", m_program.buildId, bfkExecutable));
    // The name the first retriever knows is not the second's.
    EXPECT_EQ(ENOENT, second->retrieveFile("/opt/first/app", retrieval.path().c_str()));
    EXPECT_EQ(0, first.retrieveFile("/opt/first/app", retrieval.mkdir("a").c_str()));
    EXPECT_TRUE(first.lastResultFor("/opt/first/app").ok);
    EXPECT_FALSE(second->lastResultFor("/opt/first/app").ok);
  }
  // The first is gone; the second still fetches through the shared transfers and cache.
  ASSERT_TRUE(second->addFile("/opt/second/app", m_program.buildId, bfkExecutable));
  EXPECT_EQ(0, second->retrieveFile("/opt/second/app", retrieval.mkdir("b").c_str()));
  BuildIdResult result = second->lastResultFor("/opt/second/app");
  ASSERT_TRUE(result.ok) << result.error;
  EXPECT_EQ(foCache, result.origin);
  EXPECT_EQ(m_body, vell_test::readWhole(retrieval.sub("b/opt/second/app")));
  EXPECT_EQ(1, m_server.requests(executablePath()));
}

} // namespace
