// Entry point of the vell command-line tool: parses the command line and runs
// one command.
#include <algorithm>
#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "vell/platform.h"

#include "archive_command.h"
#include "batch_options.h"
#include "catalog_location.h"
#include "dirs_command.h"
#include "file_commands.h"
#include "find_command.h"
#include "global_options.h"
#include "kernel_support.h"
#include "steps_option.h"
#include "tool_error.h"
#include "tool_language.h"
#include "tool_output.h"

using namespace VELL_2_13;
using namespace vell_tool;

namespace {

const char *const MAIN_FOOTER =
    R"(Exit status: 0 found or done; 1 not found, or the operation failed; 2 bad usage or
bad input (reported as one line on standard error; nothing is changed on disk).

The user's own search directories (vell dirs) live in --config FILE, else
$XDG_CONFIG_HOME/vell/searchdirs.json, else ~/.config/vell/searchdirs.json;
vell find searches them after the directories given with --dir.

Message catalogs come from --catalogs DIR, else <prefix>/share/vell/catalogs
next to the installed tool, else the build's default directory.)";

const char *const COMMAND_FOOTER =
    R"(Exit status: 0 done; 1 the operation failed; 2 bad usage or bad input (one line on
standard error; nothing is changed on disk).
Every command also takes -v/-vv, --json, --lang LANG, --catalogs DIR and --config FILE (see vell --help).)";

const char *const DIRS_FOOTER =
    R"(The directories live in --config FILE, else $XDG_CONFIG_HOME/vell/searchdirs.json,
else ~/.config/vell/searchdirs.json; vell find searches them after the directories
given with --dir and --result-dir. Concurrent changes by several processes are
serialised: none is lost.
Exit status: 0 done; 2 bad usage or bad input, such as a malformed spec, an unknown
category or an unreadable configuration file (nothing is changed on disk then).
Every command also takes -v/-vv, --json, --lang LANG, --catalogs DIR and --config FILE (see vell --help).)";

const char *const FIND_FOOTER =
    R"(Directory specs (--dir, vell dirs add): CATEGORY[:FLAGS]=DIR, CATEGORY one of bin,
sym, src, all; FLAGS r (recursive) and/or p (high priority). Example: sym:rp=/opt/debug.
Relative directories are taken from the current directory.

Search order: suggested path, then the steps archive, high-priority directories,
cache (off unless switched on), absolute name, around the binary (symbols),
low-priority directories, system directories. Directories given with --dir come
before those of --result-dir, which come before the user's own (vell dirs).

--checksum, --mtime/--size and --not-newer-than-binary may be combined: the first
check that rejects a file decides; otherwise a file is accepted when at least one
check accepted it (a matching checksum or time), and left to the default
confidence policy when no check had an opinion (--not-newer-than-binary alone).

Build IDs: vell find sym with --binary, and vell find bin|sym with --build-id, first
try <debug dir>/.build-id/xx/yyyy.debug (no .debug for binaries), the same under every
search directory, then the binary's debug link beside it, in its .debug directory
and under the debug directory; every candidate must carry the expected build ID
(without one on either side, the debug link's CRC-32) and, for symbols, debug
information. --explain and --json show the build ID looked for and found.
--no-build-id gives the plain search.

--explain: when nothing is found, every candidate the search rejected is listed
with its step, severity and message. When a file is found the search does not
report its rejections; only the candidates rejected by the requested checks
(--checksum, --mtime, --size, --not-newer-than-binary) are listed then.

Servers (--server URL, or DEBUGINFOD_URLS when no --server is given; --no-servers
for none): a file not found locally under NAME is fetched by its --build-id (a name
of the form .build-id/xx/rest[.debug] carries its own) into
$XDG_CACHE_HOME/vell/buildid (default ~/.cache/vell/buildid) and filed into the
cache directory (--cache, default ~/.cache/vell/files). Files that debuginfod's own
client fetched ($DEBUGINFOD_CACHE_PATH or ~/.cache/debuginfod_client) are used
without a download. Transfers longer than a second show a progress line on a
terminal.

Output: path, confidence and step on separate lines (--json: an object with found,
path, confidence, step, and files with --all, rejected with --explain, retrieved
with origin server, cache or client-cache and from when a server was asked).
Exit status: 0 found, 1 not found, 2 bad usage or bad input.
Every command also takes -v/-vv, --json, --lang LANG, --catalogs DIR and --config FILE (see vell --help).)";

