// End to end with real Debian packages: a library package and its -dbg
// package, fetched with apt-get download, indexed by debuginfod, and the
// library's binary and debug file fetched by build ID through the retriever
// and the tool. Set VELL_TEST_OFFLINE=1 to skip it on a machine without the
// package archive.
#include <cstdlib>

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "support/temp_dir.h"
#include "tool/tool_runner.h"
#include "vell/http_retriever.h"
#include "vell_retriever/retriever_fixtures.h"

using namespace VELL_2_13;

namespace {

bool offline() {
  const char *value = std::getenv("VELL_TEST_OFFLINE");
  return value && *value && std::string(value) != "0";
}

TEST(DebianPackageTest, BinaryAndDebugFileOfRealPackagesComeFromDebuginfod) {
  if (offline())
    GTEST_SKIP() << "VELL_TEST_OFFLINE is set";
  vell_test::TempDir dir;
  std::string debs = dir.mkdir("debs");
  // The packages of one library; the -dbg package holds its detached debug files.
  vell_test::shell("cd " + vell_test::shellQuoted(debs) +
                   " && apt-get download libadns1 libadns1-dbg 2>/dev/null");
  vell_test::shell("cd " + vell_test::shellQuoted(debs) + " && dpkg-deb -x libadns1_*.deb " +
                   vell_test::shellQuoted(dir.sub("unpacked")));
  std::string library = vell_test::shell("find " + vell_test::shellQuoted(dir.sub("unpacked")) +
                                         " -name 'libadns.so.*' -type f");
  library = library.substr(0, library.find('\n'));
  ASSERT_FALSE(library.empty());
  std::string buildId = vell_test::buildIdByReadelf(library);
  std::string libraryBytes = vell_test::readWhole(library);

  vell_test::DebuginfodServer server(dir.path(), "-U", debs);
  ASSERT_TRUE(server.waitUntilIndexed());

  HttpRetrieverOptions options;
  options.servers = {server.url()};
  options.cacheDir = dir.sub("cache");
  HttpFileRetriever retriever(options);
  BuildIdResult binary = retriever.fetchExecutable(buildId);
  BuildIdResult debug = retriever.fetchDebugInfo(buildId);
  ASSERT_TRUE(binary.ok) << binary.error;
  ASSERT_TRUE(debug.ok) << debug.error;
  EXPECT_EQ(libraryBytes, vell_test::readWhole(binary.path));
  EXPECT_EQ(buildId, vell_test::buildIdByReadelf(debug.path));
  // The debug file carries the debug information the binary lacks.
  EXPECT_NE(std::string::npos,
            vell_test::shell("eu-readelf -S " + vell_test::shellQuoted(debug.path)).find(".debug_info"));

  // The tool, with its own cache: a download, then an answer from its cache.
  vell_test::ToolRunner tool;
  tool.setEnv("XDG_CACHE_HOME", tool.home() + "/cache");
  tool.setEnv("DEBUGINFOD_URLS", server.url());
  tool.setEnv("DEBUGINFOD_CACHE_PATH", "");
  long before = server.buildIdRequests();
  for (const char *origin : {"server", "cache"}) {
    vell_test::ToolResult result =
        tool.run({"--json", "find", "sym", "libadns.so.1.debug", "--build-id", buildId});
    nlohmann::json out = nlohmann::json::parse(result.out, nullptr, false);
    ASSERT_TRUE(out.is_object()) << result.out << result.err;
    ASSERT_TRUE(out["found"].get<bool>()) << out.dump(2);
    EXPECT_EQ(origin, out["retrieved"]["origin"]);
    EXPECT_EQ(vell_test::readWhole(debug.path), vell_test::readWhole(out["path"].get<std::string>()));
  }
  EXPECT_EQ(1, server.buildIdRequests() - before);
}

} // namespace
