// The language of the tool's messages when --lang is not given: the user's
// locale, as a command-line program reads it.
#pragma once

#include <string>

namespace vell_tool {

// The locale's language for messages: the first of LC_ALL, LC_MESSAGES and
// LANG that is set and not empty, without its encoding and modifier
// ("de_DE.UTF-8@euro" gives "de_DE", then "de"). The first form for which
// catalogDir holds catalogs is returned; empty (English) for the C and POSIX
// locales and for a language without catalogs.
std::string languageFromLocale(const std::string &catalogDir);

// The same, for the variables given (LC_ALL, LC_MESSAGES, LANG; null: unset).
std::string languageFromLocale(const std::string &catalogDir, const char *lcAll, const char *lcMessages,
                               const char *lang);

} // namespace vell_tool
