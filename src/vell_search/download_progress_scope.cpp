// The calling thread's current download progress callback.
#include "vell_search/download_progress_scope.h"

namespace VELL_2_13 {

namespace {

thread_local ISymSrvDownloadProgressCallback *t_current = nullptr;

} // namespace

DownloadProgressScope::DownloadProgressScope(ISymSrvDownloadProgressCallback *callback)
    : m_previous(t_current) {
  t_current = callback;
}

DownloadProgressScope::~DownloadProgressScope() { t_current = m_previous; }

ISymSrvDownloadProgressCallback *currentDownloadProgressCallback() { return t_current; }

} // namespace VELL_2_13
