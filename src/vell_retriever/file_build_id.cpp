// The GNU build ID of a downloaded file, read from its notes with libelf.
#include "vell_retriever/file_build_id.h"

#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

#include <elf.h>
#include <gelf.h>
#include <libelf.h>

namespace VELL_2_13 {
namespace retriever {

namespace {

std::string hex(const unsigned char *bytes, size_t size) {
  std::string out;
  char digits[3];
  for (size_t i = 0; i < size; ++i) {
    std::snprintf(digits, sizeof digits, "%02x", bytes[i]);
    out += digits;
  }
  return out;
}

// The NT_GNU_BUILD_ID note of one note data block.
std::optional<std::string> buildIdInNotes(Elf_Data *data) {
  size_t offset = 0;
  GElf_Nhdr header;
  size_t nameOffset = 0;
  size_t descOffset = 0;
  while (data && offset < data->d_size &&
         (offset = gelf_getnote(data, offset, &header, &nameOffset, &descOffset)) > 0) {
    const auto *bytes = static_cast<const unsigned char *>(data->d_buf);
    if (header.n_type == NT_GNU_BUILD_ID && header.n_namesz == 4 && header.n_descsz > 0 &&
        std::string(reinterpret_cast<const char *>(bytes + nameOffset), 3) == "GNU")
      return hex(bytes + descOffset, header.n_descsz);
  }
  return std::nullopt;
}

std::optional<std::string> buildIdOfElf(Elf *elf) {
  Elf_Scn *section = nullptr;
  while ((section = elf_nextscn(elf, section)) != nullptr) {
    GElf_Shdr header;
    if (!gelf_getshdr(section, &header) || header.sh_type != SHT_NOTE)
      continue;
    if (std::optional<std::string> id = buildIdInNotes(elf_getdata(section, nullptr)))
      return id;
  }
  // Without section headers: the PT_NOTE segments.
  size_t count = 0;
  if (elf_getphdrnum(elf, &count) != 0)
    return std::nullopt;
  for (size_t i = 0; i < count; ++i) {
    GElf_Phdr header;
    if (!gelf_getphdr(elf, static_cast<int>(i), &header) || header.p_type != PT_NOTE)
      continue;
    Elf_Data *data = elf_getdata_rawchunk(elf, static_cast<int64_t>(header.p_offset), header.p_filesz,
                                          ELF_T_NHDR);
    if (std::optional<std::string> id = buildIdInNotes(data))
      return id;
  }
  return std::nullopt;
}

} // namespace

std::optional<std::string> buildIdOfFile(const std::string &path) {
  if (elf_version(EV_CURRENT) == EV_NONE)
    return std::nullopt;
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0)
    return std::nullopt;
  Elf *elf = elf_begin(fd, ELF_C_READ_MMAP, nullptr);
  std::optional<std::string> id;
  if (elf && elf_kind(elf) == ELF_K_ELF)
    id = buildIdOfElf(elf);
  if (elf)
    elf_end(elf);
  ::close(fd);
  return id;
}

} // namespace retriever
} // namespace VELL_2_13
