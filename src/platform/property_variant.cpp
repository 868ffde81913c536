// Typed getters of Variant: a value of another type is reported and a default returned.
#include "platform/assertion.h"
#include "vell/platform.h"

namespace VELL_2_13 {
namespace platform {

namespace {

const char *const UNIT = "src/platform";

// The value of type T, or def after reporting the failed type check.
template <class T> T valueOr(const Variant::Storage &storage, const char *check, int line, T def) {
  if (const T *value = std::get_if<T>(&storage))
    return *value;
  reportAssertion(check, UNIT, line);
  return def;
}

} // namespace

uint8_t Variant::getUInt8() const { return valueOr<uint8_t>(m_value, "can_get<uint8_t>()", __LINE__, 0); }

bool Variant::getBool() const { return valueOr<bool>(m_value, "can_get<bool>()", __LINE__, false); }

const std::string &Variant::getText() const {
  static const std::string empty;
  if (const std::string *value = std::get_if<std::string>(&m_value))
    return *value;
  VELL_ASSERT_REPORT("can_get<const char*>()", UNIT);
  return empty;
}

int64_t Variant::getInt64() const { return valueOr<int64_t>(m_value, "can_get<int64_t>()", __LINE__, 0); }

uint64_t Variant::getUInt64() const { return valueOr<uint64_t>(m_value, "can_get<uint64_t>()", __LINE__, 0); }

double Variant::getDouble() const { return valueOr<double>(m_value, "can_get<double>()", __LINE__, 0.0); }

} // namespace platform
} // namespace VELL_2_13
