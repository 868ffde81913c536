// Test doubles for searches: a fixed kernel release, a file retriever serving
// files from a map, a recorder of directory lists and search environments
// built from plain directory lists.
#pragma once

#include <sys/utsname.h>

#include <cstring>
#include <fstream>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <boost/filesystem.hpp>

#include "vell/search_env.h"
#include "vell_search/files_finder.h"
#include "vell_search/host_kernel_release.h"

namespace vell_test {

// While alive, the strategies see the running kernel release "R1" (or a
// failing uname()).
class FixedKernelRelease {
public:
  explicit FixedKernelRelease(bool fail = false)
      : m_previous(VELL_2_13::setUnameFunction(fail ? &failingUname : &unameR1)) {}
  ~FixedKernelRelease() { VELL_2_13::setUnameFunction(m_previous); }
  FixedKernelRelease(const FixedKernelRelease &) = delete;
  FixedKernelRelease &operator=(const FixedKernelRelease &) = delete;

private:
  static int unameR1(struct utsname *names) {
    std::memset(names, 0, sizeof(*names));
    std::strcpy(names->sysname, "Linux");
    std::strcpy(names->release, "R1");
    return 0;
  }
  static int failingUname(struct utsname *) { return -1; }

  VELL_2_13::UnameFunction m_previous;
};

// Records the directories a strategy lists, as "dir R" or "dir N".
class RecordingDirectoryContainer : public VELL_2_13::ISearchDirectoryContainer {
public:
  void addSearchDirectory(const char *dir, bool recursive) override {
    entries.push_back(std::string(dir) + (recursive ? " R" : " N"));
  }
  std::vector<std::string> entries;
};

// A file retriever that "fetches" the files of its map by writing them into
// the target directory.
class TestFileRetriever : public VELL_2_13::IFileRetriever {
public:
  bool allowKernelFallback(const char *name) override {
    std::lock_guard<std::mutex> guard(m_mutex);
    fallbackQuestions.push_back(name ? name : "<null>");
    return allowFallback;
  }
  int retrieveFile(const char *name, const char *directory) override {
    std::lock_guard<std::mutex> guard(m_mutex);
    retrieved.emplace_back(name, directory);
    auto found = remoteFiles.find(name);
    if (found == remoteFiles.end())
      return 1;
    boost::filesystem::path target(directory);
    target /= name;
    boost::filesystem::create_directories(target.parent_path());
    std::ofstream out(target.string(), std::ios::binary | std::ios::trunc);
    out << found->second;
    return 0;
  }
  int getFileChecksum(const char *, VELL_2_13::ObjectPtr<VELL_2_13::IChecksum> &) override { return 1; }
  bool isRemote() override { return true; }
  bool isLocalFile(const std::string &name) override {
    std::lock_guard<std::mutex> guard(m_mutex);
    localQuestions.push_back(name);
    return localNames.count(name) > 0;
  }
  void setEnvironmentInfo(VELL_2_13::ObjectPtr<VELL_2_13::IEnvironmentInfo>) override {}

  // Configuration.
  std::map<std::string, std::string> remoteFiles;
  std::set<std::string> localNames;
  bool allowFallback = true;
  // What was asked.
  std::vector<std::pair<std::string, std::string>> retrieved;
  std::vector<std::string> localQuestions;
  std::vector<std::string> fallbackQuestions;

private:
  std::mutex m_mutex;
};

// One directory of a test environment.
struct TestDir {
  VELL_2_13::search_category_t category;
  std::string name;
  bool recursive;
  bool highPriority;
};

inline VELL_2_13::ObjectPtr<VELL_2_13::IEditableSearchDirContainer>
makeDirContainer(const std::vector<TestDir> &dirs) {
  auto container = VELL_2_13::IEditableSearchDirContainer::create();
  for (const TestDir &dir : dirs)
    container->addDirectory(dir.category, dir.name.c_str(), dir.recursive, dir.highPriority);
  return container;
}

inline VELL_2_13::ObjectPtr<VELL_2_13::IEditableEnvironmentInfo> makeEnvironmentInfo(unsigned osType,
                                                                                     const char *release) {
  auto info = VELL_2_13::IEditableEnvironmentInfo::create();
  info->setOsType(VELL_2_13::operating_system_type_t(osType));
  info->setKernelRelease(release);
  return info;
}

// A search steps configurator that visits exactly the steps given, in order.
class FixedStepsConfigurator : public VELL_2_13::RefCountImpl<VELL_2_13::ISearchStepsConfigurator> {
public:
  explicit FixedStepsConfigurator(std::vector<VELL_2_13::search_step_t> steps) : m_steps(std::move(steps)) {}
  VELL_2_13::ObjectPtr<VELL_2_13::ISearchStepsIterator> getSearchStepsIterator(VELL_2_13::search_category_t,
                                                                               unsigned long long) override {
    VELL_2_13::ObjectPtr<VELL_2_13::DefaultSearchStepsIterator> iterator(
        new VELL_2_13::DefaultSearchStepsIterator(0));
    for (VELL_2_13::search_step_t step : m_steps)
      iterator->append(step);
    iterator->reset();
    return iterator;
  }
  void setStep(VELL_2_13::search_step_t, VELL_2_13::search_category_t, bool) override {}

private:
  std::vector<VELL_2_13::search_step_t> m_steps;
};

} // namespace vell_test
