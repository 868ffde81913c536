// One listing pass over a tree: reads every directory reachable from a root
// (following links, each directory once) on several threads, taking over the
// listings of a previous pass whose directories are unchanged.
#pragma once

#include <sys/stat.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>
#include <utility>
#include <vector>

#include "vell_index/directory_tree.h"

namespace VELL_2_13 {
namespace index {

DirIdentity identityOf(const struct stat &st);

class TreeLister {
public:
  // before: the previous pass's listings (may be empty); out receives the
  // new ones, the root's first.
  TreeLister(const std::deque<Listing> &before, std::deque<Listing> &out);

  void run(const std::string &root, const DirIdentity &rootIdentity, unsigned int threads);
  uint64_t listingsRead() const { return m_read.load(); }
  // The previous pass's listing of the same directory, or null.
  const Listing *previous(const DirIdentity &identity) const;

private:
  using Key = std::pair<dev_t, ino_t>;
  struct KeyHash {
    size_t operator()(const Key &key) const { return std::hash<uint64_t>()(key.second * 31 + key.first); }
  };

  void work(bool caller);
  void process(Listing &listing);
  void read(Listing &listing);
  // Finds the subdirectories among the candidates, relative to dirFd when
  // it is not -1.
  void classify(Listing &listing, int dirFd);
  uint32_t claim(const std::string &path, const DirIdentity &identity);

  std::deque<Listing> &m_out;
  std::unordered_map<Key, const Listing *, KeyHash> m_before;
  int64_t m_startNs = 0;
  std::atomic<uint64_t> m_read{0};

  std::mutex m_claimsLock;
  std::unordered_map<Key, uint32_t, KeyHash> m_claims;

  std::mutex m_queueLock;
  std::condition_variable m_queueChanged;
  std::vector<Listing *> m_queue;
  size_t m_busy = 0;
  unsigned int m_helpersWanted = 0;
  std::vector<std::thread> m_helpers;
};

} // namespace index
} // namespace VELL_2_13
