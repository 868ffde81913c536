// One listing pass over a tree, on several threads: every directory is read
// once per identity, and its subdirectories are classified the way the walk
// classifies them.
#include "vell_index/tree_lister.h"

#include <cerrno>
#include <ctime>
#include <functional>
#include <string_view>

#include <fcntl.h>

#include <boost/filesystem/path.hpp>

#include "vell_search/directory_reader.h"

namespace VELL_2_13 {
namespace index {

namespace {

// Marks a subdirectory candidate that is a link or of unknown type.
constexpr uint32_t kNeedsClassification = 0x80000000u;
// Directories modified this close to their reading may change again within
// the same time stamp (file systems stamp with a coarse clock).
constexpr int64_t kTimeStampGranularityNs = 20'000'000;
// Helper threads start once this many directories wait.
constexpr size_t kHelpersStartAt = 8;

int64_t nanoseconds(const struct timespec &time) {
  return static_cast<int64_t>(time.tv_sec) * 1'000'000'000 + time.tv_nsec;
}

int64_t nowNs() {
  struct timespec now {};
  ::clock_gettime(CLOCK_REALTIME, &now);
  return nanoseconds(now);
}

} // namespace

uint64_t nameHash(std::string_view name) { return std::hash<std::string_view>()(name); }

DirIdentity identityOf(const struct stat &st) {
  DirIdentity identity;
  identity.device = st.st_dev;
  identity.inode = st.st_ino;
  identity.modifiedNs = nanoseconds(st.st_mtim);
  identity.changedNs = nanoseconds(st.st_ctim);
  return identity;
}

TreeLister::TreeLister(const std::deque<Listing> &before, std::deque<Listing> &out) : m_out(out) {
  for (const Listing &listing : before)
    m_before.emplace(Key(listing.identity.device, listing.identity.inode), &listing);
}

const Listing *TreeLister::previous(const DirIdentity &identity) const {
  auto found = m_before.find(Key(identity.device, identity.inode));
  return found == m_before.end() ? nullptr : found->second;
}

void TreeLister::run(const std::string &root, const DirIdentity &rootIdentity, unsigned int threads) {
  m_startNs = nowNs();
  m_helpersWanted = threads > 1 ? threads - 1 : 0;
  claim(root, rootIdentity);
  work(true);
  for (std::thread &helper : m_helpers)
    helper.join();
  m_helpers.clear();
}

uint32_t TreeLister::claim(const std::string &path, const DirIdentity &identity) {
  Listing *listing = nullptr;
  uint32_t index = 0;
  {
    std::lock_guard<std::mutex> guard(m_claimsLock);
    auto [found, added] = m_claims.emplace(Key(identity.device, identity.inode), 0);
    if (!added)
      return found->second;
    index = static_cast<uint32_t>(m_out.size());
    found->second = index;
    m_out.emplace_back();
    listing = &m_out.back();
  }
  listing->path = path;
  listing->identity = identity;
  {
    std::lock_guard<std::mutex> guard(m_queueLock);
    m_queue.push_back(listing);
  }
  m_queueChanged.notify_one();
  return index;
}

void TreeLister::work(bool caller) {
  std::unique_lock<std::mutex> lock(m_queueLock);
  for (;;) {
    m_queueChanged.wait(lock, [this] { return !m_queue.empty() || m_busy == 0; });
    if (m_queue.empty())
      break;
    Listing *listing = m_queue.back();
    m_queue.pop_back();
    ++m_busy;
    lock.unlock();
    process(*listing);
    lock.lock();
    --m_busy;
    if (caller && m_helpersWanted > 0 && m_queue.size() >= kHelpersStartAt) {
      for (unsigned int i = 0; i < m_helpersWanted; ++i)
        m_helpers.emplace_back([this] { work(false); });
      m_helpersWanted = 0;
    }
    if (m_queue.empty() && m_busy == 0)
      break;
  }
  lock.unlock();
  // Whoever finishes the last directory wakes the others to leave.
  m_queueChanged.notify_all();
}

void TreeLister::process(Listing &listing) {
  // An unchanged directory still holds what it held: its previous listing
  // is taken over without reading it.
  const Listing *before = previous(listing.identity);
  if (before && !before->racy && before->identity.sameContents(listing.identity)) {
    listing.readable = before->readable;
    listing.names = before->names;
    listing.subdirectoryCandidates = before->subdirectoryCandidates;
    listing.candidateNames = before->candidateNames;
    classify(listing, -1);
    return;
  }
  read(listing);
}

void TreeLister::read(Listing &listing) {
  listing.fresh = true;
  m_read.fetch_add(1);
  listing.racy = listing.identity.modifiedNs >= m_startNs - kTimeStampGranularityNs ||
                 listing.identity.changedNs >= m_startNs - kTimeStampGranularityNs;
  const walker::ScopedFd fd(::open(listing.path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (fd.get() < 0) {
    classify(listing, -1);
    return;
  }
  listing.readable = walker::readEntries(fd.get(), [&](const char *name, unsigned char type) {
    listing.names.push_back(nameHash(name));
    if (type == DT_DIR || type == DT_LNK || type == DT_UNKNOWN) {
      const uint32_t offset = static_cast<uint32_t>(listing.candidateNames.size());
      listing.subdirectoryCandidates.push_back(type == DT_DIR ? offset : (offset | kNeedsClassification));
      listing.candidateNames.append(name);
      listing.candidateNames.push_back('\0');
    }
    return true;
  });
  listing.names.shrink_to_fit();
  listing.subdirectoryCandidates.shrink_to_fit();
  listing.candidateNames.shrink_to_fit();
  classify(listing, fd.get());
}

void TreeLister::classify(Listing &listing, int dirFd) {
  listing.children.clear();
  listing.descend = listing.readable;
  if (!listing.readable)
    return;
  const boost::filesystem::path base(listing.path);
  for (uint32_t candidate : listing.subdirectoryCandidates) {
    const uint32_t offset = candidate & ~kNeedsClassification;
    const char *name = listing.candidateNames.c_str() + offset;
    const std::string path = (base / name).string();
    // Relative to the open directory when there is one: no path to resolve.
    struct stat st;
    const bool queried = (dirFd >= 0 ? ::fstatat(dirFd, name, &st, 0) : ::stat(path.c_str(), &st)) == 0;
    if (!queried && (candidate & kNeedsClassification) && errno != ENOENT && errno != ENOTDIR) {
      // A link the walk cannot classify ends its listing of this directory:
      // it descends into none of the subdirectories.
      listing.descend = false;
      listing.children.clear();
      return;
    }
    if (!queried || !S_ISDIR(st.st_mode))
      continue;
    const uint32_t child = claim(path, identityOf(st));
    listing.children.push_back(Child{offset, child});
  }
  listing.children.shrink_to_fit();
}

} // namespace index
} // namespace VELL_2_13
