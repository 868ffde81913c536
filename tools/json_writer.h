// JSON output of the tool that never fails on the bytes it is given: file
// names are byte strings, not necessarily UTF-8.
//
// Encoding: a text that is valid UTF-8 is written as a JSON string and reads
// back as exactly its bytes. A text that is not gets its invalid bytes
// replaced by U+FFFD in the string (readable, but not exact), and a sibling
// member "<key>Base64" holds its exact bytes in standard base64 (RFC 4648,
// with padding). A reader that needs the exact bytes takes "<key>Base64" when
// present and the string otherwise.
#pragma once

#include <string>

#include <nlohmann/json.hpp>

namespace vell_tool {

// True when text is well-formed UTF-8 (no overlong forms, surrogates or code
// points above U+10FFFF).
bool isValidUtf8(const std::string &text);

// text with every byte that is not part of a well-formed UTF-8 sequence
// replaced by U+FFFD.
std::string replaceInvalidUtf8(const std::string &text);

std::string base64Encode(const std::string &bytes);
// Decodes standard base64 with padding; false on malformed input.
bool base64Decode(const std::string &text, std::string &bytes);

// Sets object[key] to text as described above (and object[key + "Base64"]
// when text is not valid UTF-8).
void putText(nlohmann::json &object, const std::string &key, const std::string &text);

// The exact bytes of member key of object as putText wrote it; false when the
// member is missing or malformed.
bool getText(const nlohmann::json &object, const std::string &key, std::string &text);

// A JSON array of texts, each written as putText writes a member: a string,
// or (not valid UTF-8) an object {"text": <replaced>, "textBase64": <bytes>}.
nlohmann::json textArrayElement(const std::string &text);

// The document as the tool prints it (indented by two); never throws for
// invalid UTF-8 left in a string (it is replaced).
std::string documentText(const nlohmann::json &document);

} // namespace vell_tool
