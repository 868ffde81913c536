// JSON output of the tool that never fails on the bytes it is given.
#include "json_writer.h"

#include <array>
#include <cstdint>

namespace vell_tool {

namespace {

const char *const kBase64Alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
const char *const kBase64Suffix = "Base64";

// Length of the well-formed UTF-8 sequence at text[i], or 0 when the byte
// there does not start one.
size_t sequenceLength(const std::string &text, size_t i) {
  const auto byte = [&](size_t k) { return static_cast<unsigned char>(text[k]); };
  const unsigned char lead = byte(i);
  if (lead < 0x80)
    return 1;
  size_t length = 0;
  unsigned char low = 0x80; // bounds of the second byte
  unsigned char high = 0xBF;
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3;
    if (lead == 0xE0)
      low = 0xA0; // no overlong forms
    if (lead == 0xED)
      high = 0x9F; // no surrogates
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    if (lead == 0xF0)
      low = 0x90;
    if (lead == 0xF4)
      high = 0x8F; // nothing above U+10FFFF
  } else {
    return 0;
  }
  if (i + length > text.size())
    return 0;
  if (byte(i + 1) < low || byte(i + 1) > high)
    return 0;
  for (size_t k = 2; k < length; ++k)
    if (byte(i + k) < 0x80 || byte(i + k) > 0xBF)
      return 0;
  return length;
}

int base64Value(char c) {
  if (c >= 'A' && c <= 'Z')
    return c - 'A';
  if (c >= 'a' && c <= 'z')
    return c - 'a' + 26;
  if (c >= '0' && c <= '9')
    return c - '0' + 52;
  if (c == '+')
    return 62;
  if (c == '/')
    return 63;
  return -1;
}

} // namespace

bool isValidUtf8(const std::string &text) {
  for (size_t i = 0; i < text.size();) {
    const size_t length = sequenceLength(text, i);
    if (length == 0)
      return false;
    i += length;
  }
  return true;
}

std::string replaceInvalidUtf8(const std::string &text) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size();) {
    const size_t length = sequenceLength(text, i);
    if (length == 0) {
      out += "\xEF\xBF\xBD";
      ++i;
      continue;
    }
    out.append(text, i, length);
    i += length;
  }
  return out;
}

std::string base64Encode(const std::string &bytes) {
  std::string out;
  out.reserve((bytes.size() + 2) / 3 * 4);
  for (size_t i = 0; i < bytes.size(); i += 3) {
    uint32_t group = static_cast<unsigned char>(bytes[i]) << 16;
    if (i + 1 < bytes.size())
      group |= static_cast<unsigned char>(bytes[i + 1]) << 8;
    if (i + 2 < bytes.size())
      group |= static_cast<unsigned char>(bytes[i + 2]);
    out += kBase64Alphabet[(group >> 18) & 63];
    out += kBase64Alphabet[(group >> 12) & 63];
    out += i + 1 < bytes.size() ? kBase64Alphabet[(group >> 6) & 63] : '=';
    out += i + 2 < bytes.size() ? kBase64Alphabet[group & 63] : '=';
  }
  return out;
}

bool base64Decode(const std::string &text, std::string &bytes) {
  bytes.clear();
  if (text.size() % 4 != 0)
    return false;
  for (size_t i = 0; i < text.size(); i += 4) {
    const bool last = i + 4 == text.size();
    std::array<int, 4> values{};
    int padding = 0;
    for (size_t k = 0; k < 4; ++k) {
      const char c = text[i + k];
      if (c == '=' && last && k >= 2) {
        values[k] = 0;
        ++padding;
        continue;
      }
      if (padding > 0)
        return false; // data after padding
      values[k] = base64Value(c);
      if (values[k] < 0)
        return false;
    }
    const uint32_t group = (values[0] << 18) | (values[1] << 12) | (values[2] << 6) | values[3];
    bytes += static_cast<char>((group >> 16) & 0xFF);
    if (padding < 2)
      bytes += static_cast<char>((group >> 8) & 0xFF);
    if (padding < 1)
      bytes += static_cast<char>(group & 0xFF);
  }
  return true;
}

void putText(nlohmann::json &object, const std::string &key, const std::string &text) {
  if (isValidUtf8(text)) {
    object[key] = text;
    return;
  }
  object[key] = replaceInvalidUtf8(text);
  object[key + kBase64Suffix] = base64Encode(text);
}

bool getText(const nlohmann::json &object, const std::string &key, std::string &text) {
  if (!object.is_object())
    return false;
  auto exact = object.find(key + kBase64Suffix);
  if (exact != object.end())
    return exact->is_string() && base64Decode(exact->get<std::string>(), text);
  auto plain = object.find(key);
  if (plain == object.end() || !plain->is_string())
    return false;
  text = plain->get<std::string>();
  return true;
}

nlohmann::json textArrayElement(const std::string &text) {
  if (isValidUtf8(text))
    return text;
  nlohmann::json element = nlohmann::json::object();
  putText(element, "text", text);
  return element;
}

std::string documentText(const nlohmann::json &document) {
  return document.dump(2, ' ', false, nlohmann::json::error_handler_t::replace);
}

} // namespace vell_tool
