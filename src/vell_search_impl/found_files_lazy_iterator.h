// The candidate iterator of one search: validates and files every candidate
// the steps report, and runs further steps only when more files are wanted.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "vell/kernel.h"
#include "vell/results.h"
#include "vell/search_steps.h"
#include "vell_search/file_search_strategy.h"
#include "vell_search/search_interfaces.h"

namespace VELL_2_13 {

class FoundFilesLazyIterator : public IValidFileIterator, public ISearchResultsContainer {
public:
  // A plain walk over one of the lists; never triggers searching.
  template <class T, class I> class FilesIterator : public I {
  public:
    explicit FilesIterator(const std::vector<ObjectPtr<T>> &files) : m_files(files), m_position(0) {}
    void reset() override { m_position = 0; }
    ObjectPtr<T> next() override {
      if (m_position >= m_files.size())
        return ObjectPtr<T>();
      return m_files[m_position++];
    }

  private:
    const std::vector<ObjectPtr<T>> &m_files;
    size_t m_position;
  };

  // Takes the strategy's steps for mask; a missing steps iterator is reported
  // as an assertion and leaves the iterator without steps.
  FoundFilesLazyIterator(IFileSearchStrategy &strategy, IValidatorInternal &validator,
                         unsigned long long mask);
  virtual ~FoundFilesLazyIterator() = default;
  FoundFilesLazyIterator(const FoundFilesLazyIterator &) = delete;
  FoundFilesLazyIterator &operator=(const FoundFilesLazyIterator &) = delete;

  // Back to the first valid file; nothing is searched again.
  void reset() override;
  // The next valid file, running further steps until one exists or the
  // steps are done.
  ObjectPtr<IValidFile> next() override;
  // Validates an existing path and files it as valid or invalid, skipping
  // duplicates; true when a new valid file was added.
  bool validateAndAdd(const char *path, unsigned int searchStep) override;

  // Kernel handling of a kernel-aware search (not owned; null for the plain
  // search): extraction in every compression, decompressed modules.
  void setKernelOptions(const KernelSearchOptions *options) { m_kernelOptions = options; }

  IValidFileIterator &validFilesIterator() { return m_validFilesIterator; }
  IInvalidFileIterator &invalidFilesIterator() { return m_invalidFilesIterator; }
  const std::vector<ObjectPtr<IValidFile>> &validFiles() const { return m_validFiles; }
  const std::vector<ObjectPtr<IInvalidFile>> &invalidFiles() const { return m_invalidFiles; }

private:
  // Runs the handler of step; false for a value that is no search step.
  bool runStep(search_step_t step);
  // A compressed kernel image (and, when the kernel options ask for it, a
  // compressed module) replaced by its uncompressed copy in the cache:
  // validated and path updated when that succeeds.
  void substituteCompressedKernel(ObjectPtr<IValidatedFile> &validated, std::string &path,
                                  unsigned int searchStep);

  IFileSearchStrategy &m_strategy;
  IValidatorInternal &m_validator;
  std::vector<ObjectPtr<IValidFile>> m_validFiles;
  std::vector<ObjectPtr<IInvalidFile>> m_invalidFiles;
  FilesIterator<IValidFile, IValidFileIterator> m_validFilesIterator;
  FilesIterator<IInvalidFile, IInvalidFileIterator> m_invalidFilesIterator;
  ObjectPtr<ISearchStepsIterator> m_stepsIterator;
  size_t m_cursor;
  const KernelSearchOptions *m_kernelOptions = nullptr;
};

} // namespace VELL_2_13
