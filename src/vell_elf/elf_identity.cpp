// Reads an ELF file's build ID, debug link and debug-information presence
// through libelf, touching only the headers and the sections it needs.
#include "vell/elf_identity.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <mutex>
#include <string_view>

#include <elf.h>
#include <gelf.h>
#include <libelf.h>

namespace VELL_2_13 {
namespace {

// The note name and type that carry a GNU build ID.
constexpr char kGnuNoteName[] = "GNU";
// Build IDs longer than this are not produced by any linker: treated as damage.
constexpr size_t kMaxBuildIdBytes = 64;

bool libelfReady() {
  static std::once_flag once;
  static bool ready = false;
  std::call_once(once, [] { ready = elf_version(EV_CURRENT) != EV_NONE; });
  return ready;
}

// A file descriptor closed when it goes out of scope.
class Fd {
public:
  explicit Fd(int fd) : m_fd(fd) {}
  ~Fd() {
    if (m_fd >= 0)
      ::close(m_fd);
  }
  Fd(const Fd &) = delete;
  Fd &operator=(const Fd &) = delete;
  int get() const { return m_fd; }

private:
  int m_fd;
};

// An Elf handle ended when it goes out of scope.
class ElfHandle {
public:
  explicit ElfHandle(Elf *elf) : m_elf(elf) {}
  ~ElfHandle() {
    if (m_elf)
      elf_end(m_elf);
  }
  ElfHandle(const ElfHandle &) = delete;
  ElfHandle &operator=(const ElfHandle &) = delete;
  Elf *get() const { return m_elf; }

private:
  Elf *m_elf;
};

std::string toHex(const unsigned char *bytes, size_t size) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  text.reserve(size * 2);
  for (size_t i = 0; i < size; ++i) {
    text += kDigits[bytes[i] >> 4];
    text += kDigits[bytes[i] & 0x0f];
  }
  return text;
}

// The build ID in a block of notes, or empty text.
std::string buildIdInNotes(Elf_Data *data) {
  if (!data || !data->d_buf)
    return {};
  GElf_Nhdr header;
  size_t nameOffset = 0;
  size_t descOffset = 0;
  size_t offset = 0;
  while (offset < data->d_size) {
    size_t next = gelf_getnote(data, offset, &header, &nameOffset, &descOffset);
    if (next == 0 || next <= offset)
      return {};
    offset = next;
    if (header.n_type != NT_GNU_BUILD_ID || header.n_namesz != sizeof(kGnuNoteName))
      continue;
    const auto *base = static_cast<const unsigned char *>(data->d_buf);
    if (std::memcmp(base + nameOffset, kGnuNoteName, sizeof(kGnuNoteName)) != 0)
      continue;
    if (header.n_descsz == 0 || header.n_descsz > kMaxBuildIdBytes)
      return {};
    return toHex(base + descOffset, header.n_descsz);
  }
  return {};
}

// Fills the debug link from a .gnu_debuglink section: a NUL-terminated file
// name, padding to four bytes, then the CRC-32 in the file's byte order.
void readDebugLink(Elf_Data *data, bool bigEndian, ElfIdentity &identity) {
  if (!data || !data->d_buf || data->d_size == 0)
    return;
  const auto *bytes = static_cast<const unsigned char *>(data->d_buf);
  const void *end = std::memchr(bytes, '\0', data->d_size);
  if (!end)
    return;
  size_t nameLength = static_cast<const unsigned char *>(end) - bytes;
  if (nameLength == 0)
    return;
  size_t crcOffset = (nameLength + 1 + 3) & ~size_t(3);
  if (crcOffset + 4 > data->d_size)
    return;
  const unsigned char *c = bytes + crcOffset;
  uint32_t crc = bigEndian ? (uint32_t(c[0]) << 24 | uint32_t(c[1]) << 16 | uint32_t(c[2]) << 8 | c[3])
                           : (uint32_t(c[3]) << 24 | uint32_t(c[2]) << 16 | uint32_t(c[1]) << 8 | c[0]);
  identity.debugLinkName.assign(reinterpret_cast<const char *>(bytes), nameLength);
  identity.debugLinkCrc = crc;
}

bool isDebugInfoSection(const char *name) {
  return std::strcmp(name, ".debug_info") == 0 || std::strcmp(name, ".zdebug_info") == 0;
}

// Whether [offset, offset + size) lies inside a file of fileSize bytes.
bool inside(uint64_t offset, uint64_t size, uint64_t fileSize) {
  return offset <= fileSize && size <= fileSize - offset;
}

// Whether the header tables lie inside the file: a file cut short loses its
// section headers (at the end), which libelf would quietly take for none.
bool tablesInside(Elf *elf, const GElf_Ehdr &header, uint64_t fileSize) {
  size_t sections = 0;
  if (elf_getshdrnum(elf, &sections) != 0)
    return false;
  if (header.e_shoff != 0 && !inside(header.e_shoff, uint64_t(sections) * header.e_shentsize, fileSize))
    return false;
  size_t segments = 0;
  if (elf_getphdrnum(elf, &segments) != 0)
    return false;
  return header.e_phoff == 0 || inside(header.e_phoff, uint64_t(segments) * header.e_phentsize, fileSize);
}

// Walks the section headers. False when they cannot be read at all, or when
// a section's contents lie beyond the end of the file.
bool readSections(Elf *elf, bool bigEndian, uint64_t fileSize, ElfIdentity &identity) {
  size_t stringsIndex = 0;
  if (elf_getshdrstrndx(elf, &stringsIndex) != 0)
    return false;
  Elf_Scn *section = nullptr;
  while ((section = elf_nextscn(elf, section)) != nullptr) {
    GElf_Shdr header;
    if (!gelf_getshdr(section, &header))
      return false;
    // Sections a debug file keeps only as headers occupy no bytes.
    if (header.sh_type == SHT_NOBITS || header.sh_size == 0)
      continue;
    if (!inside(header.sh_offset, header.sh_size, fileSize))
      return false;
    if (header.sh_type == SHT_NOTE && identity.buildId.empty()) {
      identity.buildId = buildIdInNotes(elf_getdata(section, nullptr));
      continue;
    }
    const char *name = elf_strptr(elf, stringsIndex, header.sh_name);
    if (!name)
      continue;
    if (isDebugInfoSection(name)) {
      identity.hasDebugInfo = true;
    } else if (std::strcmp(name, ".gnu_debuglink") == 0 && identity.debugLinkName.empty()) {
      readDebugLink(elf_getdata(section, nullptr), bigEndian, identity);
    }
  }
  return true;
}

// The build ID from the PT_NOTE segments, for files without section headers.
std::string buildIdFromSegments(Elf *elf) {
  size_t count = 0;
  if (elf_getphdrnum(elf, &count) != 0)
    return {};
  for (size_t i = 0; i < count; ++i) {
    GElf_Phdr header;
    if (!gelf_getphdr(elf, static_cast<int>(i), &header) || header.p_type != PT_NOTE || header.p_filesz == 0)
      continue;
    Elf_Type type = header.p_align == 8 ? ELF_T_NHDR8 : ELF_T_NHDR;
    Elf_Data *data = elf_getdata_rawchunk(elf, static_cast<int64_t>(header.p_offset), header.p_filesz, type);
    std::string id = buildIdInNotes(data);
    if (!id.empty())
      return id;
  }
  return {};
}

} // namespace

