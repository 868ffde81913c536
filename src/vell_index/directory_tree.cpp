// One tree of the directory index: a listing pass, the walk order derived
// from it, and the sorted table that says which directories hold a name.
#include "vell_index/directory_tree.h"

#include <sys/stat.h>

#include <algorithm>
#include <unordered_set>

#include <boost/filesystem/path.hpp>

#include "vell_index/tree_lister.h"

namespace VELL_2_13 {
namespace index {

namespace {

size_t stringBytes(const std::string &text) {
  // Short strings live inside the object itself.
  return text.capacity() > 15 ? text.capacity() + 1 : 0;
}

} // namespace

bool DirectoryTree::refresh(const std::string &root, unsigned int threads) {
  ++m_checks;
  // The age of a check counts from its end: a check that takes longer than
  // the maximal age must not make every later look-up check again.
  struct CheckedAtEnd {
    std::chrono::steady_clock::time_point &stamp;
    ~CheckedAtEnd() { stamp = std::chrono::steady_clock::now(); }
  } checked{m_lastCheck};
  struct stat st;
  if (::stat(root.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
    forget();
    return false;
  }
  std::deque<Listing> listings;
  TreeLister lister(m_listings, listings);
  lister.run(root, identityOf(st), threads);
  m_listingsRead += lister.listingsRead();

  if (m_valid && sameStructure(listings, lister)) {
    // Same names and subdirectories everywhere: the walk and the table stand;
    // only the identities are brought up to date.
    for (const Listing &listing : listings) {
      Listing *kept = const_cast<Listing *>(lister.previous(listing.identity));
      kept->identity = listing.identity;
      kept->racy = listing.racy;
    }
    return true;
  }
  m_listings.swap(listings);
  m_rootListing = 0;
  buildWalk(m_rootListing);
  buildPostings();
  m_valid = true;
  return true;
}

void DirectoryTree::forget() {
  m_listings.clear();
  m_walk.clear();
  m_postings.clear();
  m_bucketStarts.clear();
  m_unlisted.clear();
  m_entries = 0;
  m_valid = false;
}

bool DirectoryTree::sameStructure(const std::deque<Listing> &fresh, const TreeLister &lister) const {
  if (fresh.size() != m_listings.size() ||
      lister.previous(fresh.front().identity) != &m_listings[m_rootListing])
    return false;
  for (const Listing &now : fresh) {
    const Listing *before = lister.previous(now.identity);
    if (!before || now.readable != before->readable || now.descend != before->descend ||
        now.names != before->names || now.candidateNames != before->candidateNames ||
        now.children.size() != before->children.size())
      return false;
    for (size_t i = 0; i < now.children.size(); ++i) {
      const Child &child = now.children[i];
      const Child &was = before->children[i];
      if (child.nameOffset != was.nameOffset ||
          !fresh[child.listing].identity.sameDirectory(m_listings[was.listing].identity))
        return false;
    }
  }
  return true;
}

void DirectoryTree::buildWalk(uint32_t rootListing) {
  m_walk.clear();
  // The walk's loop guard: a directory whose inode number was met before is
  // not entered again, whatever its device.
  std::unordered_set<ino_t> visited;
  std::vector<WalkNode> pending;
  pending.push_back(WalkNode{m_listings[rootListing].path, rootListing});
  while (!pending.empty()) {
    WalkNode node = std::move(pending.back());
    pending.pop_back();
    const Listing &listing = m_listings[node.listing];
    if (!visited.insert(listing.identity.inode).second)
      continue;
    const boost::filesystem::path base(node.path);
    m_walk.push_back(std::move(node));
    if (!listing.descend)
      continue;
    // Depth first, subdirectories in listing order.
    for (auto child = listing.children.rbegin(); child != listing.children.rend(); ++child)
      pending.push_back(
          WalkNode{(base / (listing.candidateNames.c_str() + child->nameOffset)).string(), child->listing});
  }
  m_walk.shrink_to_fit();
}

void DirectoryTree::buildPostings() {
  m_postings.clear();
  m_unlisted.clear();
  size_t total = 0;
  for (const WalkNode &node : m_walk)
    total += m_listings[node.listing].names.size();
  m_postings.reserve(total);
  for (uint32_t position = 0; position < m_walk.size(); ++position) {
    const Listing &listing = m_listings[m_walk[position].listing];
    if (!listing.readable) {
      m_unlisted.push_back(position);
      continue;
    }
    for (uint64_t hash : listing.names)
      m_postings.push_back(Posting{hash, position});
  }
  std::sort(m_postings.begin(), m_postings.end());
  buildBuckets();
  m_entries = m_postings.size();
  m_unlisted.shrink_to_fit();
}

void DirectoryTree::buildBuckets() {
  // About eight postings per bucket, at most 2^20 buckets.
  unsigned int bits = 0;
  while (bits < 20 && (size_t(8) << bits) < m_postings.size())
    ++bits;
  m_bucketShift = 64 - bits;
  m_bucketStarts.assign((size_t(1) << bits) + 1, 0);
  // Counted per bucket, then summed into start positions.
  for (const Posting &posting : m_postings)
    ++m_bucketStarts[bucketOf(posting.hash) + 1];
  for (size_t bucket = 1; bucket < m_bucketStarts.size(); ++bucket)
    m_bucketStarts[bucket] += m_bucketStarts[bucket - 1];
}

template <class OnPosition>
void DirectoryTree::forEachPositionHolding(uint64_t hash, OnPosition &&onPosition) const {
  auto posting = m_postings.end();
  if (!m_bucketStarts.empty()) {
    const size_t bucket = bucketOf(hash);
    posting = std::lower_bound(m_postings.begin() + m_bucketStarts[bucket],
                               m_postings.begin() + m_bucketStarts[bucket + 1], Posting{hash, 0});
  }
  auto unlisted = m_unlisted.begin();
  // Both lists are in walk order: merge them.
  for (;;) {
    const bool hasPosting = posting != m_postings.end() && posting->hash == hash;
    const bool hasUnlisted = unlisted != m_unlisted.end();
    if (!hasPosting && !hasUnlisted)
      return;
    const uint32_t fromPosting = hasPosting ? posting->position : UINT32_MAX;
    const uint32_t fromUnlisted = hasUnlisted ? *unlisted : UINT32_MAX;
    if (fromPosting < fromUnlisted) {
      onPosition(fromPosting);
      ++posting;
    } else {
      onPosition(fromUnlisted);
      ++unlisted;
    }
  }
}

void DirectoryTree::directoriesHolding(const std::string &name,
                                       std::vector<const std::string *> &paths) const {
  paths.clear();
  forEachPositionHolding(nameHash(name), [&](uint32_t position) { paths.push_back(&m_walk[position].path); });
}

void DirectoryTree::directoriesHoldingAny(const std::vector<std::string> &names,
                                          std::vector<const std::string *> &paths) const {
  paths.clear();
  std::vector<uint32_t> positions;
  for (const std::string &name : names)
    forEachPositionHolding(nameHash(name), [&](uint32_t position) { positions.push_back(position); });
  std::sort(positions.begin(), positions.end());
  positions.erase(std::unique(positions.begin(), positions.end()), positions.end());
  for (uint32_t position : positions)
    paths.push_back(&m_walk[position].path);
}

size_t DirectoryTree::memoryBytes() const {
  size_t bytes = sizeof(*this);
  for (const Listing &listing : m_listings)
    bytes += sizeof(Listing) + stringBytes(listing.path) + stringBytes(listing.candidateNames) +
             listing.names.capacity() * sizeof(uint64_t) +
             listing.subdirectoryCandidates.capacity() * sizeof(uint32_t) +
             listing.children.capacity() * sizeof(Child);
  for (const WalkNode &node : m_walk)
    bytes += sizeof(WalkNode) + stringBytes(node.path);
  bytes += m_postings.capacity() * sizeof(Posting) + m_unlisted.capacity() * sizeof(uint32_t) +
           m_bucketStarts.capacity() * sizeof(uint32_t);
  return bytes;
}

} // namespace index
} // namespace VELL_2_13
