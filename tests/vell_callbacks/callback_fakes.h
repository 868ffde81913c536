// Host-side fakes for the callback tests: callbacks that record their calls,
// file iterators over fixed lists, a validator and a history that counts look-ups.
#pragma once

#include <atomic>
#include <string>
#include <vector>

#include "vell/callbacks.h"
#include "vell/results.h"

namespace vell_test {

using namespace VELL_2_13;

inline ObjectPtr<IValidFile> validFile(const char *name) {
  return ObjectPtr<IValidFile>(new ValidFile(name, confidence_t(1), ssLowPrioritySearchDirs));
}

// Walks a fixed list of valid files.
class ListValidFileIterator : public IValidFileIterator {
public:
  explicit ListValidFileIterator(std::vector<ObjectPtr<IValidFile>> files = {}) : m_files(std::move(files)) {}
  void reset() override { m_position = 0; }
  ObjectPtr<IValidFile> next() override {
    if (m_position >= m_files.size())
      return ObjectPtr<IValidFile>();
    return m_files[m_position++];
  }
  size_t position() const { return m_position; }

private:
  std::vector<ObjectPtr<IValidFile>> m_files;
  size_t m_position = 0;
};

class EmptyInvalidFileIterator : public IInvalidFileIterator {
public:
  void reset() override {}
  ObjectPtr<IInvalidFile> next() override { return ObjectPtr<IInvalidFile>(); }
};

class NullValidator : public IValidator {
public:
  ObjectPtr<IValidatedFile> validate(const char *) override { return ObjectPtr<IValidatedFile>(); }
};

// The three strings a callback was called with ("<null>" for null).
struct CallRecord {
  std::string key1, key2, key3;
};

inline std::string text(const char *s) { return s ? s : "<null>"; }

class RecordingSearchStarted : public ISearchStartedCallback {
public:
  explicit RecordingSearchStarted(bool answer = true, const char *suggestion = nullptr)
      : m_answer(answer), m_suggestion(suggestion) {}
  bool binFileSearchStarted(const char *binName, IStringContainer &names) override {
    return record({text(binName), "", ""}, names, "bin");
  }
  bool symFileSearchStarted(const char *k1, const char *k2, const char *k3,
                            IStringContainer &names) override {
    return record({text(k1), text(k2), text(k3)}, names, "sym");
  }
  bool srcFileSearchStarted(const char *k1, const char *k2, const char *k3,
                            IStringContainer &names) override {
    return record({text(k1), text(k2), text(k3)}, names, "src");
  }

  std::vector<CallRecord> calls;
  std::vector<std::string> kinds;
  std::atomic<int> callCount{0};
  bool recordCalls = true; // off for concurrent use

private:
  bool record(CallRecord call, IStringContainer &names, const char *kind) {
    ++callCount;
    if (recordCalls) {
      calls.push_back(std::move(call));
      kinds.push_back(kind);
    }
    if (m_suggestion)
      names.add(m_suggestion);
    return m_answer;
  }

  bool m_answer;
  const char *m_suggestion;
};

// Chooses a fixed file, or consumes skip files of the iterator and chooses none.
class ChoosingFilesFound : public IFilesFoundCallback {
public:
  explicit ChoosingFilesFound(ObjectPtr<IValidFile> choice, int skip = 0)
      : m_choice(std::move(choice)), m_skip(skip) {}
  ObjectPtr<IValidFile> binFilesFound(const char *binName, IValidFileIterator &files) override {
    return choose({text(binName), "", ""}, files, "bin");
  }
  ObjectPtr<IValidFile> symFilesFound(const char *k1, const char *k2, const char *k3,
                                      IValidFileIterator &files) override {
    return choose({text(k1), text(k2), text(k3)}, files, "sym");
  }
  ObjectPtr<IValidFile> srcFilesFound(const char *k1, const char *k2, const char *k3,
                                      IValidFileIterator &files) override {
    return choose({text(k1), text(k2), text(k3)}, files, "src");
  }

  std::vector<CallRecord> calls;
  std::vector<std::string> kinds;

private:
  ObjectPtr<IValidFile> choose(CallRecord call, IValidFileIterator &files, const char *kind) {
    calls.push_back(std::move(call));
    kinds.push_back(kind);
    for (int i = 0; i < m_skip; ++i)
      files.next();
    return m_choice;
  }
  ObjectPtr<IValidFile> m_choice;
  int m_skip;
};

class SupplyingNoFilesFound : public INoFilesFoundCallback {
public:
  explicit SupplyingNoFilesFound(ObjectPtr<IValidFile> supply) : m_supply(std::move(supply)) {}
  ObjectPtr<IValidFile> noBinFilesFound(const char *binName, IValidator &validator, IInvalidFileIterator &,
                                        IValidFileIterator &) override {
    return supply({text(binName), "", ""}, validator, "bin");
  }
  ObjectPtr<IValidFile> noSymFilesFound(const char *k1, const char *k2, const char *k3, IValidator &validator,
                                        IInvalidFileIterator &, IValidFileIterator &) override {
    return supply({text(k1), text(k2), text(k3)}, validator, "sym");
  }
  ObjectPtr<IValidFile> noSrcFilesFound(const char *k1, const char *k2, const char *k3, IValidator &validator,
                                        IInvalidFileIterator &, IValidFileIterator &) override {
    return supply({text(k1), text(k2), text(k3)}, validator, "src");
  }

  std::vector<CallRecord> calls;
  std::vector<std::string> kinds;
  IValidator *lastValidator = nullptr;

private:
  ObjectPtr<IValidFile> supply(CallRecord call, IValidator &validator, const char *kind) {
    calls.push_back(std::move(call));
    kinds.push_back(kind);
    lastValidator = &validator;
    return m_supply;
  }
  ObjectPtr<IValidFile> m_supply;
};

// A history that forwards to a real one and counts finds and adds.
class CountingHistory : public RefCountImpl<ISearchHistory> {
public:
  CountingHistory() : m_inner(ISearchHistory::create()) {}
  ObjectPtr<IFileAssociation> addBinFileAssociation(const char *b, const char *r) override {
    ++adds;
    return m_inner->addBinFileAssociation(b, r);
  }
  ObjectPtr<IFileAssociation> addSymFileAssociation(const char *a, const char *b, const char *c,
                                                    const char *r) override {
    ++adds;
    return m_inner->addSymFileAssociation(a, b, c, r);
  }
  ObjectPtr<IFileAssociation> addSrcFileAssociation(const char *a, const char *b, const char *c,
                                                    const char *r) override {
    ++adds;
    return m_inner->addSrcFileAssociation(a, b, c, r);
  }
  void clear(search_category_t category) override { m_inner->clear(category); }
  ObjectPtr<IFileAssociation> findBinFileAssociation(const char *b) override {
    ++finds;
    return m_inner->findBinFileAssociation(b);
  }
  ObjectPtr<IFileAssociation> findSymFileAssociation(const char *a, const char *b, const char *c) override {
    ++finds;
    return m_inner->findSymFileAssociation(a, b, c);
  }
  ObjectPtr<IFileAssociation> findSrcFileAssociation(const char *a, const char *b, const char *c) override {
    ++finds;
    return m_inner->findSrcFileAssociation(a, b, c);
  }

  std::atomic<int> finds{0};
  std::atomic<int> adds{0};

private:
  ObjectPtr<ISearchHistory> m_inner;
};

} // namespace vell_test
