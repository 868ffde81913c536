// vell find --batch: reads requests line by line and answers each with one
// JSON object, the directory index shared by all of them.
#include "batch_command.h"

#include <algorithm>
#include <istream>
#include <ostream>
#include <string>

#include <nlohmann/json.hpp>

#include "batch_request.h"
#include "tool_error.h"

using namespace VELL_2_13;
using nlohmann::json;

namespace vell_tool {

namespace {

json errorAnswer(size_t lineNumber, const json &id, const std::string &message) {
  json answer{{"line", lineNumber}, {"error", message}};
  if (!id.is_null())
    answer["id"] = id;
  return answer;
}

} // namespace

int runFindBatch(const GlobalOptions &global, const FindOptions &base, bool useIndex, std::istream &in,
                 std::ostream &out) {
  const ObjectPtr<IDirectoryIndex> index = useIndex ? IDirectoryIndex::create() : ObjectPtr<IDirectoryIndex>();
  int status = kExitSuccess;
  std::string line;
  for (size_t lineNumber = 1; std::getline(in, line); ++lineNumber) {
    BatchRequest request;
    std::string error;
    json answer;
    if (!parseBatchRequest(line, base, request, error)) {
      answer = errorAnswer(lineNumber, request.id, error);
      status = kExitBadInput;
    } else {
      try {
        FindReport report;
        if (findOne(global, request.options, index, report) != kExitSuccess && status == kExitSuccess)
          status = kExitNotFound;
        answer = findReportJson(report);
        if (!request.id.is_null())
          answer["id"] = request.id;
      } catch (const BadInput &e) {
        answer = errorAnswer(lineNumber, request.id, e.what());
        status = kExitBadInput;
      } catch (const std::exception &e) {
        answer = errorAnswer(lineNumber, request.id, e.what());
        status = std::max(status, static_cast<int>(kExitNotFound));
      }
    }
    // A driver waits for each answer before it sends the next request.
    out << answer.dump(-1, ' ', false, json::error_handler_t::replace) << std::endl;
  }
  return status;
}

} // namespace vell_tool
