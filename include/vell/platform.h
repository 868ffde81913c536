// The platform layer a host configures: logging, assertion reports, property
// storage, message catalogs and product locations.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "vell/export.h"

namespace VELL_2_13 {
namespace platform {

// --- Logging -----------------------------------------------------------------------

// Name of the library's logger.
extern VELL_API const char *const LOGGER_NAME; // "VELL"

enum class LogLevel { Trace, Debug, Info, Warn, Error, Fatal, Off };

// Sets the level of the "VELL" logger. Nothing is printed until the host (or a
// properties file) attaches an appender somewhere on the logger's path.
VELL_API void configureLogging(LogLevel level);
// Sets the level and sends the "VELL" lines to standard error.
VELL_API void configureLoggingToStderr(LogLevel level);
// Configures log4cplus from a properties file; false when it cannot be read.
VELL_API bool configureLoggingFromFile(const std::string &propertiesFile);

// --- Assertion reports ----------------------------------------------------------------

struct AssertionReport {
  std::string message; // "Null pointer", "Invalid category", ...
  std::string unit;    // source path such as "src/vell_search_impl"
  int line = 0;
};

using AssertionHandler = std::function<void(const AssertionReport &)>;

// Installs the handler every report is given to after it is logged; an empty
// handler removes it. Returns the previous handler.
VELL_API AssertionHandler setAssertionHandler(AssertionHandler handler);
// Logs the report at ERROR and hands it to the installed handler. Never aborts.
VELL_API void reportAssertion(const char *message, const char *unit, int line);

// --- Property storage -------------------------------------------------------------------

// One typed scalar value.
class VELL_API Variant {
public:
  using Storage = std::variant<std::monostate, uint8_t, bool, std::string, int64_t, uint64_t, double>;
  enum class Type { None, UInt8, Bool, Text, Int64, UInt64, Double };

  Variant() = default;
  Variant(uint8_t v) : m_value(v) {}                           // NOLINT(google-explicit-constructor)
  Variant(bool v) : m_value(v) {}                              // NOLINT(google-explicit-constructor)
  Variant(const char *v) : m_value(std::string(v ? v : "")) {} // NOLINT(google-explicit-constructor)
  Variant(std::string v) : m_value(std::move(v)) {}            // NOLINT(google-explicit-constructor)
  Variant(int64_t v) : m_value(v) {}                           // NOLINT(google-explicit-constructor)
  Variant(uint64_t v) : m_value(v) {}                          // NOLINT(google-explicit-constructor)
  Variant(double v) : m_value(v) {}                            // NOLINT(google-explicit-constructor)

  Type type() const { return static_cast<Type>(m_value.index()); }
  template <class T> bool can_get() const { return std::holds_alternative<T>(m_value); }
  // The value; a value of another type is reported as "can_get<T>()" and a
  // default value is returned.
  uint8_t getUInt8() const;
  bool getBool() const;
  const std::string &getText() const;
  int64_t getInt64() const;
  uint64_t getUInt64() const;
  double getDouble() const;
  const Storage &storage() const { return m_value; }
  bool operator==(const Variant &other) const { return m_value == other.m_value; }

private:
  Storage m_value;
};

// Named values and named, repeatable child bags.
class VELL_API PropertyBag {
public:
  // Sets the value of name, replacing an earlier value of that name in place.
  void setValue(const std::string &name, Variant value);
  // The value of that name, or null.
  const Variant *findValue(const std::string &name) const;
  const std::vector<std::pair<std::string, Variant>> &values() const { return m_values; }

