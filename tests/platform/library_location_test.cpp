// Where the library's own installed data lie: found from the file the
// library's code was loaded from.
#include <gtest/gtest.h>

#include <filesystem>

#include "platform/library_location.h"
#include "support/temp_dir.h"
#include "vell/library_catalogs.h"

using namespace VELL_2_13;

TEST(LibraryLocationTest, LoadedFileIsTheFileHoldingTheLibrarysCode) {
  // Linked into the test program here; the shared library when installed.
  const std::string file = platform::loadedLibraryFile();
  ASSERT_FALSE(file.empty());
  EXPECT_TRUE(std::filesystem::is_regular_file(file)) << file;
}

TEST(LibraryLocationTest, DirectoryBesideTheLibraryIsFoundWhereverThePrefixLies) {
  vell_test::TempDir prefix;
  const std::string library = prefix.write("lib/x86_64-linux-gnu/libvell.so.2", "elf");
  const std::string catalogs = prefix.mkdir("share/vell/catalogs");
  EXPECT_EQ(catalogs, platform::existingDirectoryBeside(library, "../../share/vell/catalogs"));
  EXPECT_EQ("", platform::existingDirectoryBeside(library, "../share/vell/catalogs"));
  EXPECT_EQ("", platform::existingDirectoryBeside("", "../../share/vell/catalogs"));
  EXPECT_EQ("", platform::existingDirectoryBeside(library, ""));
}

TEST(LibraryLocationTest, NoInstalledCatalogsBesideTheTestProgram) {
  // The build tree has no share/vell/catalogs: messages keep showing their ids
  // until a host chooses a directory.
  EXPECT_EQ("", platform::libraryCatalogDirectory());
}

TEST(LibraryLocationTest, DirectoryIsFoundWhereALinkedLibraryReallyLies) {
  // As with a merged /usr: the loader names <root>/lib/libvell.so.2 while the
  // library lies in <root>/usr/lib and its catalogs in <root>/usr/share.
  vell_test::TempDir root;
  root.write("usr/lib/libvell.so.2", "elf");
  const std::string catalogs = root.mkdir("usr/share/vell/catalogs");
  std::filesystem::create_directory_symlink("usr/lib", root.sub("lib"));
  EXPECT_EQ(catalogs,
            platform::existingDirectoryBeside(root.sub("lib/libvell.so.2"), "../share/vell/catalogs"));
}