// "--steps -x" would read "-x" as an option: join such a value to its option.
std::vector<std::string> joinStepsValues(int argc, char **argv) {
  std::vector<std::string> args(argv, argv + argc);
  std::vector<std::string> joined;
  for (size_t i = 0; i < args.size(); ++i) {
    if (args[i] == "--") {
      joined.insert(joined.end(), args.begin() + static_cast<long>(i), args.end());
      break;
    }
    if (args[i] == "--steps" && i + 1 < args.size() && !args[i + 1].empty() && args[i + 1][0] == '-') {
      joined.push_back("--steps=" + args[i + 1]);
      ++i;
      continue;
    }
    joined.push_back(args[i]);
  }
  return joined;
}

// -v is the tool's own summary plus the library's faults; -vv adds the
// library's full trace, candidate by candidate.
platform::LogLevel logLevel(int verbosity) {
  if (verbosity >= 2)
    return platform::LogLevel::Trace;
  if (verbosity == 1)
    return platform::LogLevel::Error;
  return platform::LogLevel::Off;
}

void configureLibrary(const GlobalOptions &global) {
  platform::configureLoggingToStderr(logLevel(global.verbosity));
  std::string catalogs = locateCatalogDirectory(global.catalogs);
  std::string language = global.language;
  if (!language.empty())
    checkCatalogLanguage(catalogs, language);
  else
    language = languageFromLocale(catalogs);
  platform::setCatalogDirectory(catalogs);
  platform::setCatalogLanguage(language.empty() ? "en" : language);
}

// Each occurrence of a repeatable option takes exactly one value.
CLI::Option *repeatable(CLI::Option *option) { return option->allow_extra_args(false); }

// An option or argument given with an empty value ("--checksum ''") would
// otherwise read as not given at all: reject it, naming what is empty.
void rejectEmptyValues(const CLI::App &command) {
  for (const CLI::Option *option : command.get_options()) {
    if (option->get_type_size() == 0 || option->count() == 0)
      continue;
    for (const std::string &value : option->results())
      if (value.empty())
        throw vell_tool::BadInput(option->get_name() + ": empty value");
  }
  for (const CLI::App *subcommand : command.get_subcommands())
    rejectEmptyValues(*subcommand);
}

// The first word of the command line that is neither an option nor the value
// of a global option names the command; CLI11 would only say that a command is
// required. Returns the message for an unknown one, or empty.
std::string unknownCommand(const CLI::App &app, const std::vector<std::string> &args) {
  for (size_t i = 1; i < args.size(); ++i) {
    const std::string &arg = args[i];
    if (arg == "--")
      return std::string();
    if (arg == "--lang" || arg == "--catalogs" || arg == "--config") {
      ++i; // its value
      continue;
    }
    if (!arg.empty() && arg[0] == '-')
      continue;
    std::string commands;
    for (const CLI::App *command : app.get_subcommands({})) {
      if (command->get_name() == arg)
        return std::string();
      commands += (commands.empty() ? "" : ", ") + command->get_name();
    }
    return "unknown command '" + arg + "'; the commands are " + commands + " (see vell --help)";
  }
  return std::string();
}

} // namespace

