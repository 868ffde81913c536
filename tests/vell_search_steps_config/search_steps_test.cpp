// Step masks per category, the fixed step order and the step names.
#include <algorithm>
#include <cctype>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/log_capture.h"
#include "vell/search_steps.h"

namespace {

using namespace VELL_2_13;

std::vector<search_step_t> stepsOf(const ObjectPtr<ISearchStepsIterator> &iterator) {
  std::vector<search_step_t> steps;
  iterator->reset();
  search_step_t step;
  while (iterator->current(step)) {
    steps.push_back(step);
    iterator->next();
  }
  return steps;
}

std::vector<search_step_t> stepsOf(DefaultSearchStepsConfigurator &configurator, search_category_t category) {
  return stepsOf(configurator.getSearchStepsIterator(category, 0));
}

ObjectPtr<DefaultSearchStepsConfigurator> makeConfigurator() {
  return ObjectPtr<DefaultSearchStepsConfigurator>(new DefaultSearchStepsConfigurator());
}

// True when text is "<message>, at file: src/vell_search_steps_config:<line>".
bool isErrorAt(const std::string &text, const std::string &message) {
  const std::string prefix = message + ", at file: src/vell_search_steps_config:";
  if (text.size() <= prefix.size() || text.compare(0, prefix.size(), prefix) != 0)
    return false;
  return std::all_of(text.begin() + prefix.size(), text.end(),
                     [](char c) { return std::isdigit(static_cast<unsigned char>(c)) != 0; });
}

const std::vector<search_step_t> DEFAULT_ORDER = {ssArchiveSearchDirs,     ssHighPrioritySearchDirs,
                                                  ssAbsoluteNameLookup,    ssAroundBinaryLookup,
                                                  ssLowPrioritySearchDirs, ssSystemDirs};

TEST(SearchSteps, EnumerationValues) {
  EXPECT_EQ(ssArchiveSearchDirs, 1);
  EXPECT_EQ(ssHighPrioritySearchDirs, 2);
  EXPECT_EQ(ssAbsoluteNameLookup, 4);
  EXPECT_EQ(ssAroundBinaryLookup, 8);
  EXPECT_EQ(ssLowPrioritySearchDirs, 16);
  EXPECT_EQ(ssSystemDirs, 32);
  EXPECT_EQ(ssAskUser, 64);
  EXPECT_EQ(ssCacheSearchDir, 128);
  EXPECT_EQ(scBinaryFiles, 1);
  EXPECT_EQ(scSymbolFiles, 2);
  EXPECT_EQ(scSourceFiles, 3);
  EXPECT_EQ(scAllFiles, 4);
}

TEST(SearchSteps, EveryCategoryStartsWithMask63) {
  ObjectPtr<DefaultSearchStepsConfigurator> configurator = makeConfigurator();
  EXPECT_EQ(configurator->getSearchStepsMask(scBinaryFiles), 63u);
  EXPECT_EQ(configurator->getSearchStepsMask(scSymbolFiles), 63u);
  EXPECT_EQ(configurator->getSearchStepsMask(scSourceFiles), 63u);
  EXPECT_EQ(stepsOf(*configurator, scBinaryFiles), DEFAULT_ORDER);
  EXPECT_EQ(stepsOf(*configurator, scSymbolFiles), DEFAULT_ORDER);
  EXPECT_EQ(stepsOf(*configurator, scSourceFiles), DEFAULT_ORDER);
}

TEST(SearchSteps, MaskZeroYieldsNoCurrentStep) {
  ObjectPtr<DefaultSearchStepsConfigurator> configurator = makeConfigurator();
  ObjectPtr<ISearchStepsIterator> iterator = configurator->getSearchStepsIterator(0);
  search_step_t step = ssAskUser;
  EXPECT_FALSE(iterator->current(step));
  EXPECT_EQ(step, ssAskUser); // untouched
  EXPECT_FALSE(iterator->next());
  EXPECT_FALSE(iterator->current(step));
}

TEST(SearchSteps, FullMaskYieldsSevenStepsInFixedOrderWithoutAskUser) {
  ObjectPtr<DefaultSearchStepsConfigurator> configurator = makeConfigurator();
  EXPECT_EQ(stepsOf(configurator->getSearchStepsIterator(0xFF)),
            (std::vector<search_step_t>{ssArchiveSearchDirs, ssHighPrioritySearchDirs, ssCacheSearchDir,
                                        ssAbsoluteNameLookup, ssAroundBinaryLookup, ssLowPrioritySearchDirs,
                                        ssSystemDirs}));
}

TEST(SearchSteps, AskUserAloneYieldsNothing) {
  ObjectPtr<DefaultSearchStepsConfigurator> configurator = makeConfigurator();
  EXPECT_TRUE(stepsOf(configurator->getSearchStepsIterator(ssAskUser)).empty());
}

TEST(SearchSteps, CacheStepEnabledForSymbolsRunsThird) {
  ObjectPtr<DefaultSearchStepsConfigurator> configurator = makeConfigurator();
  configurator->setStep(ssCacheSearchDir, scSymbolFiles, true);
  EXPECT_EQ(configurator->getSearchStepsMask(scSymbolFiles), 0xBFu);
  EXPECT_EQ(stepsOf(*configurator, scSymbolFiles),
            (std::vector<search_step_t>{ssArchiveSearchDirs, ssHighPrioritySearchDirs, ssCacheSearchDir,
                                        ssAbsoluteNameLookup, ssAroundBinaryLookup, ssLowPrioritySearchDirs,
                                        ssSystemDirs}));
  // Other categories keep their own masks.
  EXPECT_EQ(stepsOf(*configurator, scBinaryFiles), DEFAULT_ORDER);
  EXPECT_EQ(stepsOf(*configurator, scSourceFiles), DEFAULT_ORDER);
}

TEST(SearchSteps, SetStepClearsAndAcceptsOredSteps) {
  ObjectPtr<DefaultSearchStepsConfigurator> configurator = makeConfigurator();
  configurator->setStep(static_cast<search_step_t>(ssArchiveSearchDirs | ssSystemDirs), scBinaryFiles, false);
  EXPECT_EQ(configurator->getSearchStepsMask(scBinaryFiles), 0x1Eu);
  EXPECT_EQ(stepsOf(*configurator, scBinaryFiles),
            (std::vector<search_step_t>{ssHighPrioritySearchDirs, ssAbsoluteNameLookup, ssAroundBinaryLookup,
                                        ssLowPrioritySearchDirs}));
  configurator->setStep(ssSystemDirs, scBinaryFiles, true);
  EXPECT_EQ(configurator->getSearchStepsMask(scBinaryFiles), 0x3Eu);
  configurator->setStep(ssAbsoluteNameLookup, scSourceFiles, false);
  EXPECT_EQ(configurator->getSearchStepsMask(scSourceFiles), 0x3Bu);
  EXPECT_EQ(configurator->getSearchStepsMask(scSymbolFiles), 0x3Fu);
}

TEST(SearchSteps, MaskArgumentIsIgnoredByTheDefaultConfigurator) {
  ObjectPtr<DefaultSearchStepsConfigurator> configurator = makeConfigurator();
  EXPECT_EQ(stepsOf(configurator->getSearchStepsIterator(scBinaryFiles, 0)), DEFAULT_ORDER);
  EXPECT_EQ(stepsOf(configurator->getSearchStepsIterator(scBinaryFiles, ssSystemDirs)), DEFAULT_ORDER);
  EXPECT_EQ(stepsOf(configurator->getSearchStepsIterator(scBinaryFiles, 0xFFFFFFFFFFFFFFFFull)),
            DEFAULT_ORDER);
}

TEST(SearchSteps, SetStepForAllFilesLogsAndChangesNoMask) {
  ObjectPtr<DefaultSearchStepsConfigurator> configurator = makeConfigurator();
  vell_test::LogCapture capture;
  configurator->setStep(ssCacheSearchDir, scAllFiles, true);
  configurator->setStep(ssSystemDirs, scAllFiles, false);
  const std::vector<std::string> lines = capture.texts();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_TRUE(isErrorAt(lines[0], "Unsupported search category")) << lines[0];
  EXPECT_TRUE(isErrorAt(lines[1], "Unsupported search category")) << lines[1];
  EXPECT_EQ(capture.texts(40000).size(), 2u);
  EXPECT_EQ(configurator->getSearchStepsMask(scBinaryFiles), 63u);
  EXPECT_EQ(configurator->getSearchStepsMask(scSymbolFiles), 63u);
  EXPECT_EQ(configurator->getSearchStepsMask(scSourceFiles), 63u);
}

TEST(SearchSteps, SetStepForUnknownCategoryLogs) {
  ObjectPtr<DefaultSearchStepsConfigurator> configurator = makeConfigurator();
  vell_test::LogCapture capture;
  configurator->setStep(ssSystemDirs, static_cast<search_category_t>(0), false);
  ASSERT_EQ(capture.texts(40000).size(), 1u);
  EXPECT_TRUE(isErrorAt(capture.texts(40000)[0], "Unsupported search category"));
  EXPECT_EQ(configurator->getSearchStepsMask(scBinaryFiles), 63u);
}

TEST(SearchSteps, MaskOfAllFilesIsZeroWithAnError) {
  ObjectPtr<DefaultSearchStepsConfigurator> configurator = makeConfigurator();
  vell_test::LogCapture capture;
  EXPECT_EQ(configurator->getSearchStepsMask(scAllFiles), 0u);
  ASSERT_EQ(capture.texts(40000).size(), 1u);
  EXPECT_TRUE(isErrorAt(capture.texts(40000)[0], "Unexpected value.")) << capture.texts(40000)[0];
  capture.clear();
  EXPECT_TRUE(stepsOf(configurator->getSearchStepsIterator(scAllFiles, 0xFF)).empty());
  ASSERT_EQ(capture.texts(40000).size(), 1u);
  EXPECT_TRUE(isErrorAt(capture.texts(40000)[0], "Unexpected value."));
}

TEST(SearchSteps, NextAtTheEndStaysAtTheEnd) {
  ObjectPtr<DefaultSearchStepsConfigurator> configurator = makeConfigurator();
  ObjectPtr<ISearchStepsIterator> iterator =
      configurator->getSearchStepsIterator(static_cast<int>(ssArchiveSearchDirs | ssSystemDirs));
  search_step_t step;
  ASSERT_TRUE(iterator->current(step));
  EXPECT_EQ(step, ssArchiveSearchDirs);
  EXPECT_TRUE(iterator->next());
  ASSERT_TRUE(iterator->current(step));
  EXPECT_EQ(step, ssSystemDirs);
  EXPECT_FALSE(iterator->next());
  EXPECT_FALSE(iterator->current(step));
  EXPECT_FALSE(iterator->next());
  EXPECT_FALSE(iterator->next());
  EXPECT_FALSE(iterator->current(step));
  iterator->reset();
  ASSERT_TRUE(iterator->current(step));
  EXPECT_EQ(step, ssArchiveSearchDirs);
}

TEST(SearchSteps, CurrentDoesNotAdvance) {
  ObjectPtr<DefaultSearchStepsConfigurator> configurator = makeConfigurator();
  ObjectPtr<ISearchStepsIterator> iterator = configurator->getSearchStepsIterator(scSourceFiles, 0);
  search_step_t first;
  search_step_t again;
  ASSERT_TRUE(iterator->current(first));
  ASSERT_TRUE(iterator->current(again));
  EXPECT_EQ(first, again);
}

TEST(SearchSteps, IteratorKeepsItsOwnCopyOfTheSteps) {
  ObjectPtr<DefaultSearchStepsConfigurator> configurator = makeConfigurator();
  ObjectPtr<ISearchStepsIterator> iterator = configurator->getSearchStepsIterator(scBinaryFiles, 0);
  configurator->setStep(static_cast<search_step_t>(0x3F), scBinaryFiles, false);
  EXPECT_EQ(stepsOf(iterator), DEFAULT_ORDER);
  EXPECT_TRUE(stepsOf(*configurator, scBinaryFiles).empty());
}

TEST(SearchSteps, DumpTexts) {
  EXPECT_EQ(dump(ssArchiveSearchDirs), "ssArchiveSearchDirs");
  EXPECT_EQ(dump(ssHighPrioritySearchDirs), "ssHighPrioritySearchDirs");
  EXPECT_EQ(dump(ssAbsoluteNameLookup), "ssAbsoluteNameLookup");
  EXPECT_EQ(dump(ssAroundBinaryLookup), "ssAroundBinaryLookup");
  EXPECT_EQ(dump(ssLowPrioritySearchDirs), "ssLowPrioritySearchDirs");
  EXPECT_EQ(dump(ssSystemDirs), "ssSystemDirs");
  EXPECT_EQ(dump(ssAskUser), "ssAskUser");
  EXPECT_EQ(dump(ssCacheSearchDir), "ssCacheSearchDir");
}

TEST(SearchSteps, DumpOfOtherValuesIsUnknown) {
  EXPECT_EQ(dump(static_cast<search_step_t>(3)), "Unknown search step");
  EXPECT_EQ(dump(static_cast<search_step_t>(0)), "Unknown search step");
  EXPECT_EQ(dump(static_cast<search_step_t>(256)), "Unknown search step");
  EXPECT_EQ(dump(static_cast<search_step_t>(0x3F)), "Unknown search step");
}

} // namespace
