// Test helper: points the catalog service at a directory for the lifetime of
// one test and leaves it with nothing loaded afterwards.
#pragma once

#include <string>

#include "vell/platform.h"

namespace vell_test {

// The catalogs shipped with the library.
inline std::string shippedCatalogDir() { return VELL_SOURCE_CATALOG_DIR; }

class CatalogScope {
public:
  explicit CatalogScope(const std::string &directory, const std::string &language = "en") {
    VELL_2_13::platform::setCatalogLanguage(language);
    VELL_2_13::platform::setCatalogDirectory(directory);
  }
  ~CatalogScope() {
    VELL_2_13::platform::setCatalogDirectory("");
    VELL_2_13::platform::setCatalogLanguage("en");
  }
  CatalogScope(const CatalogScope &) = delete;
  CatalogScope &operator=(const CatalogScope &) = delete;
};

} // namespace vell_test
