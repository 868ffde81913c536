// The names of directory entries, each kept once and numbered, for one tree
// of the directory index.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace VELL_2_13 {
namespace index {

// Interning is safe from several listing threads at once (the table is split
// into independently locked shards); look-ups must not overlap interning.
class NameTable {
public:
  // The number of name, added when new.
  uint32_t intern(std::string_view name);
  // False when the name was never interned.
  bool find(std::string_view name, uint32_t &id) const;
  // The name of an interned number.
  std::string_view name(uint32_t id) const;
  size_t size() const;
  // Forgets every name; not while others intern.
  void clear();
  size_t memoryBytes() const;

private:
  static constexpr unsigned kShardBits = 6;
  static constexpr uint32_t kShards = 1u << kShardBits;

  // Open addressing over the shard's numbers; a slot holds number + 1, 0 is
  // free. Names lie one after the other in the arena.
  struct Shard {
    std::mutex mutex;
    std::string arena;
    std::vector<uint32_t> offsets;
    std::vector<uint32_t> slots;

    std::string_view at(uint32_t local) const;
    bool lookUp(std::string_view name, size_t hash, uint32_t &local) const;
    void grow();
  };

  std::array<Shard, kShards> m_shards;
};

} // namespace index
} // namespace VELL_2_13
