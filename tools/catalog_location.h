// Finds the directory of the message catalogs the tool hands to the library.
#pragma once

#include <string>

namespace vell_tool {

// The catalog directory: explicitDir when given (it must be a directory, else
// BadInput); the source tree's catalogs when the tool runs from its build
// directory; <prefix>/share/vell/catalogs next to the installed tool; else the
// compile-time default. May name a directory that does not exist.
std::string locateCatalogDirectory(const std::string &explicitDir);

// Checks that directory holds the catalogs of language; throws BadInput.
void checkCatalogLanguage(const std::string &directory, const std::string &language);

} // namespace vell_tool
