// The process-wide checksum calculator: MD5 and SHA-1 of whole files, and
// checksums built from their text form.
#include "vell_validation/checksum.h"
#include "vell_validation/file_digest.h"

namespace VELL_2_13 {

ChecksumCalculator *ChecksumCalculator::s_instance = nullptr;

ObjectPtr<IChecksumCalculator> IChecksumCalculator::create() {
  VellLockWrap guard(&g_checkSumCalcLock);
  // The stored instance may have lost its last reference on another thread
  // and be waiting for the lock in its destructor: reuse it only if a
  // reference can still be added, otherwise make a fresh one.
  ChecksumCalculator *instance = ChecksumCalculator::s_instance;
  if (instance && instance->tryAddRef()) {
    ObjectPtr<IChecksumCalculator> result(instance);
    instance->release(); // drops the reference taken by tryAddRef
    return result;
  }
  ChecksumCalculator::s_instance = new ChecksumCalculator;
  return ObjectPtr<IChecksumCalculator>(ChecksumCalculator::s_instance);
}

ChecksumCalculator::ChecksumCalculator() : m_lock(&g_checkSumCalcLock) {}

ChecksumCalculator::~ChecksumCalculator() {
  VellLockWrap guard(m_lock);
  // A newer instance may already have taken the slot.
  if (s_instance == this)
    s_instance = nullptr;
}

ObjectPtr<IChecksum> ChecksumCalculator::calculateChecksum(const char *fileName, checksum_type_t type) {
  switch (type) {
  case ctMd5:
    return calculateMd5Checksum(fileName);
  case ctSha1:
    return calculateSHA1Checksum(fileName);
  case ctCrc32:
    return calculateCRC32Checksum(fileName);
  }
  return ObjectPtr<IChecksum>();
}

ObjectPtr<IChecksum> ChecksumCalculator::fromString(checksum_type_t type, const char *text) {
  if (!text)
    return ObjectPtr<IChecksum>();
  return ObjectPtr<IChecksum>(new Checksum(text, type));
}

ObjectPtr<IChecksum> ChecksumCalculator::calculateMd5Checksum(const char *fileName) {
  if (!fileName)
    return ObjectPtr<IChecksum>();
  std::string digest = validation::fileDigest(fileName, validation::DigestKind::Md5);
  return ObjectPtr<IChecksum>(new Checksum(digest.c_str(), ctMd5));
}

ObjectPtr<IChecksum> ChecksumCalculator::calculateSHA1Checksum(const char *fileName) {
  if (!fileName)
    return ObjectPtr<IChecksum>();
  std::string digest = validation::fileDigest(fileName, validation::DigestKind::Sha1);
  return ObjectPtr<IChecksum>(new Checksum(digest.c_str(), ctSha1));
}

ObjectPtr<IChecksum> ChecksumCalculator::calculateCRC32Checksum(const char *) {
  return ObjectPtr<IChecksum>();
}

} // namespace VELL_2_13
