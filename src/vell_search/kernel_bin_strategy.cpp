// The binary strategy of a kernel-aware search.
#include "vell_search/kernel_bin_strategy.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <set>
#include <utility>
#include <vector>

#include <boost/filesystem/path.hpp>

#include "vell/file_search.h"
#include "vell_search/directory_reader.h"
#include "vell_search/host_kernel_release.h"

namespace VELL_2_13 {

namespace {

const char *const kCompressedSuffixes[] = {".xz", ".zst", ".gz"};
const char kModuleSuffix[] = ".ko";

bool endsWith(const std::string &text, const std::string &suffix) {
  return text.size() >= suffix.size() &&
         text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

std::string withUnderscores(std::string name) {
  std::replace(name.begin(), name.end(), '-', '_');
  return name;
}

// The module a searched name stands for: the bare name the kernel reports,
// or the file name of a module path without its suffix.
std::string moduleNameOf(const std::string &name) {
  if (name.find("[guest]") != std::string::npos)
    return std::string();
  const boost::filesystem::path path(name);
  const std::string file = path.filename().string();
  if (path.stem().string() == name)
    return name;
  for (const char *compressed : kCompressedSuffixes) {
    const std::string suffix = std::string(kModuleSuffix) + compressed;
    if (endsWith(file, suffix))
      return file.substr(0, file.size() - suffix.size());
  }
  if (endsWith(file, kModuleSuffix) && file.size() > 3)
    return file.substr(0, file.size() - 3);
  return std::string();
}

// Beyond this many '-' and '_' in a module's name its spellings are not
// listed for an index (2^8 spellings with 4 suffixes each at most).
constexpr size_t kMaxSpellingPositions = 8;

// Up to this many possible companion names (a name with at most two '-' or
// '_') are queried one by one; more are found by listing the directory.
constexpr size_t kMaxQueriedNames = 16;

// The suffixes of a module file in the order its forms are offered.
const char *const kModuleFileSuffixes[] = {".ko", ".ko.xz", ".ko.zst", ".ko.gz"};

// Splits a module file name into its stem and the rank of its suffix in
// kModuleFileSuffixes; false for any other name.
bool splitModuleFile(const std::string &entry, std::string &stem, size_t &rank) {
  for (size_t i = 0; i < sizeof(kModuleFileSuffixes) / sizeof(kModuleFileSuffixes[0]); ++i) {
    const std::string suffix = kModuleFileSuffixes[i];
    if (entry.size() > suffix.size() && endsWith(entry, suffix)) {
      stem = entry.substr(0, entry.size() - suffix.size());
      rank = i;
      return true;
    }
  }
  return false;
}

struct DirectoryWalk {
  const std::string &module;
  bool compressed;
  unsigned int step;
  ISearchResultsContainer &container;
  std::set<std::pair<dev_t, ino_t>> visited;

  bool walk(const std::string &dir) {
    struct stat st;
    if (::stat(dir.c_str(), &st) != 0 || !S_ISDIR(st.st_mode))
      return false;
    // A directory reached twice through links is walked once.
    if (!visited.insert(std::make_pair(st.st_dev, st.st_ino)).second)
      return false;
    DIR *handle = ::opendir(dir.c_str());
    if (!handle)
      return false;
    std::vector<std::string> files;
    std::vector<std::string> subdirectories;
    while (const dirent *entry = ::readdir(handle)) {
      const std::string name = entry->d_name;
      if (name == "." || name == "..")
        continue;
      if (isModuleFileOf(name, module, compressed, true))
        files.push_back(dir + "/" + name);
      else if (entry->d_type == DT_DIR || entry->d_type == DT_LNK || entry->d_type == DT_UNKNOWN)
        subdirectories.push_back(dir + "/" + name);
    }
    ::closedir(handle);
    std::sort(files.begin(), files.end());
    std::sort(subdirectories.begin(), subdirectories.end());
    for (const std::string &file : files) {
      if (container.validateAndAdd(file.c_str(), step))
        return true;
    }
    for (const std::string &subdirectory : subdirectories) {
      if (walk(subdirectory))
        return true;
    }
    return false;
  }
};

} // namespace

bool isModuleFileOf(const std::string &entry, const std::string &module, bool compressed, bool dashes) {
  if (module.empty())
    return false;
  std::string stem;
  if (endsWith(entry, kModuleSuffix)) {
    stem = entry.substr(0, entry.size() - 3);
  } else if (compressed) {
    for (const char *suffix : kCompressedSuffixes) {
      const std::string full = std::string(kModuleSuffix) + suffix;
      if (endsWith(entry, full))
        stem = entry.substr(0, entry.size() - full.size());
    }
  }
  if (stem.empty())
    return false;
  return dashes ? withUnderscores(stem) == withUnderscores(module) : stem == module;
}

bool findModuleFiles(const std::string &dir, const std::string &module, bool compressed, unsigned int step,
                     ISearchResultsContainer &container) {
  DirectoryWalk walk{module, compressed, step, container, {}};
  return walk.walk(dir);
}

ModuleCompanions::ModuleCompanions(const std::string &module, const std::string &searchedName)
    : m_module(module), m_searchedName(searchedName) {
  // A few possible names are cheaper to query one by one than a listing of
  // every directory; the order they are queried in is the order offered.
  std::vector<std::string> names;
  if (!m_module.empty() && companionNames(names) && names.size() <= kMaxQueriedNames) {
    m_queried = companionsAmong(names);
    m_query = true;
  }
}

std::vector<std::string> ModuleCompanions::companionsAmong(const std::vector<std::string> &entries) const {
  struct Companion {
    bool otherSpelling;
    std::string stem;
    size_t rank;
    std::string name;
    bool operator<(const Companion &other) const {
      if (otherSpelling != other.otherSpelling)
        return !otherSpelling;
      if (stem != other.stem)
        return stem < other.stem;
      return rank < other.rank;
    }
  };
  std::vector<Companion> companions;
  for (const std::string &entry : entries) {
    std::string stem;
    size_t rank = 0;
    if (entry == m_searchedName || !isModuleFileOf(entry, m_module, true, true) ||
        !splitModuleFile(entry, stem, rank))
      continue;
    companions.push_back(Companion{stem != m_module, stem, rank, entry});
  }
  std::sort(companions.begin(), companions.end());
  std::vector<std::string> names;
  for (const Companion &companion : companions)
    names.push_back(companion.name);
  return names;
}

bool ModuleCompanions::offerCompanions(const std::string &dir, ISearchResultsContainer &container,
                                       unsigned int step) {
  const walker::ScopedFd fd(::open(dir.c_str(), (m_query ? O_PATH : O_RDONLY) | O_DIRECTORY | O_CLOEXEC));
  if (fd.get() < 0)
    return false;
  if (!m_query) {
    // Only the entries that may be module files are kept from the listing.
    std::vector<std::string> entries;
    walker::readEntries(fd.get(), [&](const char *name, unsigned char) {
      if (keep(name))
        entries.push_back(name);
      return true;
    });
    return offerListed(dir, entries, container, step);
  }
  // Every possible name in its order, present when the directory has such an
  // entry (of any type, as a listing would show it).
  std::vector<std::string> present;
  struct stat st;
  for (const std::string &name : m_queried)
    if (::fstatat(fd.get(), name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0)
      present.push_back(name);
  return offer(dir, present, container, step);
}

bool ModuleCompanions::keep(const char *name) const {
  // Most entries of a walked tree are told apart by their length alone: a
  // module file is the module's name (give or take '-' and '_') and a suffix.
  const size_t length = std::strlen(name);
  const size_t stem = m_module.size();
  if (stem == 0 || (length != stem + 3 && length != stem + 6 && length != stem + 7))
    return false;
  return isModuleFileOf(name, m_module, true, true) && name != m_searchedName;
}

bool ModuleCompanions::offerListed(const std::string &dir, const std::vector<std::string> &entries,
                                   ISearchResultsContainer &container, unsigned int step) {
  if (entries.empty())
    return false;
  return offer(dir, companionsAmong(entries), container, step);
}

bool ModuleCompanions::offer(const std::string &dir, const std::vector<std::string> &present,
                             ISearchResultsContainer &container, unsigned int step) {
  const boost::filesystem::path base(dir);
  for (const std::string &name : present) {
    // Try <dir>/<module file>: the module installed compressed, or named
    // with '-' where the kernel reports '_' (or the other way round).
    if (container.validateAndAdd((base / name).string().c_str(), step))
      return true;
  }
  return false;
}

bool ModuleCompanions::companionNames(std::vector<std::string> &names) const {
  std::vector<size_t> positions;
  for (size_t i = 0; i < m_module.size(); ++i)
    if (m_module[i] == '-' || m_module[i] == '_')
      positions.push_back(i);
  if (positions.size() > kMaxSpellingPositions)
    return false;
  names.clear();
  for (size_t mask = 0; mask < (size_t(1) << positions.size()); ++mask) {
    std::string spelling = m_module;
    for (size_t bit = 0; bit < positions.size(); ++bit)
      spelling[positions[bit]] = (mask >> bit) & 1 ? '-' : '_';
    for (const char *suffix : kModuleFileSuffixes)
      if (spelling + suffix != m_searchedName)
        names.push_back(spelling + suffix);
  }
  return true;
}

KernelAwareBinStrategy::KernelAwareBinStrategy(ISearchEnv *env, const std::string &fileName,
                                               const std::string &retrievalDir, IValidator *validator,
                                               const KernelSearchOptions &options,
                                               const std::string &targetRelease)
    : BinFileSearchStrategy(env, fileName, retrievalDir, validator), m_options(options),
      m_targetRelease(targetRelease), m_module(moduleNameOf(fileName)),
      m_companions(m_module, boost::filesystem::path(fileName).filename().string()) {}

ICompanionFiles *KernelAwareBinStrategy::searchDirCompanions() {
  if (!m_options.compressedModules || m_module.empty())
    return nullptr;
  return &m_companions;
}

bool KernelAwareBinStrategy::offer(const std::string &path, unsigned int step,
                                   ISearchResultsContainer &container) {
  return utils::fileExists(path.c_str()) && container.validateAndAdd(path.c_str(), step);
}

bool KernelAwareBinStrategy::offerWithCompressedForms(const std::string &path, unsigned int step,
                                                      ISearchResultsContainer &container) {
  if (offer(path, step, container))
    return true;
  if (!m_options.compressedModules || !endsWith(path, kModuleSuffix))
    return false;
  for (const char *suffix : kCompressedSuffixes) {
    if (offer(path + suffix, step, container))
      return true;
  }
  return false;
}

bool KernelAwareBinStrategy::lookUpAbsoluteName(ISearchResultsContainer &container) {
  const std::string &name = fileName();
  const bool absolute = utils::isAbsolutePath(name.c_str());
  // The recorded system's copy of an absolute path comes first.
  if (absolute && !m_options.sysroot.empty() &&
      offerWithCompressedForms(m_options.sysroot + name, ssAbsoluteNameLookup, container))
    return true;
  if (BinFileSearchStrategy::lookUpAbsoluteName(container))
    return true;
  // A module the distribution ships compressed: xfs.ko recorded, xfs.ko.xz installed.
  if (!absolute || !m_options.compressedModules || !endsWith(name, kModuleSuffix))
    return false;
  for (const char *suffix : kCompressedSuffixes) {
    if (offer(name + suffix, ssAbsoluteNameLookup, container))
      return true;
  }
  return false;
}

bool KernelAwareBinStrategy::findKernelImages(const std::string &root, ISearchResultsContainer &container) {
  if (m_targetRelease.empty())
    return false;
  // Where distributions put the image of release R: the plain image in
  // boot/, the debug images of the debug package, then the compressed image
  // (extracted into the cache when chosen).
  const std::string candidates[] = {
      root + "/boot/vmlinux-" + m_targetRelease,
      root + "/usr/lib/debug/boot/vmlinux-" + m_targetRelease,
      root + "/usr/lib/debug/lib/modules/" + m_targetRelease + "/vmlinux",
      root + "/boot/vmlinuz-" + m_targetRelease,
  };
  for (const std::string &candidate : candidates) {
    if (offer(candidate, ssSystemDirs, container))
      return true;
  }
  return false;
}

bool KernelAwareBinStrategy::findInSystemDirs(ISearchResultsContainer &container) {
  const bool kernelImage = utils::getFileNameOnly(fileName().c_str()) == VMLINUX;
  // The recorded system's files first, with the recorded system's release.
  if (!m_options.sysroot.empty()) {
    if (kernelImage && findKernelImages(m_options.sysroot, container))
      return true;
    // Try <root>/lib/modules/<target release>/, all of it: distributions
    // put modules in kernel/, updates/ and extra/.
    if (!kernelImage && !m_module.empty() && !m_targetRelease.empty() &&
        findModuleFiles(m_options.sysroot + "/lib/modules/" + m_targetRelease, m_module,
                        m_options.compressedModules, ssSystemDirs, container))
      return true;
  }
  if (BinFileSearchStrategy::findInSystemDirs(container))
    return true;
  // The host's debug images of the target's kernel.
  if (kernelImage)
    return findKernelImages("", container);
  // The host's modules again, compressed and with '-' and '_' alike.
  std::string hostRelease;
  if (m_module.empty() || !m_options.compressedModules || !hostKernelRelease(hostRelease))
    return false;
  return findModuleFiles("/lib/modules/" + hostRelease, m_module, true, ssSystemDirs, container);
}

std::string moduleReleaseOf(const char *path) {
  if (!path)
    return std::string();
  const std::string text(path);
  const std::string marker = "/lib/modules/";
  const size_t start = text.find(marker);
  if (start == std::string::npos)
    return std::string();
  const size_t from = start + marker.size();
  const size_t end = text.find('/', from);
  if (end == std::string::npos)
    return std::string();
  return text.substr(from, end - from);
}

} // namespace VELL_2_13
