// Fuzzes the reading of vell find --batch request lines: any input gives a
// request or an error text, never an exception or a crash, and what it reads
// can be answered as JSON.
#include <cstddef>
#include <cstdint>
#include <string>

#include <nlohmann/json.hpp>

// The parser is part of the tool, which the fuzz build does not compile.
#include "batch_request.cpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const std::string line(reinterpret_cast<const char *>(data), size);
  vell_tool::FindOptions base;
  base.dirs.push_back("all:r=/nonexistent");
  vell_tool::BatchRequest request;
  std::string error;
  const bool good = vell_tool::parseBatchRequest(line, base, request, error);
  if (good == !error.empty())
    __builtin_trap();
  if (good &&
      (request.options.category.empty() || request.options.name.empty() || request.options.dirs != base.dirs))
    __builtin_trap();
  // The answer echoes the id; it must always be printable.
  nlohmann::json answer{{"line", 1}, {"error", error}};
  if (!request.id.is_null())
    answer["id"] = request.id;
  (void)answer.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
  return 0;
}
