#include "client/account_name.h"

#include <array>

#ifdef _WIN32

#include "corvane/base/text.h"

#include <windows.h>

namespace printclient {

std::string accountName() {
  std::array<wchar_t, 512> name{};
  DWORD size = name.size();
  if (!GetUserNameW(name.data(), &size)) return "unknown";
  return corvane::toUtf8(name.data());
}

}  // namespace printclient

#else

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

#endif
