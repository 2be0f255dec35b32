#include "protocol/administration.h"

#include <algorithm>

namespace protocol {

const ListedSession* ServerStatus::session(int number) const {
  const auto found = std::find_if(sessions.begin(), sessions.end(),
                                  [number](const ListedSession& session) { return session.number == number; });
  return found == sessions.end() ? nullptr : &*found;
}

std::wstring Notice::value(const std::wstring& name) const {
  const auto found =
      std::find_if(values.rbegin(), values.rend(), [&name](const auto& value) { return value.first == name; });
  return found == values.rend() ? std::wstring() : found->second;
}

}  // namespace protocol
