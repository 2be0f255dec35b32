#pragma once

#include <cstdint>

// What the utility classes throw: a status code (util/status.h) and nothing else, so that throwing it never needs
// memory for a text. Copying copies the code.
class UTL_Exception {
 public:
  explicit UTL_Exception(std::int32_t code = 0) noexcept : m_code(code) {}
  UTL_Exception(const UTL_Exception&) noexcept = default;
  UTL_Exception& operator=(const UTL_Exception&) noexcept = default;
  virtual ~UTL_Exception() = default;

  std::int32_t code() const noexcept { return m_code; }

 private:
  std::int32_t m_code;
};
