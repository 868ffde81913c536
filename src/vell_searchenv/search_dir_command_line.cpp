// The command-line form of search directories: "<bin|sym|src|all>[:<r><p>]=<directory>".
#include <memory>
#include <string>
#include <vector>

#include "platform/assertion.h"
#include "vell/search_env.h"

namespace VELL_2_13 {

namespace {

const char *const UNIT = "src/vell_searchenv";

struct CategoryPrefix {
  search_category_t category;
  const char *prefix;
};

const CategoryPrefix PREFIXES[] = {
    {scBinaryFiles, "bin"}, {scSymbolFiles, "sym"}, {scSourceFiles, "src"}, {scAllFiles, "all"}};

const char *prefixOf(search_category_t category) {
  for (const CategoryPrefix &entry : PREFIXES) {
    if (entry.category == category)
      return entry.prefix;
  }
  return nullptr;
}

std::string renderRecord(const char *prefix, const char *name, bool recursive, bool highPriority) {
  std::string text = prefix;
  if (recursive || highPriority)
    text += ':';
  if (recursive)
    text += 'r';
  if (highPriority)
    text += 'p';
  text += '=';
  text += name ? name : "";
  // One trailing backslash is dropped (only one).
  if (!text.empty() && text.back() == '\\')
    text.pop_back();
  return text;
}

// Reads the flag letters after ":"; each of "r" and "p" may appear once, in either order.
bool parseFlags(const std::string &flags, SearchDirSpec &spec, std::string &error) {
  if (flags.empty()) {
    error = "empty flag list after ':' (expected r, p or rp)";
    return false;
  }
  bool seenRecursive = false;
  bool seenPriority = false;
  for (char flag : flags) {
    if (flag != 'r' && flag != 'p') {
      error = std::string("unknown flag '") + flag + "' in '" + flags + "' (expected r, p or rp)";
      return false;
    }
    bool &seen = flag == 'r' ? seenRecursive : seenPriority;
    if (seen) {
      error = std::string("repeated flag '") + flag + "' in '" + flags + "'";
      return false;
    }
    seen = true;
  }
  spec.recursive = seenRecursive;
  spec.highPriority = seenPriority;
  return true;
}

} // namespace

TextIterator getSearchDirCommandLine(search_category_t category, const ObjectPtr<ISearchDirIterator> &dirs) {
  auto texts = std::make_shared<std::vector<std::string>>();
  const char *prefix = prefixOf(category);
  if (!prefix) {
    VELL_ASSERT_REPORT("Invalid category", UNIT);
    return TextIterator(texts, 0);
  }
  if (!dirs) {
    VELL_ASSERT_REPORT("Null pointer", UNIT);
    return TextIterator(texts, 0);
  }
  dirs->reset();
  const char *name = nullptr;
  bool recursive = false;
  bool highPriority = false;
  while (dirs->getCurrentRecord(name, recursive, highPriority)) {
    texts->push_back(renderRecord(prefix, name, recursive, highPriority));
    dirs->next();
  }
  return TextIterator(texts, 0);
}

bool parseSearchDirCommandLine(const std::string &text, SearchDirSpec &spec, std::string &error) {
  const size_t equals = text.find('=');
  if (equals == std::string::npos) {
    error = "missing '=' in '" + text + "' (expected <bin|sym|src|all>[:<r|p|rp>]=<directory>)";
    return false;
  }
  const std::string head = text.substr(0, equals);
  const size_t colon = head.find(':');
  const std::string prefix = head.substr(0, colon);
  SearchDirSpec parsed;
  bool known = false;
  for (const CategoryPrefix &entry : PREFIXES) {
    if (prefix == entry.prefix) {
      parsed.category = entry.category;
      known = true;
    }
  }
  if (!known) {
    error = "unknown prefix '" + prefix + "' in '" + text + "' (expected bin, sym, src or all)";
    return false;
  }
  if (colon != std::string::npos && !parseFlags(head.substr(colon + 1), parsed, error))
    return false;
  parsed.directory = text.substr(equals + 1);
  if (parsed.directory.empty()) {
    error = "empty directory in '" + text + "'";
    return false;
  }
  spec = parsed;
  return true;
}

} // namespace VELL_2_13
