// Search directories, their containers and the search environment handed to a
// file search.
#pragma once

#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "vell/callbacks.h"
#include "vell/objects.h"
#include "vell/results.h"
#include "vell/search_steps.h"
#include "vell/validation.h"

namespace VELL_2_13 {

namespace platform {
class IPropertyStorage;
}

// The host's messenger: an opaque handle, only stored and handed on.
class IMessenger;

// --- Search directories -------------------------------------------------------------

class ISearchDirIterator : public IVellObject {
public:
  virtual void reset() = 0;
  virtual bool next() = 0;
  virtual bool getCurrentRecord(const char *&name, bool &recursive, bool &highPriority) = 0;
};

class ISearchDirContainer : public IVellObject {
public:
  virtual ObjectPtr<ISearchDirIterator> enumerate(search_category_t category) const = 0;
};

class IEditableSearchDirContainer : public ISearchDirContainer {
public:
  virtual bool addDirectory(search_category_t category, const char *name, bool recursive,
                            bool highPriority) = 0;
  virtual bool clear(search_category_t category) = 0;

  static VELL_API ObjectPtr<IEditableSearchDirContainer> create();
};

class ISearchDirChain : public ISearchDirContainer {
public:
  virtual bool addItem(const ObjectPtr<ISearchDirContainer> &container) = 0;

  static VELL_API ObjectPtr<ISearchDirChain> create();
};

class ISearchEnv;

class ICapturedSearchDirs : public ISearchDirContainer {
public:
  static VELL_API ObjectPtr<ICapturedSearchDirs> create(const ObjectPtr<ISearchEnv> &env);
};

// A container whose contents live in the host's property storage.
class IPersistentSearchDirContainer : public IEditableSearchDirContainer {
public:
  static VELL_API ObjectPtr<IPersistentSearchDirContainer>
  create(std::shared_ptr<platform::IPropertyStorage> storage);
};

// --- Environment info -----------------------------------------------------------------

enum operating_system_type_t : uint32_t {
  ostUnknown = 0,
  ostLinux = 1,
};

enum architecture_t : uint32_t {
  archUnknown = 0,
  archX86 = 1,
  archX86_64 = 2,
  archArm = 3,
  archArm64 = 4,
};

class IEnvironmentInfo : public IVellObject {
public:
  virtual operating_system_type_t osType() const = 0;
  virtual architecture_t architecture() const = 0;
  virtual const char *kernelRelease() const = 0;
};

class IEditableEnvironmentInfo : public IEnvironmentInfo {
public:
  virtual void setOsType(operating_system_type_t type) = 0;
  virtual void setArchitecture(architecture_t architecture) = 0;
  virtual void setKernelRelease(const char *release) = 0;

  static VELL_API ObjectPtr<IEditableEnvironmentInfo> create();
};

// --- File retriever -----------------------------------------------------------------------

// Implemented by the host: fetches remote files into a local directory and
// answers checksum questions. Not reference-counted, never owned.
class IFileRetriever {
public:
  virtual ~IFileRetriever() = default;
  // Whether the kernel-image fall-back of a binary search may run for name.
  virtual bool allowKernelFallback(const char *name) = 0;
  // Retrieves name into directory; 0 on success.
  virtual int retrieveFile(const char *name, const char *directory) = 0;
  // Stores into expected the checksum file name must have; 0 on success.
  virtual int getFileChecksum(const char *name, ObjectPtr<IChecksum> &expected) = 0;
  // Not called by the library.
  virtual bool isRemote() = 0;
  // True when name is to be looked up locally and not fetched.
  virtual bool isLocalFile(const std::string &name) = 0;
  // Receives the environment info of the search environment it serves.
  virtual void setEnvironmentInfo(ObjectPtr<IEnvironmentInfo> info) = 0;
};

// --- Search environment ----------------------------------------------------------------

class ISearchEnv : public IVellObject {
public:
  virtual ObjectPtr<ISearchDirIterator> searchDirs(search_category_t category) = 0;
  virtual ObjectPtr<ISearchDirIterator> archiveDirs(search_category_t category) = 0;
  virtual const char *cacheDir() = 0;
  virtual CallbackHolder<ISearchStartedCallback> &searchStartedCallback() = 0;
  virtual CallbackHolder<IFilesFoundCallback> &filesFoundCallback() = 0;
  virtual CallbackHolder<INoFilesFoundCallback> &noFilesFoundCallback() = 0;
  virtual CallbackHolder<IConfidenceLevelPolicyCallback> &confidenceLevelPolicyCallback() = 0;
  virtual ObjectPtr<IEnvironmentInfo> environmentInfo() = 0;
  virtual IFileRetriever *fileRetriever() = 0;
  virtual ObjectPtr<ISearchStepsConfigurator> searchStepsConfigurator() const = 0;
  virtual IMessenger *messenger() = 0;
};

class IEditableSearchEnv : public ISearchEnv {
public:
  virtual void setSearchDirs(const ObjectPtr<ISearchDirContainer> &dirs) = 0;
  virtual void setArchiveDirs(const ObjectPtr<ISearchDirContainer> &dirs) = 0;
  virtual void setCacheDir(const char *dir) = 0;
  virtual void setSearchStartedCallback(const CallbackHolder<ISearchStartedCallback> &callback) = 0;
  virtual void setFilesFoundCallback(const CallbackHolder<IFilesFoundCallback> &callback) = 0;
  virtual void setNoFilesFoundCallback(const CallbackHolder<INoFilesFoundCallback> &callback) = 0;
  virtual void
  setConfidenceLevelPolicyCallback(const CallbackHolder<IConfidenceLevelPolicyCallback> &callback) = 0;
  virtual void setEnvironmentInfo(const ObjectPtr<IEnvironmentInfo> &info) = 0;
  virtual void setFileRetriever(IFileRetriever *const &retriever) = 0;
  virtual void setSearchStepsConfigurator(const ObjectPtr<ISearchStepsConfigurator> &configurator) = 0;
  virtual void setMessenger(IMessenger *messenger) = 0;

