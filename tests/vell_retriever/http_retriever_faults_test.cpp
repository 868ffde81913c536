// The HTTP retriever against a fault-injecting server: retries, negative
// cache, stalls, size cap, wrong build IDs, unreachable servers, hostile names.
#include <dirent.h>
#include <sys/stat.h>
#include <utime.h>

#include <atomic>
#include <memory>
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

// Two programs built once for the suite: their bytes are the served bodies.
struct Programs {
  vell_test::TempDir dir;
  vell_test::BuiltProgram first;
  vell_test::BuiltProgram second;
  std::string firstDebug;
  std::string firstBinary;
  std::string secondDebug;
};

Programs &programs() {
  static Programs *built = [] {
    auto *p = new Programs;
    p->first = vell_test::buildProgram(p->dir.path(), "first", "first program");
    p->second = vell_test::buildProgram(p->dir.path(), "second", "second program");
    p->firstDebug = vell_test::readWhole(p->first.debugFile);
    p->firstBinary = vell_test::readWhole(p->first.binary);
    p->secondDebug = vell_test::readWhole(p->second.debugFile);
    return p;
  }();
  return *built;
}

std::string debugPath(const std::string &buildId) { return "/buildid/" + buildId + "/debuginfo"; }

// Names in a directory tree, for "nothing left behind" checks.
std::vector<std::string> filesUnder(const std::string &dir) {
  std::vector<std::string> names;
  std::string listing =
      vell_test::shell("find " + vell_test::shellQuoted(dir) + " -type f -printf '%P\\n' || true");
  std::istringstream lines(listing);
  std::string line;
  while (std::getline(lines, line))
    if (!line.empty())
      names.push_back(line);
  return names;
}

class RetrieverFaultsTest : public ::testing::Test {
protected:
  HttpRetrieverOptions options(std::vector<std::string> servers) {
    HttpRetrieverOptions o;
    o.servers = std::move(servers);
    o.cacheDir = m_dir.sub("cache");
    o.connectTimeoutMs = 2000;
    o.stallTimeoutSeconds = 1;
    o.retries = 2;
    o.retryDelayMs = 10;
    o.negativeCacheSeconds = 600;
    return o;
  }

  vell_test::CatalogScope m_catalogs{vell_test::shippedCatalogDir()};
  vell_test::TempDir m_dir;
  FaultHttpServer m_server;
};

TEST_F(RetrieverFaultsTest, DownloadsDebugFileIntoCacheLayoutAndReportsOrigin) {
  const Programs &p = programs();
  m_server.script(debugPath(p.first.buildId), {{200, p.firstDebug}});
  HttpFileRetriever retriever(options({m_server.url()}));

  BuildIdResult result = retriever.fetchDebugInfo(p.first.buildId);

  ASSERT_TRUE(result.ok) << result.error;
  EXPECT_EQ(m_dir.sub("cache") + "/" + p.first.buildId + "/debuginfo", result.path);
  EXPECT_EQ(foServer, result.origin);
  EXPECT_EQ(m_server.url() + debugPath(p.first.buildId), result.url);
  EXPECT_EQ(p.firstDebug, vell_test::readWhole(result.path));
  EXPECT_EQ(1, m_server.requests(debugPath(p.first.buildId)));
}

TEST_F(RetrieverFaultsTest, UppercaseBuildIdIsAskedForInLowercase) {
  const Programs &p = programs();
  m_server.script(debugPath(p.first.buildId), {{200, p.firstDebug}});
  HttpFileRetriever retriever(options({m_server.url()}));
  std::string upper = p.first.buildId;
  for (char &c : upper)
    c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));

  EXPECT_TRUE(retriever.fetchDebugInfo(upper).ok);
  EXPECT_EQ(1, m_server.requests(debugPath(p.first.buildId)));
}

