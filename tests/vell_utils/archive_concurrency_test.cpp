// Filing the same file from several threads at once: whoever looks at the
// archive sees no copy or a whole one, never a partly written one.
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include <sys/stat.h>

#include <boost/filesystem.hpp>

#include "support/stress.h"
#include "support/temp_dir.h"
#include "vell/file_search.h"
#include "vell/validation.h"
#include "vell_utils/archive_test_support.h"

using namespace VELL_2_13;

namespace {

TEST(ArchiveConcurrencyTest, ConcurrentFilingsOfOneFileNeverExposeAPartialCopy) {
  vell_test::TempDir dir;
  const std::string content = vell_test::bigContent();
  const std::string archive = dir.sub("archive");
  const std::string md5 = IChecksumCalculator::create()
                              ->calculateChecksum(dir.write("probe/libbig.so", content).c_str(), ctMd5)
                              ->value();
  vell_test::StressClock clock;
  int rounds = 0;
  while (clock.running() || rounds < 3) {
    ++rounds;
    const std::string round = "round" + std::to_string(rounds);
    constexpr int kFilers = 4;
    std::vector<std::string> sources;
    for (int i = 0; i < kFilers; ++i)
      sources.push_back(dir.write(round + "/fetch" + std::to_string(i) + "/libbig.so", content));

    std::atomic<bool> done{false};
    std::atomic<int> partialSeen{0};
    std::atomic<int> wholeSeen{0};
    const std::string target = archive + "/libbig.so/" + md5 + "/libbig.so";
    // Looks at the archived copy all the time the filers run: once it is
    // there, it must have its whole size and content.
    std::thread reader([&] {
      while (!done) {
        struct stat status {};
        if (::stat(target.c_str(), &status) != 0)
          continue;
        if (static_cast<size_t>(status.st_size) != content.size() || vell_test::readAll(target) != content)
          ++partialSeen;
        else
          ++wholeSeen;
      }
    });
    std::vector<int> statuses(kFilers, -1);
    std::vector<std::string> results(kFilers);
    std::vector<std::thread> filers;
    for (int i = 0; i < kFilers; ++i)
      filers.emplace_back([&, i] {
        statuses[i] = utils::archiveFile(sources[i].c_str(), archive.c_str(), nullptr, results[i], true);
      });
    for (std::thread &filer : filers)
      filer.join();
    done = true;
    reader.join();

    for (int i = 0; i < kFilers; ++i) {
      EXPECT_TRUE(statuses[i] == 0 || statuses[i] == 6) << statuses[i];
      EXPECT_EQ(results[0], results[i]);
      EXPECT_EQ(content, vell_test::readAll(results[i]));
    }
    EXPECT_EQ(0, partialSeen.load()) << "round " << rounds << ": " << wholeSeen.load()
                                     << " whole copies seen";
    // Nothing but the one copy is left in its checksum directory.
    int entries = 0;
    for (boost::filesystem::directory_iterator it(boost::filesystem::path(results[0]).parent_path()), end;
         it != end; ++it)
      ++entries;
    EXPECT_EQ(1, entries);
    boost::filesystem::remove_all(archive);
    if (HasFailure())
      break;
  }
}

} // namespace
