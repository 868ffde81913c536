// Fuzzes the JSON property storage's reader: any input is either rejected as damaged or read into bags that
// are written and read back unchanged; nesting is bounded and never crashes.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include "platform/property_json_codec.h"

using namespace VELL_2_13::platform;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const std::string text(reinterpret_cast<const char *>(data), size);
  NamedBags bags;
  try {
    bags = documentFromJson(parseDocument(text));
  } catch (const std::exception &) {
    return 0; // damaged: the storage logs it and moves the file aside
  }
  // What was read is written back and read again to the same bags.
  const std::string written = documentToJson(bags).dump(1, '\t');
  NamedBags again;
  try {
    again = documentFromJson(parseDocument(written));
  } catch (const std::exception &) {
    std::abort(); // the storage's own output must always be readable
  }
  if (again != bags)
    std::abort();
  return 0;
}
