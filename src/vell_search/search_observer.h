// The process-wide search observer, as the walker and the candidate iterator
// reach it.
#pragma once

#include "vell/search_observer.h"

namespace VELL_2_13 {

// The installed observer, or null.
ISearchObserver *searchObserver();

} // namespace VELL_2_13