namespace {

// The tool's work; main only adds a last guard against exceptions.
int runTool(int argc, char **argv) {
  CLI::App app{"vell: locates binaries, debug-symbol files and source files.", "vell"};
  app.require_subcommand(1);
  app.fallthrough();
  app.footer(MAIN_FOOTER);

  std::vector<std::string> args = joinStepsValues(argc, argv);
  GlobalOptions global;
  app.add_flag("-v,--verbose", global.verbosity,
               "On standard error: -v per search step what was tried, how many candidates, the "
               "rejections and why, and the time taken (and the library's errors); -vv also the "
               "library's full trace");
  app.add_flag("--json", global.json,
               "Machine-readable output: one JSON document on standard output, errors included "
               "({\"error\": ..., \"status\": ...}); see the README for the encoding of file names");
  app.add_option("--lang", global.language,
                 "Language of the validation messages (en, de, ...); by default the language of the "
                 "locale (LC_ALL, LC_MESSAGES, LANG) when there are catalogs for it, else English")
      ->type_name("LANG");
  app.add_option("--catalogs", global.catalogs, "Directory of the message catalogs")->type_name("DIR");
  app.add_option("--config", global.config, "File holding the user's own search directories")
      ->type_name("FILE");

  FindOptions find;
  CLI::App *findCommand =
      app.add_subcommand("find", "Resolve one binary (bin), debug-symbol file (sym) or source file (src) and "
                                 "print its path, confidence and the step that found it");
  findCommand->footer(FIND_FOOTER);
  // With --batch the requests come on standard input instead.
  const bool batchRequested = std::find(args.begin(), args.end(), "--batch") != args.end();
  findCommand->add_option("category", find.category, "bin, sym or src")
      ->type_name("CATEGORY")
      ->required(!batchRequested);
  findCommand->add_option("name", find.name, "The file's name or recorded path")
      ->type_name("NAME")
      ->required(!batchRequested);
  findCommand
      ->add_option("--binary", find.binary,
                   "The binary a symbol or source file belongs to (must exist); symbol files are "
                   "looked for beside it and in its .debug directory")
      ->type_name("PATH");
  findCommand
      ->add_option("--checksum", find.checksum,
                   "Expected checksum: an MD5 checksum as 32 hexadecimal digits, or sha1: followed by "
                   "a SHA-1 checksum as 40 hexadecimal digits (vell checksum prints this form)")
      ->type_name("HEX");
  findCommand
      ->add_option("--mtime", find.mtime,
                   "Source files only: expected modification time, seconds since the epoch")
      ->type_name("SECONDS");
  findCommand->add_option("--size", find.size, "Source files only: expected size in bytes")
      ->type_name("BYTES");
  findCommand->add_flag("--not-newer-than-binary", find.notNewerThanBinary,
                        "Source files only: reject a source file newer than --binary");
  repeatable(
      findCommand
          ->add_option(
              "--time-check-exception", find.timeCheckExceptions,
              "Source files below DIR are exempt from the time checks of --mtime and --not-newer-than-binary "
              "(repeatable)")
          ->type_name("DIR"));
  repeatable(findCommand
                 ->add_option("--dir", find.dirs,
                              "Search directory in the form CATEGORY[:FLAGS]=DIR, e.g. sym:rp=/opt/debug "
                              "(repeatable; see below)")
                 ->type_name("SPEC"));
  findCommand
      ->add_option("--archive", find.archive,
                   "Archive directory: files are looked for under DIR/<subdirectory>/<name>/..., "
                   "subdirectory binaries, symbols, sources or all")
      ->type_name("DIR");
  findCommand
      ->add_option("--cache", find.cache,
                   "Cache directory: searched by the cache step (switch it on with --steps +cache); "
                   "kernel images extracted from compressed ones go to DIR/vmlinux_cache/<md5>/vmlinux")
      ->type_name("DIR");
  findCommand
      ->add_option("--result-dir", find.resultDir,
                   "Result directory of a collection run: its binaries, symbols, sources, all and "
                   "archive subdirectories are searched first, then the user's own directories")
      ->type_name("DIR");
  findCommand
      ->add_option("--kernel-release", find.kernelRelease,
                   "Kernel release of the target system (default: the running kernel's); vell find "
                   "bin vmlinux then also tries /boot/vmlinux-RELEASE and /boot/vmlinuz-RELEASE")
      ->type_name("RELEASE");
  findCommand
      ->add_option("--sysroot", find.sysroot,
                   "A copy of the recorded system's files (its boot/, lib/modules/, usr/lib/debug/): kernel "
                   "images and modules of the --kernel-release are looked for there before the host's")
      ->type_name("DIR");
  findCommand->add_flag("--plain-kernel", find.plainKernel,
                        "Kernel images and modules as the library finds them by default: gzip-compressed "
                        "images only, no compressed modules, no '-'/'_' matching, no --sysroot");
  findCommand->add_flag("--plain-walk", find.plainWalk,
                        "Walk recursive directories on one thread, as the library does by default (without "
                        "it, helper threads list directories ahead of the walk; the files found and their "
                        "order are the same)");
  findCommand->add_option("--suggest", find.suggest, "A path to check before any search step")
      ->type_name("PATH");
  findCommand->add_option("--steps", find.steps, STEPS_OPTION_HELP)->type_name("LIST");
  findCommand->add_flag("--all", find.all,
                        "Go on past the first file and list every valid file (the first is the answer)");
  findCommand
      ->add_option("--build-id", find.buildId,
                   "The GNU build ID recorded for the file (hexadecimal): binaries and symbol files are "
                   "looked up in the .build-id trees and must carry it; with a server, a binary, symbol or "
                   "source file not found locally is fetched by it")
      ->type_name("HEX");
  findCommand->add_flag("--no-build-id", find.noBuildId,
                        "Plain search: no build-ID or debug-link candidates and no build-ID check (on by "
                        "default for vell find sym with --binary, and with --build-id)");
  findCommand
      ->add_option("--debug-dir", find.debugDir,
                   "The global debug directory whose .build-id tree is tried first (default /usr/lib/debug)")
      ->type_name("DIR");
  repeatable(findCommand
                 ->add_option("--server", find.remote.servers,
                              "Debug-file server (debuginfod protocol) to fetch the file from by build ID "
                              "(repeatable, tried in order); without it the servers of DEBUGINFOD_URLS "
                              "(blank-separated URLs) are used")
                 ->type_name("URL"));
  findCommand->add_flag("--no-servers", find.remote.noServers,
                        "Fetch nothing: ignore DEBUGINFOD_URLS (the plain local search)");
  findCommand
      ->add_option("--server-timeout", find.remote.timeout,
                   "Seconds to wait for a server to connect, or to send more of a file (default: "
                   "connect 10, stall 30)")
      ->type_name("SECONDS");
  findCommand
      ->add_option("--ca-bundle", find.remote.caBundle,
                   "Certificates of the authorities to trust for https:// servers (PEM), e.g. a "
                   "private one; default: the system's")
      ->type_name("FILE");
  findCommand
      ->add_option("--ca-path", find.remote.caPath,
                   "A directory of such certificates (hashed names, as openssl rehash makes them)")
      ->type_name("DIR");
  findCommand->add_flag("--explain", find.explain,
                        "List the rejected candidates with their step, severity and message (see below)");
  BatchOptions batch;
  findCommand->add_flag("--batch", batch.enabled, BATCH_OPTION_HELP);
  findCommand->add_flag("--no-index", batch.noIndex,
                        "With --batch: walk recursive directories for every request instead of listing "
                        "them once");
  CLI::Option *jobsOption = findCommand->add_option("--jobs", batch.jobs, JOBS_OPTION_HELP)
                                ->type_name("N")
                                ->check(CLI::Range(1u, 256u));

  CLI::App *dirsCommand = app.add_subcommand("dirs", "Manage the user's own search directories");
  dirsCommand->footer(DIRS_FOOTER);
  dirsCommand->require_subcommand(1);
  std::vector<std::string> dirSpecs;
  CLI::App *dirsAdd = dirsCommand->add_subcommand(
      "add", "Add directories in the form CATEGORY[:FLAGS]=DIR (CATEGORY bin, sym, src or all; FLAGS r "
             "recursive, p high priority), e.g. sym:rp=/opt/debug; relative directories are made absolute");
  dirsAdd->footer(DIRS_FOOTER);
  dirsAdd->add_option("spec", dirSpecs, "Directory specs")->type_name("SPEC")->required();
  CLI::App *dirsList =
      dirsCommand->add_subcommand("list", "List the directories in the form CATEGORY[:FLAGS]=DIR");
  dirsList->footer(DIRS_FOOTER);
  std::vector<std::string> clearCategories;
  CLI::App *dirsClear = dirsCommand->add_subcommand(
      "clear", "Remove every directory of the given categories (bin, sym, src, all; "
               "all is the list that serves every kind of file)");
  dirsClear->footer(DIRS_FOOTER);
  dirsClear->add_option("category", clearCategories, "Categories to clear")
      ->type_name("CATEGORY")
      ->required();

  ArchiveOptions archive;
  CLI::App *archiveCommand =
      app.add_subcommand("archive", "File a copy of FILE into the archive of a result directory: "
                                    "DIR/archive/<subdirectory>/<name>/<md5>/<name>");
  archiveCommand->footer(COMMAND_FOOTER);
  archiveCommand->add_option("file", archive.file, "The file to archive")->type_name("FILE")->required();
  archiveCommand->add_option("--category", archive.category, "bin, sym, src or all")
      ->type_name("CATEGORY")
      ->required();
  archiveCommand->add_option("--result-dir", archive.resultDir, "The result directory")
      ->type_name("DIR")
      ->required();

  std::string checksumFile;
  bool sha1 = false;
  CLI::App *checksumCommand = app.add_subcommand(
      "checksum", "Print the MD5 checksum of FILE (or sha1: and its SHA-1 checksum), as --checksum takes it");
  checksumCommand->footer(COMMAND_FOOTER);
  checksumCommand->add_option("file", checksumFile, "The file")->type_name("FILE")->required();
  checksumCommand->add_flag("--sha1", sha1, "SHA-1 instead of MD5");

  std::string compressed;
  std::string output;
  bool plainExtraction = false;
  CLI::App *extractCommand = app.add_subcommand(
      "extract-kernel",
      "Extract the uncompressed kernel image of a compressed kernel (gzip, xz, lzma, bzip2, "
      "lz4, zstd or lzo) into OUTPUT and name the compression");
  extractCommand->add_flag("--plain-kernel", plainExtraction,
                           "Only gzip streams with a plain header, as the library's default extraction");
  extractCommand->footer(COMMAND_FOOTER);
  extractCommand->add_option("compressed", compressed, "The compressed kernel image")
      ->type_name("COMPRESSED")
      ->required();
  extractCommand->add_option("output", output, "The file to write")->type_name("OUTPUT")->required();

  const bool json = jsonRequested(args);
  const std::string unknown = unknownCommand(app, args);
  if (!unknown.empty())
    return reportError(json, kExitBadInput, unknown);
  std::vector<char *> pointers;
  pointers.reserve(args.size());
  for (std::string &arg : args)
    pointers.push_back(arg.data());
  try {
    app.parse(static_cast<int>(pointers.size()), pointers.data());
  } catch (const CLI::CallForHelp &e) {
    return app.exit(e);
  } catch (const CLI::CallForAllHelp &e) {
    return app.exit(e);
  } catch (const CLI::ParseError &e) {
    return reportError(json, kExitBadInput, std::string(e.what()) + " (see vell --help)");
  }

  try {
    rejectEmptyValues(app);
    configureLibrary(global);
    if (findCommand->parsed() && batch.noIndex && !batch.enabled)
      throw BadInput("--no-index applies with --batch only");
    if (findCommand->parsed() && jobsOption->count() > 0 && !batch.enabled)
      throw BadInput("--jobs applies with --batch only");
    if (findCommand->parsed() && batch.enabled)
      return runBatchCommand(global, find, batch);
    if (findCommand->parsed())
      return runFind(global, find);
    if (dirsAdd->parsed())
      return runDirsAdd(global, dirSpecs);
    if (dirsClear->parsed())
      return runDirsClear(global, clearCategories);
    if (dirsList->parsed())
      return runDirsList(global);
    if (archiveCommand->parsed())
      return runArchive(global, archive);
    if (checksumCommand->parsed())
      return runChecksum(global, checksumFile, sha1);
    if (extractCommand->parsed())
      return runExtractKernelImage(global, compressed, output, plainExtraction);
  } catch (const BadInput &e) {
    return reportError(json, kExitBadInput, e.what());
  } catch (const std::exception &e) {
    return reportError(json, kExitNotFound, e.what());
  }
  return reportError(json, kExitBadInput, "no command given (see vell --help)");
}

} // namespace

int main(int argc, char **argv) {
  try {
    return runTool(argc, argv);
  } catch (const std::exception &e) {
    std::cerr << "vell: " << e.what() << "\n";
  } catch (...) {
    std::cerr << "vell: unexpected error\n";
  }
  return kExitNotFound;
}