TEST_F(RetrieverFaultsTest, SecondFetchIsServedFromCacheWithoutRequest) {
  const Programs &p = programs();
  m_server.script(debugPath(p.first.buildId), {{200, p.firstDebug}});
  {
    HttpFileRetriever retriever(options({m_server.url()}));
    ASSERT_TRUE(retriever.fetchDebugInfo(p.first.buildId).ok);
  }
  HttpFileRetriever again(options({m_server.url()}));
  BuildIdResult result = again.fetchDebugInfo(p.first.buildId);

  ASSERT_TRUE(result.ok);
  EXPECT_EQ(foCache, result.origin);
  EXPECT_EQ(1, m_server.totalRequests());
  EXPECT_EQ(0u, again.stats().requests);
  EXPECT_EQ(1u, again.stats().cacheHits);
}

TEST_F(RetrieverFaultsTest, NotFoundIsNotRetriedAndIsRemembered) {
  const Programs &p = programs();
  HttpFileRetriever retriever(options({m_server.url()}));

  BuildIdResult first = retriever.fetchDebugInfo(p.first.buildId);
  BuildIdResult second = retriever.fetchDebugInfo(p.first.buildId);

  EXPECT_FALSE(first.ok);
  EXPECT_TRUE(first.notFound);
  EXPECT_FALSE(second.ok);
  EXPECT_TRUE(second.notFound);
  EXPECT_EQ(1, m_server.requests(debugPath(p.first.buildId))) << "a 404 is neither retried nor asked again";
  EXPECT_NE(std::string::npos, second.error.find("asked again")) << second.error;
}

TEST_F(RetrieverFaultsTest, NegativeEntryExpiresAndServerIsAskedAgain) {
  const Programs &p = programs();
  m_server.script(debugPath(p.first.buildId), {{404, "no"}, {200, p.firstDebug}});
  HttpRetrieverOptions o = options({m_server.url()});
  o.negativeCacheSeconds = 60;
  HttpFileRetriever retriever(o);
  ASSERT_TRUE(retriever.fetchDebugInfo(p.first.buildId).notFound);

  // Age the negative entry beyond its expiry.
  std::string marker = o.cacheDir + "/" + p.first.buildId + "/.missing-debuginfo";
  struct utimbuf old {};
  old.actime = old.modtime = ::time(nullptr) - 61;
  ASSERT_EQ(0, ::utime(marker.c_str(), &old));
  BuildIdResult result = retriever.fetchDebugInfo(p.first.buildId);

  ASSERT_TRUE(result.ok) << result.error;
  EXPECT_EQ(2, m_server.requests(debugPath(p.first.buildId)));
  struct stat info {};
  EXPECT_NE(0, ::stat(marker.c_str(), &info)) << "a success removes the negative entry";
}

TEST_F(RetrieverFaultsTest, ZeroExpiryRemembersNothing) {
  const Programs &p = programs();
  HttpRetrieverOptions o = options({m_server.url()});
  o.negativeCacheSeconds = 0;
  HttpFileRetriever retriever(o);
  retriever.fetchDebugInfo(p.first.buildId);
  retriever.fetchDebugInfo(p.first.buildId);
  EXPECT_EQ(2, m_server.requests(debugPath(p.first.buildId)));
}

TEST_F(RetrieverFaultsTest, ServerErrorIsRetriedUntilSuccess) {
  const Programs &p = programs();
  m_server.script(debugPath(p.first.buildId), {{500, "busy"}, {503, "busy"}, {200, p.firstDebug}});
  HttpFileRetriever retriever(options({m_server.url()}));

  BuildIdResult result = retriever.fetchDebugInfo(p.first.buildId);

  ASSERT_TRUE(result.ok) << result.error;
  EXPECT_EQ(3, m_server.requests(debugPath(p.first.buildId)));
  EXPECT_EQ(3u, retriever.stats().requests);
}

