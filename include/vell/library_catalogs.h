// The message catalogs installed with the library, found from where the shared
// library itself lies.
#pragma once

#include <string>

#include "vell/export.h"

namespace VELL_2_13 {
namespace platform {

// Until a host chooses a catalog directory (setCatalogDirectory), the catalog
// service uses this one: <prefix>/share/vell/catalogs of the prefix the shared
// library lies in, wherever that prefix was moved. Empty when there is none
// (as for a library used from its build tree); messages then show their ids.
// setCatalogDirectory("") turns the installed catalogs off.
VELL_API std::string libraryCatalogDirectory();

} // namespace platform
} // namespace VELL_2_13
