// A property storage that keeps its bags in memory.
#include <map>
#include <mutex>

#include "platform/property_update_lock.h"
#include "vell/platform.h"

namespace VELL_2_13 {
namespace platform {

namespace {

class MemoryPropertyStorage : public IPropertyStorage {
public:
  PropertyBag read(const std::string &name) override {
    std::lock_guard<std::mutex> guard(m_mutex);
    auto found = m_bags.find(name);
    return found == m_bags.end() ? PropertyBag() : found->second;
  }

  bool store(const std::string &name, const PropertyBag &bag) override {
    std::lock_guard<std::mutex> guard(m_mutex);
    m_bags[name] = bag;
    return true;
  }

  std::unique_ptr<IStorageLock> lockForUpdate() override {
    return std::make_unique<UpdateLock>(m_updateLock);
  }

private:
  std::mutex m_mutex;
  std::map<std::string, PropertyBag> m_bags;
  std::shared_ptr<UpdateLockState> m_updateLock = std::make_shared<UpdateLockState>();
};

} // namespace

std::shared_ptr<IPropertyStorage> createMemoryPropertyStorage() {
  return std::make_shared<MemoryPropertyStorage>();
}

} // namespace platform
} // namespace VELL_2_13
