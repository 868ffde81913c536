// FileSearch: the library's entry point for locating one binary, symbol
// file or source file over a search environment.
#pragma once

#include <memory>
#include <string>

#include "vell/directory_index.h"
#include "vell/file_search.h"
#include "vell/kernel.h"
#include "vell_search/confidence_policy.h"
#include "vell_search/file_search_strategy.h"

namespace VELL_2_13 {

class DirectoryIndex;
class Validator;

class FileSearch : public RefCountImpl<IFileSearch> {
public:
  explicit FileSearch(const ObjectPtr<ISearchEnv> &env);
  // A search whose recursive walks are answered by index (when not null).
  FileSearch(const ObjectPtr<ISearchEnv> &env, const ObjectPtr<IDirectoryIndex> &index);
  // A kernel-aware search (createKernelAwareFileSearch), indexed as above.
  FileSearch(const ObjectPtr<ISearchEnv> &env, const KernelSearchOptions &options,
             const ObjectPtr<IDirectoryIndex> &index);
  ~FileSearch() override;

  ObjectPtr<IValidFile> findBinFile(const char *binName, IValidatorCallback *validatorCallback,
                                    const char *suggestedPath, unsigned long long searchStepsMask) override;
  ObjectPtr<IValidFile> findSymFile(const char *symName, const char *binName, const char *checksum,
                                    IValidatorCallback *validatorCallback, const char *suggestedPath,
                                    ISymSrvDownloadProgressCallback *progressCallback,
                                    const char *symbolSearchHint) override;
  ObjectPtr<IValidFile> findSrcFile(const char *srcName, const char *binName, const char *checksum,
                                    IValidatorCallback *validatorCallback,
                                    const char *suggestedPath) override;

  // The private directory fetched files are placed in; empty without a file
  // retriever.
  const std::string &tempDir() const { return m_tempDir; }
  // Helper threads that list directories ahead of each recursive walk (0:
  // none). Set before the search is handed out.
  void setReadAheadThreads(unsigned int threads) { m_readAheadThreads = threads; }

private:
  ObjectPtr<IValidFile> internalFindBinFile(const char *binName, IValidatorCallback *validatorCallback,
                                            const char *suggestedPath, unsigned long long searchStepsMask);
  // The common driver: search-started callback, suggestions, the lazy steps
  // and the files-found / no-files-found callbacks.
  ObjectPtr<IValidFile> findFile(IFileSearchStrategy &strategy, Validator &validator,
                                 const char *suggestedPath, unsigned long long searchStepsMask);

  ObjectPtr<ISearchEnv> m_pSearchEnv;
  ConfidenceLevelPolicyWrapper m_confidencePolicy;
  std::string m_tempDir;
  // Null unless the host asked for an indexed search.
  ObjectPtr<IDirectoryIndex> m_directoryIndex;
  DirectoryIndex *m_index = nullptr;
  unsigned int m_readAheadThreads = 0;
  // Set for a kernel-aware search only.
  std::unique_ptr<const KernelSearchOptions> m_kernelOptions;
};

} // namespace VELL_2_13
