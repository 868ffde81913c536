// Names and places of build-ID files: request checks, server URLs and the cache layout.
#include "vell_retriever/build_id_layout.h"

#include <cctype>
#include <cstdio>

namespace VELL_2_13 {
namespace retriever {

namespace {

constexpr size_t kMaxBuildIdDigits = 128;
// Longest cache file name most file systems accept.
constexpr size_t kMaxFileName = 255;

bool isHexDigit(char c) { return std::isxdigit(static_cast<unsigned char>(c)) != 0; }

// Unreserved characters and '/' stay; everything else is %XX.
std::string percentEscaped(const std::string &path) {
  std::string out;
  for (char c : path) {
    auto byte = static_cast<unsigned char>(c);
    if (std::isalnum(byte) || c == '/' || c == '-' || c == '_' || c == '.' || c == '~') {
      out += c;
      continue;
    }
    char escaped[4];
    std::snprintf(escaped, sizeof escaped, "%%%02X", byte);
    out += escaped;
  }
  return out;
}

} // namespace

std::optional<std::string> normalizedBuildId(const std::string &text) {
  if (text.size() < 2 || text.size() > kMaxBuildIdDigits || text.size() % 2 != 0)
    return std::nullopt;
  std::string out;
  for (char c : text) {
    if (!isHexDigit(c))
      return std::nullopt;
    out += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  return out;
}

std::optional<std::string> normalizedSourcePath(const std::string &path) {
  if (path.empty() || path[0] != '/')
    return std::nullopt;
  for (char c : path)
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f)
      return std::nullopt;
  std::string out;
  size_t start = 1;
  while (start <= path.size()) {
    size_t end = path.find('/', start);
    if (end == std::string::npos)
      end = path.size();
    std::string part = path.substr(start, end - start);
    start = end + 1;
    if (part.empty())
      continue; // "//" collapses
    if (part == "." || part == "..")
      return std::nullopt;
    out += '/';
    out += part;
  }
  if (out.empty())
    return std::nullopt;
  return out;
}

std::optional<BuildIdRequest> checkedRequest(const BuildIdRequest &request) {
  std::optional<std::string> buildId = normalizedBuildId(request.buildId);
  if (!buildId)
    return std::nullopt;
  BuildIdRequest checked;
  checked.kind = request.kind;
  checked.buildId = *buildId;
  switch (request.kind) {
  case bfkDebugInfo:
  case bfkExecutable:
    return checked;
  case bfkSource: {
    std::optional<std::string> path = normalizedSourcePath(request.sourcePath);
    if (!path)
      return std::nullopt;
    checked.sourcePath = *path;
    if (cacheFileName(checked).size() > kMaxFileName)
      return std::nullopt;
    return checked;
  }
  }
  return std::nullopt;
}

std::string cacheFileName(const BuildIdRequest &request) {
  switch (request.kind) {
  case bfkDebugInfo:
    return "debuginfo";
  case bfkExecutable:
    return "executable";
  case bfkSource:
    break;
  }
  std::string name = "source" + request.sourcePath;
  for (char &c : name)
    if (c == '/')
      c = '#';
  return name;
}

std::string cachePath(const std::string &root, const BuildIdRequest &request) {
  return root + "/" + request.buildId + "/" + cacheFileName(request);
}

std::string requestUrl(const std::string &server, const BuildIdRequest &request) {
  std::string base = server;
  while (!base.empty() && base.back() == '/')
    base.pop_back();
  std::string url = base + "/buildid/" + request.buildId + "/";
  switch (request.kind) {
  case bfkDebugInfo:
    return url + "debuginfo";
  case bfkExecutable:
    return url + "executable";
  case bfkSource:
    break;
  }
  return url + "source" + percentEscaped(request.sourcePath);
}

std::optional<BuildIdRequest> requestFromBuildIdPath(const std::string &name) {
  const std::string marker = ".build-id/";
  size_t at = name.rfind(marker);
  if (at == std::string::npos || (at > 0 && name[at - 1] != '/'))
    return std::nullopt;
  std::string rest = name.substr(at + marker.size());
  BuildIdRequest request;
  request.kind = bfkExecutable;
  const std::string debugSuffix = ".debug";
  if (rest.size() > debugSuffix.size() &&
      rest.compare(rest.size() - debugSuffix.size(), debugSuffix.size(), debugSuffix) == 0) {
    request.kind = bfkDebugInfo;
    rest.resize(rest.size() - debugSuffix.size());
  }
  // xx/rest: the first byte names the directory.
  if (rest.size() < 4 || rest[2] != '/')
    return std::nullopt;
  request.buildId = rest.substr(0, 2) + rest.substr(3);
  std::optional<BuildIdRequest> checked = checkedRequest(request);
  return checked;
}

} // namespace retriever
} // namespace VELL_2_13
