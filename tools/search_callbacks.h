// The tool's search callbacks: one lists every valid file of a search, the
// other keeps the candidates rejected by a search that found nothing.
#pragma once

#include <vector>

#include "vell/callbacks.h"
#include "vell/results.h"

namespace vell_tool {

// Goes on with the search past the first file until the steps run out, keeps
// every valid file in order, and answers the first one (the search's own choice).
class AllFilesCollector : public VELL_2_13::IFilesFoundCallback {
public:
  VELL_2_13::ObjectPtr<VELL_2_13::IValidFile> binFilesFound(const char *binName,
                                                            VELL_2_13::IValidFileIterator &files) override;
  VELL_2_13::ObjectPtr<VELL_2_13::IValidFile> symFilesFound(const char *key1, const char *key2,
                                                            const char *key3,
                                                            VELL_2_13::IValidFileIterator &files) override;
  VELL_2_13::ObjectPtr<VELL_2_13::IValidFile> srcFilesFound(const char *key1, const char *key2,
                                                            const char *key3,
                                                            VELL_2_13::IValidFileIterator &files) override;

  const std::vector<VELL_2_13::ObjectPtr<VELL_2_13::IValidFile>> &files() const { return m_files; }

private:
  VELL_2_13::ObjectPtr<VELL_2_13::IValidFile> collect(VELL_2_13::IValidFileIterator &files);

  std::vector<VELL_2_13::ObjectPtr<VELL_2_13::IValidFile>> m_files;
};

// Keeps every rejected candidate a search reports when it found nothing (a
// binary search may report twice: before and during its kernel fall-back);
// supplies no file.
class RejectionCollector : public VELL_2_13::INoFilesFoundCallback {
public:
  VELL_2_13::ObjectPtr<VELL_2_13::IValidFile> noBinFilesFound(const char *binName,
                                                              VELL_2_13::IValidator &validator,
                                                              VELL_2_13::IInvalidFileIterator &rejected,
                                                              VELL_2_13::IValidFileIterator &files) override;
  VELL_2_13::ObjectPtr<VELL_2_13::IValidFile>
  noSymFilesFound(const char *key1, const char *key2, const char *key3, VELL_2_13::IValidator &validator,
                  VELL_2_13::IInvalidFileIterator &rejected, VELL_2_13::IValidFileIterator &files) override;
  VELL_2_13::ObjectPtr<VELL_2_13::IValidFile>
  noSrcFilesFound(const char *key1, const char *key2, const char *key3, VELL_2_13::IValidator &validator,
                  VELL_2_13::IInvalidFileIterator &rejected, VELL_2_13::IValidFileIterator &files) override;

  const std::vector<VELL_2_13::ObjectPtr<VELL_2_13::IInvalidFile>> &rejected() const { return m_rejected; }

private:
  VELL_2_13::ObjectPtr<VELL_2_13::IValidFile> collect(VELL_2_13::IInvalidFileIterator &rejected);

  std::vector<VELL_2_13::ObjectPtr<VELL_2_13::IInvalidFile>> m_rejected;
};

} // namespace vell_tool
