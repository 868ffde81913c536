// vell find: resolves one binary, symbol file or source file.
#include "find_command.h"

#include <cctype>
#include <charconv>
#include <memory>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <sys/utsname.h>
#include <unistd.h>

#include "vell/callback_lifetime.h"
#include "vell/context.h"
#include "vell/elf_identity.h"
#include "vell/file_search.h"
#include "vell/platform.h"
#include "vell/search_env.h"
#include "vell/validation.h"

#include "build_id_search.h"
#include "categories.h"
#include "dir_warnings.h"
#include "file_checks.h"
#include "find_report.h"
#include "kernel_support.h"
#include "progress_line.h"
#include "search_activity.h"
#include "search_callbacks.h"
#include "search_contexts.h"
#include "server_retrieval.h"
#include "step_tracker.h"
#include "steps_option.h"
#include "tool_error.h"
#include "tool_output.h"
#include "user_config.h"
#include "validators.h"
#include "verbose_report.h"

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
  std::string buildId; // lowercase hex, or empty
  std::string debugDir;
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

// A count of seconds or bytes: a whole number, 0 or more, in range of T.
template <class T> T parseCount(const char *option, const std::string &text) {
  T value{};
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (text.empty() || text[0] == '-' || error != std::errc() || end != text.data() + text.size())
    throw BadInput(std::string(option) + ": '" + text + "' is not a whole number of 0 or more");
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
    request.mtime = parseCount<int64_t>("--mtime", options.mtime);
  }
  if (!options.size.empty()) {
    requireSourceSearch(request.category, "--size");
    request.size = parseCount<uint64_t>("--size", options.size);
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
  // A directory that cannot be searched is not an error (the search goes on
  // without it), but the user should know.
  for (const SearchDirSpec &spec : request.dirs)
    warnUnusableDirectory("--dir: ", spec.directory);
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
  request.buildId = checkBuildIdOptions(options.buildId, options.noBuildId, options.debugDir);
  if (!options.debugDir.empty())
    request.debugDir = absolutePath(options.debugDir);
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
                             IValidatorCallback *validator, const std::string &fetched) {
  const std::string &suggestion = options.suggest.empty() ? fetched : options.suggest;
  const char *suggested = suggestion.empty() ? nullptr : suggestion.c_str();
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
  FindReport report;
  const int status = findOne(global, options, SharedSearch(), report);
  printFindReport(report, global.json);
  return status;
}

int findOne(const GlobalOptions &global, const FindOptions &options, const SharedSearch &shared,
            FindReport &report) {
  FindRequest request = checkOptions(global, options);
  // The debug file of a local binary is fetched by the binary's own build ID.
  std::string serverBuildId = request.buildId;
  if (serverBuildId.empty() && !options.noBuildId && request.category == scSymbolFiles &&
      !request.binary.empty())
    if (std::optional<ElfIdentity> identity = readElfIdentity(request.binary))
      serverBuildId = identity->buildId;
  std::unique_ptr<ServerRetrieval> servers;
  if (!shared.serversShared)
    servers = ServerRetrieval::create(request.category, request.name, serverBuildId, options.remote);
  else if (shared.servers)
    servers = ServerRetrieval::create(request.category, request.name, serverBuildId, options.remote,
                                      shared.servers);
  // A source file is looked for by build ID on servers only.
  if (request.category == scSourceFiles && !request.buildId.empty() && !servers)
    throw BadInput("--build-id with vell find src needs --server (or DEBUGINFOD_URLS)");

  // Compressed kernel images are extracted under the cache root.
  if (!request.cache.empty())
    platform::setCacheRoot(request.cache);

  // Everything the search refers to outlives the contexts and the search.
  StepTracker tracker;
  const bool verbose = global.verbosity >= 1;
  const bool trackSteps = options.explain || verbose;
  ProgressLine progress(shared.progressLine ? STDERR_FILENO : -1, progressDelay());
  SearchActivity activity(&progress);
  tracker.setListener([&activity](search_step_t step) { activity.stepEntered(step); });
  RequestedChecks checks;
  buildChecks(request, options, checks);
  // Disconnected before their own destructors run (see vell/callback_lifetime.h).
  SafeCallback<AllFilesCollector> allFiles;
  SafeCallback<RejectionCollector> rejections;

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
  // Files fetched from servers are filed into the search's cache directory.
  if (servers) {
    if (request.cache.empty())
      mgr.registerCacheDir(commandLine, servers->defaultSearchCache().c_str());
    servers->registerWith(mgr, commandLine, CLIENT_ID);
  }
  mgr.registerEnvironmentInfo(commandLine, CLIENT_ID, environmentInfo(request.kernelRelease));
  ObjectPtr<ISearchStepsConfigurator> steps = request.steps;
  if (trackSteps)
    steps = ObjectPtr<ISearchStepsConfigurator>(new TrackingStepsConfigurator(request.steps, tracker));
  mgr.registerSearchStepsConfigurator(commandLine, CLIENT_ID, steps);
  if (options.all)
    mgr.registerFilesFoundCallback(commandLine, CLIENT_ID, &allFiles);
  if (trackSteps)
    mgr.registerNoFilesFoundCallback(commandLine, CLIENT_ID, &rejections);

  // Build IDs and debug links: suggestions ahead of the steps and an identity check.
  std::unique_ptr<BuildIdSearch> buildIdSearch;
  if (BuildIdSearch::applies(request.category, request.binary, request.buildId, options.noBuildId)) {
    buildIdSearch = std::make_unique<BuildIdSearch>(mgr, commandLine, CLIENT_ID, request.category,
                                                    request.binary, request.buildId, request.debugDir);
    checks.all.add(buildIdSearch->check());
  }

  RecordingValidator recorder(checks.callback(), tracker);

  ObjectPtr<IFileSearch> fileSearch =
      createToolFileSearch(mgr, commandLine, CLIENT_ID, options.plainKernel, request.sysroot,
                           request.kernelRelease, shared.index, toolWalkOptions(options.plainWalk));
  if (!fileSearch)
    throw std::runtime_error("cannot create a file search");
  IValidatorCallback *validator = trackSteps ? &recorder : checks.callback();
  // Source searches do not fetch: the source fetched by build ID is suggested instead.
  std::string fetched = servers ? servers->fetchSourceForSuggestion() : "";
  ObjectPtr<IValidFile> found = search(*fileSearch, request, options, validator, fetched);
  activity.finish();
  progress.stop();

  // A compressed kernel image is no answer when its image cannot be had.
  if (!options.plainKernel && request.category == scBinaryFiles && isUnextractedKernel(found)) {
    writeToStderr("vell: the kernel image " + std::string(found->name()) +
                  " was found but cannot be extracted\n");
    found = ObjectPtr<IValidFile>();
  }
  if (!options.plainKernel && request.category == scBinaryFiles)
    warnAboutModuleRelease(found, request.kernelRelease);

  report = FindReport();
  report.category = request.category;
  report.name = request.name;
  report.found = found;
  report.listAll = options.all;
  report.explain = options.explain;
  if (servers)
    report.retrieval = servers->note(found);
  if (options.all)
    report.files = allFiles.files();
  if (buildIdSearch)
    report.buildId = buildIdSearch->report(found);
  if (trackSteps)
    report.setRejections(rejections.rejected(), recorder.rejections());
  report.unreadable = activity.unreadableDirectories();
  if (verbose) {
    std::ostringstream summary;
    printStepSummary(summary, activity, report.rejected, found);
    writeToStderr(summary.str());
  }
  return found ? kExitSuccess : kExitNotFound;
}

} // namespace vell_tool
