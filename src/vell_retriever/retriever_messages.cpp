// User-visible texts of the HTTP retriever, from the "vell_retriever" catalog.
#include "vell_retriever/retriever_messages.h"

namespace VELL_2_13 {
namespace retriever {

namespace {
const char *const kCatalog = "vell_retriever";
} // namespace

std::string retrieverMessage(const char *id, const platform::MessageArguments &arguments) {
  std::shared_ptr<const platform::Catalog> catalog = platform::getMessageCatalog(kCatalog);
  if (!catalog)
    return std::string("%") + id;
  platform::Message message = catalog->message(id);
  if (message.size() == 0)
    return std::string("%") + id;
  return message.asText(arguments);
}

} // namespace retriever
} // namespace VELL_2_13
