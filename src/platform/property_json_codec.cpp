// Property bags as JSON: values carry a type tag, texts that are not UTF-8 are kept as hex.
#include "platform/property_json_codec.h"

#include <cmath>
#include <limits>
#include <stdexcept>

namespace VELL_2_13 {
namespace platform {

namespace {

using nlohmann::json;

const char *const FORMAT = "vell-property-storage";
const int VERSION = 1;

[[noreturn]] void malformed(const std::string &what) { throw std::runtime_error(what); }

std::string toHex(const std::string &text) {
  static const char digits[] = "0123456789abcdef";
  std::string hex;
  hex.reserve(text.size() * 2);
  for (unsigned char c : text) {
    hex.push_back(digits[c >> 4]);
    hex.push_back(digits[c & 0x0f]);
  }
  return hex;
}

int hexDigit(char c) {
  if (c >= '0' && c <= '9')
    return c - '0';
  if (c >= 'a' && c <= 'f')
    return c - 'a' + 10;
  if (c >= 'A' && c <= 'F')
    return c - 'A' + 10;
  return -1;
}

std::string fromHex(const std::string &hex) {
  if (hex.size() % 2 != 0)
    malformed("odd length of hex text");
  std::string text;
  text.reserve(hex.size() / 2);
  for (size_t i = 0; i < hex.size(); i += 2) {
    const int high = hexDigit(hex[i]);
    const int low = hexDigit(hex[i + 1]);
    if (high < 0 || low < 0)
      malformed("bad hex digit");
    text.push_back(static_cast<char>(high * 16 + low));
  }
  return text;
}

// A text as a JSON string, or {"hex": ...} when it is not UTF-8.
json encodeText(const std::string &text) {
  if (isValidUtf8(text))
    return text;
  return json{{"hex", toHex(text)}};
}

std::string decodeText(const json &value, const char *what) {
  if (value.is_string())
    return value.get<std::string>();
  if (value.is_object() && value.size() == 1 && value.contains("hex") && value["hex"].is_string())
    return fromHex(value["hex"].get<std::string>());
  malformed(std::string("bad text in ") + what);
}

const json &member(const json &object, const char *name, const char *what) {
  if (!object.is_object())
    malformed(std::string(what) + " is not an object");
  auto found = object.find(name);
  if (found == object.end())
    malformed(std::string(what) + " has no \"" + name + "\"");
  return *found;
}

const json &arrayMember(const json &object, const char *name, const char *what) {
  const json &value = member(object, name, what);
  if (!value.is_array())
    malformed(std::string(what) + " has a \"" + name + "\" that is not an array");
  return value;
}

json doubleToJson(double value) {
  if (std::isnan(value))
    return "nan";
  if (std::isinf(value))
    return value > 0 ? "inf" : "-inf";
  return value;
}

double doubleFromJson(const json &value) {
  if (value.is_number_float())
    return value.get<double>();
  if (value.is_string()) {
    const std::string text = value.get<std::string>();
    if (text == "nan")
      return std::numeric_limits<double>::quiet_NaN();
    if (text == "inf")
      return std::numeric_limits<double>::infinity();
    if (text == "-inf")
      return -std::numeric_limits<double>::infinity();
  }
  malformed("bad double value");
}

json valueToJson(const std::string &name, const Variant &value) {
  json entry{{"name", encodeText(name)}};
  switch (value.type()) {
  case Variant::Type::None:
    entry["type"] = "none";
    break;
  case Variant::Type::UInt8:
    entry["type"] = "uint8";
    entry["value"] = std::get<uint8_t>(value.storage());
    break;
  case Variant::Type::Bool:
    entry["type"] = "bool";
    entry["value"] = std::get<bool>(value.storage());
    break;
  case Variant::Type::Text:
    entry["type"] = "text";
    entry["value"] = encodeText(std::get<std::string>(value.storage()));
    break;
  case Variant::Type::Int64:
    entry["type"] = "int64";
    entry["value"] = std::get<int64_t>(value.storage());
    break;
  case Variant::Type::UInt64:
    entry["type"] = "uint64";
    entry["value"] = std::get<uint64_t>(value.storage());
    break;
  case Variant::Type::Double:
    entry["type"] = "double";
    entry["value"] = doubleToJson(std::get<double>(value.storage()));
    break;
  }
  return entry;
}

Variant valueFromJson(const json &entry) {
  const json &typeJson = member(entry, "type", "value");
  if (!typeJson.is_string())
    malformed("value type is not a text");
  const std::string type = typeJson.get<std::string>();
  if (type == "none")
    return Variant();
  const json &value = member(entry, "value", "value");
  if (type == "uint8") {
    if (!value.is_number_unsigned() || value.get<uint64_t>() > std::numeric_limits<uint8_t>::max())
      malformed("bad uint8 value");
    return Variant(static_cast<uint8_t>(value.get<uint64_t>()));
  }
  if (type == "bool") {
    if (!value.is_boolean())
      malformed("bad bool value");
    return Variant(value.get<bool>());
  }
  if (type == "text")
    return Variant(decodeText(value, "text value"));
  if (type == "int64") {
    if (value.is_number_integer() && !value.is_number_unsigned())
      return Variant(value.get<int64_t>());
    if (value.is_number_unsigned() && value.get<uint64_t>() <= uint64_t(std::numeric_limits<int64_t>::max()))
      return Variant(static_cast<int64_t>(value.get<uint64_t>()));
    malformed("bad int64 value");
  }
  if (type == "uint64") {
    if (!value.is_number_unsigned())
      malformed("bad uint64 value");
    return Variant(value.get<uint64_t>());
  }
  if (type == "double")
    return Variant(doubleFromJson(value));
  malformed("unknown value type \"" + type + "\"");
}

} // namespace

bool isValidUtf8(const std::string &text) {
  const auto *bytes = reinterpret_cast<const unsigned char *>(text.data());
  const size_t size = text.size();
  size_t i = 0;
  while (i < size) {
    const unsigned char c = bytes[i];
    size_t extra;
    uint32_t codePoint;
    if (c < 0x80) {
      ++i;
      continue;
    } else if ((c & 0xE0) == 0xC0) {
      extra = 1;
      codePoint = c & 0x1F;
    } else if ((c & 0xF0) == 0xE0) {
      extra = 2;
      codePoint = c & 0x0F;
    } else if ((c & 0xF8) == 0xF0) {
      extra = 3;
      codePoint = c & 0x07;
    } else {
      return false;
    }
    if (i + extra >= size)
      return false;
    for (size_t k = 1; k <= extra; ++k) {
      if ((bytes[i + k] & 0xC0) != 0x80)
        return false;
      codePoint = (codePoint << 6) | (bytes[i + k] & 0x3F);
    }
    // Overlong forms, surrogates and values past U+10FFFF are not UTF-8.
    static const uint32_t minimum[] = {0, 0x80, 0x800, 0x10000};
    if (codePoint < minimum[extra] || codePoint > 0x10FFFF || (codePoint >= 0xD800 && codePoint <= 0xDFFF))
      return false;
    i += extra + 1;
  }
  return true;
}

json bagToJson(const PropertyBag &bag) {
  json values = json::array();
  for (const auto &[name, value] : bag.values())
    values.push_back(valueToJson(name, value));
  json children = json::array();
  for (const auto &[name, child] : bag.allChildren())
    children.push_back(json{{"name", encodeText(name)}, {"bag", bagToJson(child)}});
  return json{{"values", std::move(values)}, {"children", std::move(children)}};
}

namespace {

// Each bag level takes three JSON levels: the bag, its "children" array and
// the child entry.
constexpr int MAX_BAG_DEPTH = MAX_JSON_DEPTH / 3;

PropertyBag bagFromJsonAt(const json &object, int depth) {
  if (depth > MAX_BAG_DEPTH)
    malformed("bags nested deeper than " + std::to_string(MAX_BAG_DEPTH) + " levels");
  PropertyBag bag;
  for (const json &entry : arrayMember(object, "values", "bag"))
    bag.setValue(decodeText(member(entry, "name", "value"), "value name"), valueFromJson(entry));
  for (const json &entry : arrayMember(object, "children", "bag"))
    bag.addChild(decodeText(member(entry, "name", "child"), "child name"),
                 bagFromJsonAt(member(entry, "bag", "child"), depth + 1));
  return bag;
}

} // namespace

PropertyBag bagFromJson(const json &object) { return bagFromJsonAt(object, 1); }

json parseDocument(const std::string &text) {
  // The parser itself keeps its levels on the heap; the limit spares every
  // recursive walk over the result (conversion, destruction of the bags).
  const json::parser_callback_t limitDepth = [](int depth, json::parse_event_t event, json &) {
    if ((event == json::parse_event_t::object_start || event == json::parse_event_t::array_start) &&
        depth >= MAX_JSON_DEPTH)
      malformed("JSON nested deeper than " + std::to_string(MAX_JSON_DEPTH) + " levels");
    return true;
  };
  return json::parse(text, limitDepth);
}

json documentToJson(const NamedBags &bags) {
  json list = json::array();
  for (const auto &[name, bag] : bags)
    list.push_back(json{{"name", encodeText(name)}, {"bag", bagToJson(bag)}});
  return json{{"format", FORMAT}, {"version", VERSION}, {"bags", std::move(list)}};
}

NamedBags documentFromJson(const json &document) {
  const json &format = member(document, "format", "document");
  if (!format.is_string() || format.get<std::string>() != FORMAT)
    malformed("unknown document format");
  const json &version = member(document, "version", "document");
  if (!version.is_number_integer() || version.get<int64_t>() != VERSION)
    malformed("unsupported document version");
  NamedBags bags;
  for (const json &entry : arrayMember(document, "bags", "document"))
    bags.emplace_back(decodeText(member(entry, "name", "bag entry"), "bag name"),
                      bagFromJson(member(entry, "bag", "bag entry")));
  return bags;
}

} // namespace platform
} // namespace VELL_2_13
