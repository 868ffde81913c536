// File operations of the JSON property storage: whole reads, atomic replacement, moving aside.
#pragma once

#include <string>

namespace VELL_2_13 {
namespace platform {

enum class FileReadStatus { Ok, Missing, Failed };

// Reads the whole file; Missing when it does not exist, Failed (with error set)
// when it exists but cannot be read.
FileReadStatus readWholeFile(const std::string &path, std::string &content, std::string &error);

// The file that path stands for: a symbolic link is followed (link by link,
// also when its target does not exist yet) so that writing replaces the target
// and the link stays a link. Any other path is returned as it is.
std::string followLinks(const std::string &path);

// Replaces path (the target of path when it is a symbolic link) with content: writes "<path>.tmp-<pid>-<n>"
// in the same directory, syncs it, renames it over path and syncs the directory. An existing file keeps its
// permission bits. On failure path is untouched and error is set.
bool writeFileAtomically(const std::string &path, const std::string &content, std::string &error);

// Renames path (the target of path when it is a symbolic link) to "<path>.corrupt-<UTC time>" (with "-<n>"
// added when that name is taken) and returns the new name in aside.
bool moveFileAside(const std::string &path, std::string &aside, std::string &error);

// Whether temporary files of writeFileAtomically for path exist.
bool hasTemporaries(const std::string &path);

// Removes the temporary files writeFileAtomically left behind for path (a
// writer that died). Only safe while holding the storage's write lock.
void removeOrphanTemporaries(const std::string &path);

// Creates the directory that will hold path, with its parents.
bool createParentDirectory(const std::string &path, std::string &error);

} // namespace platform
} // namespace VELL_2_13