TEST_F(RetrieverFaultsTest, PersistentServerErrorGivesUpAfterRetriesAndIsNotRemembered) {
  const Programs &p = programs();
  m_server.script(debugPath(p.first.buildId), {{500, "broken"}});
  HttpFileRetriever retriever(options({m_server.url()}));

  BuildIdResult result = retriever.fetchDebugInfo(p.first.buildId);

  EXPECT_FALSE(result.ok);
  EXPECT_FALSE(result.notFound);
  EXPECT_EQ(3, m_server.requests(debugPath(p.first.buildId))) << "one attempt and two retries";
  EXPECT_NE(std::string::npos, result.error.find("HTTP status 500")) << result.error;
  retriever.fetchDebugInfo(p.first.buildId);
  EXPECT_EQ(6, m_server.requests(debugPath(p.first.buildId))) << "a failure is not a negative entry";
}

TEST_F(RetrieverFaultsTest, DroppedConnectionIsRetried) {
  const Programs &p = programs();
  FaultResponse drop;
  drop.dropConnection = true;
  m_server.script(debugPath(p.first.buildId), {drop, {200, p.firstDebug}});
  HttpFileRetriever retriever(options({m_server.url()}));

  EXPECT_TRUE(retriever.fetchDebugInfo(p.first.buildId).ok);
  EXPECT_EQ(2, m_server.requests(debugPath(p.first.buildId)));
}

TEST_F(RetrieverFaultsTest, ServerDownFailsWithConnectionErrorAndNextServerIsTried) {
  const Programs &p = programs();
  std::string down = "http://127.0.0.1:" + std::to_string(vell_test::freeLoopbackPort());
  m_server.script(debugPath(p.first.buildId), {{200, p.firstDebug}});
  {
    HttpFileRetriever alone(options({down}));
    BuildIdResult result = alone.fetchDebugInfo(p.first.buildId);
    EXPECT_FALSE(result.ok);
    EXPECT_FALSE(result.notFound);
    EXPECT_EQ(3u, alone.stats().requests) << "connection failures are retried";
    EXPECT_NE(std::string::npos, result.error.find(down)) << result.error;
  }
  HttpFileRetriever withFallback(options({down, m_server.url()}));
  BuildIdResult result = withFallback.fetchDebugInfo(p.first.buildId);
  ASSERT_TRUE(result.ok) << result.error;
  EXPECT_EQ(m_server.url() + debugPath(p.first.buildId), result.url);
}

TEST_F(RetrieverFaultsTest, StallMidBodyTimesOutAndLeavesNoPartialFile) {
  const Programs &p = programs();
  FaultResponse stall{200, p.firstDebug, p.firstDebug.size() / 2, false};
  m_server.script(debugPath(p.first.buildId), {stall});
  HttpRetrieverOptions o = options({m_server.url()});
  o.retries = 0;
  HttpFileRetriever retriever(o);

  auto start = std::chrono::steady_clock::now();
  BuildIdResult result = retriever.fetchDebugInfo(p.first.buildId);
  auto took = std::chrono::steady_clock::now() - start;

  EXPECT_FALSE(result.ok);
  EXPECT_FALSE(result.notFound);
  EXPECT_LT(took, std::chrono::seconds(20)) << "the stall timeout ends the transfer";
  EXPECT_EQ(std::vector<std::string>{}, filesUnder(o.cacheDir)) << "no partial or temporary file is left";
}

TEST_F(RetrieverFaultsTest, StallThenSuccessOnRetryKeepsOnlyTheWholeFile) {
  const Programs &p = programs();
  FaultResponse stall{200, p.firstDebug, 100, false};
  m_server.script(debugPath(p.first.buildId), {stall, {200, p.firstDebug}});
  HttpRetrieverOptions o = options({m_server.url()});
  HttpFileRetriever retriever(o);

  BuildIdResult result = retriever.fetchDebugInfo(p.first.buildId);

  ASSERT_TRUE(result.ok) << result.error;
  EXPECT_EQ(p.firstDebug, vell_test::readWhole(result.path));
  EXPECT_EQ(std::vector<std::string>{p.first.buildId + "/debuginfo"}, filesUnder(o.cacheDir));
}

