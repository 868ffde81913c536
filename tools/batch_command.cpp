// vell find --batch: reads requests line by line and answers each with one
// JSON object, in order; the requests are worked on by several threads that
// share the directory index and the servers' transfers.
#include "batch_command.h"

#include <algorithm>
#include <atomic>
#include <istream>
#include <ostream>
#include <string>

#include <nlohmann/json.hpp>

#include "batch_request.h"
#include "ordered_work.h"
#include "tool_error.h"

using namespace VELL_2_13;
using nlohmann::json;

namespace vell_tool {

namespace {

// Requests read ahead of the last answer written, per thread.
constexpr size_t kReadAheadPerThread = 16;

json errorAnswer(size_t lineNumber, const json &id, const std::string &message) {
  json answer{{"line", lineNumber}, {"error", message}};
  if (!id.is_null())
    answer["id"] = id;
  return answer;
}

// The answer to one line and the exit status it asks for.
std::string answerLine(const GlobalOptions &global, const FindOptions &base, const SharedSearch &shared,
                       size_t lineNumber, const std::string &line, int &status) {
  BatchRequest request;
  std::string error;
  json answer;
  status = kExitSuccess;
  if (!parseBatchRequest(line, base, request, error)) {
    answer = errorAnswer(lineNumber, request.id, error);
    status = kExitBadInput;
  } else {
    try {
      FindReport report;
      if (findOne(global, request.options, shared, report) != kExitSuccess)
        status = kExitNotFound;
      answer = findReportJson(report);
      if (!request.id.is_null())
        answer["id"] = request.id;
    } catch (const BadInput &e) {
      answer = errorAnswer(lineNumber, request.id, e.what());
      status = kExitBadInput;
    } catch (const std::exception &e) {
      answer = errorAnswer(lineNumber, request.id, e.what());
      status = kExitNotFound;
    } catch (...) {
      answer = errorAnswer(lineNumber, request.id, "unexpected error");
      status = kExitNotFound;
    }
  }
  return answer.dump(-1, ' ', false, json::error_handler_t::replace);
}

} // namespace

int runFindBatch(const GlobalOptions &global, const FindOptions &base, const BatchSettings &settings,
                 std::istream &in, std::ostream &out) {
  SharedSearch shared;
  if (settings.useIndex)
    shared.index = IDirectoryIndex::create();
  // One set of server connections for the whole batch: a file several
  // requests need is downloaded once, different files at the same time.
  const std::unique_ptr<ServerConnections> servers = ServerConnections::create(base.remote);
  shared.serversShared = true;
  shared.servers = servers.get();
  const unsigned jobs = std::max(settings.jobs, 1u);
  // Several searches at once would draw over each other's progress line.
  shared.progressLine = jobs == 1;

  // Bad input outranks not found, which outranks success.
  std::atomic<int> status{kExitSuccess};
  auto answer = [&](size_t index, const std::string &line) {
    int lineStatus = kExitSuccess;
    std::string text = answerLine(global, base, shared, index + 1, line, lineStatus);
    int seen = status.load();
    while (lineStatus > seen && !status.compare_exchange_weak(seen, lineStatus)) {
    }
    return text;
  };
  // A driver waits for each answer before it sends the next request: every
  // answer is flushed at once.
  auto write = [&out](const std::string &text) { out << text << std::endl; };

  if (jobs == 1) {
    std::string line;
    for (size_t index = 0; std::getline(in, line); ++index)
      write(answer(index, line));
    return status.load();
  }
  // Reading must not flush the answers the writer is writing.
  in.tie(nullptr);
  OrderedWork work;
  work.next = [&in](std::string &line) { return static_cast<bool>(std::getline(in, line)); };
  work.work = answer;
  work.deliver = write;
  runOrderedWork(work, jobs, jobs * kReadAheadPerThread);
  return status.load();
}

} // namespace vell_tool
