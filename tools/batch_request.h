// One request of vell find --batch: a JSON object on one line, read into the
// options of vell find.
#pragma once

#include <string>

#include <nlohmann/json.hpp>

#include "find_command.h"

namespace vell_tool {

// Longest request line read; a longer one is a bad line.
constexpr size_t kMaxBatchLineBytes = 1 << 20;

struct BatchRequest {
  FindOptions options;
  nlohmann::json id; // the request's "id", echoed in its answer; null when not given
};

// Reads line as a request over base (the command line's options, which the
// request's fields replace). False with error set for a bad line; the id is
// filled whenever the line is an object that has one.
bool parseBatchRequest(const std::string &line, const FindOptions &base, BatchRequest &request,
                       std::string &error);

} // namespace vell_tool
