// Search steps, search categories and the configurator that orders the steps.
#pragma once

#include <string>
#include <vector>

#include "vell/objects.h"

namespace VELL_2_13 {

enum search_step_t : unsigned int {
  ssArchiveSearchDirs = 0x01,
  ssHighPrioritySearchDirs = 0x02,
  ssAbsoluteNameLookup = 0x04,
  ssAroundBinaryLookup = 0x08,
  ssLowPrioritySearchDirs = 0x10,
  ssSystemDirs = 0x20,
  ssAskUser = 0x40,
  ssCacheSearchDir = 0x80,
};

enum search_category_t : int {
  scBinaryFiles = 1,
  scSymbolFiles = 2,
  scSourceFiles = 3,
  scAllFiles = 4,
};

// Text of a step: its enumerator name, or "Unknown search step".
VELL_API std::string dump(search_step_t step);

class ISearchStepsIterator : public IVellObject {
public:
  virtual void reset() = 0;
  virtual bool next() = 0;
  virtual bool current(search_step_t &step) = 0;
};

class ISearchStepsConfigurator : public IVellObject {
public:
  virtual ObjectPtr<ISearchStepsIterator> getSearchStepsIterator(search_category_t category,
                                                                 unsigned long long mask) = 0;
  virtual void setStep(search_step_t step, search_category_t category, bool enable) = 0;
};

class VELL_API DefaultSearchStepsIterator : public RefCountImpl<ISearchStepsIterator> {
public:
  explicit DefaultSearchStepsIterator(int mask);
  void reset() override;
  bool next() override;
  bool current(search_step_t &step) override;
  void append(search_step_t step);

private:
  std::vector<search_step_t> m_steps;
  size_t m_position;
};

class VELL_API DefaultSearchStepsConfigurator : public RefCountImpl<ISearchStepsConfigurator> {
public:
  DefaultSearchStepsConfigurator();
  ObjectPtr<ISearchStepsIterator> getSearchStepsIterator(search_category_t category,
                                                         unsigned long long mask) override;
  void setStep(search_step_t step, search_category_t category, bool enable) override;

  unsigned int getSearchStepsMask(search_category_t category) const;
  ObjectPtr<ISearchStepsIterator> getSearchStepsIterator(int mask);

private:
  unsigned int m_binMask;
  unsigned int m_symMask;
  unsigned int m_srcMask;
};

} // namespace VELL_2_13