TEST_F(RetrieverFaultsTest, BodyOverTheCapIsRejectedAndNotRetried) {
  const Programs &p = programs();
  m_server.script(debugPath(p.first.buildId), {{200, p.firstDebug}});
  HttpRetrieverOptions o = options({m_server.url()});
  o.maxFileSize = p.firstDebug.size() - 1;
  HttpFileRetriever retriever(o);

  BuildIdResult result = retriever.fetchDebugInfo(p.first.buildId);

  EXPECT_FALSE(result.ok);
  EXPECT_NE(std::string::npos, result.error.find("larger than the limit of " + std::to_string(o.maxFileSize)))
      << result.error;
  EXPECT_EQ(1, m_server.requests(debugPath(p.first.buildId)));
  EXPECT_EQ(std::vector<std::string>{}, filesUnder(o.cacheDir));
}

TEST_F(RetrieverFaultsTest, BodyExactlyAtTheCapIsAccepted) {
  const Programs &p = programs();
  m_server.script(debugPath(p.first.buildId), {{200, p.firstDebug}});
  HttpRetrieverOptions o = options({m_server.url()});
  o.maxFileSize = p.firstDebug.size();
  HttpFileRetriever retriever(o);
  EXPECT_TRUE(retriever.fetchDebugInfo(p.first.buildId).ok);
}

TEST_F(RetrieverFaultsTest, FileWithAnotherBuildIdIsRejectedWithMessage) {
  const Programs &p = programs();
  m_server.script(debugPath(p.first.buildId), {{200, p.secondDebug}});
  HttpRetrieverOptions o = options({m_server.url()});
  HttpFileRetriever retriever(o);

  BuildIdResult result = retriever.fetchDebugInfo(p.first.buildId);

  EXPECT_FALSE(result.ok);
  EXPECT_FALSE(result.notFound);
  EXPECT_NE(std::string::npos, result.error.find("build ID is " + p.second.buildId)) << result.error;
  EXPECT_NE(std::string::npos, result.error.find("requested " + p.first.buildId)) << result.error;
  EXPECT_EQ(1, m_server.requests(debugPath(p.first.buildId))) << "a wrong file is not asked for again";
  EXPECT_EQ(std::vector<std::string>{}, filesUnder(o.cacheDir));
}

TEST_F(RetrieverFaultsTest, RejectionMessageComesFromTheChosenLanguageOrIsTheId) {
  const Programs &p = programs();
  m_server.script(debugPath(p.first.buildId), {{200, p.secondDebug}});
  HttpRetrieverOptions o = options({m_server.url()});
  o.retries = 0;
  HttpFileRetriever retriever(o);
  {
    vell_test::CatalogScope german(vell_test::shippedCatalogDir(), "de");
    BuildIdResult result = retriever.fetchDebugInfo(p.first.buildId);
    EXPECT_NE(std::string::npos, result.error.find("statt der angefragten " + p.first.buildId))
        << result.error;
  }
  vell_test::CatalogScope none("");
  EXPECT_EQ("%WrongBuildId", retriever.fetchDebugInfo(p.first.buildId).error);
}

TEST_F(RetrieverFaultsTest, AnswerThatIsNotElfIsRejected) {
  const Programs &p = programs();
  m_server.script(debugPath(p.first.buildId), {{200, "<html>login page</html>"}});
  HttpFileRetriever retriever(options({m_server.url()}));
  BuildIdResult result = retriever.fetchDebugInfo(p.first.buildId);
  EXPECT_FALSE(result.ok);
  EXPECT_NE(std::string::npos, result.error.find("not an ELF file")) << result.error;
}

