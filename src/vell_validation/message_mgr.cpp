// The message manager singleton and the registration of the default messages.
#include "vell_validation/message_mgr.h"

#include "vell_validation/messages.h"

namespace VELL_2_13 {

ObjectPtr<IMessageMgr> &MessageMgr::s_messageMgr = *new ObjectPtr<IMessageMgr>();

ObjectPtr<IMessageMgr> IMessageMgr::create() {
  VellLockWrap guard(&g_messageMgrLock);
  if (!MessageMgr::s_messageMgr) {
    MessageMgr::s_messageMgr = ObjectPtr<IMessageMgr>(new MessageMgr);
    initializeValidationMessages(MessageMgr::s_messageMgr);
  }
  return MessageMgr::s_messageMgr;
}

MessageMgr::~MessageMgr() {
  VellLockWrap guard(&g_messageMgrLock);
  // The slot holds a reference on the registered manager and is never let
  // go, so a manager dying here is never the registered one and leaves the
  // slot alone. Its message objects are released with its members.
}

void initializeValidationMessages(ObjectPtr<IMessageMgr> mgr) {
  if (!mgr)
    return;
  mgr->setBinChecksumMismatchMessage(
      new BinChecksumMismatchMessage(mgr->getBinChecksumMismatchMessageLock()));
  mgr->setSymChecksumMismatchMessage(
      new SymChecksumMismatchMessage(mgr->getSymChecksumMismatchMessageLock()));
  mgr->setSrcChecksumMismatchMessage(
      new SrcChecksumMismatchMessage(mgr->getSrcChecksumMismatchMessageLock()));
  mgr->setModificationTimeMismatchMessage(
      new ModificationTimeMismatchMessage(mgr->getModificationTimeMismatchMessageLock()));
  mgr->setSizeMismatchMessage(new SizeMismatchMessage(mgr->getSizeMismatchMessageLock()));
  mgr->setSourceFileUpToDateMessage(new SourceFileUpToDateMessage(mgr->getSourceFileUpToDateMessageLock()));
  mgr->setFileIsDirectoryMessage(new FileIsDirectoryMessage(mgr->getFileIsDirectoryMessageLock()));
  mgr->setFileIsNotReadableMessage(new FileIsNotReadableMessage(mgr->getFileIsNotReadableMessageLock()));
  mgr->setFileDoesNotExistMessage(new FileDoesNotExistMessage(mgr->getFileDoesNotExistMessageLock()));
  mgr->setInvalidSymbolFileMessage(new InvalidSymbolFileMessage(mgr->getInvalidSymbolFileMessageLock()));
  mgr->setFileArchMismatchMessage(new FileArchMismatchMessage(mgr->getFileArchMismatchMessageLock()));
  mgr->setFileIsNotABinaryModuleMessage(
      new FileIsNotABinaryModuleMessage(mgr->getFileIsNotABinaryModuleMessageLock()));
  mgr->setBinFileReadingErrorMessage(
      new BinFileReadingErrorMessage(mgr->getBinFileReadingErrorMessageLock()));
  mgr->setBinFileUnsupportedFormatMessage(
      new BinFileUnsupportedFormatMessage(mgr->getBinFileUnsupportedFormatMessageLock()));
  mgr->setFileIsNotRegularMessage(new FileIsNotRegularMessage(mgr->getFileIsNotRegularMessageLock()));
}

} // namespace VELL_2_13
