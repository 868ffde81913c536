// Read-ahead of a recursive walk: helper threads list directories depth first
// ahead of the walk, which takes each listing when its turn comes.
#include "vell_search/walk_read_ahead.h"

#include <pthread.h>

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

WalkReadAhead::WalkReadAhead(unsigned int threads) : m_threads(threads) {}

WalkReadAhead::~WalkReadAhead() {
  {
    std::lock_guard<std::mutex> guard(m_lock);
    m_stop = true;
  }
  m_workQueued.notify_all();
  for (std::thread &helper : m_helpers)
    helper.join();
}

void WalkReadAhead::list(const std::string &dir, Listing &listing) {
  listing.listed = walker::listSubdirectories(dir, listing.subdirectories, &listing.inodes, listing.error);
}

bool WalkReadAhead::take(const std::string &dir, ino_t inode, std::vector<std::string> &subdirectories,
                         int &error) {
  std::unique_lock<std::mutex> lock(m_lock);
  m_seen.insert(inode);
  auto found = m_entries.find(dir);
  if (found != m_entries.end()) {
    Entry &entry = found->second;
    if (entry.state == State::Done) {
      Listing listing = std::move(entry.listing);
      m_entries.erase(found);
      --m_waiting;
      lock.unlock();
      m_workQueued.notify_all();
      subdirectories = std::move(listing.subdirectories);
      error = listing.error;
      return listing.listed;
    }
    // Not listed yet: the walk lists it at once rather than wait for a
    // helper that may not even be running; a helper at it drops its listing.
    m_entries.erase(found);
  }
  lock.unlock();

  Listing listing;
  list(dir, listing);
  lock.lock();
  readAheadBelow(listing);
  lock.unlock();
  subdirectories = std::move(listing.subdirectories);
  error = listing.error;
  return listing.listed;
}

void WalkReadAhead::readAheadBelow(const Listing &listing) {
  if (!listing.listed || listing.subdirectories.empty() || m_threads == 0)
    return;
  if (!m_helpersTried)
    startHelpers();
  if (m_helpers.empty())
    return;
  bool queued = false;
  // Pushed last to first: the first subdirectory is listed first, as the
  // walk descends into it first.
  for (size_t i = listing.subdirectories.size(); i-- > 0;) {
    if (!m_seen.insert(listing.inodes[i]).second)
      continue;
    if (!m_entries.try_emplace(listing.subdirectories[i]).second)
      continue;
    m_queue.push_back(listing.subdirectories[i]);
    queued = true;
  }
  if (queued)
    m_workQueued.notify_all();
}

void WalkReadAhead::startHelpers() {
  m_helpersTried = true;
  for (unsigned int i = 0; i < m_threads; ++i) {
    try {
      m_helpers.emplace_back([this] { work(); });
      // Named for whoever looks at the process's threads.
      ::pthread_setname_np(m_helpers.back().native_handle(), READ_AHEAD_THREAD_NAME);
    } catch (const std::system_error &) {
      // No more threads to be had: the walk goes on with those it has.
      break;
    }
  }
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
    try {
      list(dir, listing);
    } catch (const std::exception &) {
      made = false; // out of memory: the walk lists it itself
    }
    lock.lock();
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
