// Lists the directories of one recursive walk ahead of it on helper threads,
// so that the walk finds most listings made when it gets to them.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace VELL_2_13 {

namespace walker {
class EntryFilter;
} // namespace walker

// The name of every helper thread of a read-ahead.
constexpr const char *READ_AHEAD_THREAD_NAME = "vell-read-ahead";

// The walk keeps its own order and makes every other call itself (status
// queries, its loop guard, candidates, observer calls); only the listing of
// a directory (its subdirectories, links followed) may come from a helper.
// Helpers go depth first in listing order, as the walk does, each directory
// once by inode number, and stop while too many listings wait for the walk.
// No thread runs before the first subdirectory is met; the destructor stops
// and joins every helper, also when the walk ends early.
//
// A walk starts with at most kFirstHelpers helpers and adds one, up to
// threads, each time a listing had to read from the disk: there more
// listings in flight pay, whereas over the page cache every extra thread only
// takes processor time from the walk.
class WalkReadAhead {
public:
  static constexpr unsigned int kFirstHelpers = 2;

  // Blocks the calling thread has read from storage so far.
  using BlockReadCounter = uint64_t (*)();
  static uint64_t threadBlockReads();

  // filter: the entries every listing keeps besides the subdirectories (see
  // walker::listSubdirectories); null keeps none. Not owned.
  explicit WalkReadAhead(unsigned int threads, BlockReadCounter blockReads = threadBlockReads,
                         const walker::EntryFilter *filter = nullptr);
  ~WalkReadAhead();
  WalkReadAhead(const WalkReadAhead &) = delete;
  WalkReadAhead &operator=(const WalkReadAhead &) = delete;

  // The listing of dir, whose inode number the walk found to be inode: a
  // helper's when one has made it, else read on the calling thread (which
  // never waits for a helper). False with error set (an errno value) when dir cannot be listed
  // completely. The subdirectories are then read ahead.
  // The names of the entries the filter kept go to kept when not null.
  bool take(const std::string &dir, ino_t inode, std::vector<std::string> &subdirectories, int &error,
            std::vector<std::string> *kept = nullptr);

  // Helper threads started so far.
  size_t helpersStarted() const;

private:
  struct Listing {
    bool listed = false;
    int error = 0;
    std::vector<std::string> subdirectories;
    std::vector<ino_t> inodes;
    std::vector<std::string> kept;
  };
  enum class State { Queued, Listing, Done };
  struct Entry {
    State state = State::Queued;
    Listing listing;
  };

  // Lists dir; under no lock. True when the listing read from the disk.
  bool list(const std::string &dir, Listing &listing) const;
  // Under the lock: queues the subdirectories of listing that no listing
  // has met yet, the first on top.
  void readAheadBelow(const Listing &listing);
  // Under the lock: starts count more helpers, as far as threads allows.
  void startHelpers(unsigned int count);
  void work();

  unsigned int m_threads;
  BlockReadCounter m_blockReads;
  const walker::EntryFilter *m_filter;
  mutable std::mutex m_lock;
  std::condition_variable m_workQueued; // helpers wait for work
  std::unordered_map<std::string, Entry> m_entries;
  std::vector<std::string> m_queue; // a stack: the top is listed next
  std::unordered_set<ino_t> m_seen;
  size_t m_waiting = 0; // listings made and not yet taken
  bool m_stop = false;
  bool m_helpersTried = false;
  bool m_helpersExhausted = false; // no more threads to be had
  std::atomic<bool> m_allHelpersStarted{false};
  std::vector<std::thread> m_helpers;
};

} // namespace VELL_2_13
