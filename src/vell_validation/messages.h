// The library's default message object of each validation failure kind: each
// looks its text up in the "vell_common" catalog on every call.
#pragma once

#include "vell/validation.h"

namespace VELL_2_13 {

#define VELL_FILE_MESSAGE_CLASS(Kind)                                                                        \
  class Kind##Message : public RefCountImpl<I##Kind##Message> {                                              \
  public:                                                                                                    \
    explicit Kind##Message(ILock *lock) : RefCountImpl<I##Kind##Message>(lock) {}                            \
    /* Puts the catalog text with "arg1" = fileName into container; false when */                            \
    /* the catalog or the message is not available. */                                                       \
    bool fillMessage(IMsgContainer &container, const char *fileName) override;                               \
  };

VELL_FILE_MESSAGE_CLASS(BinChecksumMismatch)
VELL_FILE_MESSAGE_CLASS(SymChecksumMismatch)
VELL_FILE_MESSAGE_CLASS(SrcChecksumMismatch)
VELL_FILE_MESSAGE_CLASS(ModificationTimeMismatch)
VELL_FILE_MESSAGE_CLASS(SizeMismatch)
VELL_FILE_MESSAGE_CLASS(SourceFileUpToDate)

class FileIsDirectoryMessage : public RefCountImpl<IFileIsDirectoryMessage> {
public:
  explicit FileIsDirectoryMessage(ILock *lock) : RefCountImpl<IFileIsDirectoryMessage>(lock) {}
  // Puts the catalog text (no arguments) into container.
  bool fillMessage(IMsgContainer &container) override;
};

VELL_FILE_MESSAGE_CLASS(FileIsNotReadable)
VELL_FILE_MESSAGE_CLASS(FileDoesNotExist)
VELL_FILE_MESSAGE_CLASS(InvalidSymbolFile)
VELL_FILE_MESSAGE_CLASS(FileArchMismatch)
VELL_FILE_MESSAGE_CLASS(FileIsNotABinaryModule)
VELL_FILE_MESSAGE_CLASS(BinFileReadingError)
VELL_FILE_MESSAGE_CLASS(BinFileUnsupportedFormat)
VELL_FILE_MESSAGE_CLASS(FileIsNotRegular)

#undef VELL_FILE_MESSAGE_CLASS

} // namespace VELL_2_13
