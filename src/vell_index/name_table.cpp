// Interned entry names: sharded open-addressing tables over name arenas.
#include "vell_index/name_table.h"

#include <functional>

namespace VELL_2_13 {
namespace index {

namespace {

size_t hashOf(std::string_view name) { return std::hash<std::string_view>()(name); }

} // namespace

std::string_view NameTable::Shard::at(uint32_t local) const {
  const size_t begin = offsets[local];
  const size_t end = local + 1 < offsets.size() ? offsets[local + 1] : arena.size();
  return std::string_view(arena.data() + begin, end - begin);
}

bool NameTable::Shard::lookUp(std::string_view name, size_t hash, uint32_t &local) const {
  if (slots.empty())
    return false;
  const size_t mask = slots.size() - 1;
  for (size_t slot = (hash >> kShardBits) & mask;; slot = (slot + 1) & mask) {
    const uint32_t held = slots[slot];
    if (held == 0)
      return false;
    if (at(held - 1) == name) {
      local = held - 1;
      return true;
    }
  }
}

void NameTable::Shard::grow() {
  std::vector<uint32_t> bigger(slots.empty() ? 64 : slots.size() * 2, 0);
  const size_t mask = bigger.size() - 1;
  for (uint32_t local = 0; local < offsets.size(); ++local) {
    size_t slot = (hashOf(at(local)) >> kShardBits) & mask;
    while (bigger[slot] != 0)
      slot = (slot + 1) & mask;
    bigger[slot] = local + 1;
  }
  slots.swap(bigger);
}

uint32_t NameTable::intern(std::string_view name) {
  const size_t hash = hashOf(name);
  const uint32_t shardIndex = static_cast<uint32_t>(hash & (kShards - 1));
  Shard &shard = m_shards[shardIndex];
  std::lock_guard<std::mutex> guard(shard.mutex);
  uint32_t local = 0;
  if (!shard.lookUp(name, hash, local)) {
    // Kept at most half full, so that probes stay short.
    if ((shard.offsets.size() + 1) * 2 > shard.slots.size())
      shard.grow();
    local = static_cast<uint32_t>(shard.offsets.size());
    shard.offsets.push_back(static_cast<uint32_t>(shard.arena.size()));
    shard.arena.append(name);
    const size_t mask = shard.slots.size() - 1;
    size_t slot = (hash >> kShardBits) & mask;
    while (shard.slots[slot] != 0)
      slot = (slot + 1) & mask;
    shard.slots[slot] = local + 1;
  }
  return (local << kShardBits) | shardIndex;
}

bool NameTable::find(std::string_view name, uint32_t &id) const {
  const size_t hash = hashOf(name);
  const uint32_t shardIndex = static_cast<uint32_t>(hash & (kShards - 1));
  uint32_t local = 0;
  if (!m_shards[shardIndex].lookUp(name, hash, local))
    return false;
  id = (local << kShardBits) | shardIndex;
  return true;
}

std::string_view NameTable::name(uint32_t id) const {
  return m_shards[id & (kShards - 1)].at(id >> kShardBits);
}

void NameTable::clear() {
  for (Shard &shard : m_shards) {
    std::string().swap(shard.arena);
    std::vector<uint32_t>().swap(shard.offsets);
    std::vector<uint32_t>().swap(shard.slots);
  }
}

size_t NameTable::size() const {
  size_t count = 0;
  for (const Shard &shard : m_shards)
    count += shard.offsets.size();
  return count;
}

size_t NameTable::memoryBytes() const {
  size_t bytes = sizeof(*this);
  for (const Shard &shard : m_shards)
    bytes += shard.arena.capacity() + shard.offsets.capacity() * sizeof(uint32_t) +
             shard.slots.capacity() * sizeof(uint32_t);
  return bytes;
}

} // namespace index
} // namespace VELL_2_13
