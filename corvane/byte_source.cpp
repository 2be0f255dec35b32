#include "corvane/byte_source.h"

#include "corvane/exception.h"
#include "corvane/limits.h"

#include <memory>

namespace corvane {

std::wstring readText(std::span<const unsigned char> bytes) {
  try {
    return ValueReader(std::make_unique<SpanSource>(bytes)).readText();
  } catch (const CS_Exception&) {
    return L"the other side gave no readable reason";
  }
}

std::wstring readReason(std::span<const unsigned char> bytes) {
  std::wstring reason = readText(bytes);
  if (reason.size() <= kMaxReasonCharacters) return reason;
  return reason.substr(0, kMaxReasonCharacters) + L"...";
}

}  // namespace corvane
