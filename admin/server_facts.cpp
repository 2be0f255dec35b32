#include "admin/server_facts.h"

namespace admin {

const SessionFacts* ServerFacts::session(int number) const {
  for (const SessionFacts& session : sessions) {
    if (session.number == number) return &session;
  }
  return nullptr;
}

std::wstring Notice::value(const std::wstring& name) const {
  const auto found = values.find(name);
  return found == values.end() ? std::wstring() : found->second;
}

}  // namespace admin
