// FileSearch: builds the strategy and validator of each request and drives
// the search through the lazy candidate iterator and the host's callbacks.
#include "vell_search/file_search_driver.h"

#include <boost/filesystem/operations.hpp>

#include "platform/log.h"
#include "vell_index/directory_index.h"
#include "vell_search/bin_file_search_strategy.h"
#include "vell_search/download_progress_scope.h"
#include "vell_search/kernel_bin_strategy.h"
#include "vell_search/src_file_search_strategy.h"
#include "vell_search/sym_file_search_strategy.h"
#include "vell_search_impl/found_files_lazy_iterator.h"
#include "vell_validation/validator.h"

namespace VELL_2_13 {

namespace {

const char *nameOf(const ObjectPtr<IValidFile> &file) { return file ? file->name() : "NULL"; }

std::string textOrEmpty(const char *text) { return text ? text : ""; }

} // namespace

ObjectPtr<IFileSearch> IFileSearch::create(const ObjectPtr<ISearchEnv> &env) {
  return ObjectPtr<IFileSearch>(new FileSearch(env));
}

FileSearch::FileSearch(const ObjectPtr<ISearchEnv> &env) : m_pSearchEnv(env), m_confidencePolicy(env) {
  VELL_TRACE_FUNCTION();
  VELL_LOG_INFO("Search environment: m_pSearchEnv(scBinaryFiles) ="
                << dump(m_pSearchEnv, scBinaryFiles)
                << ", m_pSearchEnv(scSymbolFiles) =" << dump(m_pSearchEnv, scSymbolFiles)
                << ", m_pSearchEnv(scSourceFiles) =" << dump(m_pSearchEnv, scSourceFiles)
                << ", m_pSearchEnv(scAllFiles) =" << dump(m_pSearchEnv, scAllFiles));
  // Remote files are fetched into a directory of this object's own.
  if (m_pSearchEnv && m_pSearchEnv->fileRetriever()) {
    if (utils::createUniqueTempDir(m_tempDir) != 0)
      m_tempDir.clear();
  }
}

FileSearch::FileSearch(const ObjectPtr<ISearchEnv> &env, const ObjectPtr<IDirectoryIndex> &index)
    : FileSearch(env) {
  m_directoryIndex = index;
  m_index = dynamic_cast<DirectoryIndex *>(index.get());
}

FileSearch::FileSearch(const ObjectPtr<ISearchEnv> &env, const KernelSearchOptions &options,
                       const ObjectPtr<IDirectoryIndex> &index)
    : FileSearch(env, index) {
  m_kernelOptions.reset(new KernelSearchOptions(options));
}

ObjectPtr<IFileSearch> createKernelAwareFileSearch(const ObjectPtr<ISearchEnv> &env,
                                                   const KernelSearchOptions &options) {
  return ObjectPtr<IFileSearch>(new FileSearch(env, options, ObjectPtr<IDirectoryIndex>()));
}

FileSearch::~FileSearch() {
  VELL_TRACE_FUNCTION();
  if (m_tempDir.empty())
    return;
  boost::system::error_code ignored;
  boost::filesystem::remove_all(m_tempDir, ignored);
}

ObjectPtr<IValidFile> FileSearch::findBinFile(const char *binName, IValidatorCallback *validatorCallback,
                                              const char *suggestedPath, unsigned long long searchStepsMask) {
  VELL_TRACE_FUNCTION();
  if (!binName || !*binName)
    return ObjectPtr<IValidFile>();
  ObjectPtr<IValidFile> result =
      internalFindBinFile(binName, validatorCallback, suggestedPath, searchStepsMask);
  if (result)
    return result;

  // Kernel fall-back: the image of the target's release under /boot.
  IFileRetriever *retriever = m_pSearchEnv ? m_pSearchEnv->fileRetriever() : nullptr;
  if (retriever && !retriever->allowKernelFallback(binName))
    return ObjectPtr<IValidFile>();
  ObjectPtr<IEnvironmentInfo> info =
      m_pSearchEnv ? m_pSearchEnv->environmentInfo() : ObjectPtr<IEnvironmentInfo>();
  if (!info || utils::getFileNameOnly(binName) != VMLINUX)
    return result;
  const char *release = info->kernelRelease();
  if (!release || !*release)
    return result;
  // The uncompressed image first, then the compressed one.
  result = internalFindBinFile((std::string("/boot/vmlinux-") + release).c_str(), validatorCallback,
                               suggestedPath, searchStepsMask);
  if (result)
    return result;
  return internalFindBinFile((std::string("/boot/vmlinuz-") + release).c_str(), validatorCallback,
                             suggestedPath, searchStepsMask);
}

ObjectPtr<IValidFile> FileSearch::internalFindBinFile(const char *binName,
                                                      IValidatorCallback *validatorCallback,
                                                      const char *suggestedPath,
                                                      unsigned long long searchStepsMask) {
  VELL_LOG_INFO("Searching bin file:" << platform::orNull(binName));
  IFileRetriever *retriever = m_pSearchEnv ? m_pSearchEnv->fileRetriever() : nullptr;
  Validator validator(validatorCallback, m_confidencePolicy, scBinaryFiles, ObjectPtr<IChecksum>(), retriever,
                      binName);
  const std::string name = utils::getCanonicalName(binName, false);
  if (m_kernelOptions) {
    std::string release = m_kernelOptions->kernelRelease;
    ObjectPtr<IEnvironmentInfo> info =
        m_pSearchEnv ? m_pSearchEnv->environmentInfo() : ObjectPtr<IEnvironmentInfo>();
    if (release.empty() && info && info->kernelRelease())
      release = info->kernelRelease();
    KernelAwareBinStrategy strategy(m_pSearchEnv.get(), name, m_tempDir, &validator, *m_kernelOptions,
                                    release);
    strategy.setDirectoryIndex(m_index);
    strategy.setReadAheadThreads(m_readAheadThreads);
    return findFile(strategy, validator, suggestedPath, searchStepsMask);
  }
  BinFileSearchStrategy strategy(m_pSearchEnv.get(), name, m_tempDir, &validator);
  strategy.setDirectoryIndex(m_index);
  strategy.setReadAheadThreads(m_readAheadThreads);
  return findFile(strategy, validator, suggestedPath, searchStepsMask);
}

ObjectPtr<IValidFile> FileSearch::findSymFile(const char *symName, const char *binName, const char *checksum,
                                              IValidatorCallback *validatorCallback,
                                              const char *suggestedPath,
                                              ISymSrvDownloadProgressCallback *progressCallback,
                                              const char *symbolSearchHint) {
  VELL_TRACE_FUNCTION();
  if (!symName || !*symName)
    return ObjectPtr<IValidFile>();
  Validator validator(validatorCallback, m_confidencePolicy, scSymbolFiles, ObjectPtr<IChecksum>(), nullptr,
                      symName);
  const std::string name = utils::getCanonicalName(symName, false);
  const std::string binary = utils::getCanonicalName(binName, false);
  // The hint names the binary on the system the file retriever fetches from.
  SymFileSearchStrategy strategy(m_pSearchEnv.get(), name, m_tempDir, &validator, progressCallback, binary,
                                 textOrEmpty(checksum), textOrEmpty(symbolSearchHint));
  strategy.setDirectoryIndex(m_index);
  strategy.setReadAheadThreads(m_readAheadThreads);
  VELL_LOG_INFO("Searching sym file:" << name << ", binary file:" << binary
                                      << ", checksum:" << textOrEmpty(checksum));
  // The retriever reaches the search's progress callback through the thread.
  const DownloadProgressScope progressScope(progressCallback);
  return findFile(strategy, validator, suggestedPath, 0);
}

ObjectPtr<IValidFile> FileSearch::findSrcFile(const char *srcName, const char *binName, const char *checksum,
                                              IValidatorCallback *validatorCallback,
                                              const char *suggestedPath) {
  VELL_TRACE_FUNCTION();
  if (!srcName || !*srcName)
    return ObjectPtr<IValidFile>();
  Validator validator(validatorCallback, m_confidencePolicy, scSourceFiles, ObjectPtr<IChecksum>(), nullptr,
                      srcName);
  const std::string name = utils::getCanonicalName(srcName, false);
  const std::string binary = utils::getCanonicalName(binName, false);
  SrcFileSearchStrategy strategy(m_pSearchEnv.get(), name, &validator, binary, textOrEmpty(checksum));
  strategy.setDirectoryIndex(m_index);
  strategy.setReadAheadThreads(m_readAheadThreads);
  VELL_LOG_INFO("Searching src file:" << name << ", binary file:" << binary
                                      << ", checksum:" << textOrEmpty(checksum));
  return findFile(strategy, validator, suggestedPath, 0);
}

ObjectPtr<IValidFile> FileSearch::findFile(IFileSearchStrategy &strategy, Validator &validator,
                                           const char *suggestedPath, unsigned long long searchStepsMask) {
  StringContainer suggestions;
  if (suggestedPath)
    suggestions.add(suggestedPath);

  // The host may add suggestions or cancel the search; the callback is read
  // again under its lock because another thread may replace it.
  bool proceed = true;
  if (m_pSearchEnv && m_pSearchEnv->searchStartedCallback().hasCallback()) {
    CallbackAccessor<ISearchStartedCallback> callback(m_pSearchEnv->searchStartedCallback());
    if (callback)
      proceed = strategy.callSearchStarted(*callback.get(), suggestions);
  }
  VELL_LOG_INFO("Suggested resolutions after callback: suggestedResolutions:" << dump(suggestions));

  FoundFilesLazyIterator candidates(strategy, validator, searchStepsMask);
  candidates.setKernelOptions(m_kernelOptions.get());
  // Suggestions enter the lists ahead of anything the steps find.
  for (const std::string &suggestion : suggestions.strings())
    candidates.validateAndAdd(suggestion.c_str(), ssAskUser);

  if (proceed) {
    ObjectPtr<IValidFile> first = candidates.next();
    if (first) {
      if (!m_pSearchEnv || !m_pSearchEnv->filesFoundCallback().hasCallback()) {
        VELL_LOG_INFO("Returning the first found, no filesFoundCallback established");
        return first;
      }
      CallbackAccessor<IFilesFoundCallback> callback(m_pSearchEnv->filesFoundCallback());
      if (!callback) {
        VELL_LOG_INFO("Returning the first found, no pFilesFoundCallback established");
        return first;
      }
      // The host gets the lazy iterator itself: reading past the end
      // continues the search with further steps.
      ObjectPtr<IValidFile> chosen = strategy.callFilesFound(*callback.get(), candidates);
      VELL_LOG_INFO("Returning the result =" << nameOf(chosen) << " after pFilesFoundCallback");
      return chosen;
    }
  }

  if (!m_pSearchEnv || !m_pSearchEnv->noFilesFoundCallback().hasCallback()) {
    VELL_LOG_INFO("Returning the NULL result, no noFilesFoundCallback established");
    return ObjectPtr<IValidFile>();
  }
  CallbackAccessor<INoFilesFoundCallback> callback(m_pSearchEnv->noFilesFoundCallback());
  if (!callback) {
    VELL_LOG_INFO("Nothing found, returning");
    return ObjectPtr<IValidFile>();
  }
  candidates.invalidFilesIterator().reset();
  candidates.validFilesIterator().reset();
  ObjectPtr<IValidFile> supplied = strategy.callNoFilesFound(
      *callback.get(), candidates.invalidFilesIterator(), candidates.validFilesIterator());
  if (!supplied)
    VELL_LOG_INFO("Nothing found after pNoFilesFoundCallback");
  else
    VELL_LOG_INFO("Returning the result =" << supplied->name() << " after pNoFilesFoundCallback");
  return supplied;
}

} // namespace VELL_2_13
