// Search results: valid, invalid and validated files, their iterators, the
// suggestion container and the confidence policy callback.
#pragma once

#include <list>
#include <string>

#include "vell/objects.h"
#include "vell/search_steps.h"

namespace VELL_2_13 {

enum confidence_t : uint32_t {};
enum severity_t : uint32_t {};

class IValidFile : public IVellObject {
public:
  virtual const char *name() const = 0;
  virtual confidence_t confidence() const = 0;
  virtual search_step_t searchStep() const = 0;
};

class IInvalidFile : public IVellObject {
public:
  virtual const char *name() const = 0;
  virtual severity_t severity() const = 0;
  virtual const char *errorMessage() const = 0;
  virtual search_step_t searchStep() const = 0;
  virtual ObjectPtr<IValidFile> forceTreatAsValid() const = 0;
};

class IValidatedFile : public IVellObject {
public:
  virtual ObjectPtr<IValidFile> validFile() = 0;
  virtual ObjectPtr<IInvalidFile> invalidFile() = 0;
};

class VELL_API ValidFile : public RefCountImpl<IValidFile> {
public:
  ValidFile(const char *name, confidence_t confidence, search_step_t searchStep);
  const char *name() const override { return m_name.c_str(); }
  confidence_t confidence() const override { return m_confidence; }
  search_step_t searchStep() const override { return m_searchStep; }

private:
  std::string m_name;
  confidence_t m_confidence;
  search_step_t m_searchStep;
};

class VELL_API InvalidFile : public RefCountImpl<IInvalidFile> {
public:
  InvalidFile(const char *name, severity_t severity, const char *errorMessage, search_step_t searchStep);
  const char *name() const override { return m_name.c_str(); }
  severity_t severity() const override { return m_severity; }
  const char *errorMessage() const override { return m_errorMessage.c_str(); }
  search_step_t searchStep() const override { return m_searchStep; }
  ObjectPtr<IValidFile> forceTreatAsValid() const override;

private:
  std::string m_name;
  severity_t m_severity;
  std::string m_errorMessage;
  search_step_t m_searchStep;
};

class VELL_API ValidatedFile : public RefCountImpl<IValidatedFile> {
public:
  explicit ValidatedFile(IValidFile &file);
  explicit ValidatedFile(IInvalidFile &file);
  ObjectPtr<IValidFile> validFile() override { return m_validFile; }
  ObjectPtr<IInvalidFile> invalidFile() override { return m_invalidFile; }

private:
  ObjectPtr<IValidFile> m_validFile;
  ObjectPtr<IInvalidFile> m_invalidFile;
};

// Paths suggested into a search, in insertion order.
class IStringContainer {
public:
  virtual void add(const char *s) = 0;

protected:
  ~IStringContainer() = default;
};

class VELL_API StringContainer : public IStringContainer {
public:
  void add(const char *s) override;
  const std::list<std::string> &strings() const { return m_list; }

private:
  std::list<std::string> m_list;
};

// "[StringContainer: m_list = a, b, ]"
VELL_API std::string dump(const StringContainer &container);

// Iterators over the files of one search, handed to the host's callbacks.
class IValidFileIterator {
public:
  virtual void reset() = 0;
  virtual ObjectPtr<IValidFile> next() = 0;

protected:
  ~IValidFileIterator() = default;
};

class IInvalidFileIterator {
public:
  virtual void reset() = 0;
  virtual ObjectPtr<IInvalidFile> next() = 0;

protected:
  ~IInvalidFileIterator() = default;
};

// Judges one path the way the running search does; handed to the host's
// no-files-found callbacks so that it can check files of its own.
class IValidator {
public:
  virtual ObjectPtr<IValidatedFile> validate(const char *fileName) = 0;

protected:
  ~IValidator() = default;
};

// The host's confidence policy: answers a policy level 0, 1 or 2 for a file
// found in a given step.
class IConfidenceLevelPolicyCallback : public EventGenerator {
public:
  virtual confidence_t getConfidenceLevel(search_category_t category, unsigned int searchStep) = 0;
};

} // namespace VELL_2_13
