// Host callbacks for tests: record what they are given and answer through
// functions the test sets.
#pragma once

#include <atomic>
#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "vell/callbacks.h"
#include "vell/validation.h"

namespace vell_test {

using Strings = std::vector<std::string>;

// Every callback disconnects its holders before its own members go, so that
// no search can be inside it while it is destroyed.
class TestSearchStarted : public VELL_2_13::ISearchStartedCallback {
public:
  ~TestSearchStarted() override { eventGeneratorImpl()->disconnectHandlers(); }
  bool binFileSearchStarted(const char *binName, VELL_2_13::IStringContainer &names) override {
    return handle(Strings{"bin", binName}, names);
  }
  bool symFileSearchStarted(const char *k1, const char *k2, const char *k3,
                            VELL_2_13::IStringContainer &names) override {
    return handle(Strings{"sym", k1, k2, k3}, names);
  }
  bool srcFileSearchStarted(const char *k1, const char *k2, const char *k3,
                            VELL_2_13::IStringContainer &names) override {
    return handle(Strings{"src", k1, k2, k3}, names);
  }

  std::vector<Strings> calls() {
    std::lock_guard<std::mutex> guard(m_mutex);
    return m_calls;
  }
  Strings addNames;
  bool proceed = true;
  std::atomic<int> count{0};

private:
  bool handle(Strings call, VELL_2_13::IStringContainer &names) {
    ++count;
    {
      std::lock_guard<std::mutex> guard(m_mutex);
      m_calls.push_back(std::move(call));
    }
    for (const std::string &name : addNames)
      names.add(name.c_str());
    return proceed;
  }
  std::mutex m_mutex;
  std::vector<Strings> m_calls;
};

class TestFilesFound : public VELL_2_13::IFilesFoundCallback {
public:
  using Chooser = std::function<VELL_2_13::ObjectPtr<VELL_2_13::IValidFile>(VELL_2_13::IValidFileIterator &)>;
  ~TestFilesFound() override { eventGeneratorImpl()->disconnectHandlers(); }
  VELL_2_13::ObjectPtr<VELL_2_13::IValidFile> binFilesFound(const char *,
                                                            VELL_2_13::IValidFileIterator &files) override {
    return choose(files);
  }
  VELL_2_13::ObjectPtr<VELL_2_13::IValidFile> symFilesFound(const char *, const char *, const char *,
                                                            VELL_2_13::IValidFileIterator &files) override {
    return choose(files);
  }
  VELL_2_13::ObjectPtr<VELL_2_13::IValidFile> srcFilesFound(const char *, const char *, const char *,
                                                            VELL_2_13::IValidFileIterator &files) override {
    return choose(files);
  }
  Chooser chooser;
  std::atomic<int> count{0};

private:
  VELL_2_13::ObjectPtr<VELL_2_13::IValidFile> choose(VELL_2_13::IValidFileIterator &files) {
    ++count;
    return chooser ? chooser(files) : files.next();
  }
};

class TestNoFilesFound : public VELL_2_13::INoFilesFoundCallback {
public:
  using Supplier = std::function<VELL_2_13::ObjectPtr<VELL_2_13::IValidFile>(
      VELL_2_13::IValidator &, VELL_2_13::IInvalidFileIterator &, VELL_2_13::IValidFileIterator &)>;
  ~TestNoFilesFound() override { eventGeneratorImpl()->disconnectHandlers(); }
  VELL_2_13::ObjectPtr<VELL_2_13::IValidFile> noBinFilesFound(const char *, VELL_2_13::IValidator &validator,
                                                              VELL_2_13::IInvalidFileIterator &rejected,
                                                              VELL_2_13::IValidFileIterator &files) override {
    return supply(validator, rejected, files);
  }
  VELL_2_13::ObjectPtr<VELL_2_13::IValidFile> noSymFilesFound(const char *, const char *, const char *,
                                                              VELL_2_13::IValidator &validator,
                                                              VELL_2_13::IInvalidFileIterator &rejected,
                                                              VELL_2_13::IValidFileIterator &files) override {
    return supply(validator, rejected, files);
  }
  VELL_2_13::ObjectPtr<VELL_2_13::IValidFile> noSrcFilesFound(const char *, const char *, const char *,
                                                              VELL_2_13::IValidator &validator,
                                                              VELL_2_13::IInvalidFileIterator &rejected,
                                                              VELL_2_13::IValidFileIterator &files) override {
    return supply(validator, rejected, files);
  }
  Supplier supplier;
  std::atomic<int> count{0};

private:
  VELL_2_13::ObjectPtr<VELL_2_13::IValidFile> supply(VELL_2_13::IValidator &validator,
                                                     VELL_2_13::IInvalidFileIterator &rejected,
                                                     VELL_2_13::IValidFileIterator &files) {
    ++count;
    return supplier ? supplier(validator, rejected, files) : VELL_2_13::ObjectPtr<VELL_2_13::IValidFile>();
  }
};

// The host's own check: rejects the paths it is told to, accepts the rest.
class TestValidatorCallback : public VELL_2_13::IValidatorCallback {
public:
  int validate(const char *fileName, VELL_2_13::IErrorInfoContainer &errorInfo) override {
    if (rejectAll || rejected.count(fileName)) {
      errorInfo.setSeverity(VELL_2_13::severity_t(0));
      errorInfo.setErrorMessage("%Rejected");
      return VELL_2_13::vvReject;
    }
    return VELL_2_13::vvAccept;
  }
  std::set<std::string> rejected;
  bool rejectAll = false;
};

} // namespace vell_test
