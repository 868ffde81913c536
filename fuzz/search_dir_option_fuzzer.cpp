// Fuzzes the command-line form of search directories the tool accepts: a text that parses renders back to a
// text that parses to the same directory, and that rendering is a fixed point.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "vell/search_env.h"

// The tool's category names, compiled in.
#include "categories.cpp"

using namespace VELL_2_13;

namespace {

// The text getSearchDirCommandLine renders for a single directory; false when
// the container keeps no record of it.
bool render(const SearchDirSpec &spec, std::string &rendered) {
  ObjectPtr<IEditableSearchDirContainer> dirs = IEditableSearchDirContainer::create();
  dirs->addDirectory(spec.category, spec.directory.c_str(), spec.recursive, spec.highPriority);
  TextIterator texts = getSearchDirCommandLine(spec.category, dirs->enumerate(spec.category));
  int count = 0;
  for (; !texts.atEnd(); ++texts, ++count)
    rendered = *texts;
  if (count > 1)
    std::abort();
  return count == 1;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const std::string text(reinterpret_cast<const char *>(data), size);
  // The category word alone, as the tool's options take it.
  try {
    const search_category_t category = vell_tool::parseCategory(text, true);
    if (text != vell_tool::categoryName(category))
      std::abort();
  } catch (const vell_tool::BadInput &) {
  }

  // Texts reach the parser as C strings (command-line arguments): no NUL inside.
  if (text.find('\0') != std::string::npos)
    return 0;
  SearchDirSpec spec;
  std::string error;
  if (!parseSearchDirCommandLine(text, spec, error)) {
    if (error.empty())
      std::abort();
    return 0;
  }
  std::string rendered;
  if (!render(spec, rendered))
    return 0;
  SearchDirSpec again;
  if (!parseSearchDirCommandLine(rendered, again, error)) {
    // Rendering drops one trailing backslash: "sym=\\" comes back as "sym=".
    if (spec.directory.empty() || spec.directory.back() != '\\')
      std::abort();
    return 0;
  }
  if (again.category != spec.category || again.recursive != spec.recursive ||
      again.highPriority != spec.highPriority)
    std::abort();
  // Each rendering drops one more trailing backslash: no fixed point to check.
  if (!spec.directory.empty() && spec.directory.back() == '\\')
    return 0;
  std::string renderedAgain;
  if (!render(again, renderedAgain) || renderedAgain != rendered)
    std::abort();
  return 0;
}
