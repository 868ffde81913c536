// Fuzzes the tool's JSON writer with arbitrary byte strings as file names: the
// document must always be written, parse back, and give the exact bytes.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include <nlohmann/json.hpp>

#include "json_writer.h"

namespace {

void require(bool condition) {
  if (!condition)
    std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const std::string bytes(reinterpret_cast<const char *>(data), size);
  // The first half names the file, the whole input is a message: two members
  // of one document, as the tool writes a path and a rejection message.
  const std::string name = bytes.substr(0, bytes.size() / 2);

  nlohmann::json document = nlohmann::json::object();
  vell_tool::putText(document, "path", name);
  vell_tool::putText(document, "message", bytes);
  document["files"] = nlohmann::json::array({vell_tool::textArrayElement(bytes)});
  const std::string text = vell_tool::documentText(document);

  // What a reader does: parse strictly (invalid UTF-8 would throw here) and
  // take the exact bytes back.
  const nlohmann::json parsed = nlohmann::json::parse(text);
  std::string back;
  require(vell_tool::getText(parsed, "path", back) && back == name);
  require(vell_tool::getText(parsed, "message", back) && back == bytes);
  const nlohmann::json &element = parsed["files"][0];
  if (element.is_string())
    require(element.get<std::string>() == bytes);
  else
    require(vell_tool::getText(element, "text", back) && back == bytes);

  // The plain string is exact whenever no base64 member is written.
  require(vell_tool::isValidUtf8(name) == !parsed.contains("pathBase64"));
  require(vell_tool::isValidUtf8(parsed["path"].get<std::string>()));
  std::string decoded;
  require(vell_tool::base64Decode(vell_tool::base64Encode(bytes), decoded) && decoded == bytes);
  return 0;
}
