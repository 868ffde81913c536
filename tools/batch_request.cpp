// The fields of a vell find --batch request and how each one sets an option.
#include "batch_request.h"

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "json_writer.h"

using nlohmann::json;

namespace vell_tool {

namespace {

// A field's value did not fit; the message names what was expected.
class BadField : public std::runtime_error {
public:
  explicit BadField(const std::string &message) : std::runtime_error(message) {}
};

using Setter = std::function<void(const json &, FindOptions &)>;

Setter text(std::string FindOptions::*member) {
  return [member](const json &value, FindOptions &options) {
    if (!value.is_string())
      throw BadField("a string");
    std::string text = value.get<std::string>();
    if (text.empty())
      throw BadField("a string that is not empty");
    options.*member = std::move(text);
  };
}

// A whole number, given as a JSON integer or as a string of digits (vell
// find checks the string form).
Setter number(std::string FindOptions::*member) {
  return [member](const json &value, FindOptions &options) {
    if (value.is_number_unsigned())
      options.*member = std::to_string(value.get<uint64_t>());
    else if (value.is_number_integer())
      options.*member = std::to_string(value.get<int64_t>());
    else if (value.is_string() && !value.get<std::string>().empty())
      options.*member = value.get<std::string>();
    else
      throw BadField("a whole number");
  };
}

Setter flag(bool FindOptions::*member) {
  return [member](const json &value, FindOptions &options) {
    if (!value.is_boolean())
      throw BadField("true or false");
    options.*member = value.get<bool>();
  };
}

Setter texts(std::vector<std::string> FindOptions::*member) {
  return [member](const json &value, FindOptions &options) {
    if (!value.is_array())
      throw BadField("an array of strings");
    std::vector<std::string> all;
    for (const json &element : value) {
      if (!element.is_string() || element.get<std::string>().empty())
        throw BadField("an array of strings that are not empty");
      all.push_back(element.get<std::string>());
    }
    options.*member = std::move(all);
  };
}

// Every field a request may hold, named as the options of vell find with
// "_" for "-". A new option of vell find becomes a request field here.
const std::map<std::string, Setter> &fields() {
  static const std::map<std::string, Setter> table = {
      {"category", text(&FindOptions::category)},
      {"name", text(&FindOptions::name)},
      {"binary", text(&FindOptions::binary)},
      {"checksum", text(&FindOptions::checksum)},
      {"mtime", number(&FindOptions::mtime)},
      {"size", number(&FindOptions::size)},
      {"not_newer_than_binary", flag(&FindOptions::notNewerThanBinary)},
      {"time_check_exception", texts(&FindOptions::timeCheckExceptions)},
      {"kernel_release", text(&FindOptions::kernelRelease)},
      {"suggest", text(&FindOptions::suggest)},
      {"steps", text(&FindOptions::steps)},
      {"all", flag(&FindOptions::all)},
      {"explain", flag(&FindOptions::explain)},
      {"build_id", text(&FindOptions::buildId)},
      {"no_build_id", flag(&FindOptions::noBuildId)},
      {"debug_dir", text(&FindOptions::debugDir)},
      {"sysroot", text(&FindOptions::sysroot)},
      {"plain_kernel", flag(&FindOptions::plainKernel)},
      {"plain_walk", flag(&FindOptions::plainWalk)},
  };
  return table;
}

// The fields that take a text, which may also come as "<field>Base64" with
// its exact bytes (the form of the answers' texts that are not UTF-8).
const std::set<std::string> &textFields() {
  static const std::set<std::string> names = {"category", "name",  "binary",   "checksum",  "kernel_release",
                                              "suggest",  "steps", "build_id", "debug_dir", "sysroot"};
  return names;
}

const char *const kBase64Suffix = "Base64";

// The text field a "<field>Base64" key stands for; empty for any other key.
std::string base64Stem(const std::string &key) {
  const size_t suffix = std::char_traits<char>::length(kBase64Suffix);
  if (key.size() <= suffix || key.compare(key.size() - suffix, suffix, kBase64Suffix) != 0)
    return "";
  std::string stem = key.substr(0, key.size() - suffix);
  return textFields().count(stem) ? stem : "";
}

} // namespace

bool parseBatchRequest(const std::string &line, const FindOptions &base, BatchRequest &request,
                       std::string &error) {
  request = BatchRequest();
  request.options = base;
  if (line.size() > kMaxBatchLineBytes) {
    error = "request longer than " + std::to_string(kMaxBatchLineBytes) + " bytes";
    return false;
  }
  const json parsed = json::parse(line, nullptr, false);
  if (parsed.is_discarded()) {
    error = "not a JSON object";
    return false;
  }
  if (!parsed.is_object()) {
    error = "not a JSON object";
    return false;
  }
  if (auto id = parsed.find("id"); id != parsed.end())
    request.id = *id;
  // Plain fields first; a "<field>Base64" then replaces its field with the
  // exact bytes.
  std::vector<std::pair<std::string, json>> exactTexts;
  for (const auto &[key, value] : parsed.items()) {
    if (key == "id")
      continue;
    if (std::string stem = base64Stem(key); !stem.empty()) {
      std::string bytes;
      if (!value.is_string() || !base64Decode(value.get<std::string>(), bytes)) {
        error = "field '" + key + "': expected standard base64";
        return false;
      }
      exactTexts.emplace_back(std::move(stem), json(std::move(bytes)));
      continue;
    }
    auto field = fields().find(key);
    if (field == fields().end()) {
      error = "unknown field '" + key + "'";
      return false;
    }
    try {
      field->second(value, request.options);
    } catch (const BadField &expected) {
      error = "field '" + key + "': expected " + expected.what();
      return false;
    }
  }
  for (const auto &[stem, bytes] : exactTexts) {
    try {
      fields().at(stem)(bytes, request.options);
    } catch (const BadField &expected) {
      error = "field '" + stem + kBase64Suffix + "': expected " + expected.what();
      return false;
    }
  }
  for (const char *required : {"category", "name"}) {
    if (!parsed.contains(required) && !parsed.contains(std::string(required) + kBase64Suffix)) {
      error = std::string("field '") + required + "' missing";
      return false;
    }
  }
  return true;
}

} // namespace vell_tool
