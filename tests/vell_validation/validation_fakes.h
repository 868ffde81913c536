// Host-side fakes for validator tests: a file retriever, a confidence policy
// and a validator callback that record how they were called.
#pragma once

#include <sys/stat.h>
#include <sys/time.h>

#include <atomic>
#include <string>
#include <utility>
#include <vector>

#include "vell/results.h"
#include "vell/search_env.h"
#include "vell/validation.h"

namespace vell_test {

class FakeRetriever : public VELL_2_13::IFileRetriever {
public:
  bool allowKernelFallback(const char *) override { return true; }
  int retrieveFile(const char *, const char *) override { return 1; }
  int getFileChecksum(const char *name, VELL_2_13::ObjectPtr<VELL_2_13::IChecksum> &expected) override {
    asked.push_back(name ? name : "");
    if (checksumToGive)
      expected = checksumToGive;
    return checksumResult;
  }
  bool isRemote() override { return true; }
  bool isLocalFile(const std::string &) override { return false; }
  void setEnvironmentInfo(VELL_2_13::ObjectPtr<VELL_2_13::IEnvironmentInfo>) override {}

  int checksumResult = 0;
  VELL_2_13::ObjectPtr<VELL_2_13::IChecksum> checksumToGive;
  std::vector<std::string> asked;
};

class FixedPolicy : public VELL_2_13::IConfidenceLevelPolicyCallback {
public:
  explicit FixedPolicy(unsigned int level) : level(level) {}
  VELL_2_13::confidence_t getConfidenceLevel(VELL_2_13::search_category_t category,
                                             unsigned int searchStep) override {
    ++calls;
    lastCategory = category;
    lastStep = searchStep;
    return VELL_2_13::confidence_t(level);
  }

  unsigned int level;
  std::atomic<int> calls{0};
  VELL_2_13::search_category_t lastCategory = VELL_2_13::scAllFiles;
  unsigned int lastStep = 0;
};

class RecordingCallback : public VELL_2_13::IValidatorCallback {
public:
  explicit RecordingCallback(int verdict) : verdict(verdict) {}
  // A callback that also sets its severity and message on every call.
  RecordingCallback(int verdict, unsigned int severity, std::string message)
      : verdict(verdict), setSeverity(true), severity(severity), message(std::move(message)) {}
  int validate(const char *fileName, VELL_2_13::IErrorInfoContainer &errorInfo) override {
    ++calls;
    lastName = fileName ? fileName : "";
    if (setSeverity)
      errorInfo.setSeverity(VELL_2_13::severity_t(severity));
    if (!message.empty())
      errorInfo.setErrorMessage(message.c_str());
    return verdict;
  }

  int verdict;
  bool setSeverity = false;
  unsigned int severity = 0;
  std::string message;
  std::atomic<int> calls{0};
  std::string lastName;
};

// Sets the modification time of path (seconds since the epoch).
inline void setModificationTime(const std::string &path, int64_t seconds) {
  struct timeval times[2];
  times[0].tv_sec = static_cast<time_t>(seconds);
  times[0].tv_usec = 0;
  times[1] = times[0];
  ::utimes(path.c_str(), times);
}

inline int64_t modificationTime(const std::string &path) {
  struct stat status;
  ::stat(path.c_str(), &status);
  return status.st_mtime;
}

} // namespace vell_test
