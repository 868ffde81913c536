// Read-ahead of a recursive walk: helper threads list directories depth first
// ahead of the walk, which takes each listing when its turn comes.
#include "vell_search/walk_read_ahead.h"

#include <pthread.h>
#include <sys/resource.h>

#include <exception>
#include <system_error>
#include <utility>

#include "vell_search/directory_reader.h"

namespace VELL_2_13 {

namespace {

// Listings made ahead and not yet taken, beyond which the helpers wait: the
// walk may never come to a directory it reaches first by another path.
constexpr size_t kMaxWaitingListings = 4096;

} // namespace

uint64_t WalkReadAhead::threadBlockReads() {
  // Counts the reads this thread submitted to a block device, file system
  // metadata included; stays 0 where the kernel keeps no such account.
  struct rusage usage;
  if (::getrusage(RUSAGE_THREAD, &usage) != 0)
    return 0;
  return static_cast<uint64_t>(usage.ru_inblock);
}

WalkReadAhead::WalkReadAhead(unsigned int threads, BlockReadCounter blockReads,
                             const walker::EntryFilter *filter)
    : m_threads(threads), m_blockReads(blockReads), m_filter(filter) {}

WalkReadAhead::~WalkReadAhead() {
  {
    std::lock_guard<std::mutex> guard(m_lock);
    m_stop = true;
  }
  m_workQueued.notify_all();
  for (std::thread &helper : m_helpers)
    helper.join();
}

size_t WalkReadAhead::helpersStarted() const {
  // Helpers start helpers too.
  std::lock_guard<std::mutex> guard(m_lock);
  return m_helpers.size();
}

bool WalkReadAhead::list(const std::string &dir, Listing &listing) const {
  // Once no helper can be added, the disk reads are not worth counting.
  if (m_allHelpersStarted.load(std::memory_order_relaxed)) {
    listing.listed = walker::listSubdirectories(dir, listing.subdirectories, &listing.inodes, listing.error,
                                                m_filter, &listing.kept);
    return false;
  }
  const uint64_t before = m_blockReads();
  listing.listed = walker::listSubdirectories(dir, listing.subdirectories, &listing.inodes, listing.error,
                                              m_filter, &listing.kept);
  return m_blockReads() != before;
}

bool WalkReadAhead::take(const std::string &dir, ino_t inode, std::vector<std::string> &subdirectories,
                         int &error, std::vector<std::string> *kept) {
  std::unique_lock<std::mutex> lock(m_lock);
  m_seen.insert(inode);
  auto found = m_entries.find(dir);
  if (found != m_entries.end()) {
    Entry &entry = found->second;
    if (entry.state == State::Done) {
      Listing listing = std::move(entry.listing);
      m_entries.erase(found);
      // Helpers wait only while too many listings wait for the walk.
      const bool wasFull = m_waiting-- == kMaxWaitingListings;
      lock.unlock();
      if (wasFull)
        m_workQueued.notify_all();
      subdirectories = std::move(listing.subdirectories);
      if (kept)
        *kept = std::move(listing.kept);
      error = listing.error;
      return listing.listed;
    }
    // Not listed yet: the walk lists it at once rather than wait for a
    // helper that may not even be running; a helper at it drops its listing.
    m_entries.erase(found);
  }
  lock.unlock();

  Listing listing;
  const bool fromDisk = list(dir, listing);
  lock.lock();
  if (fromDisk && m_helpersTried)
    startHelpers(1);
  readAheadBelow(listing);
  lock.unlock();
  subdirectories = std::move(listing.subdirectories);
  if (kept)
    *kept = std::move(listing.kept);
  error = listing.error;
  return listing.listed;
}

void WalkReadAhead::readAheadBelow(const Listing &listing) {
  if (!listing.listed || listing.subdirectories.empty() || m_threads == 0)
    return;
  if (!m_helpersTried) {
    m_helpersTried = true;
    startHelpers(kFirstHelpers);
  }
  if (m_helpers.empty())
    return;
  size_t queued = 0;
  // Pushed last to first: the first subdirectory is listed first, as the
  // walk descends into it first.
  for (size_t i = listing.subdirectories.size(); i-- > 0;) {
    if (!m_seen.insert(listing.inodes[i]).second)
      continue;
    if (!m_entries.try_emplace(listing.subdirectories[i]).second)
      continue;
    m_queue.push_back(listing.subdirectories[i]);
    ++queued;
  }
  // One helper woken per directory queued: waking them all would have most
  // find nothing left to do.
  if (queued >= m_helpers.size()) {
    m_workQueued.notify_all();
    return;
  }
  for (size_t i = 0; i < queued; ++i)
    m_workQueued.notify_one();
}

void WalkReadAhead::startHelpers(unsigned int count) {
  // Once stopping, the destructor joins the helpers it has without the lock.
  if (m_stop)
    return;
  for (; count > 0 && !m_helpersExhausted && m_helpers.size() < m_threads; --count) {
    try {
      m_helpers.emplace_back([this] { work(); });
      // Named for whoever looks at the process's threads.
      ::pthread_setname_np(m_helpers.back().native_handle(), READ_AHEAD_THREAD_NAME);
    } catch (const std::system_error &) {
      // No more threads to be had: the walk goes on with those it has.
      m_helpersExhausted = true;
    }
  }
  if (m_helpersExhausted || m_helpers.size() >= m_threads)
    m_allHelpersStarted.store(true, std::memory_order_relaxed);
}

void WalkReadAhead::work() {
  std::unique_lock<std::mutex> lock(m_lock);
  for (;;) {
    m_workQueued.wait(lock,
                      [this] { return m_stop || (!m_queue.empty() && m_waiting < kMaxWaitingListings); });
    if (m_stop)
      return;
    const std::string dir = std::move(m_queue.back());
    m_queue.pop_back();
    auto found = m_entries.find(dir);
    // The walk may have listed it itself meanwhile.
    if (found == m_entries.end() || found->second.state != State::Queued)
      continue;
    found->second.state = State::Listing;
    lock.unlock();
    Listing listing;
    bool made = true;
    bool fromDisk = false;
    try {
      fromDisk = list(dir, listing);
    } catch (const std::exception &) {
      made = false; // out of memory: the walk lists it itself
    }
    lock.lock();
    if (fromDisk) {
      try {
        startHelpers(1);
      } catch (const std::exception &) {
        // Out of memory: the helpers running go on.
      }
    }
    // Gone when the walk came to it first and listed it itself.
    found = m_entries.find(dir);
    if (found == m_entries.end() || found->second.state != State::Listing)
      continue;
    if (!made) {
      m_entries.erase(found);
    } else {
      found->second.listing = std::move(listing);
      found->second.state = State::Done;
      ++m_waiting;
      try {
        readAheadBelow(found->second.listing);
      } catch (const std::exception &) {
        // Out of memory: what is not queued the walk lists itself.
      }
    }
  }
}

} // namespace VELL_2_13
