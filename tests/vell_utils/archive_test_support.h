// Helpers of the archive tests: whole-file reads and a file large enough that
// copying it takes a while.
#pragma once

#include <fstream>
#include <sstream>
#include <string>

namespace vell_test {

inline std::string readAll(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream out;
  out << in.rdbuf();
  return out.str();
}

// 32 MiB that do not repeat in short runs: large enough that a copy takes a
// while for others to look at it, or to be killed in the middle.
inline std::string bigContent() {
  std::string content(32 << 20, '\0');
  for (size_t i = 0; i < content.size(); ++i)
    content[i] = static_cast<char>((i * 131) ^ (i >> 9));
  return content;
}

} // namespace vell_test
