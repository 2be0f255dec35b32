#include "corvane/byte_source.h"

#include "corvane/exception.h"

#include <memory>

namespace corvane {

std::wstring readText(std::span<const unsigned char> bytes) {
  try {
    return ValueReader(std::make_unique<SpanSource>(bytes)).readText();
  } catch (const CS_Exception&) {
    return L"the other side gave no readable reason";
  }
}

}  // namespace corvane
