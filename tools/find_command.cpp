// vell find: resolves one binary, symbol file or source file.
#include "find_command.h"

#include <cctype>
#include <charconv>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <sys/utsname.h>

#include "vell/context.h"
#include "vell/file_search.h"
#include "vell/platform.h"
#include "vell/search_env.h"
#include "vell/validation.h"

#include "categories.h"
#include "file_checks.h"
#include "find_report.h"
#include "kernel_support.h"
#include "search_callbacks.h"
#include "search_contexts.h"
#include "step_tracker.h"
#include "steps_option.h"
#include "tool_error.h"
#include "user_config.h"
#include "validators.h"

using namespace VELL_2_13;

namespace vell_tool {

namespace {

// The find options after every check, ready for the search.
struct FindRequest {
  search_category_t category = scBinaryFiles;
  std::string name;
  std::string binary; // absolute, or empty
  ObjectPtr<IChecksum> checksum;
  int64_t mtime = 0;
  uint64_t size = 0;
  std::vector<SearchDirSpec> dirs;
  std::string archive;
  std::string cache;
  std::string resultDir;
  std::string kernelRelease;
  std::string sysroot;
  ObjectPtr<ISearchStepsConfigurator> steps;
  std::string configPath;
};

bool isHex(const std::string &text) {
  for (char c : text)
    if (!std::isxdigit(static_cast<unsigned char>(c)))
      return false;
  return true;
}

// "HEX" (MD5, 32 digits) or "sha1:HEX" (SHA-1, 40 digits).
ObjectPtr<IChecksum> parseChecksum(const std::string &text) {
  checksum_type_t type = ctMd5;
  std::string digits = text;
  size_t length = 32;
  if (digits.rfind("sha1:", 0) == 0) {
    type = ctSha1;
    digits.erase(0, 5);
    length = 40;
  }
  if (digits.size() != length || !isHex(digits))
    throw BadInput("--checksum: '" + text +
                   "' is neither an MD5 checksum (32 hexadecimal digits) nor sha1: and a SHA-1 "
                   "checksum (40 hexadecimal digits)");
  return IChecksumCalculator::create()->fromString(type, digits.c_str());
}

template <class T> T parseNumber(const char *option, const std::string &text) {
  T value{};
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (text.empty() || error != std::errc() || end != text.data() + text.size())
    throw BadInput(std::string(option) + ": '" + text + "' is not a whole number");
  return value;
}

std::string runningKernelRelease() {
  utsname info{};
  return uname(&info) == 0 ? info.release : "";
}

architecture_t runningArchitecture() {
  utsname info{};
  if (uname(&info) != 0)
    return archUnknown;
  std::string machine = info.machine;
  if (machine == "x86_64")
    return archX86_64;
  if (machine == "aarch64" || machine == "arm64")
    return archArm64;
  if (machine.size() == 4 && machine[0] == 'i' && machine.substr(2) == "86")
    return archX86;
  if (machine.rfind("arm", 0) == 0)
    return archArm;
  return archUnknown;
}

void requireSourceSearch(search_category_t category, const char *option) {
  if (category != scSourceFiles)
    throw BadInput(std::string(option) + " applies to source files (vell find src) only");
}

// The steps the search runs: the library's default order and masks, changed by --steps.
ObjectPtr<ISearchStepsConfigurator> stepsConfigurator(search_category_t category,
                                                      const FindOptions &options) {
  ObjectPtr<ISearchStepsConfigurator> configurator(new DefaultSearchStepsConfigurator());
  if (!options.steps.empty())
    applyStepsOption(options.steps, *configurator, category);
  return configurator;
}

// Checks everything the user gave; nothing is searched or written before.
FindRequest checkOptions(const GlobalOptions &global, const FindOptions &options) {
  FindRequest request;
  request.category = parseCategory(options.category, false);
  request.name = options.name;
  if (request.name.empty())
    throw BadInput("find: empty file name");

  if (!options.binary.empty()) {
    if (request.category == scBinaryFiles)
      throw BadInput("--binary applies to symbol and source files (vell find sym|src) only");
    requireFile("--binary", options.binary);
    request.binary = absolutePath(options.binary);
  }
  if (!options.checksum.empty())
    request.checksum = parseChecksum(options.checksum);
  if (!options.mtime.empty()) {
    requireSourceSearch(request.category, "--mtime");
    request.mtime = parseNumber<int64_t>("--mtime", options.mtime);
  }
  if (!options.size.empty()) {
    requireSourceSearch(request.category, "--size");
    request.size = parseNumber<uint64_t>("--size", options.size);
  }
  if (options.notNewerThanBinary) {
    requireSourceSearch(request.category, "--not-newer-than-binary");
    if (request.binary.empty())
      throw BadInput("--not-newer-than-binary needs --binary");
  }
  if (!options.timeCheckExceptions.empty()) {
    requireSourceSearch(request.category, "--time-check-exception");
    if (options.mtime.empty() && options.size.empty() && !options.notNewerThanBinary)
      throw BadInput("--time-check-exception needs --mtime, --size or --not-newer-than-binary");
    for (const std::string &dir : options.timeCheckExceptions)
      requireDirectory("--time-check-exception", dir);
  }
  for (const std::string &text : options.dirs) {
    SearchDirSpec spec;
    std::string error;
    if (!parseSearchDirCommandLine(text, spec, error))
      // NOLINTNEXTLINE(performance-inefficient-string-concatenation): one message, built once
      throw BadInput("--dir '" + text + "': " + error);
    spec.directory = absolutePath(spec.directory);
    request.dirs.push_back(spec);
  }
  if (!options.archive.empty()) {
    requireDirectory("--archive", options.archive);
    request.archive = absolutePath(options.archive);
  }
  if (!options.cache.empty()) {
    requireDirectory("--cache", options.cache);
    request.cache = absolutePath(options.cache);
  }
  if (!options.resultDir.empty()) {
    requireDirectory("--result-dir", options.resultDir);
    request.resultDir = absolutePath(options.resultDir);
  }
  if (!options.sysroot.empty()) {
    requireDirectory("--sysroot", options.sysroot);
    request.sysroot = absolutePath(options.sysroot);
  }
  request.kernelRelease = options.kernelRelease.empty() ? runningKernelRelease() : options.kernelRelease;
  request.steps = stepsConfigurator(request.category, options);
  request.configPath = userConfigPath(global.config);
  if (!request.configPath.empty())
    checkConfigReadable(request.configPath);
  return request;
}

ObjectPtr<IEnvironmentInfo> environmentInfo(const std::string &kernelRelease) {
  ObjectPtr<IEditableEnvironmentInfo> info = IEditableEnvironmentInfo::create();
  info->setOsType(ostLinux);
  info->setArchitecture(runningArchitecture());
  info->setKernelRelease(kernelRelease.c_str());
  return info;
}

// The checks that --checksum, --mtime, --size and --not-newer-than-binary ask for.
struct RequestedChecks {
  std::unique_ptr<ChecksumValidator> checksum;
  std::unique_ptr<SourceFileTimeAndSizeMatchValidator> timeAndSize;
  std::unique_ptr<SourceFileUpToDateCheckValidator> upToDate;
  CompositeValidator all;

