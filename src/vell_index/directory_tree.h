// One tree of the directory index: the listings of the directories under a
// root, the order in which the recursive walk meets them, and for every name
// the directories that hold it.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include <string_view>

namespace VELL_2_13 {
namespace index {

// What identifies a directory's contents: a directory whose identity is
// unchanged since its listing still holds the names listed.
struct DirIdentity {
  dev_t device = 0;
  ino_t inode = 0;
  int64_t modifiedNs = 0;
  int64_t changedNs = 0;

  bool sameDirectory(const DirIdentity &other) const {
    return device == other.device && inode == other.inode;
  }
  bool sameContents(const DirIdentity &other) const {
    return sameDirectory(other) && modifiedNs == other.modifiedNs && changedNs == other.changedNs;
  }
};

// A subdirectory as the walk descends into it: where its name starts in its
// parent's candidate names, and its listing.
struct Child {
  uint32_t nameOffset;
  uint32_t listing;
};

// What the index keeps of an entry's name. Two names with the same hash only
// make a look-up offer a candidate that the walk offers too when it exists:
// the candidate is always built from the name looked up.
uint64_t nameHash(std::string_view name);

// One directory's entries, read once per identity.
struct Listing {
  std::string path; // the path it was read through
  DirIdentity identity;
  bool readable = false;       // every entry was read
  bool descend = false;        // every entry was classified: the walk goes on below
  bool racy = false;           // modified within the time stamps' granularity of the reading
  bool fresh = false;          // read in the latest pass, not taken over from the one before
  std::vector<uint64_t> names; // hashes of every entry's name
  // Entries that are or may be directories, in listing order, as offsets of
  // their names in candidateNames; the top bit marks a link or an unknown
  // type, classified anew on every check.
  std::vector<uint32_t> subdirectoryCandidates;
  // Their names, each ended by a NUL.
  std::string candidateNames;
  std::vector<Child> children;
};

// A directory of the walk, in walk order.
struct WalkNode {
  std::string path;
  uint32_t listing;
};

class TreeLister;

class DirectoryTree {
public:
  // Lists the tree under root, taking over every listing of the previous
  // pass whose directory is unchanged. False when root cannot be queried or
  // is no directory (the tree is then empty).
  bool refresh(const std::string &root, unsigned int threads);

  // The directories of the walk that may hold name (those whose listing has
  // it and those that could not be listed), in walk order.
  void directoriesHolding(const std::string &name, std::vector<const std::string *> &paths) const;
  // The directories of the walk that may hold any of names, in walk order,
  // each once.
  void directoriesHoldingAny(const std::vector<std::string> &names,
                             std::vector<const std::string *> &paths) const;

  bool valid() const { return m_valid; }
  std::chrono::steady_clock::time_point lastCheck() const { return m_lastCheck; }
  size_t directoryCount() const { return m_walk.size(); }
  size_t entryCount() const { return m_entries; }
  uint64_t listingsRead() const { return m_listingsRead; }
  uint64_t checks() const { return m_checks; }
  size_t memoryBytes() const;

private:
  // Calls onPosition with the walk position of every directory that may
  // hold the name of hash, in walk order.
  template <class OnPosition> void forEachPositionHolding(uint64_t hash, OnPosition &&onPosition) const;
  void buildWalk(uint32_t rootListing);
  void buildPostings();
  void buildBuckets();
  size_t bucketOf(uint64_t hash) const { return m_bucketShift >= 64 ? 0 : size_t(hash >> m_bucketShift); }
  // Whether a new pass found the same directories with the same names and
  // subdirectories as the one the walk was built from.
  bool sameStructure(const std::deque<Listing> &fresh, const TreeLister &lister) const;
  void forget();

  std::deque<Listing> m_listings;
  uint32_t m_rootListing = 0;
  std::vector<WalkNode> m_walk;
  // (name hash, walk position), sorted: the directories holding a name.
  struct Posting {
    uint64_t hash;
    uint32_t position;
    bool operator<(const Posting &other) const {
      return hash != other.hash ? hash < other.hash : position < other.position;
    }
  };
  std::vector<Posting> m_postings;
  // Where the postings of each range of hashes start (by the hash's top
  // bits), so that a look-up searches a few postings instead of them all.
  std::vector<uint32_t> m_bucketStarts;
  unsigned int m_bucketShift = 64;
  // Walk positions of the directories that could not be listed completely:
  // the walk offers a candidate in each of them whatever they hold.
  std::vector<uint32_t> m_unlisted;
  size_t m_entries = 0;
  bool m_valid = false;
  std::chrono::steady_clock::time_point m_lastCheck;
  uint64_t m_listingsRead = 0;
  uint64_t m_checks = 0;
};

} // namespace index
} // namespace VELL_2_13