TEST_F(RetrieverFaultsTest, WrongFileFromFirstServerFallsBackToSecond) {
  const Programs &p = programs();
  FaultHttpServer other;
  m_server.script(debugPath(p.first.buildId), {{200, p.secondDebug}});
  other.script(debugPath(p.first.buildId), {{200, p.firstDebug}});
  HttpFileRetriever retriever(options({m_server.url(), other.url()}));
  BuildIdResult result = retriever.fetchDebugInfo(p.first.buildId);
  ASSERT_TRUE(result.ok) << result.error;
  EXPECT_EQ(p.firstDebug, vell_test::readWhole(result.path));
}

TEST_F(RetrieverFaultsTest, HostileBuildIdsAndSourcePathsAreRefusedWithoutRequest) {
  HttpRetrieverOptions o = options({m_server.url()});
  HttpFileRetriever retriever(o);
  for (const std::string &id : {std::string("../../etc"), std::string("abc"), std::string(""),
                                std::string("0g"), std::string("ab/cd"), std::string(130, 'a')})
    EXPECT_FALSE(retriever.fetchDebugInfo(id).ok) << id;
  for (const std::string &path :
       {std::string("relative.c"), std::string("/a/../../../etc/passwd"), std::string("/a/./b.c"),
        std::string("/"), std::string("/a\nb.c"), "/" + std::string(300, 'x')})
    EXPECT_FALSE(retriever.fetchSource("abcd", path).ok) << path;
  EXPECT_EQ(0, m_server.totalRequests());
  EXPECT_EQ(std::vector<std::string>{}, filesUnder(m_dir.path()));
}

TEST_F(RetrieverFaultsTest, SourceIsFetchedUnderEscapedNameInsideItsBuildIdDirectory) {
  m_server.script("/buildid/abcd/source/usr/src/a%20b/x.c", {{200, "int x;\n"}});
  HttpRetrieverOptions o = options({m_server.url()});
  HttpFileRetriever retriever(o);

  BuildIdResult result = retriever.fetchSource("ABCD", "/usr/src//a b/x.c");

  ASSERT_TRUE(result.ok) << result.error;
  EXPECT_EQ(o.cacheDir + "/abcd/source#usr#src#a b#x.c", result.path);
  EXPECT_EQ("int x;\n", vell_test::readWhole(result.path));
}

TEST_F(RetrieverFaultsTest, ClientCacheFileIsUsedWithoutRequestWhenItsBuildIdMatches) {
  const Programs &p = programs();
  std::string client = m_dir.mkdir("debuginfod_client");
  m_dir.write("debuginfod_client/" + p.first.buildId + "/debuginfo", p.firstDebug);
  // An entry under the wrong build ID, and the client's empty negative entry, are not used.
  m_dir.write("debuginfod_client/" + p.second.buildId + "/debuginfo", p.firstDebug);
  m_dir.write("debuginfod_client/" + p.first.buildId + "/executable", "");
  HttpRetrieverOptions o = options({m_server.url()});
  o.clientCacheDirs = {client};
  HttpFileRetriever retriever(o);

  BuildIdResult found = retriever.fetchDebugInfo(p.first.buildId);
  BuildIdResult mismatched = retriever.fetchDebugInfo(p.second.buildId);
  BuildIdResult empty = retriever.fetchExecutable(p.first.buildId);

  ASSERT_TRUE(found.ok);
  EXPECT_EQ(foClientCache, found.origin);
  EXPECT_EQ(client + "/" + p.first.buildId + "/debuginfo", found.path);
  EXPECT_EQ(0, m_server.requests(debugPath(p.first.buildId)));
  EXPECT_FALSE(mismatched.ok);
  EXPECT_EQ(1, m_server.requests(debugPath(p.second.buildId)));
  EXPECT_FALSE(empty.ok);
  EXPECT_EQ(1, m_server.requests("/buildid/" + p.first.buildId + "/executable"));
}

