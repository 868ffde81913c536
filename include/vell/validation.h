// Checksums, validators and the localised validation messages.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "vell/objects.h"
#include "vell/results.h"
#include "vell/search_steps.h"

namespace VELL_2_13 {

// --- Checksums ---------------------------------------------------------------

enum checksum_type_t : uint32_t {
  ctMd5 = 0,
  ctSha1 = 1,
  ctCrc32 = 2,
};

class IChecksum : public IVellObject {
public:
  virtual checksum_type_t type() const = 0;
  virtual const char *value() const = 0;
  virtual bool isEqualTo(const IChecksum &other) const = 0;
};

// Process-wide calculator shared by everyone holding it.
class IChecksumCalculator : public IVellObject {
public:
  virtual ObjectPtr<IChecksum> calculateChecksum(const char *fileName, checksum_type_t type) = 0;
  virtual ObjectPtr<IChecksum> fromString(checksum_type_t type, const char *text) = 0;

  static VELL_API ObjectPtr<IChecksumCalculator> create();
};

// --- Validation verdicts and containers -------------------------------------

enum validation_verdict_t {
  vvAccept = 0,
  vvReject = 1,
  vvNoDecision = 2,
};

class IErrorInfoContainer {
public:
  virtual void setSeverity(severity_t severity) = 0;
  virtual void setErrorMessage(const char *message) = 0;

protected:
  ~IErrorInfoContainer() = default;
};

class IMsgContainer {
public:
  virtual void put(const char *text) = 0;
  virtual const char *get() = 0;

protected:
  ~IMsgContainer() = default;
};

class VELL_API MsgContainer : public IMsgContainer {
public:
  void put(const char *text) override;
  const char *get() override;

private:
  std::string m_text;
};

// A host's own check of a candidate file.
class IValidatorCallback {
public:
  virtual int validate(const char *fileName, IErrorInfoContainer &errorInfo) = 0;

protected:
  ~IValidatorCallback() = default;
};

// --- Validation messages -------------------------------------------------------

// Name of the catalog holding the validation texts.
extern VELL_API const char *const VALIDATOR_MESSAGES_CATALOG;

#define VELL_FILE_MESSAGE_INTERFACE(Kind)                                                                    \
  class I##Kind##Message : public IVellObject {                                                              \
  public:                                                                                                    \
    virtual bool fillMessage(IMsgContainer &container, const char *fileName) = 0;                            \
  };

VELL_FILE_MESSAGE_INTERFACE(BinChecksumMismatch)
VELL_FILE_MESSAGE_INTERFACE(SymChecksumMismatch)
VELL_FILE_MESSAGE_INTERFACE(SrcChecksumMismatch)
VELL_FILE_MESSAGE_INTERFACE(ModificationTimeMismatch)
VELL_FILE_MESSAGE_INTERFACE(SizeMismatch)
VELL_FILE_MESSAGE_INTERFACE(SourceFileUpToDate)

class IFileIsDirectoryMessage : public IVellObject {
public:
  virtual bool fillMessage(IMsgContainer &container) = 0;
};

VELL_FILE_MESSAGE_INTERFACE(FileIsNotReadable)
VELL_FILE_MESSAGE_INTERFACE(FileDoesNotExist)
VELL_FILE_MESSAGE_INTERFACE(InvalidSymbolFile)
VELL_FILE_MESSAGE_INTERFACE(FileArchMismatch)
VELL_FILE_MESSAGE_INTERFACE(FileIsNotABinaryModule)
VELL_FILE_MESSAGE_INTERFACE(BinFileReadingError)
VELL_FILE_MESSAGE_INTERFACE(BinFileUnsupportedFormat)
VELL_FILE_MESSAGE_INTERFACE(FileIsNotRegular)

#undef VELL_FILE_MESSAGE_INTERFACE

#define VELL_MESSAGE_SLOTS(Kind)                                                                             \
  virtual void set##Kind##Message(ObjectPtr<I##Kind##Message> message) = 0;                                  \
  virtual ObjectPtr<I##Kind##Message> get##Kind##Message() = 0;                                              \
  virtual ILock *get##Kind##MessageLock() { return nullptr; }

// Process-wide registry of one replaceable message object per failure kind.
class IMessageMgr : public IVellObject {
public:
  VELL_MESSAGE_SLOTS(BinChecksumMismatch)
  VELL_MESSAGE_SLOTS(SymChecksumMismatch)
  VELL_MESSAGE_SLOTS(SrcChecksumMismatch)
  VELL_MESSAGE_SLOTS(ModificationTimeMismatch)
  VELL_MESSAGE_SLOTS(SizeMismatch)
  VELL_MESSAGE_SLOTS(SourceFileUpToDate)
  VELL_MESSAGE_SLOTS(FileIsDirectory)
  VELL_MESSAGE_SLOTS(FileIsNotReadable)
  VELL_MESSAGE_SLOTS(FileDoesNotExist)
  VELL_MESSAGE_SLOTS(InvalidSymbolFile)
  VELL_MESSAGE_SLOTS(FileArchMismatch)
  VELL_MESSAGE_SLOTS(FileIsNotABinaryModule)
  VELL_MESSAGE_SLOTS(BinFileReadingError)
  VELL_MESSAGE_SLOTS(BinFileUnsupportedFormat)
  VELL_MESSAGE_SLOTS(FileIsNotRegular)

