// A whole file mapped read-only into memory.
#pragma once

#include <cstddef>

namespace VELL_2_13 {
namespace decompress {

class MappedFile {
public:
  explicit MappedFile(const char *path);
  ~MappedFile();
  MappedFile(const MappedFile &) = delete;
  MappedFile &operator=(const MappedFile &) = delete;

  // False when the file could not be opened or mapped (an empty file maps).
  bool ok() const { return m_ok; }
  const unsigned char *data() const { return m_data; }
  size_t size() const { return m_size; }

private:
  const unsigned char *m_data = nullptr;
  size_t m_size = 0;
  bool m_ok = false;
};

} // namespace decompress
} // namespace VELL_2_13
