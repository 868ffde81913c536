// Checksum values and the shared checksum calculator.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <atomic>
#include <cstdio>
#include <fstream>
#include <random>
#include <system_error>
#include <thread>
#include <vector>

#include "support/temp_dir.h"
#include "vell/validation.h"
#include "vell_validation/checksum.h"

using namespace VELL_2_13;

namespace {

// The first word that a digest command prints for path.
std::string commandDigest(const std::string &command, const std::string &path) {
  std::string line = command + " '" + path + "'";
  FILE *pipe = ::popen(line.c_str(), "r");
  if (!pipe)
    return "";
  char buffer[256] = {};
  std::string out;
  while (std::fgets(buffer, sizeof buffer, pipe))
    out += buffer;
  ::pclose(pipe);
  return out.substr(0, out.find(' '));
}

std::string randomBytes(size_t size, unsigned seed) {
  std::mt19937 generator(seed);
  std::string bytes(size, '\0');
  for (char &c : bytes)
    c = static_cast<char>(generator() & 0xff);
  return bytes;
}

ObjectPtr<IChecksum> checksumOf(const std::string &path, checksum_type_t type) {
  return IChecksumCalculator::create()->calculateChecksum(path.c_str(), type);
}

TEST(ChecksumTest, FromStringComparesIgnoringCaseAndRequiresTheSameType) {
  auto calculator = IChecksumCalculator::create();
  auto upper = calculator->fromString(ctMd5, "ABCDEF");
  auto lower = calculator->fromString(ctMd5, "abcdef");
  auto sha = calculator->fromString(ctSha1, "abcdef");
  EXPECT_TRUE(upper->isEqualTo(*lower));
  EXPECT_TRUE(lower->isEqualTo(*upper));
  EXPECT_FALSE(sha->isEqualTo(*lower));
  EXPECT_FALSE(lower->isEqualTo(*sha));
}

TEST(ChecksumTest, DifferentLengthsLeadingZerosAndSpacesDiffer) {
  auto calculator = IChecksumCalculator::create();
  auto base = calculator->fromString(ctMd5, "abc");
  EXPECT_FALSE(base->isEqualTo(*calculator->fromString(ctMd5, "abcd")));
  EXPECT_FALSE(base->isEqualTo(*calculator->fromString(ctMd5, "0abc")));
  EXPECT_FALSE(base->isEqualTo(*calculator->fromString(ctMd5, " abc")));
  EXPECT_FALSE(base->isEqualTo(*calculator->fromString(ctMd5, "abc ")));
  EXPECT_TRUE(base->isEqualTo(*calculator->fromString(ctMd5, "aBc")));
}

TEST(ChecksumTest, FromStringKeepsTextAndTypeUnchecked) {
  auto calculator = IChecksumCalculator::create();
  auto odd = calculator->fromString(static_cast<checksum_type_t>(9), "Not Hex!");
  ASSERT_TRUE(odd);
  EXPECT_EQ(static_cast<checksum_type_t>(9), odd->type());
  EXPECT_STREQ("Not Hex!", odd->value());
  auto crc = calculator->fromString(ctCrc32, "1234ABCD");
  EXPECT_EQ(ctCrc32, crc->type());
  EXPECT_TRUE(crc->isEqualTo(*calculator->fromString(ctCrc32, "1234abcd")));
  auto empty = calculator->fromString(ctSha1, "");
  ASSERT_TRUE(empty);
  EXPECT_STREQ("", empty->value());
}

TEST(ChecksumTest, NullTextOrNameGivesNull) {
  auto calculator = IChecksumCalculator::create();
  EXPECT_FALSE(calculator->fromString(ctMd5, nullptr));
  EXPECT_FALSE(calculator->calculateChecksum(nullptr, ctMd5));
  EXPECT_FALSE(calculator->calculateChecksum(nullptr, ctSha1));
}

TEST(ChecksumTest, Crc32AndUnknownTypesAreNeverComputed) {
  vell_test::TempDir dir;
  std::string file = dir.write("f", "some content");
  auto calculator = IChecksumCalculator::create();
  EXPECT_FALSE(calculator->calculateChecksum(file.c_str(), ctCrc32));
  EXPECT_FALSE(calculator->calculateChecksum(file.c_str(), static_cast<checksum_type_t>(7)));
  // Also for a file that does not exist: no attempt to read is made.
  EXPECT_FALSE(calculator->calculateChecksum(dir.sub("missing").c_str(), ctCrc32));
}

TEST(ChecksumTest, Md5AndSha1OfAnEmptyFile) {
  vell_test::TempDir dir;
  std::string file = dir.write("empty", "");
  auto md5 = checksumOf(file, ctMd5);
  auto sha1 = checksumOf(file, ctSha1);
  ASSERT_TRUE(md5);
  ASSERT_TRUE(sha1);
  EXPECT_EQ(ctMd5, md5->type());
  EXPECT_EQ(ctSha1, sha1->type());
  EXPECT_STREQ("d41d8cd98f00b204e9800998ecf8427e", md5->value());
  EXPECT_STREQ("da39a3ee5e6b4b0d3255bfef95601890afd80709", sha1->value());
}

TEST(ChecksumTest, AgreesWithDigestCommandsAroundTheBlockSize) {
  vell_test::TempDir dir;
  const std::vector<size_t> sizes = {0, 1, 3, 4095, 4096, 4097, 8191, 8192, 8193, 100000};
  for (size_t size : sizes) {
    std::string file = dir.write("f" + std::to_string(size), randomBytes(size, static_cast<unsigned>(size)));
    auto md5 = checksumOf(file, ctMd5);
    auto sha1 = checksumOf(file, ctSha1);
    ASSERT_TRUE(md5);
    ASSERT_TRUE(sha1);
    EXPECT_EQ(commandDigest("md5sum", file), md5->value()) << size;
    EXPECT_EQ(commandDigest("sha1sum", file), sha1->value()) << size;
    EXPECT_EQ(32u, std::string(md5->value()).size());
    EXPECT_EQ(40u, std::string(sha1->value()).size());
  }
}

TEST(ChecksumTest, AgreesWithDigestCommandsOnAMultiMegabyteFile) {
  vell_test::TempDir dir;
  std::string file = dir.write("big", randomBytes(5 * 1024 * 1024 + 123, 42));
  EXPECT_EQ(commandDigest("md5sum", file), checksumOf(file, ctMd5)->value());
  EXPECT_EQ(commandDigest("sha1sum", file), checksumOf(file, ctSha1)->value());
}

TEST(ChecksumTest, DigestsAreLowerCaseHex) {
  vell_test::TempDir dir;
  std::string file = dir.write("f", "The quick brown fox jumps over the lazy dog");
  EXPECT_STREQ("9e107d9d372bb6826bd81d3542a419d6", checksumOf(file, ctMd5)->value());
  EXPECT_STREQ("2fd4e1c67a2d28fced849ee1bb76e7391b93eb12", checksumOf(file, ctSha1)->value());
}

TEST(ChecksumTest, ComputedAndParsedChecksumsCompare) {
  vell_test::TempDir dir;
  std::string file = dir.write("f", "abc");
  auto calculator = IChecksumCalculator::create();
  auto computed = calculator->calculateChecksum(file.c_str(), ctMd5);
  EXPECT_TRUE(computed->isEqualTo(*calculator->fromString(ctMd5, "900150983CD24FB0D6963F7D28E17F72")));
  EXPECT_FALSE(computed->isEqualTo(*calculator->fromString(ctSha1, "900150983cd24fb0d6963f7d28e17f72")));
}

TEST(ChecksumTest, MissingFileRaisesAnError) {
  vell_test::TempDir dir;
  EXPECT_THROW(checksumOf(dir.sub("missing"), ctMd5), std::system_error);
  EXPECT_THROW(checksumOf(dir.sub("missing"), ctSha1), std::system_error);
}

TEST(ChecksumTest, UnreadableFileRaisesAnError) {
  vell_test::TempDir dir;
  std::string file = dir.write("secret", "data");
  ::chmod(file.c_str(), 0);
  vell_test::openForOthers(dir.path());
  vell_test::AsUnprivilegedUser nobody;
  EXPECT_THROW(checksumOf(file, ctMd5), std::system_error);
}

TEST(ChecksumTest, DirectoryRaisesAnError) {
  vell_test::TempDir dir;
  EXPECT_THROW(checksumOf(dir.path(), ctMd5), std::system_error);
}

// --- The shared instance -------------------------------------------------------------

TEST(ChecksumCalculatorTest, HeldInstanceIsShared) {
  auto first = IChecksumCalculator::create();
  auto second = IChecksumCalculator::create();
  EXPECT_EQ(first.get(), second.get());
  EXPECT_EQ(2, static_cast<ChecksumCalculator *>(first.get())->refCount());
  EXPECT_EQ(ChecksumCalculator::s_instance, first.get());
}

TEST(ChecksumCalculatorTest, ReleasedInstanceIsReplacedByAFreshOne) {
  {
    auto first = IChecksumCalculator::create();
    EXPECT_EQ(ChecksumCalculator::s_instance, first.get());
  }
  EXPECT_EQ(nullptr, ChecksumCalculator::s_instance);
  auto fresh = IChecksumCalculator::create();
  EXPECT_EQ(ChecksumCalculator::s_instance, fresh.get());
  EXPECT_EQ(1, static_cast<ChecksumCalculator *>(fresh.get())->refCount());
}

TEST(ChecksumCalculatorTest, CreateBetweenLastReleaseAndDestructorMakesAFreshInstance) {
  auto dying = IChecksumCalculator::create();
  auto *raw = static_cast<ChecksumCalculator *>(dying.get());
  ObjectPtr<IChecksumCalculator> fresh;
  {
    // Hold the lock so that the destructor of the released instance has to
    // wait right after its count reached zero.
    VellLockWrap guard(&g_checkSumCalcLock);
    std::thread releaser([&] { dying.release(); });
    while (raw->refCount() != 0)
      std::this_thread::yield();
    EXPECT_EQ(raw, ChecksumCalculator::s_instance); // not yet cleared
    fresh = IChecksumCalculator::create();
    EXPECT_NE(raw, fresh.get());
    EXPECT_EQ(fresh.get(), ChecksumCalculator::s_instance);
    EXPECT_EQ(1, static_cast<ChecksumCalculator *>(fresh.get())->refCount());
    // Let the destructor finish.
    g_checkSumCalcLock.unlock();
    releaser.join();
    g_checkSumCalcLock.lock();
  }
  // The dying instance did not clear the slot of the fresh one.
  EXPECT_EQ(fresh.get(), ChecksumCalculator::s_instance);
  EXPECT_EQ(fresh.get(), IChecksumCalculator::create().get());
}

TEST(ChecksumCalculatorTest, CreateAndReleaseFromManyThreads) {
  vell_test::TempDir dir;
  std::string file = dir.write("f", "abc");
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t)
    threads.emplace_back([&] {
      for (int i = 0; i < 300; ++i) {
        ObjectPtr<IChecksumCalculator> calculator = IChecksumCalculator::create();
        if (!calculator) {
          ++wrong;
          continue;
        }
        if (i % 50 == 0) {
          auto sum = calculator->calculateChecksum(file.c_str(), ctMd5);
          if (!sum || std::string(sum->value()) != "900150983cd24fb0d6963f7d28e17f72")
            ++wrong;
        }
        ObjectPtr<IChecksumCalculator> copy = calculator;
        calculator.release();
      }
    });
  for (auto &t : threads)
    t.join();
  EXPECT_EQ(0, wrong.load());
  // With everything released the slot is empty again.
  {
    VellLockWrap guard(&g_checkSumCalcLock);
    EXPECT_EQ(nullptr, ChecksumCalculator::s_instance);
  }
}

} // namespace
