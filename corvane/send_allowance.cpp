#include "corvane/send_allowance.h"

#include "corvane/exception.h"
#include "corvane/limits.h"
#include "corvane/message_numbers.h"
#include "corvane/patience.h"

#include <algorithm>

namespace corvane {

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