std::optional<ElfIdentity> readElfIdentity(const std::string &path) {
  if (!libelfReady())
    return std::nullopt;
  Fd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (fd.get() < 0)
    return std::nullopt;
  struct stat info;
  if (::fstat(fd.get(), &info) != 0 || !S_ISREG(info.st_mode))
    return std::nullopt;
  // Mapping lets libelf read only the pages holding what is asked for.
  ElfHandle elf(elf_begin(fd.get(), ELF_C_READ_MMAP, nullptr));
  if (!elf.get() || elf_kind(elf.get()) != ELF_K_ELF)
    return std::nullopt;
  GElf_Ehdr header;
  if (!gelf_getehdr(elf.get(), &header))
    return std::nullopt;
  const uint64_t fileSize = static_cast<uint64_t>(info.st_size);
  if (!tablesInside(elf.get(), header, fileSize))
    return std::nullopt;
  bool bigEndian = header.e_ident[EI_DATA] == ELFDATA2MSB;
  ElfIdentity identity;
  if (!readSections(elf.get(), bigEndian, fileSize, identity))
    return std::nullopt;
  if (identity.buildId.empty())
    identity.buildId = buildIdFromSegments(elf.get());
  return identity;
}

std::optional<std::string> normalizeBuildId(const std::string &text) {
  std::string_view digits(text);
  if (digits.size() >= 2 && digits[0] == '0' && (digits[1] == 'x' || digits[1] == 'X'))
    digits.remove_prefix(2);
  if (digits.size() < 2 || digits.size() % 2 != 0)
    return std::nullopt;
  std::string result;
  result.reserve(digits.size());
  for (char c : digits) {
    if ((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'))
      result += c;
    else if (c >= 'A' && c <= 'F')
      result += static_cast<char>(c - 'A' + 'a');
    else
      return std::nullopt;
  }
  return result;
}

} // namespace VELL_2_13