  IValidatorCallback *callback() { return all.empty() ? nullptr : &all; }
};

void buildChecks(const FindRequest &request, const FindOptions &options, RequestedChecks &checks) {
  if (request.checksum) {
    checks.checksum = std::make_unique<ChecksumValidator>(request.category, request.checksum);
    checks.all.add(checks.checksum.get());
  }
  if (!options.mtime.empty() || !options.size.empty()) {
    checks.timeAndSize = std::make_unique<SourceFileTimeAndSizeMatchValidator>(request.mtime, request.size);
    for (std::string dir : options.timeCheckExceptions)
      checks.timeAndSize->exceptionDirs().addTimeCheckExceptionDir(dir);
    checks.all.add(checks.timeAndSize.get());
  }
  if (options.notNewerThanBinary) {
    // A source file not newer than its binary is plausible, not proven: no
    // decision, so the confidence policy decides.
    checks.upToDate = std::make_unique<SourceFileUpToDateCheckValidator>(request.binary.c_str(), false);
    for (std::string dir : options.timeCheckExceptions)
      checks.upToDate->exceptionDirs().addTimeCheckExceptionDir(dir);
    checks.all.add(checks.upToDate.get());
  }
}

ObjectPtr<IValidFile> search(IFileSearch &fileSearch, const FindRequest &request, const FindOptions &options,
                             IValidatorCallback *validator) {
  const char *suggested = options.suggest.empty() ? nullptr : options.suggest.c_str();
  const char *binary = request.binary.empty() ? nullptr : request.binary.c_str();
  const char *checksum = options.checksum.empty() ? nullptr : options.checksum.c_str();
  switch (request.category) {
  case scBinaryFiles:
    return fileSearch.findBinFile(request.name.c_str(), validator, suggested, 0);
  case scSymbolFiles:
    return fileSearch.findSymFile(request.name.c_str(), binary, checksum, validator, suggested, nullptr,
                                  nullptr);
  default:
    return fileSearch.findSrcFile(request.name.c_str(), binary, checksum, validator, suggested);
  }
}

} // namespace

int runFind(const GlobalOptions &global, const FindOptions &options) {
  FindRequest request = checkOptions(global, options);

  // Compressed kernel images are extracted under the cache root.
  if (!request.cache.empty())
    platform::setCacheRoot(request.cache);

  // Everything the search refers to outlives the contexts and the search.
  StepTracker tracker;
  RequestedChecks checks;
  buildChecks(request, options, checks);
  RecordingValidator recorder(checks.callback(), tracker);
  AllFilesCollector allFiles;
  RejectionCollector rejections;

  UserSearchDirs userDirs;
  if (!request.configPath.empty())
    userDirs = openUserSearchDirs(request.configPath);
  SearchContexts contexts = createSearchContexts(userDirs.dirs, request.resultDir);
  IResolutionContextMgr &mgr = *contexts.mgr;
  IResolutionContext &commandLine = *contexts.commandLine;

  if (!request.dirs.empty()) {
    ObjectPtr<IEditableSearchDirContainer> dirs = IEditableSearchDirContainer::create();
    for (const SearchDirSpec &spec : request.dirs)
      dirs->addDirectory(spec.category, spec.directory.c_str(), spec.recursive, spec.highPriority);
    mgr.registerSearchDirs(commandLine, dirs, COMMAND_LINE_DIRS_KEY);
  }
  if (!request.archive.empty())
    mgr.registerArchiveDir(commandLine, request.archive.c_str());
  if (!request.cache.empty())
    mgr.registerCacheDir(commandLine, request.cache.c_str());
  mgr.registerEnvironmentInfo(commandLine, CLIENT_ID, environmentInfo(request.kernelRelease));
  ObjectPtr<ISearchStepsConfigurator> steps = request.steps;
  if (options.explain)
    steps = ObjectPtr<ISearchStepsConfigurator>(new TrackingStepsConfigurator(request.steps, tracker));
  mgr.registerSearchStepsConfigurator(commandLine, CLIENT_ID, steps);
  if (options.all)
    mgr.registerFilesFoundCallback(commandLine, CLIENT_ID, &allFiles);
  if (options.explain)
    mgr.registerNoFilesFoundCallback(commandLine, CLIENT_ID, &rejections);

  ObjectPtr<IFileSearch> fileSearch = createToolFileSearch(mgr, commandLine, CLIENT_ID, options.plainKernel,
                                                          request.sysroot, request.kernelRelease);
  if (!fileSearch)
    throw std::runtime_error("cannot create a file search");
  IValidatorCallback *validator = options.explain ? &recorder : checks.callback();
  ObjectPtr<IValidFile> found = search(*fileSearch, request, options, validator);

  // A compressed kernel image is no answer when its image cannot be had.
  if (!options.plainKernel && request.category == scBinaryFiles && isUnextractedKernel(found)) {
    std::cerr << "vell: the kernel image " << found->name() << " was found but cannot be extracted\n";
    found = ObjectPtr<IValidFile>();
  }
  if (!options.plainKernel && request.category == scBinaryFiles)
    warnAboutModuleRelease(found, request.kernelRelease);

  FindReport report;
  report.category = request.category;
  report.name = request.name;
  report.found = found;
  report.listAll = options.all;
  report.explain = options.explain;
  if (options.all)
    report.files = allFiles.files();
  if (options.explain)
    report.setRejections(rejections.rejected(), recorder.rejections());
  printFindReport(report, global.json);
  return found ? kExitSuccess : kExitNotFound;
}

} // namespace vell_tool
