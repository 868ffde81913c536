// The checksum value object and the process-wide checksum calculator.
#pragma once

#include <string>

#include "vell/validation.h"

namespace VELL_2_13 {

// A checksum text and its kind; immutable.
class Checksum : public RefCountImpl<IChecksum> {
public:
  Checksum(const char *value, checksum_type_t type) : m_value(value), m_type(type) {}

  checksum_type_t type() const override { return m_type; }
  const char *value() const override { return m_value.c_str(); }
  // Same kind and the same text, ignoring ASCII letter case.
  bool isEqualTo(const IChecksum &other) const override;

private:
  std::string m_value;
  checksum_type_t m_type;
};

// Shared by everyone holding it; the live instance is kept in s_instance
// under g_checkSumCalcLock.
class ChecksumCalculator : public RefCountImpl<IChecksumCalculator> {
public:
  ChecksumCalculator();
  ~ChecksumCalculator() override;

  // Null for a null name or an unknown type. A file that cannot be read
  // raises std::system_error; no partial checksum is returned.
  ObjectPtr<IChecksum> calculateChecksum(const char *fileName, checksum_type_t type) override;
  ObjectPtr<IChecksum> fromString(checksum_type_t type, const char *text) override;

  ObjectPtr<IChecksum> calculateMd5Checksum(const char *fileName);
  ObjectPtr<IChecksum> calculateSHA1Checksum(const char *fileName);
  // No CRC-32 is ever computed: always null.
  ObjectPtr<IChecksum> calculateCRC32Checksum(const char *fileName);

  // The live instance (null when none); read it under g_checkSumCalcLock.
  static ChecksumCalculator *s_instance;

private:
  ILock *m_lock;
};

} // namespace VELL_2_13
