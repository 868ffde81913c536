// The kernel-aware file search: compressed modules, module names with '-' or
// '_', a copy of the recorded system's files, extraction in every compression
// into the cache; and the plain search left as it was.
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "support/kernel_payloads.h"
#include "support/temp_dir.h"
#include "vell/kernel.h"
#include "vell/platform.h"
#include "vell_search/kernel_bin_strategy.h"
#include "vell_search/search_test_support.h"

using namespace VELL_2_13;
using namespace vell_test;

namespace {

std::string smallElf() { return elfPayload().substr(0, 200000); }

struct KernelAwareSearchTest : public ::testing::Test {
  void SetUp() override {
    root = tmp.mkdir("root");
    cache = tmp.mkdir("cache");
    platform::setCacheRoot(cache);
    env = IEditableSearchEnv::create();
    env->setEnvironmentInfo(makeEnvironmentInfo(1, "R2"));
    options.sysroot = root;
  }
  void TearDown() override { platform::setCacheRoot(""); }

  std::string put(const std::string &relative, const std::string &content) {
    return tmp.write("root/" + relative, content);
  }
  std::string find(const char *name, bool plain = false) {
    ObjectPtr<IFileSearch> search =
        plain ? IFileSearch::create(env) : createKernelAwareFileSearch(env, options);
    ObjectPtr<IValidFile> found = search->findBinFile(name, nullptr, nullptr, 0);
    return found ? found->name() : "";
  }

  FixedKernelRelease hostRelease; // the host runs "R1", of which nothing exists
  TempDir tmp;
  std::string root;
  std::string cache;
  ObjectPtr<IEditableSearchEnv> env;
  KernelSearchOptions options;
};

TEST_F(KernelAwareSearchTest, ModuleByItsKernelNameInTheSystemRoot) {
  const std::string module =
      put("lib/modules/R2/kernel/net/openvswitch/vport-gre.ko.xz", compressWith("xz -1 -c", smallElf()));
  put("lib/modules/R3/kernel/net/openvswitch/vport-gre.ko", smallElf());
  EXPECT_EQ(module, find("vport_gre"));
  EXPECT_EQ(module, find("vport-gre"));
  // The plain search knows neither the root nor compressed modules.
  EXPECT_EQ("", find("vport_gre", true));
}

TEST_F(KernelAwareSearchTest, RecordedModulePathFindsTheCompressedCopyInTheRoot) {
  const std::string module =
      put("lib/modules/R2/kernel/fs/xfs/xfs.ko.zst", compressWith("zstd -q -c", smallElf()));
  EXPECT_EQ(module, find("/lib/modules/R2/kernel/fs/xfs/xfs.ko"));
  EXPECT_EQ(module, find("xfs"));
}

TEST_F(KernelAwareSearchTest, CompressedModuleHandedOverDecompressedWhenAsked) {
  const std::string module =
      put("lib/modules/R2/kernel/fs/ext4/ext4.ko.gz", compressWith("gzip -c", smallElf()));
  options.decompressModules = true;
  const std::string found = find("ext4");
  EXPECT_EQ(cache + "/module_cache/", found.substr(0, cache.size() + 14));
  EXPECT_EQ("/ext4.ko", found.substr(found.size() - 8));
  EXPECT_TRUE(readFile(found) == smallElf());
  // A second search reuses the cached copy.
  EXPECT_EQ(found, find("ext4"));
  options.decompressModules = false;
  EXPECT_EQ(module, find("ext4"));
}

TEST_F(KernelAwareSearchTest, CompressedKernelOfTheRootIsExtractedFromLz4) {
  put("boot/vmlinuz-R2", kernelFile(compressWith("lz4 -l -q -c", elfPayload())));
  const std::string found = find("vmlinux");
  EXPECT_EQ(cache + "/vmlinux_cache/", found.substr(0, cache.size() + 15));
  EXPECT_TRUE(readFile(found) == elfPayload());
  // The plain search does not look in the root.
  EXPECT_EQ("", find("vmlinux", true));
}

TEST_F(KernelAwareSearchTest, DebugKernelImagesComeBeforeTheCompressedOne) {
  put("boot/vmlinuz-R2", kernelFile(compressWith("lz4 -l -q -c", elfPayload())));
  const std::string modulesImage = put("usr/lib/debug/lib/modules/R2/vmlinux", smallElf());
  EXPECT_EQ(modulesImage, find("vmlinux"));
  const std::string bootImage = put("usr/lib/debug/boot/vmlinux-R2", smallElf());
  EXPECT_EQ(bootImage, find("vmlinux"));
  const std::string plainImage = put("boot/vmlinux-R2", smallElf());
  EXPECT_EQ(plainImage, find("vmlinux"));
}

TEST_F(KernelAwareSearchTest, KernelReleaseOfTheOptionsWins) {
  put("boot/vmlinux-R5", smallElf());
  EXPECT_EQ("", find("vmlinux"));
  options.kernelRelease = "R5";
  EXPECT_EQ(root + "/boot/vmlinux-R5", find("vmlinux"));
}

TEST_F(KernelAwareSearchTest, KernelThatCannotBeExtractedStaysCompressedAndLeavesNoDirectory) {
  const std::string broken = put("boot/vmlinuz-R2", kernelFile("", 50000));
  EXPECT_EQ(broken, find("vmlinux"));
  EXPECT_EQ("", listDirectory(cache + "/vmlinux_cache"));
}

TEST_F(KernelAwareSearchTest, PlainSearchExtractsGzipAtomicallyAndLeavesNoEmptyDirectory) {
  const std::string dir = tmp.mkdir("dir");
  env->setSearchDirs(makeDirContainer({{scBinaryFiles, dir, false, true}}));
  tmp.write("dir/vmlinuz-A", kernelFile(compressWith("lz4 -l -q -c", elfPayload())));
  // Only gzip for the plain search: the compressed file stands.
  EXPECT_EQ(dir + "/vmlinuz-A", find("vmlinuz-A", true));
  EXPECT_EQ("", listDirectory(cache + "/vmlinux_cache"));
  tmp.write("dir/vmlinuz-B", kernelFile(compressWith("gzip -1 -n -c", elfPayload())));
  const std::string found = find("vmlinuz-B", true);
  EXPECT_TRUE(readFile(found) == elfPayload());
  EXPECT_EQ("vmlinux;", listDirectory(found.substr(0, found.size() - 8)));
}

TEST_F(KernelAwareSearchTest, ConcurrentSearchesOfOneImageSeeOnlyTheWholeImage) {
  put("boot/vmlinuz-R2", kernelFile(compressWith("zstd -1 -q -c", elfPayload())));
  const std::string dir = tmp.mkdir("dir");
  env->setSearchDirs(makeDirContainer({{scBinaryFiles, dir, false, true}}));
  tmp.write("dir/vmlinuz-G", kernelFile(compressWith("gzip -1 -n -c", elfPayload())));
  for (bool plain : {false, true}) {
    std::atomic<int> whole{0};
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 6; ++i) {
      threads.emplace_back([&] {
        const std::string found = find(plain ? "vmlinuz-G" : "vmlinux", plain);
        (readFile(found) == elfPayload() ? whole : wrong)++;
      });
    }
    for (std::thread &thread : threads)
      thread.join();
    EXPECT_EQ(6, whole.load()) << plain;
    EXPECT_EQ(0, wrong.load()) << plain;
  }
}

