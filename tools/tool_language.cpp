// The language of the tool's messages when --lang is not given.
#include "tool_language.h"

#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace vell_tool {

namespace {

bool hasCatalogs(const std::string &catalogDir, const std::string &language) {
  for (char c : language)
    if (!std::isalnum(static_cast<unsigned char>(c)) && c != '_' && c != '-')
      return false;
  std::error_code error;
  return std::filesystem::exists(std::filesystem::path(catalogDir) / ("vell_common." + language + ".json"),
                                 error);
}

} // namespace

std::string languageFromLocale(const std::string &catalogDir, const char *lcAll, const char *lcMessages,
                               const char *lang) {
  std::string locale;
  for (const char *value : {lcAll, lcMessages, lang})
    if (value && *value) {
      locale = value;
      break;
    }
  locale = locale.substr(0, locale.find_first_of(".@"));
  if (locale.empty() || locale == "C" || locale == "POSIX")
    return std::string();
  if (hasCatalogs(catalogDir, locale))
    return locale;
  const std::string language = locale.substr(0, locale.find('_'));
  if (language != locale && hasCatalogs(catalogDir, language))
    return language;
  return std::string();
}

std::string languageFromLocale(const std::string &catalogDir) {
  return languageFromLocale(catalogDir, std::getenv("LC_ALL"), std::getenv("LC_MESSAGES"),
                            std::getenv("LANG"));
}

} // namespace vell_tool
