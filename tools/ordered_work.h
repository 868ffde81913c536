// Work on several threads whose results are handed on in the order the work
// came in, each as soon as it and everything before it is done.
#pragma once

#include <cstddef>
#include <functional>
#include <string>

namespace vell_tool {

struct OrderedWork {
  // Fetches the next item on the calling thread; false at the end of the input.
  std::function<bool(std::string &item)> next;
  // Computes an item's result (index counts from 0); runs on several threads at
  // once and must not throw.
  std::function<std::string(size_t index, const std::string &item)> work;
  // Receives the results one by one, in the order of the items, on one thread
  // of its own; must not throw.
  std::function<void(const std::string &result)> deliver;
};

// Runs every item through threads workers (at least 1) and returns once every
// result is delivered. At most window items (at least threads) are read ahead
// of the last result delivered, so memory stays bounded on long inputs, and
// an item is worked on as soon as it is read: a caller that waits for each
// result before it gives the next item gets it.
void runOrderedWork(const OrderedWork &work, unsigned threads, size_t window);

} // namespace vell_tool