TEST(ModuleNamesTest, DashesAndUnderscoresMatchAndCompressedFormsWhenAsked) {
  EXPECT_TRUE(isModuleFileOf("vport-gre.ko", "vport_gre", false, true));
  EXPECT_FALSE(isModuleFileOf("vport-gre.ko", "vport_gre", false, false));
  EXPECT_TRUE(isModuleFileOf("vport_gre.ko.xz", "vport-gre", true, true));
  EXPECT_TRUE(isModuleFileOf("xfs.ko.zst", "xfs", true, false));
  EXPECT_TRUE(isModuleFileOf("xfs.ko.gz", "xfs", true, false));
  EXPECT_FALSE(isModuleFileOf("xfs.ko.zst", "xfs", false, false));
  EXPECT_FALSE(isModuleFileOf("xfs.ko.bz2", "xfs", true, true));
  EXPECT_FALSE(isModuleFileOf("xfs2.ko", "xfs", true, true));
  EXPECT_FALSE(isModuleFileOf(".ko", "", true, true));
  EXPECT_FALSE(isModuleFileOf("xfs", "xfs", true, true));
}

TEST(ModuleNamesTest, ReleaseOfAModulePath) {
  EXPECT_EQ("6.1.0-27-cloud-amd64",
            moduleReleaseOf("/lib/modules/6.1.0-27-cloud-amd64/kernel/fs/xfs/xfs.ko"));
  EXPECT_EQ("R2", moduleReleaseOf("/t/root/usr/lib/modules/R2/x.ko.xz"));
  EXPECT_EQ("", moduleReleaseOf("/lib/modules"));
  EXPECT_EQ("", moduleReleaseOf("/usr/lib/libx.so"));
  EXPECT_EQ("", moduleReleaseOf(nullptr));
}

} // namespace
