// The name of the user the process runs for.
#include <pwd.h>
#include <unistd.h>

#include <vector>

#include "vell/file_search.h"

namespace VELL_2_13 {
namespace utils {

// Searches on several threads ask at once: only the reentrant look-ups.
std::string getUserId() {
  char login[256];
  if (getlogin_r(login, sizeof login) == 0 && login[0] != '\0')
    return login;
  long suggested = sysconf(_SC_GETPW_R_SIZE_MAX);
  std::vector<char> buffer(suggested > 0 ? static_cast<size_t>(suggested) : 16384);
  passwd entry{};
  passwd *found = nullptr;
  if (getpwuid_r(geteuid(), &entry, buffer.data(), buffer.size(), &found) == 0 && found && found->pw_name)
    return found->pw_name;
  return "unknown_user";
}

} // namespace utils
} // namespace VELL_2_13
