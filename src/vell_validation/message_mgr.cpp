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
  // The slot keeps the registered manager alive, so a manager dying here is a
  // separate one; it still resets the process-wide manager, whose successor is
  // built afresh (with the default messages) by the next create(). The slot is
  // emptied before the old manager is let go: its own destructor takes this
  // (recursive) lock again and must find the slot empty.
  ObjectPtr<IMessageMgr> registered = MessageMgr::s_messageMgr;
  MessageMgr::s_messageMgr = ObjectPtr<IMessageMgr>();
  registered = ObjectPtr<IMessageMgr>();
  // The message objects are released with the members.
}

// The manager is taken by value, as hosts call it with a fresh handle.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
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
