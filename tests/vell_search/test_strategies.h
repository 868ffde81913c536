// Search strategies for tests of the search steps: callbacks that decide
// nothing, and a local-and-remote strategy with a fixed category.
#pragma once

#include <string>

#include "vell_search/basic_file_search_strategy.h"
#include "vell_search/local_and_remote_strategy.h"

namespace vell_test {

// Base with hooks that let the steps run and settle nothing: the search-started
// callback goes on, found and not-found callbacks choose no file.
template <class Base> class InertCallbacks : public Base {
public:
  using Base::Base;
  bool callSearchStarted(VELL_2_13::ISearchStartedCallback &, VELL_2_13::IStringContainer &) override {
    return true;
  }
  VELL_2_13::ObjectPtr<VELL_2_13::IValidFile> callFilesFound(VELL_2_13::IFilesFoundCallback &,
                                                             VELL_2_13::IValidFileIterator &) override {
    return {};
  }
  VELL_2_13::ObjectPtr<VELL_2_13::IValidFile> callNoFilesFound(VELL_2_13::INoFilesFoundCallback &,
                                                               VELL_2_13::IInvalidFileIterator &,
                                                               VELL_2_13::IValidFileIterator &) override {
    return {};
  }
};

// A local-and-remote strategy for binaries with no system directories.
class TestLocalAndRemoteStrategy : public InertCallbacks<VELL_2_13::BasicLocalAndRemoteFileSearchStrategy> {
public:
  TestLocalAndRemoteStrategy(VELL_2_13::ISearchEnv *env, const std::string &name,
                             const std::string &retrievalDir)
      : InertCallbacks(env, name, retrievalDir) {}
  VELL_2_13::search_category_t getCategorySpecific() override { return VELL_2_13::scBinaryFiles; }
  void fillSystemDirs(VELL_2_13::ISearchDirectoryContainer &) override {}
};

} // namespace vell_test