TEST_F(RetrieverFaultsTest, ProgressReachesTheCallbackUpToTheWholeSize) {
  const Programs &p = programs();
  m_server.script(debugPath(p.first.buildId), {{200, p.firstDebug}});
  struct Recorder : ISymSrvDownloadProgressCallback {
    std::string name;
    uint64_t done = 0;
    uint64_t total = 0;
    int calls = 0;
    void progress(const char *fileName, uint64_t d, uint64_t t) override {
      name = fileName;
      done = d;
      total = t;
      ++calls;
    }
  } recorder;
  HttpFileRetriever retriever(options({m_server.url()}));

  ASSERT_TRUE(retriever.fetchDebugInfo(p.first.buildId, &recorder).ok);

  EXPECT_GT(recorder.calls, 0);
  EXPECT_EQ(m_server.url() + debugPath(p.first.buildId), recorder.name);
  EXPECT_EQ(p.firstDebug.size(), recorder.done);
  EXPECT_EQ(p.firstDebug.size(), recorder.total);
}

TEST_F(RetrieverFaultsTest, BatchFetchesDistinctFilesOnceEachInRequestOrder) {
  const Programs &p = programs();
  m_server.script(debugPath(p.first.buildId), {{200, p.firstDebug}});
  m_server.script(debugPath(p.second.buildId), {{200, p.secondDebug}});
  m_server.script("/buildid/" + p.first.buildId + "/executable", {{200, p.firstBinary}});
  HttpFileRetriever retriever(options({m_server.url()}));
  std::vector<BuildIdRequest> requests{{bfkDebugInfo, p.first.buildId, ""},
                                       {bfkDebugInfo, p.second.buildId, ""},
                                       {bfkDebugInfo, p.first.buildId, ""},
                                       {bfkExecutable, p.first.buildId, ""},
                                       {bfkDebugInfo, "zz", ""},
                                       {bfkDebugInfo, "ee", ""}};

  std::vector<BuildIdResult> results = retriever.fetchAll(requests, 4);

  ASSERT_EQ(6u, results.size());
  EXPECT_TRUE(results[0].ok);
  EXPECT_TRUE(results[1].ok);
  EXPECT_TRUE(results[2].ok);
  EXPECT_EQ(results[0].path, results[2].path);
  EXPECT_TRUE(results[3].ok);
  EXPECT_EQ(p.firstBinary, vell_test::readWhole(results[3].path));
  EXPECT_FALSE(results[4].ok);
  EXPECT_FALSE(results[5].ok);
  EXPECT_TRUE(results[5].notFound);
  EXPECT_EQ(1, m_server.requests(debugPath(p.first.buildId)));
  EXPECT_EQ(4, m_server.totalRequests());
}

TEST_F(RetrieverFaultsTest, ThreadsAskingForTheSameFileShareOneDownload) {
  const Programs &p = programs();
  // Whether a thread waits for the transfer in flight or then finds the file
  // in the cache, the server is asked once.
  m_server.script(debugPath(p.first.buildId), {{200, p.firstDebug}});
  HttpFileRetriever retriever(options({m_server.url()}));
  std::vector<std::thread> threads;
  std::atomic<int> ok{0};
  for (int i = 0; i < 8; ++i)
    threads.emplace_back([&] {
      if (retriever.fetchDebugInfo(p.first.buildId).ok)
        ++ok;
    });
  for (std::thread &thread : threads)
    thread.join();
  EXPECT_EQ(8, ok.load());
  EXPECT_EQ(1, m_server.requests(debugPath(p.first.buildId)));
}

TEST_F(RetrieverFaultsTest, NoServerOrNoCacheFetchesNothing) {
  const Programs &p = programs();
  HttpRetrieverOptions none = options({});
  EXPECT_FALSE(HttpFileRetriever(none).fetchDebugInfo(p.first.buildId).ok);
  HttpRetrieverOptions noCache = options({m_server.url()});
  noCache.cacheDir.clear();
  EXPECT_FALSE(HttpFileRetriever(noCache).fetchDebugInfo(p.first.buildId).ok);
  EXPECT_EQ(0, m_server.totalRequests());
}

