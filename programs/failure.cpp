#include "programs/failure.h"

#include "corvane/exception.h"
#include "corvane/message_numbers.h"
#include "programs/one_line.h"

namespace programs {

std::string describe(const CS_Exception& failure) {
  const std::wstring_view detail = failure.detail();
  if (failure.number() == 0) return oneLine(detail);
  std::string text = oneLine(corvane::messageText(failure.number()));
  if (!detail.empty()) text += " " + oneLine(detail);
  return text;
}

}  // namespace programs
