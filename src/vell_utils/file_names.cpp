// Taking file names apart, joining and comparing them.
#include <cctype>
#include <cstring>

#include <boost/filesystem/path.hpp>

#include "vell/file_search.h"

namespace VELL_2_13 {
namespace utils {

namespace {

boost::filesystem::path toPath(const char *p) { return boost::filesystem::path(p ? p : ""); }

} // namespace

std::string getFileNameOnly(const char *p) { return toPath(p).filename().string(); }

std::string getFileNamePath(const char *p) { return toPath(p).parent_path().string(); }

std::string getFileNameBase(const char *p) { return toPath(p).stem().string(); }

std::string getFileNameExtension(const char *p) { return toPath(p).extension().string(); }

std::string changeFileNameExtension(const char *p, const char *ext) {
  const boost::filesystem::path path = toPath(p);
  return (path.parent_path() / path.stem()).string() + (ext ? ext : "");
}

std::string addSubPart(const char *dir, const char *name) { return (toPath(dir) / toPath(name)).string(); }

bool isAbsolutePath(const char *p) { return !toPath(p).root_directory().empty(); }

int compareCanonicalFileNames(const char *a, const char *b) {
  const unsigned char *left = reinterpret_cast<const unsigned char *>(a ? a : "");
  const unsigned char *right = reinterpret_cast<const unsigned char *>(b ? b : "");
  for (;; ++left, ++right) {
    if (*left != *right)
      return *left < *right ? -1 : 1;
    if (*left == '\0')
      return 0;
  }
}

std::string toUpper(const char *s) {
  std::string result(s ? s : "");
  for (char &c : result)
    c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return result;
}

} // namespace utils
} // namespace VELL_2_13
