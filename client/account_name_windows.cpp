#include "client/account_name.h"
#include "corvane/base/text.h"

#include <windows.h>

#include <array>

namespace printclient {

std::string accountName() {
  std::array<wchar_t, 512> name{};
  DWORD size = name.size();
  if (!GetUserNameW(name.data(), &size)) return "unknown";
  return corvane::toUtf8(name.data());
}

}  // namespace printclient
