// Names and places of build-ID files: request checks, server URLs and the
// cache layout shared with other clients of the protocol.
#pragma once

#include <optional>
#include <string>

#include "vell/http_retriever.h"

namespace VELL_2_13 {
namespace retriever {

// Lowercase hex of a build ID; nullopt unless an even number (2 to 128) of hex digits.
std::optional<std::string> normalizedBuildId(const std::string &text);

// A source path fit for a request: absolute, lexically normal, without "." or
// ".." components or control characters; nullopt otherwise.
std::optional<std::string> normalizedSourcePath(const std::string &path);

// The checked request (normalised build ID and source path), or nullopt.
std::optional<BuildIdRequest> checkedRequest(const BuildIdRequest &request);

// The file name of a checked request inside its build-ID directory:
// "debuginfo", "executable" or "source" + the path with every '/' as '#'.
// Never contains '/', so it cannot leave the directory.
std::string cacheFileName(const BuildIdRequest &request);

// <root>/<build id>/<cache file name> of a checked request.
std::string cachePath(const std::string &root, const BuildIdRequest &request);

// <server>/buildid/<build id>/debuginfo|executable|source<percent-escaped path>.
std::string requestUrl(const std::string &server, const BuildIdRequest &request);

// The build ID a debug-file or binary name carries in the conventional
// ".build-id/xx/rest.debug" (debug file) or ".build-id/xx/rest" (binary) form.
std::optional<BuildIdRequest> requestFromBuildIdPath(const std::string &name);

} // namespace retriever
} // namespace VELL_2_13
