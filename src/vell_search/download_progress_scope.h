// Makes a symbol-file search's download progress callback the calling
// thread's current one for the length of the search.
#pragma once

#include "vell/callbacks.h"

namespace VELL_2_13 {

// Sets the thread's current download progress callback and restores the one
// before it when it goes out of scope, so that nested searches each see their
// own.
class DownloadProgressScope {
public:
  explicit DownloadProgressScope(ISymSrvDownloadProgressCallback *callback);
  ~DownloadProgressScope();
  DownloadProgressScope(const DownloadProgressScope &) = delete;
  DownloadProgressScope &operator=(const DownloadProgressScope &) = delete;

private:
  ISymSrvDownloadProgressCallback *m_previous;
};

} // namespace VELL_2_13