TEST_F(RetrieverFaultsTest, RetrieveFilePlacesTiedNameInsideTheRetrievalDirectory) {
  const Programs &p = programs();
  m_server.script("/buildid/" + p.first.buildId + "/executable", {{200, p.firstBinary}});
  m_server.script(debugPath(p.first.buildId), {{200, p.firstDebug}});
  HttpFileRetriever retriever(options({m_server.url()}));
  std::string retrieval = m_dir.mkdir("retrieval");
  ASSERT_TRUE(retriever.addFile("/opt/app/bin/first", p.first.buildId, bfkExecutable));
  EXPECT_FALSE(retriever.addFile("/opt/app/../x", "zz", bfkExecutable));

  EXPECT_FALSE(retriever.isLocalFile("/opt/app/bin/first")) << "tied and missing locally: fetch";
  EXPECT_TRUE(retriever.isLocalFile("/opt/app/bin/other")) << "not tied: local search";
  EXPECT_EQ(0, retriever.retrieveFile("/opt/app/bin/first", retrieval.c_str()));
  EXPECT_EQ(p.firstBinary, vell_test::readWhole(retrieval + "/opt/app/bin/first"));
  EXPECT_EQ(foServer, retriever.lastResultFor("/opt/app/bin/first").origin);

  // A conventional build-ID path carries its own build ID.
  std::string byId =
      "/usr/lib/debug/.build-id/" + p.first.buildId.substr(0, 2) + "/" + p.first.buildId.substr(2) + ".debug";
  EXPECT_EQ(0, retriever.retrieveFile(byId.c_str(), retrieval.c_str()));
  EXPECT_EQ(p.firstDebug, vell_test::readWhole(retrieval + byId));

  EXPECT_NE(0, retriever.retrieveFile("/opt/app/bin/untied", retrieval.c_str()));
  EXPECT_NE(0, retriever.retrieveFile("/usr/lib/debug/.build-id/../../../../x.debug", retrieval.c_str()));
}

TEST_F(RetrieverFaultsTest, LocalFileWithTheTiedBuildIdIsLeftToTheLocalSearch) {
  const Programs &p = programs();
  HttpFileRetriever retriever(options({m_server.url()}));
  ASSERT_TRUE(retriever.addFile(p.first.binary, p.first.buildId, bfkExecutable));
  ASSERT_TRUE(retriever.addFile(p.second.binary, p.first.buildId, bfkExecutable));
  EXPECT_TRUE(retriever.isLocalFile(p.first.binary));
  EXPECT_FALSE(retriever.isLocalFile(p.second.binary)) << "same name, another build";
  ObjectPtr<IChecksum> expected;
  EXPECT_NE(0, retriever.getFileChecksum(p.first.binary.c_str(), expected));
  EXPECT_FALSE(expected);
}

TEST(ServerListTest, SplitsOnBlanks) {
  EXPECT_EQ((std::vector<std::string>{"http://a", "https://b/x"}),
            splitServerList("  http://a \thttps://b/x\n"));
  EXPECT_TRUE(splitServerList("   ").empty());
}

} // namespace

