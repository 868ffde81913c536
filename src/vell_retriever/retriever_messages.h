// User-visible texts of the HTTP retriever, from the "vell_retriever" catalog.
#pragma once

#include <string>

#include "vell/platform.h"

namespace VELL_2_13 {
namespace retriever {

// The catalog text of id with its arguments, or "%<id>" when there is none.
std::string retrieverMessage(const char *id, const platform::MessageArguments &arguments);

} // namespace retriever
} // namespace VELL_2_13
