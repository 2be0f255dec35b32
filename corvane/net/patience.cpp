#include "corvane/net/patience.h"

#include "corvane/base/limits.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"

#include <algorithm>

namespace corvane {

std::wstring durationText(std::chrono::milliseconds time) {
  if (time.count() % 1000 != 0) return std::to_wstring(time.count()) + L" ms";
  const auto seconds = time.count() / 1000;
  return std::to_wstring(seconds) + (seconds == 1 ? L" second" : L" seconds");
}

std::chrono::milliseconds SendAllowance::left() const {
  return std::max(std::chrono::ceil<std::chrono::milliseconds>(m_wait - m_waited), std::chrono::milliseconds(0));
}

std::size_t SendAllowance::window() const {
  return kSendWindow - m_taken;
}

void SendAllowance::took(std::size_t bytes) {
  m_taken += bytes;
  if (m_taken < kSendWindow) return;
  m_taken = 0;
  m_waited = Duration(0);
}

void SendAllowance::refuse() const {
  throw CS_Exception(kConnectionLost, L"the other side takes no more data: %u bytes in %s of waiting",
                     static_cast<unsigned>(m_taken), durationText(m_wait).c_str());
}

}  // namespace corvane