  static VELL_API ObjectPtr<IEditableSearchEnv> create();
};

// Forward iterator over texts that co-owns the list it walks.
class VELL_API TextIterator {
public:
  using iterator_category = std::forward_iterator_tag;
  using value_type = std::string;
  using difference_type = std::ptrdiff_t;
  using pointer = const std::string *;
  using reference = const std::string &;

  TextIterator() = default;
  TextIterator(std::shared_ptr<const std::vector<std::string>> texts, size_t position)
      : m_texts(std::move(texts)), m_position(position) {}

  reference operator*() const { return (*m_texts)[m_position]; }
  pointer operator->() const { return &(*m_texts)[m_position]; }
  TextIterator &operator++() {
    ++m_position;
    return *this;
  }
  TextIterator operator++(int) {
    TextIterator old = *this;
    ++m_position;
    return old;
  }
  // True when the iterator stands past the last text.
  bool atEnd() const { return !m_texts || m_position >= m_texts->size(); }
  // An iterator past the last text of the same list.
  TextIterator end() const { return TextIterator(m_texts, m_texts ? m_texts->size() : 0); }
  bool operator==(const TextIterator &other) const {
    return (atEnd() && other.atEnd()) || (m_texts == other.m_texts && m_position == other.m_position);
  }
  bool operator!=(const TextIterator &other) const { return !(*this == other); }

private:
  std::shared_ptr<const std::vector<std::string>> m_texts;
  size_t m_position = 0;
};

// Renders a directory list in the command-line form (sym:rp=/opt/sym), one
// text per directory.
VELL_API TextIterator getSearchDirCommandLine(search_category_t category,
                                              const ObjectPtr<ISearchDirIterator> &dirs);

// One directory in the command-line form, parsed.
struct SearchDirSpec {
  search_category_t category = scAllFiles;
  bool recursive = false;
  bool highPriority = false;
  std::string directory;
};

// Parses one command-line text such as "sym:rp=/opt/debug": a prefix bin, sym,
// src or all; optionally ":" and the flags r (recursive) and p (high priority),
// each at most once and in either order ("rp" and "pr" mean the same); "=";
// then the directory, taken verbatim up to the end (it may hold "=" or ":").
// On failure returns false, leaves spec untouched and sets error to a message
// naming the bad part (unknown prefix, unknown or repeated flag, empty flag
// list, missing "=", empty directory). Rendering drops one trailing backslash,
// so a name ending in one does not come back byte for byte.
VELL_API bool parseSearchDirCommandLine(const std::string &text, SearchDirSpec &spec, std::string &error);

// "[ISearchEnv: searchDirs = /d (Recursive,  HighPriority), ]"
VELL_API std::string dump(const ObjectPtr<ISearchEnv> &env, search_category_t category);

} // namespace VELL_2_13
