// vell find: resolves one binary, symbol file or source file.
#pragma once

#include <string>
#include <vector>

#include "vell/directory_index.h"

#include "find_report.h"
#include "global_options.h"
#include "server_retrieval.h"

namespace vell_tool {

struct FindOptions {
  std::string category; // bin, sym or src
  std::string name;
  std::string binary;
  std::string checksum;
  std::string mtime;
  std::string size;
  bool notNewerThanBinary = false;
  std::vector<std::string> timeCheckExceptions;
  std::vector<std::string> dirs;
  std::string archive;
  std::string cache;
  std::string resultDir;
  std::string kernelRelease;
  std::string suggest;
  std::string steps;
  bool all = false;
  bool explain = false;
  std::string buildId;    // recorded build ID (hex)
  bool noBuildId = false; // plain search: no build-ID or debug-link candidates, no identity check
  std::string debugDir;   // global debug directory (default /usr/lib/debug)
  ServerOptions remote;
  std::string sysroot;      // a copy of the recorded system's files
  bool plainKernel = false; // no kernel handling beyond the library's default
  bool plainWalk = false;   // recursive walks on the searching thread alone
};

// Runs the search and prints its outcome; returns the exit status. Throws
// BadInput for bad input, before anything is searched.
int runFind(const GlobalOptions &global, const FindOptions &options);

// What the searches of one run share (a batch's requests, on several threads).
struct SharedSearch {
  // Recursive directories are walked through it; null: each search walks them.
  VELL_2_13::ObjectPtr<VELL_2_13::IDirectoryIndex> index;
  // With serversShared, every search fetches through servers (null: no server
  // applies) and the server options of the request are not read again.
  bool serversShared = false;
  const ServerConnections *servers = nullptr;
  // The search's progress line; off when several searches share the terminal.
  bool progressLine = true;
};

// Runs the search and fills report; returns the exit status. Throws BadInput
// for bad input, before anything is searched. Several threads may call it at
// once with one shared.
int findOne(const GlobalOptions &global, const FindOptions &options, const SharedSearch &shared,
            FindReport &report);

} // namespace vell_tool