  static VELL_API ObjectPtr<IMessageMgr> create();
};

#undef VELL_MESSAGE_SLOTS

// Registers the library's default message object of every kind with mgr.
VELL_API void initializeValidationMessages(ObjectPtr<IMessageMgr> mgr);

// --- Validators -----------------------------------------------------------------

// Wraps a host's callback with the checks every file must pass first.
class IValidatorCallbackDecorator : public IValidatorCallback, public IVellObject {
public:
  static VELL_API ObjectPtr<IValidatorCallbackDecorator> create(IValidatorCallback *userCallback);
};

// Directories whose files are exempt from time checks.
class VELL_API ExceptionDirsHelper {
public:
  void addTimeCheckExceptionDir(std::string &dir);
  bool isTimeCheckException(const char *fileName) const;

private:
  std::vector<std::string> m_dirs;
};

// Accepts a file whose checksum equals the expected one.
class VELL_API ChecksumValidator : public IValidatorCallback {
public:
  ChecksumValidator(search_category_t category, const ObjectPtr<IChecksum> &expected)
      : m_calculator(IChecksumCalculator::create()), m_category(category), m_expected(expected),
        m_binMessage(IMessageMgr::create()->getBinChecksumMismatchMessage()),
        m_symMessage(IMessageMgr::create()->getSymChecksumMismatchMessage()),
        m_srcMessage(IMessageMgr::create()->getSrcChecksumMismatchMessage()) {}
  virtual ~ChecksumValidator() = default;

  int validate(const char *fileName, IErrorInfoContainer &errorInfo) override;
  virtual bool fillErrorMessageForBinFile(IBinChecksumMismatchMessage &message, IMsgContainer &container,
                                          const char *fileName);
  virtual bool fillErrorMessageForSymFile(ISymChecksumMismatchMessage &message, IMsgContainer &container,
                                          const char *fileName);
  virtual bool fillErrorMessageForSrcFile(ISrcChecksumMismatchMessage &message, IMsgContainer &container,
                                          const char *fileName);
  virtual bool fillErrorMessageForBinFile(IBinChecksumMismatchMessage &message, IMsgContainer &container);
  virtual bool fillErrorMessageForSymFile(ISymChecksumMismatchMessage &message, IMsgContainer &container);
  virtual bool fillErrorMessageForSrcFile(ISrcChecksumMismatchMessage &message, IMsgContainer &container);

  void setErrorMessage(IErrorInfoContainer &errorInfo, const char *fileName);

private:
  ObjectPtr<IChecksumCalculator> m_calculator;
  search_category_t m_category;
  ObjectPtr<IChecksum> m_expected;
  ObjectPtr<IBinChecksumMismatchMessage> m_binMessage;
  ObjectPtr<ISymChecksumMismatchMessage> m_symMessage;
  ObjectPtr<ISrcChecksumMismatchMessage> m_srcMessage;
};

// Accepts a source file whose modification time and size are the expected ones.
class VELL_API SourceFileTimeAndSizeMatchValidator : public IValidatorCallback {
public:
  // time: seconds since the epoch, 0 = not given; size: bytes, 0 = not given.
  SourceFileTimeAndSizeMatchValidator(int64_t time, uint64_t size)
      : m_time(time), m_size(size),
        m_timeMessage(IMessageMgr::create()->getModificationTimeMismatchMessage()),
        m_sizeMessage(IMessageMgr::create()->getSizeMismatchMessage()) {}
  virtual ~SourceFileTimeAndSizeMatchValidator() = default;

  int validate(const char *fileName, IErrorInfoContainer &errorInfo) override;
  virtual bool fillTimeMismatchErrorMessage(IModificationTimeMismatchMessage &message,
                                            IMsgContainer &container);
  virtual bool fillSizeMismatchErrorMessage(ISizeMismatchMessage &message, IMsgContainer &container);

  ExceptionDirsHelper &exceptionDirs() { return m_exceptionDirs; }

private:
  ExceptionDirsHelper m_exceptionDirs;
  int64_t m_time;
  uint64_t m_size;
  ObjectPtr<IModificationTimeMismatchMessage> m_timeMessage;
  ObjectPtr<ISizeMismatchMessage> m_sizeMessage;
};

// Rejects a source file that is newer than its binary.
class VELL_API SourceFileUpToDateCheckValidator : public IValidatorCallback {
public:
  SourceFileUpToDateCheckValidator(const char *binaryPath, bool acceptIfNotNewer);
  virtual ~SourceFileUpToDateCheckValidator() = default;

  int validate(const char *fileName, IErrorInfoContainer &errorInfo) override;
  virtual bool fillUpToDateErrorMessage(ISourceFileUpToDateMessage &message, IMsgContainer &container);

  ExceptionDirsHelper &exceptionDirs() { return m_exceptionDirs; }

private:
  ExceptionDirsHelper m_exceptionDirs;
  int64_t m_binaryTime;
  bool m_binaryTimeKnown;
  bool m_acceptIfNotNewer;
  ObjectPtr<ISourceFileUpToDateMessage> m_upToDateMessage;
};

} // namespace VELL_2_13
