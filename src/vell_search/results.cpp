// Valid, invalid and validated files, and the container of suggested paths.
#include "vell/results.h"
#include "vell/file_search.h"

namespace VELL_2_13 {

namespace {

// Names are held in the form the driver gives a binary name: Windows-shaped
// paths get forward slashes, a last "." is dropped, the path is normalised.
std::string normalisedName(const char *name) { return utils::getCanonicalName(name, false); }

} // namespace

ValidFile::ValidFile(const char *name, confidence_t confidence, search_step_t searchStep)
    : m_name(normalisedName(name)), m_confidence(confidence), m_searchStep(searchStep) {}

InvalidFile::InvalidFile(const char *name, severity_t severity, const char *errorMessage,
                         search_step_t searchStep)
    : m_name(normalisedName(name)), m_severity(severity), m_errorMessage(errorMessage ? errorMessage : ""),
      m_searchStep(searchStep) {}

ObjectPtr<IValidFile> InvalidFile::forceTreatAsValid() const {
  return ObjectPtr<IValidFile>(new ValidFile(m_name.c_str(), confidence_t(0), m_searchStep));
}

ValidatedFile::ValidatedFile(IValidFile &file) : m_validFile(&file) {}

ValidatedFile::ValidatedFile(IInvalidFile &file) : m_invalidFile(&file) {}

void StringContainer::add(const char *s) {
  if (!s)
    return;
  m_list.emplace_back(s);
}

std::string dump(const StringContainer &container) {
  std::string text = "[StringContainer: m_list = ";
  for (const std::string &s : container.strings()) {
    text += s;
    text += ", ";
  }
  text += "]";
  return text;
}

} // namespace VELL_2_13
