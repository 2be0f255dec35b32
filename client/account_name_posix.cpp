#include "client/account_name.h"

#include <array>
#include <pwd.h>
#include <unistd.h>

namespace printclient {

std::string accountName() {
  std::array<char, 16384> room;
  passwd entry{};
  passwd* found = nullptr;
  if (getpwuid_r(getuid(), &entry, room.data(), room.size(), &found) == 0 && found != nullptr) return found->pw_name;
  return std::to_string(getuid());
}

}  // namespace printclient
