// The process-wide registry of validation message objects.
#pragma once

#include "vell/validation.h"

namespace VELL_2_13 {

#define VELL_MESSAGE_MGR_SLOTS(Kind)                                                                         \
  void set##Kind##Message(ObjectPtr<I##Kind##Message> message) override { m_##Kind = message; }              \
  ObjectPtr<I##Kind##Message> get##Kind##Message() override { return m_##Kind; }

class MessageMgr : public RefCountImpl<IMessageMgr> {
public:
  MessageMgr() = default;
  ~MessageMgr() override;

  VELL_MESSAGE_MGR_SLOTS(BinChecksumMismatch)
  VELL_MESSAGE_MGR_SLOTS(SymChecksumMismatch)
  VELL_MESSAGE_MGR_SLOTS(SrcChecksumMismatch)
  VELL_MESSAGE_MGR_SLOTS(ModificationTimeMismatch)
  VELL_MESSAGE_MGR_SLOTS(SizeMismatch)
  VELL_MESSAGE_MGR_SLOTS(SourceFileUpToDate)
  VELL_MESSAGE_MGR_SLOTS(FileIsDirectory)
  VELL_MESSAGE_MGR_SLOTS(FileIsNotReadable)
  VELL_MESSAGE_MGR_SLOTS(FileDoesNotExist)
  VELL_MESSAGE_MGR_SLOTS(InvalidSymbolFile)
  VELL_MESSAGE_MGR_SLOTS(FileArchMismatch)
  VELL_MESSAGE_MGR_SLOTS(FileIsNotABinaryModule)
  VELL_MESSAGE_MGR_SLOTS(BinFileReadingError)
  VELL_MESSAGE_MGR_SLOTS(BinFileUnsupportedFormat)
  VELL_MESSAGE_MGR_SLOTS(FileIsNotRegular)

  // The process-wide manager (holds one reference), guarded by
  // g_messageMgrLock. Never destroyed, so that it outlives every static
  // object that might still validate during process exit.
  static ObjectPtr<IMessageMgr> &s_messageMgr;

private:
  ObjectPtr<IBinChecksumMismatchMessage> m_BinChecksumMismatch;
  ObjectPtr<ISymChecksumMismatchMessage> m_SymChecksumMismatch;
  ObjectPtr<ISrcChecksumMismatchMessage> m_SrcChecksumMismatch;
  ObjectPtr<IModificationTimeMismatchMessage> m_ModificationTimeMismatch;
  ObjectPtr<ISizeMismatchMessage> m_SizeMismatch;
  ObjectPtr<ISourceFileUpToDateMessage> m_SourceFileUpToDate;
  ObjectPtr<IFileIsDirectoryMessage> m_FileIsDirectory;
  ObjectPtr<IFileIsNotReadableMessage> m_FileIsNotReadable;
  ObjectPtr<IFileDoesNotExistMessage> m_FileDoesNotExist;
  ObjectPtr<IInvalidSymbolFileMessage> m_InvalidSymbolFile;
  ObjectPtr<IFileArchMismatchMessage> m_FileArchMismatch;
  ObjectPtr<IFileIsNotABinaryModuleMessage> m_FileIsNotABinaryModule;
  ObjectPtr<IBinFileReadingErrorMessage> m_BinFileReadingError;
  ObjectPtr<IBinFileUnsupportedFormatMessage> m_BinFileUnsupportedFormat;
  ObjectPtr<IFileIsNotRegularMessage> m_FileIsNotRegular;
};

#undef VELL_MESSAGE_MGR_SLOTS

} // namespace VELL_2_13
