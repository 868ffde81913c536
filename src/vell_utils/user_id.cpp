// The name of the user the process runs for.
#include <pwd.h>
#include <unistd.h>

#include "vell/file_search.h"

namespace VELL_2_13 {
namespace utils {

std::string getUserId() {
  if (const char *login = getlogin())
    return login;
  if (const passwd *entry = getpwuid(geteuid())) {
    if (entry->pw_name)
      return entry->pw_name;
  }
  return "unknown_user";
}

} // namespace utils
} // namespace VELL_2_13
