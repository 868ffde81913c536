// An output file written under a temporary name in its final directory and
// renamed into place only when complete.
#pragma once

#include <string>

namespace VELL_2_13 {
namespace decompress {

class AtomicOutputFile {
public:
  AtomicOutputFile() = default;
  ~AtomicOutputFile();
  AtomicOutputFile(const AtomicOutputFile &) = delete;
  AtomicOutputFile &operator=(const AtomicOutputFile &) = delete;

  // Creates the temporary file next to finalPath; false when it cannot be.
  bool open(const std::string &finalPath);
  bool write(const unsigned char *data, size_t size);
  // Empties the temporary file for another attempt.
  bool rewind();
  // Renames the temporary file to the final path.
  bool commit();
  // Removes the temporary file.
  void discard();
  // The temporary file's path while it is open.
  const std::string &tempPath() const { return m_tempPath; }

private:
  int m_fd = -1;
  std::string m_tempPath;
  std::string m_finalPath;
};

} // namespace decompress
} // namespace VELL_2_13
