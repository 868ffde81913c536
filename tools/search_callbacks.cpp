// The tool's search callbacks: one lists every valid file of a search, the
// other keeps the candidates rejected by a search that found nothing.
#include "search_callbacks.h"

using namespace VELL_2_13;

namespace vell_tool {

ObjectPtr<IValidFile> AllFilesCollector::collect(IValidFileIterator &files) {
  // From the start: the iterator stands after the first file; reading on past
  // the files found so far runs the remaining steps.
  files.reset();
  while (ObjectPtr<IValidFile> file = files.next())
    m_files.push_back(file);
  return m_files.empty() ? ObjectPtr<IValidFile>() : m_files.front();
}

ObjectPtr<IValidFile> AllFilesCollector::binFilesFound(const char *, IValidFileIterator &files) {
  return collect(files);
}

ObjectPtr<IValidFile> AllFilesCollector::symFilesFound(const char *, const char *, const char *,
                                                       IValidFileIterator &files) {
  return collect(files);
}

ObjectPtr<IValidFile> AllFilesCollector::srcFilesFound(const char *, const char *, const char *,
                                                       IValidFileIterator &files) {
  return collect(files);
}

ObjectPtr<IValidFile> RejectionCollector::collect(IInvalidFileIterator &rejected) {
  rejected.reset();
  while (ObjectPtr<IInvalidFile> file = rejected.next())
    m_rejected.push_back(file);
  return ObjectPtr<IValidFile>();
}

ObjectPtr<IValidFile> RejectionCollector::noBinFilesFound(const char *, IValidator &,
                                                          IInvalidFileIterator &rejected,
                                                          IValidFileIterator &) {
  return collect(rejected);
}

ObjectPtr<IValidFile> RejectionCollector::noSymFilesFound(const char *, const char *, const char *,
                                                          IValidator &, IInvalidFileIterator &rejected,
                                                          IValidFileIterator &) {
  return collect(rejected);
}

ObjectPtr<IValidFile> RejectionCollector::noSrcFilesFound(const char *, const char *, const char *,
                                                          IValidator &, IInvalidFileIterator &rejected,
                                                          IValidFileIterator &) {
  return collect(rejected);
}

} // namespace vell_tool
