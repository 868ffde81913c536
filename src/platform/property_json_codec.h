// Conversion of property bags to and from JSON, keeping the exact type of every value.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "vell/platform.h"

namespace VELL_2_13 {
namespace platform {

// The named bags of one storage file, in the order they were first stored.
using NamedBags = std::vector<std::pair<std::string, PropertyBag>>;

// Deepest nesting of JSON objects and arrays a storage file may have. The
// storage holds a few levels of bags (each bag level is three JSON levels);
// a deeper file is treated as damaged rather than followed level by level.
constexpr int MAX_JSON_DEPTH = 192;

// Parses a storage file; throws std::runtime_error for text that is not JSON
// or nests deeper than MAX_JSON_DEPTH.
nlohmann::json parseDocument(const std::string &text);

// The whole file: {"format": "vell-property-storage", "version": 1, "bags": [...]}.
nlohmann::json documentToJson(const NamedBags &bags);
// Throws std::runtime_error naming the first malformed part.
NamedBags documentFromJson(const nlohmann::json &document);

nlohmann::json bagToJson(const PropertyBag &bag);
PropertyBag bagFromJson(const nlohmann::json &json);

// Whether text is well-formed UTF-8 (JSON texts must be; other texts are kept as hex).
bool isValidUtf8(const std::string &text);

} // namespace platform
} // namespace VELL_2_13
