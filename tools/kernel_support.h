// What vell find and vell extract-kernel do with kernel images and modules:
// the kernel-aware search, its verdicts and warnings.
#pragma once

#include <string>

#include "vell/context.h"
#include "vell/directory_index.h"
#include "vell/file_search.h"
#include "vell/walk_options.h"

#include "global_options.h"

namespace vell_tool {

// How vell find walks recursive directories without an index: helper threads
// list directories ahead of the walk unless plainWalk.
VELL_2_13::WalkOptions toolWalkOptions(bool plainWalk);

// The file search of vell find: kernel-aware (every compression, compressed
// modules, module names with '-' or '_', the system root) unless plain;
// recursive directories answered by index, else walked as walk says.
VELL_2_13::ObjectPtr<VELL_2_13::IFileSearch>
createToolFileSearch(VELL_2_13::IResolutionContextMgr &mgr, VELL_2_13::IResolutionContext &context,
                     const char *clientId, bool plain, const std::string &sysroot,
                     const std::string &kernelRelease,
                     const VELL_2_13::ObjectPtr<VELL_2_13::IDirectoryIndex> &index,
                     const VELL_2_13::WalkOptions &walk = VELL_2_13::WalkOptions());

// True when found is a compressed kernel image that could not be extracted:
// vell find then reports it as such instead of as the answer.
bool isUnextractedKernel(const VELL_2_13::ObjectPtr<VELL_2_13::IValidFile> &found);

// Prints the warning for a module of a kernel release other than release.
void warnAboutModuleRelease(const VELL_2_13::ObjectPtr<VELL_2_13::IValidFile> &found,
                            const std::string &release);

int runExtractKernelImage(const GlobalOptions &global, const std::string &compressed,
                          const std::string &output, bool plain);

} // namespace vell_tool