  // Appends a child under name and returns it; the reference stays valid until
  // the next child is added to this bag.
  PropertyBag &addChild(const std::string &name, PropertyBag child = PropertyBag());
  // The children of that name, in order.
  std::vector<const PropertyBag *> children(const std::string &name) const;
  // Whether at least one child of that name exists.
  bool hasChildren(const std::string &name) const;
  const std::vector<std::pair<std::string, PropertyBag>> &allChildren() const { return m_children; }
  bool empty() const { return m_values.empty() && m_children.empty(); }
  bool operator==(const PropertyBag &other) const;

private:
  std::vector<std::pair<std::string, Variant>> m_values;
  std::vector<std::pair<std::string, PropertyBag>> m_children;
};

// Held while a read-change-write sequence must not interleave with another
// writer of the same storage; released when destroyed.
class IStorageLock {
public:
  virtual ~IStorageLock() = default;
};

class IPropertyStorage {
public:
  virtual ~IPropertyStorage() = default;
  // The bag stored under name; an empty bag when nothing is stored.
  virtual PropertyBag read(const std::string &name) = 0;
  // Stores bag under name, replacing what was there and keeping the other
  // names. False when the bag could not be stored (the reason is logged).
  virtual bool store(const std::string &name, const PropertyBag &bag) = 0;
  // Serialises read-change-write sequences of several writers (threads and,
  // for a file storage, processes). Reentrant: the holding thread may take it
  // again and may call store() while holding it. Never null.
  virtual std::unique_ptr<IStorageLock> lockForUpdate() = 0;
};

// Keeps the bags in memory.
VELL_API std::shared_ptr<IPropertyStorage> createMemoryPropertyStorage();
// Keeps the bags in a JSON file at path; every value keeps its exact type. A
// missing file reads as empty. Writes replace the file atomically (a temporary
// file in the same directory, flushed and renamed) under an exclusive lock on
// the sidecar file "<path>.lock", which lockForUpdate() also takes. A file that
// cannot be read or parsed is logged at ERROR and, before the next write,
// moved aside to "<path>.corrupt-<UTC time>" instead of being overwritten; so is
// a file nested deeper than 192 JSON levels (a real one has a few). A path that
// is a symbolic link is written through to its target, which is replaced
// atomically, so the link stays a link. Temporary files of writers that were
// killed are removed under the lock by the next write and by the first read of
// each storage object.
VELL_API std::shared_ptr<IPropertyStorage> createJsonFilePropertyStorage(const std::string &path);

// --- Message catalogs ----------------------------------------------------------------------

using MessageArguments = std::vector<std::pair<std::string, std::string>>;

class VELL_API Message {
public:
  Message() = default;
  explicit Message(std::string text) : m_text(std::move(text)) {}
  size_t size() const { return m_text.size(); }
  // The text with every "{name}" of the arguments replaced by its value.
  std::string asText(const MessageArguments &arguments) const;

private:
  std::string m_text;
};

class VELL_API Catalog {
public:
  size_t size() const { return m_messages.size(); }
  // The message of id; an empty message for an unknown id.
  Message message(const std::string &id) const;
  void add(const std::string &id, const std::string &text) { m_messages.emplace_back(id, text); }

private:
  std::vector<std::pair<std::string, std::string>> m_messages;
};

// Points the catalog service at a directory holding "<catalog>.<language>.json"
// files; an empty text unloads everything. Each catalog file is read once, on
// first use, and so is the absence of one (a rejected candidate then costs no
// file-system access for its message); calling this again, or choosing a
// language, makes the service read the directory afresh.
VELL_API void setCatalogDirectory(const std::string &directory);
// Picks the language ("en" by default).
VELL_API void setCatalogLanguage(const std::string &language);
// The catalog of that name in the chosen language, or null when unavailable.
VELL_API std::shared_ptr<const Catalog> getMessageCatalog(const std::string &name);

// --- Product locations ---------------------------------------------------------------------

class VELL_API IProductLocations {
public:
  virtual ~IProductLocations() = default;
  // Root of the kernel-image cache.
  virtual std::string cacheRoot() const = 0;
  // Directory for temporary files.
  virtual std::string tempDirectory() const = 0;

  // The process-wide locations.
  static IProductLocations &get();
};

// Overrides the defaults; an empty text restores the default.
VELL_API void setCacheRoot(const std::string &directory);
VELL_API void setTempDirectory(const std::string &directory);

} // namespace platform
} // namespace VELL_2_13
