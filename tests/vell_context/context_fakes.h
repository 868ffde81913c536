// Helpers for the context tests: a file retriever that records what it is
// handed, a confidence policy, and readers of directory lists.
#pragma once

#include <string>
#include <vector>

#include "vell/context.h"
#include "vell/search_env.h"

namespace vell_test {

using namespace VELL_2_13;

class RecordingRetriever : public IFileRetriever {
public:
  bool allowKernelFallback(const char *) override { return true; }
  int retrieveFile(const char *, const char *) override { return 1; }
  int getFileChecksum(const char *, ObjectPtr<IChecksum> &) override { return 1; }
  bool isRemote() override { return false; }
  bool isLocalFile(const std::string &) override { return true; }
  void setEnvironmentInfo(ObjectPtr<IEnvironmentInfo> info) override {
    ++environmentInfoCalls;
    lastInfo = info;
  }

  int environmentInfoCalls = 0;
  ObjectPtr<IEnvironmentInfo> lastInfo;
};

class FixedConfidencePolicy : public IConfidenceLevelPolicyCallback {
public:
  confidence_t getConfidenceLevel(search_category_t, unsigned int) override { return confidence_t(0); }
};

// "name" followed by ":r" when recursive and ":p" when high-priority.
inline std::vector<std::string> listDirs(const ObjectPtr<ISearchDirIterator> &dirs) {
  std::vector<std::string> result;
  if (!dirs)
    return result;
  dirs->reset();
  const char *name = nullptr;
  bool recursive = false;
  bool highPriority = false;
  while (dirs->getCurrentRecord(name, recursive, highPriority)) {
    result.push_back(std::string(name) + (recursive ? ":r" : "") + (highPriority ? ":p" : ""));
    dirs->next();
  }
  return result;
}

inline ObjectPtr<IEditableSearchDirContainer> containerWith(search_category_t category,
                                                            std::vector<std::string> dirs) {
  ObjectPtr<IEditableSearchDirContainer> container = IEditableSearchDirContainer::create();
  for (const std::string &dir : dirs)
    container->addDirectory(category, dir.c_str(), false, false);
  return container;
}

inline IMessenger *fakeMessenger(int &storage) { return reinterpret_cast<IMessenger *>(&storage); }

} // namespace vell_test
