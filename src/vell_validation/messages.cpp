// Default validation messages: catalog "vell_common", message id per kind,
// the file name as argument "arg1".
#include "vell_validation/messages.h"

#include "vell/platform.h"

namespace VELL_2_13 {

const char *const VALIDATOR_MESSAGES_CATALOG = "vell_common";

namespace {

// Formats the catalog message id with arguments into container; false (and
// the container untouched) when the catalog is missing or empty, or lacks id.
bool fillFromCatalog(IMsgContainer &container, const char *id, const platform::MessageArguments &arguments) {
  std::shared_ptr<const platform::Catalog> catalog = platform::getMessageCatalog(VALIDATOR_MESSAGES_CATALOG);
  if (!catalog || catalog->size() == 0)
    return false;
  platform::Message message = catalog->message(id);
  if (message.size() == 0)
    return false;
  container.put(message.asText(arguments).c_str());
  return true;
}

bool fillWithFileName(IMsgContainer &container, const char *id, const char *fileName) {
  return fillFromCatalog(container, id, {{"arg1", fileName ? fileName : ""}});
}

} // namespace

#define VELL_FILE_MESSAGE_FILL(Kind)                                                                         \
  bool Kind##Message::fillMessage(IMsgContainer &container, const char *fileName) {                          \
    return fillWithFileName(container, #Kind, fileName);                                                     \
  }

VELL_FILE_MESSAGE_FILL(BinChecksumMismatch)
VELL_FILE_MESSAGE_FILL(SymChecksumMismatch)
VELL_FILE_MESSAGE_FILL(SrcChecksumMismatch)
VELL_FILE_MESSAGE_FILL(ModificationTimeMismatch)
VELL_FILE_MESSAGE_FILL(SizeMismatch)
VELL_FILE_MESSAGE_FILL(SourceFileUpToDate)
VELL_FILE_MESSAGE_FILL(FileIsNotReadable)
VELL_FILE_MESSAGE_FILL(FileDoesNotExist)
VELL_FILE_MESSAGE_FILL(InvalidSymbolFile)
VELL_FILE_MESSAGE_FILL(FileArchMismatch)
VELL_FILE_MESSAGE_FILL(FileIsNotABinaryModule)
VELL_FILE_MESSAGE_FILL(BinFileReadingError)
VELL_FILE_MESSAGE_FILL(BinFileUnsupportedFormat)
VELL_FILE_MESSAGE_FILL(FileIsNotRegular)

#undef VELL_FILE_MESSAGE_FILL

bool FileIsDirectoryMessage::fillMessage(IMsgContainer &container) {
  return fillFromCatalog(container, "FileIsDirectory", {});
}

} // namespace VELL_2_13
