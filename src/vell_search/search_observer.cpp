// The process-wide search observer: one atomic pointer, set by the host.
#include "vell_search/search_observer.h"

#include <atomic>

namespace VELL_2_13 {

namespace {

std::atomic<ISearchObserver *> g_searchObserver{nullptr};

} // namespace

ISearchObserver *setSearchObserver(ISearchObserver *observer) {
  return g_searchObserver.exchange(observer, std::memory_order_acq_rel);
}

ISearchObserver *searchObserver() { return g_searchObserver.load(std::memory_order_acquire); }

} // namespace VELL_2_13
