// A property storage kept in one JSON file, replaced atomically under a cross-process lock.
#include <mutex>

#include <boost/filesystem.hpp>

#include "platform/log.h"
#include "platform/property_file_io.h"
#include "platform/property_json_codec.h"
#include "platform/property_update_lock.h"
#include "vell/platform.h"

namespace VELL_2_13 {
namespace platform {

namespace {

enum class LoadStatus { Ok, Missing, Damaged };

struct LoadResult {
  LoadStatus status = LoadStatus::Missing;
  NamedBags bags;
};

// The path made absolute once, so that a later change of the working directory
// does not move the storage and every storage of one file shares one lock state.
std::string absolutePath(const std::string &path) {
  boost::system::error_code code;
  const boost::filesystem::path cwd = boost::filesystem::current_path(code);
  if (code)
    return boost::filesystem::path(path).lexically_normal().string();
  return boost::filesystem::absolute(path, cwd).lexically_normal().string();
}

class JsonFilePropertyStorage : public IPropertyStorage {
public:
  explicit JsonFilePropertyStorage(const std::string &path)
      : m_path(absolutePath(path)), m_lock(updateLockStateForFile(m_path + ".lock")) {}

  PropertyBag read(const std::string &name) override {
    removeOrphansOnce();
    const LoadResult loaded = load();
    for (const auto &[bagName, bag] : loaded.bags) {
      if (bagName == name)
        return bag;
    }
    return PropertyBag();
  }

  bool store(const std::string &name, const PropertyBag &bag) override {
    std::string error;
    if (!createParentDirectory(m_path, error)) {
      VELL_LOG_ERROR("Cannot store property bag " << name << " in " << m_path << ": " << error);
      return false;
    }
    UpdateLock lock(m_lock);
    if (!lock.held()) {
      VELL_LOG_ERROR("Cannot store property bag " << name << " in " << m_path
                                                  << ": the file cannot be locked");
      return false;
    }
    LoadResult current = load();
    if (current.status == LoadStatus::Damaged && !moveAside())
      return false;
    // A temporary file present while the lock is held belongs to a writer that died.
    removeOrphanTemporaries(m_path);
    replaceBag(current.bags, name, bag);
    if (!writeFileAtomically(m_path, documentToJson(current.bags).dump(1, '\t'), error)) {
      VELL_LOG_ERROR("Cannot store property bag " << name << " in " << m_path << ": " << error);
      return false;
    }
    return true;
  }

  std::unique_ptr<IStorageLock> lockForUpdate() override {
    std::string error;
    if (!createParentDirectory(m_path, error))
      VELL_LOG_ERROR("Cannot lock property file " << m_path << ": " << error);
    return std::make_unique<UpdateLock>(m_lock);
  }

private:
  // The bags of the file; a file that cannot be read or parsed is logged and
  // reported as damaged.
  LoadResult load() const {
    LoadResult result;
    std::string content;
    std::string error;
    switch (readWholeFile(m_path, content, error)) {
    case FileReadStatus::Missing:
      return result;
    case FileReadStatus::Failed:
      VELL_LOG_ERROR("Property file " << m_path << " cannot be read: " << error);
      result.status = LoadStatus::Damaged;
      return result;
    case FileReadStatus::Ok:
      break;
    }
    try {
      result.bags = documentFromJson(parseDocument(content));
      result.status = LoadStatus::Ok;
    } catch (const std::exception &e) {
      VELL_LOG_ERROR("Property file " << m_path << " is corrupt: " << e.what());
      result.bags.clear();
      result.status = LoadStatus::Damaged;
    }
    return result;
  }

  // Temporary files of writers that were killed stay until a writer holding
  // the update lock removes them: every store does, and so does the first
  // read of each storage object, so that a process that only reads (the
  // tool listing directories) cleans up too. Holding the lock is what makes
  // it safe: a live writer keeps its temporary file only while holding it.
  void removeOrphansOnce() {
    std::call_once(m_orphansChecked, [this] {
      if (!hasTemporaries(m_path))
        return;
      UpdateLock lock(m_lock);
      if (lock.held())
        removeOrphanTemporaries(m_path);
    });
  }

  bool moveAside() const {
    std::string aside;
    std::string error;
    if (!moveFileAside(m_path, aside, error)) {
      VELL_LOG_ERROR("Property file " << m_path
                                      << " is damaged and cannot be moved aside, not writing it: " << error);
      return false;
    }
    VELL_LOG_ERROR("Property file " << m_path << " is damaged, moved aside to " << aside);
    return true;
  }

  static void replaceBag(NamedBags &bags, const std::string &name, const PropertyBag &bag) {
    for (auto &entry : bags) {
      if (entry.first == name) {
        entry.second = bag;
        return;
      }
    }
    bags.emplace_back(name, bag);
  }

  const std::string m_path;
  const std::shared_ptr<UpdateLockState> m_lock;
  std::once_flag m_orphansChecked;
};

} // namespace

std::shared_ptr<IPropertyStorage> createJsonFilePropertyStorage(const std::string &path) {
  return std::make_shared<JsonFilePropertyStorage>(path);
}

} // namespace platform
} // namespace VELL_2_13
