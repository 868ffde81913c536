// The binary strategy of a kernel-aware search: compressed modules, module
// names as the kernel reports them, and a copy of the recorded system's files.
#pragma once

#include <string>
#include <vector>

#include "vell/kernel.h"
#include "vell_search/bin_file_search_strategy.h"

namespace VELL_2_13 {

// The files of a module that a directory holds besides the name searched:
// its compressed files and the spellings of its name with '-' and '_'
// exchanged (the order is documented with KernelSearchOptions).
class ModuleCompanions : public ICompanionFiles {
public:
  // module: the module's name as searched (no directory, no suffix);
  // searchedName: the file name the search constructs its candidates from.
  ModuleCompanions(const std::string &module, const std::string &searchedName);

  bool offerCompanions(const std::string &dir, ISearchResultsContainer &container,
                       unsigned int step) override;
  bool keep(const char *name) const override;
  bool offerListed(const std::string &dir, const std::vector<std::string> &entries,
                   ISearchResultsContainer &container, unsigned int step) override;
  bool companionNames(std::vector<std::string> &names) const override;

  // The companions among entries, in the order they are offered.
  std::vector<std::string> companionsAmong(const std::vector<std::string> &entries) const;

private:
  // Offers dir/<name> for each of present, in order.
  static bool offer(const std::string &dir, const std::vector<std::string> &present,
                    ISearchResultsContainer &container, unsigned int step);

  std::string m_module;
  std::string m_searchedName;
  // Whether the directory is asked for each of m_queried (every possible
  // companion, in the order offered) instead of being listed.
  bool m_query = false;
  std::vector<std::string> m_queried;
};

class KernelAwareBinStrategy : public BinFileSearchStrategy {
public:
  // options: not owned, outlives the strategy; targetRelease: the recorded
  // system's kernel release, empty when unknown.
  KernelAwareBinStrategy(ISearchEnv *env, const std::string &fileName, const std::string &retrievalDir,
                         IValidator *validator, const KernelSearchOptions &options,
                         const std::string &targetRelease);

  bool lookUpAbsoluteName(ISearchResultsContainer &container) override;
  bool findInSystemDirs(ISearchResultsContainer &container) override;

protected:
  ICompanionFiles *searchDirCompanions() override;

private:
  // Offers path when it exists.
  bool offer(const std::string &path, unsigned int step, ISearchResultsContainer &container);
  // Offers path and its compressed forms (when enabled) that exist.
  bool offerWithCompressedForms(const std::string &path, unsigned int step,
                                ISearchResultsContainer &container);
  bool findKernelImages(const std::string &root, ISearchResultsContainer &container);

  const KernelSearchOptions &m_options;
  std::string m_targetRelease;
  // The module name asked for (no directory, no .ko suffix); empty when the
  // name is no module's.
  std::string m_module;
  ModuleCompanions m_companions;
};

// Whether a directory entry is the file of module (a name without ".ko"):
// ".ko", and with compressed set also ".ko.xz", ".ko.zst", ".ko.gz"; with
// dashes set, '-' and '_' match each other.
bool isModuleFileOf(const std::string &entry, const std::string &module, bool compressed, bool dashes);

// Walks dir and its subdirectories (each directory once, entries in name
// order) and offers every file of module; true at the first accepted one.
bool findModuleFiles(const std::string &dir, const std::string &module, bool compressed, unsigned int step,
                     ISearchResultsContainer &container);

} // namespace VELL_2_13