namespace {

// openssl s_server in its web mode, serving files below a directory over HTTPS
// on the loopback address with a self-signed certificate for 127.0.0.1.
class TlsFileServer {
public:
  explicit TlsFileServer(const vell_test::TempDir &dir)
      : m_root(dir.mkdir("www")), m_port(vell_test::freeLoopbackPort()) {
    m_certificate = dir.sub("cert.pem");
    std::string key = dir.sub("key.pem");
    vell_test::shell("openssl req -x509 -newkey rsa:2048 -nodes -days 1 -subj /CN=127.0.0.1 -addext "
                     "subjectAltName=IP:127.0.0.1 -keyout " +
                     vell_test::shellQuoted(key) + " -out " + vell_test::shellQuoted(m_certificate) +
                     " 2>/dev/null");
    m_pid = ::fork();
    if (m_pid == 0) {
      if (::chdir(m_root.c_str()) != 0)
        ::_exit(127);
      std::freopen("/dev/null", "w", stdout);
      std::string accept = "127.0.0.1:" + std::to_string(m_port);
      ::execlp("openssl", "openssl", "s_server", "-quiet", "-accept", accept.c_str(), "-cert",
               m_certificate.c_str(), "-key", key.c_str(), "-WWW", static_cast<char *>(nullptr));
      ::_exit(127);
    }
    // Wait until it accepts connections.
    for (int i = 0; i < 100; ++i) {
      if (std::system(
              ("curl -s -k -o /dev/null https://127.0.0.1:" + std::to_string(m_port) + "/").c_str()) == 0)
        break;
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
  }
  ~TlsFileServer() {
    ::kill(m_pid, SIGTERM);
    int status = 0;
    ::waitpid(m_pid, &status, 0);
  }
  std::string url() const { return "https://127.0.0.1:" + std::to_string(m_port); }
  const std::string &root() const { return m_root; }
  const std::string &certificate() const { return m_certificate; }

private:
  std::string m_root;
  int m_port;
  std::string m_certificate;
  pid_t m_pid = -1;
};

TEST(RetrieverHttpsTest, VerifiesTheServerAgainstTheGivenOrTheSystemCertificates) {
  vell_test::CatalogScope catalogs(vell_test::shippedCatalogDir());
  const Programs &p = programs();
  vell_test::TempDir dir;
  TlsFileServer server(dir);
  std::string served = server.root() + "/buildid/" + p.first.buildId;
  vell_test::shell("mkdir -p " + vell_test::shellQuoted(served));
  vell_test::shell("cp " + vell_test::shellQuoted(p.first.debugFile) + " " +
                   vell_test::shellQuoted(served + "/debuginfo"));
  HttpRetrieverOptions options;
  options.servers = {server.url()};
  options.cacheDir = dir.sub("cache");
  options.retries = 0;

  // The system's certificates do not vouch for a self-signed one.
  BuildIdResult refused = HttpFileRetriever(options).fetchDebugInfo(p.first.buildId);
  EXPECT_FALSE(refused.ok);
  EXPECT_FALSE(refused.notFound);
  EXPECT_NE(std::string::npos, refused.error.find("certificate")) << refused.error;

  options.caBundle = server.certificate();
  BuildIdResult fetched = HttpFileRetriever(options).fetchDebugInfo(p.first.buildId);
  ASSERT_TRUE(fetched.ok) << fetched.error;
  EXPECT_EQ(p.firstDebug, vell_test::readWhole(fetched.path));
}

} // namespace

namespace {

TEST_F(RetrieverFaultsTest, DamagedCachedFileIsFetchedAgain) {
  const Programs &p = programs();
  m_server.script(debugPath(p.first.buildId), {{200, p.firstDebug}});
  HttpRetrieverOptions o = options({m_server.url()});
  HttpFileRetriever retriever(o);
  BuildIdResult first = retriever.fetchDebugInfo(p.first.buildId);
  ASSERT_TRUE(first.ok);
  // Cut short, as by a crash of the machine before the data reached the disk.
  ASSERT_EQ(0, ::truncate(first.path.c_str(), 64));

  BuildIdResult again = retriever.fetchDebugInfo(p.first.buildId);

  ASSERT_TRUE(again.ok) << again.error;
  EXPECT_EQ(foServer, again.origin);
  EXPECT_EQ(p.firstDebug, vell_test::readWhole(again.path));
  EXPECT_EQ(2, m_server.requests(debugPath(p.first.buildId)));
}

} // namespace
